#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace kelva {

class CompileLog;
class Domain;
class Node;

/// The undirected graph that triangulation starts from: the participating
/// (discrete and continuous) nodes of a domain, joined by the links of the
/// moral graph and the necessary fill-ins of mixed networks.
struct MoralGraph {
  /// The vertices in the domain's node-list order (newest first).
  std::vector<Node*> vertices;
  /// Per vertex, its neighbours as positions in `vertices`, in the order in
  /// which they were collected (parents, children, undirected links,
  /// co-parents, then necessary fill-ins).
  std::vector<std::vector<std::uint32_t>> neighbours;
  /// Position of each vertex in `vertices`.
  std::unordered_map<const Node*, std::uint32_t> position;

  std::size_t size() const noexcept { return vertices.size(); }
  bool adjacent(std::uint32_t a, std::uint32_t b) const noexcept;
};

/// Builds the moral graph of `domain`, writing the "Moral links" section
/// (one "Marrying" line per new link, from its older endpoint) and, when the
/// domain has both discrete and continuous nodes, the "Necessary fill-ins"
/// section.  Throws Error (no_memory, io).
MoralGraph build_moral_graph(const Domain& domain, CompileLog& log);

}  // namespace kelva
