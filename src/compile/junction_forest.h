#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "compile/compress.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"
#include "network/node_list.h"
#include "network/object.h"
#include "network/peer.h"
#include "table/index_plan.h"
#include "table/size.h"
#include "table/sweep.h"
#include "table/table.h"

namespace kelva {

class CompileLog;
class Clique;
class JunctionTree;
class CgTree;
class CollectMemo;
class SweepPlan;
struct NodeSlot;

/// The CG state of a tree, made and destroyed by the inference layer.
using CgTreePtr = Owned<CgTree>;

/// The number of CG entries per discrete configuration of a table with
/// `continuous` continuous nodes: one mean each and the c(c+1)/2 entries of
/// their covariance matrix, c(c+3)/2 in all (0 without continuous nodes).
/// A table's weight, as triangulation counts it, is its discrete size times
/// one plus this count.
constexpr std::uint64_t cg_entries_for(std::uint64_t continuous) noexcept {
  return continuous % 2 == 0 ? continuous / 2 * (continuous + 3)
                             : (continuous + 3) / 2 * continuous;
}

/// The CG entries of a table of `discrete_size` discrete configurations with
/// `cg_entries` CG entries each: their product, saturating, and 0 when there
/// are none even if the discrete size is too large.
constexpr std::uint64_t cg_table_size(std::uint64_t discrete_size,
                                      std::uint64_t cg_entries) noexcept {
  return cg_entries == 0 ? 0 : sat_mul(discrete_size, cg_entries);
}

/// The link between two neighbouring cliques: the table over the
/// intersection of their members, and the plans that map each clique's
/// table onto it.  `parent` is the clique nearer the root of the tree.
struct Separator {
  Clique* parent = nullptr;
  Clique* child = nullptr;
  NodeList members;       ///< discrete members first, in the table's order
  TablePtr table;         ///< role potential, over `members`
  IndexPlan parent_plan;  ///< parent's clique table -> separator table
  IndexPlan child_plan;   ///< child's clique table -> separator table
  /// Room for the new separator values of a message, so that message
  /// passing allocates nothing (one entry per separator entry).  Its buffer
  /// and the table's are exchanged (Table::swap_data) when the new values
  /// become the table's, so it holds exactly as many entries.
  DoubleBuffer scratch;
};

/// One clique of a junction tree.
class Clique : public Object {
 public:
  Clique() : Object(ObjectTag::clique) {}

  std::uint64_t number = 0;  ///< written in the log; cliques are numbered from 0
  JunctionTree* tree = nullptr;
  /// The members in the order of the clique table (discrete first); the
  /// list handed out by k_clique_get_members.
  NodeList members;
  TablePtr table;  ///< role potential, over `members`
  std::uint64_t discrete_members = 0;
  std::uint64_t continuous_members = 0;
  std::uint64_t discrete_size = 1;  ///< product of discrete state counts, saturating
  std::uint64_t cg_entries = 0;     ///< CG entries per discrete configuration
  /// Discrete size times CG entries, saturating (0 without continuous members).
  std::uint64_t cg_size() const noexcept { return cg_table_size(discrete_size, cg_entries); }
  Clique* parent = nullptr;  ///< neighbour towards the root, null at the root

  /// One entry per neighbour, in the order the links were made.
  struct Link {
    Clique* neighbour;
    Separator* separator;
  };
  std::vector<Link> links;
  /// The neighbours as a null-ended list (k_clique_get_neighbors).
  PtrList<Clique> neighbours;

