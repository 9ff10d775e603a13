#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "learning/pdag.h"
#include "network/node_list.h"
#include "network/object.h"

namespace kelva {

class Domain;
class Node;

/// The necessary path condition of an independence statement x ⫫ y | s in
/// an undirected graph: every z of s is joined to x by a path that avoids y,
/// and to y by a path that avoids x.
bool necessary_path_condition(const Pdag& graph, std::size_t x, std::size_t y,
                              const std::vector<std::size_t>& s);

/// What the NPC search finds before anyone chooses: the PC-stable skeleton
/// with every pair unlinked, the uncertain pairs (unlinked by a statement
/// that fails the condition in that skeleton) and their grouping into
/// regions (the uncertain pairs inside one connected component of the
/// skeleton plus all uncertain pairs), each region's pairs in order.
struct NpcAnalysis {
  PcSkeleton pc;
  std::vector<std::pair<std::size_t, std::size_t>> uncertain;  ///< (a, b), a < b
  std::vector<std::vector<std::size_t>> regions;               ///< indexes into uncertain
};

NpcAnalysis npc_analyse(std::size_t n, const IndependenceOracle& independent,
                        const EdgeRules& rules);

/// Whether putting back the uncertain pairs of `region` marked in `present`
/// (by index into uncertain) lets the statements of the others hold.
bool npc_is_solution(const NpcAnalysis& analysis, const std::vector<std::size_t>& region,
                     const std::vector<std::uint8_t>& present);

/// The decision on an uncertain edge.
enum class EdgeDecision : std::uint8_t { open, present, absent };

/// The minimal solutions of a region under the decisions (by index into
/// uncertain): sets of uncertain pairs, holding every present pair and no
/// absent one, whose return makes every other statement of the region hold
/// and of which no proper subset does so; smallest first, then in
/// lexicographic order of their indexes.  Throws Error(usage) when the
/// region has more than kMaxOpenEdges open pairs.
std::vector<std::vector<std::size_t>> npc_minimal_solutions(
    const NpcAnalysis& analysis, const std::vector<std::size_t>& region,
    const std::vector<EdgeDecision>& decisions);
inline constexpr std::size_t kMaxOpenEdges = 16;

/// The PDAG of the skeleton plus the uncertain pairs marked in `present`:
/// the statements of the pairs left out keep their separating sets for the
/// v-structures.
Pdag npc_pdag(const NpcAnalysis& analysis, const std::vector<std::uint8_t>& present,
              const EdgeRules& rules);

struct NpcState;
class AmbiguousRegion;

/// An uncertain edge: a pair of nodes the tests unlinked by a statement that
/// fails the necessary path condition.
class UncertainEdge : public Object {
 public:
  UncertainEdge() noexcept : Object(ObjectTag::uncertain_edge) {}
  NpcState* state = nullptr;
  std::size_t index = 0;  ///< into NpcAnalysis::uncertain
  EdgeDecision decision = EdgeDecision::open;
};

/// One way to resolve a region: the uncertain edges it puts back.
class Solution : public Object {
 public:
  Solution() noexcept : Object(ObjectTag::solution) {}
  PtrList<UncertainEdge> edges;
  Solution* next = nullptr;
};

/// A group of uncertain edges whose choices depend on each other, with its
/// current list of solutions; the first solution is the one installed.
class AmbiguousRegion : public Object {
 public:
  AmbiguousRegion() noexcept : Object(ObjectTag::ambiguous_region) {}
  NpcState* state = nullptr;
  std::vector<std::size_t> members;  ///< indexes into NpcAnalysis::uncertain
  PtrList<UncertainEdge> edges;
  std::vector<std::unique_ptr<Solution>> solutions;
  AmbiguousRegion* next = nullptr;
  bool minimal = false;  ///< the list holds the minimal solutions
};

/// The outcome of the last NPC run of a domain.
struct NpcState {
  Domain* domain = nullptr;
  std::vector<std::uint64_t> serials;  ///< the variables' node serials
  NpcAnalysis analysis;
  EdgeRules rules;
  std::vector<std::unique_ptr<UncertainEdge>> edges;
  std::vector<std::unique_ptr<AmbiguousRegion>> regions;
  /// The links NPC installed last, (child serial, parent serial) sorted.
  std::vector<std::pair<std::uint64_t, std::uint64_t>> installed;
};

/// NPC on the domain's cases with the G² test: installs the structure with
/// every uncertain edge present and keeps the regions.
void learn_structure_npc(Domain& domain);

/// The first region of the last NPC run (null when it found none).  Throws
/// Error(usage) when there was no run or the links changed since.
AmbiguousRegion* first_ambiguous_region(Domain& domain);
/// Throws Error(usage) when the links of the region's domain changed since
/// NPC installed them.
void check_current(const NpcState& state);
/// Replaces the region's solutions by its minimal ones and installs the
/// first.
void find_minimal_solutions(AmbiguousRegion& region);
/// Records the decision that the edge is present or absent, recomputes its
/// region's solutions and installs the first; Error(usage) and no change
/// when no solution is left.
void decide_uncertain_edge(UncertainEdge& edge, bool present);
/// The nodes of an uncertain edge, older node first.
Node& uncertain_edge_node(const UncertainEdge& edge, bool first);

}  // namespace kelva