  // Propagation state.
  double normalization_factor = 1.0;
  double conflict_factor = 1.0;
  /// The plan from the clique table onto no node (its total); made by the
  /// first propagation and kept, so that later ones allocate nothing.
  IndexPlan total_plan;
  /// The discrete nodes whose home this clique is, in the tree's node
  /// order, and room for the factors and folds of one sweep over the
  /// clique (see the inference layer); kept by propagation so that it
  /// allocates nothing after the first.
  std::vector<NodeSlot*> homed;
  /// The records of the members whose tables are assigned to this clique,
  /// in the members' order (kept with `homed`).
  std::vector<NodeSlot*> assigned_nodes;
  std::vector<SweepFactor> sweep_factors;
  std::vector<SweepFold> sweep_folds;
  /// Set by a collect sweep that only folded the rebuilt table and left the
  /// clique's entries as they were: the distribute sweep rebuilds them from
  /// the collect's factors (still in sweep_factors) before it multiplies.
  bool rebuild_pending = false;

  void* backpointer = nullptr;
  PeerRef peer = nullptr;  ///< "cliquePeer"
};

/// One junction tree of the forest, with its propagation state.
class JunctionTree : public Object {
 public:
  explicit JunctionTree(Domain& domain) : Object(ObjectTag::junction_tree), domain(&domain) {}

  Domain* domain;
  Clique* root = nullptr;
  /// The tree's cliques in number order (parents before children); the
  /// null-ended list handed out by k_jt_get_cliques.
  PtrList<Clique> cliques;
  /// The nodes of this tree in the domain's node-list order (newest first):
  /// its discrete and continuous nodes (those without a table of their own,
  /// decision nodes and chain-graph members, included) and the utility
  /// nodes whose tables are assigned to its cliques.
  NodeList nodes;

  // Propagation state (see the inference layer).
  bool needs_initialisation = true;  ///< clique tables must be rebuilt from node tables
  bool tables_changed = false;       ///< a node table assigned here changed
  k_equilibrium_t equilibrium = K_EQUILIBRIUM_NONE;
  k_evidence_mode_t mode = K_MODE_NORMAL;
  std::uint64_t evidence_to_propagate = 0;  ///< nodes whose evidence changed
  bool evidence_propagated = false;
  bool likelihood_propagated = false;
  bool cg_evidence_propagated = false;
  double normalization_constant = 1.0;
  double log_normalization_constant = 0.0;
  double conflict = 1.0;
  /// The domain's table-change count when the clique tables were last
  /// initialised: a different count means a node table may have changed.
  std::uint64_t table_changes_seen = 0;
  /// The root clique of the last propagation (the conflict clique of the
  /// tree's nodes); null before the first one.
  Clique* last_root = nullptr;
  /// What the room of propagation was last made for (see the inference
  /// layer): the table-change count, compression, utility nodes and sweeps.
  /// A propagation with the same finds it made and does not walk it again.
  struct Prepared {
    bool done = false;
    std::uint64_t table_changes = 0;
    const void* compressed = nullptr;
    std::uint64_t utilities = 0;
    bool sweeps = false;
    bool operator==(const Prepared&) const = default;
  } prepared;

  /// One message link of a propagation: `inner` is the clique on the root
  /// side, `outer` the other one, with the plans from each clique's table
  /// onto the separator.
  struct Message {
    Clique* inner;
    Clique* outer;
    Separator* separator;
    const IndexPlan* inner_plan;
    const IndexPlan* outer_plan;
    /// Position of the link that reaches `inner` (none for the root's
    /// links), and of the first link leaving `outer` (none for a leaf).
    std::size_t parent;
    std::size_t first_child;
    /// This is the first link leaving `inner`.
    bool first_out;
    /// The first link leaving `inner` whose plan from it is this link's
    /// (the same separator members in the same order), or this link's own
    /// position: `inner` folds once onto such twins (inference layer).
    std::size_t twin;
  };
  static constexpr std::size_t kNoLink = static_cast<std::size_t>(-1);
  /// Links [first, end) of the schedule: those leaving the outer clique of
  /// link i (the root's links for kNoLink).
  std::pair<std::size_t, std::size_t> link_children(std::size_t i) const noexcept {
    const std::size_t first = i == kNoLink ? 0 : schedule[i].first_child;
    if (first == kNoLink) return {0, 0};
    std::size_t end = first;
    while (end < schedule.size() && schedule[end].parent == i) ++end;
    return {first, end};
  }
  /// The links ordered root-first for `schedule_root`: distribute walks them
  /// forwards, collect backwards.  Rebuilt (without allocating) when another
  /// root is asked for.
  std::vector<Message> schedule;
  Clique* schedule_root = nullptr;
  /// The schedule shared between two threads (see the inference layer),
  /// made for `split_root` and `split_grain`: per link its role, and the
  /// links of the subtrees the second thread propagates, grouped by subtree
  /// (group g is split_links[split_starts[g] .. split_starts[g + 1])).  No
  /// groups: one thread.
  std::vector<std::uint8_t> split_role;
  std::vector<std::size_t> split_links;
  std::vector<std::size_t> split_starts;
  /// Per link, the factor of a scaled collect (summed in schedule order).
  std::vector<double> split_scales;
  /// Room for making a split without allocating.
  std::vector<std::uint64_t> split_weight;
  std::vector<std::size_t> split_group;
  Clique* split_root = nullptr;
  std::uint64_t split_grain = 0;
  /// Room for one evidence or ratio vector (as many entries as the largest
  /// state count among the tree's nodes).
  std::vector<double> evidence_scratch;
  /// Room for one clique table (the largest of the tree) when the domain
  /// has utility nodes: the expected utilities of discrete nodes.
  std::vector<double> utility_scratch;
  /// Whether the next collect rebuilds each clique from its node tables
  /// (set with the evidence it multiplies in; see the inference layer).
  bool sweep_rebuild = false;
  /// Whether the next collect multiplies in each home node's entered
  /// evidence, made as its clique is swept (else the waiting factors).
  bool sweep_entered = false;
  /// Whether two threads walk the passes together (set by each
  /// propagation; see the inference layer).
  bool sweep_shared = false;
  /// The continuous part (null without continuous nodes, until the first
  /// propagation).
  CgTreePtr cg;
  /// Collected cliques by the evidence that made them (see the inference
  /// layer); null until a case-by-case propagation first needs it.
  Owned<CollectMemo> collect_memo;
  /// The sweeps' kernels chosen once (see the inference layer); null until
  /// a one-thread propagation with the sweeps first needs it.
  Owned<SweepPlan> sweep_plan;

  void* backpointer = nullptr;
  PeerRef peer = nullptr;  ///< "jtPeer"
};

/// What the forest knows of one participating node (discrete, continuous or
/// utility), found through Node::forest_slot.
struct NodeSlot {
  Node* node = nullptr;
  JunctionTree* tree = nullptr;
  /// The clique into which the node's table (its policy or conditional
  /// table, or its utility table) is multiplied, and the plan from that
  /// clique's table to the node's table (the node's view).  Null for nodes
  /// without a table of their own (decision nodes, chain-graph members).
  Clique* assigned = nullptr;
  IndexPlan assigned_plan;
  /// Where the assigned clique's inner run would read the node's table by
  /// a stride and the clique is much larger than the table: a copy of the
  /// table with its nodes in the clique's member order, made again by
  /// every rebuild (`order_plan`: copy -> node table), and the plan from
  /// the clique's table onto it, which then reads contiguous runs (inference
  /// layer; empty otherwise).
  DoubleBuffer ordered;
  IndexPlan order_plan;
  IndexPlan ordered_plan;
  /// For discrete and continuous nodes: the clique from which the node's
  /// marginal is read and into which its evidence is multiplied (the
  /// smallest clique holding the node), and the plan from that clique's
  /// table to the node alone.
  Clique* home = nullptr;
  IndexPlan home_plan;
  /// The node's marginal (beliefs, or max-marginals) as of the last
  /// propagation; one entry per state.
  std::vector<double> marginal;
  /// For a discrete node: its evidence (or the ratio of new to propagated
  /// evidence) waiting to be multiplied into the home clique by the next
  /// collect, when `factor_waiting`.
  std::vector<double> evidence_factor;
  bool factor_waiting = false;
  /// A discrete node of one state, whose only state says nothing new
  /// when selected (the count of evidence to propagate skips it).
  bool one_state = false;
  /// Expected utilities as of the last propagation when the domain has
  /// utility nodes: one per state of a discrete node, a single one for a
  /// utility node; empty otherwise.
  std::vector<double> expected_utility;
  /// For a decision node: the expected utility of each option given each
  /// configuration of its parents, laid out as its policy table.
  std::vector<double> decision_utilities;
  /// For a decision node: the variance of the total utility of each option
  /// (set beside expected_utility).
  std::vector<double> utility_variance;
  /// Mean and variance of a continuous node's marginal as of the last
  /// propagation; NaN while they are not known.
  double mean = std::numeric_limits<double>::quiet_NaN();
  double variance = std::numeric_limits<double>::quiet_NaN();
};

/// The potential of a chain-graph component, assigned to a clique that
/// holds all of the component's parents.
struct ComponentSlot {
  const ChainComponent* component = nullptr;
  Clique* assigned = nullptr;
  IndexPlan assigned_plan;  ///< assigned clique table -> component table
};

/// The junction forest of a triangulated domain: one junction tree per
/// connected part, and the per-node records.  Owned by the domain; freeing
/// it clears the nodes' forest slots.
class Forest {
 public:
  explicit Forest(Domain& owner);
  ~Forest();
  Forest(const Forest&) = delete;
  Forest& operator=(const Forest&) = delete;

  Domain* domain;
  /// The trees in the order they were created; `first` of the domain's list.
  std::vector<std::unique_ptr<JunctionTree>> trees;
  /// Every clique in number order (the domain's clique list).
  std::vector<std::unique_ptr<Clique>> cliques;
  std::vector<std::unique_ptr<Separator>> separators;
  /// Indexed by Node::forest_slot.
  std::vector<NodeSlot> nodes;
  std::vector<ComponentSlot> components;
  /// The participating nodes in elimination order (first eliminated first),
  /// null-ended; handed out by k_domain_get_elimination_order.
  NodeList elimination_order;
  /// Cost of the triangulation (sum of the clique weights).
  double triangulation_cost = 0.0;
  /// The compressed clique and separator tables, null unless the domain is
  /// compressed (their full tables then hold no data).
  std::unique_ptr<CompressedForest> compressed;

  /// The record of `node`, or null when it takes no part.
  NodeSlot* slot(const Node& node) noexcept {
    return node.forest_slot < nodes.size() ? &nodes[node.forest_slot] : nullptr;
  }
  /// The tree after `tree` in the forest, or null.
  JunctionTree* next(const JunctionTree* tree) const noexcept;
};

/// The cliques produced by triangulation, each a set of participating
/// nodes, in the order triangulation recorded them, with the elimination
/// order and the triangulated graph's cost.
struct Triangulation {
  std::vector<std::vector<Node*>> cliques;
  std::vector<Node*> elimination_order;  ///< first eliminated first
  /// Every link of the triangulated graph (moral links, necessary fill-ins
  /// and the fill-ins kept), each once.
  std::vector<std::pair<Node*, Node*>> links;
  double cost = 0.0;
};

/// Builds the junction forest of `domain` from `triangulation`: orders the
/// cliques and fixes their link candidates, makes the clique records,
/// links them into junction trees (separators), allocates the clique and
/// separator tables with their index plans, gives nodes without a table
/// their default table (with the warning), and assigns node tables and
/// chain-graph potentials to cliques, writing the "Cliques", "The junction
/// forest", "Checking tables for all nodes" and "Assignment of potentials to
/// cliques" sections to `log`.  Throws Error (no_memory, io, error); the
/// domain is unchanged on failure except for default tables already given.
ForestPtr build_junction_forest(Domain& domain, const Triangulation& triangulation,
                                CompileLog& log);

}  // namespace kelva
