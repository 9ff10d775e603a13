#pragma once

#include <cstdint>
#include <vector>

namespace kelva {

class Clique;
class Domain;
class Forest;
struct Separator;
struct NodeSlot;

/// A clique table that keeps only its non-zero entries (0.0 is the only
/// zero; NaN is kept), in index order.
struct CompressedClique {
  /// The index in the full table of each kept entry.
  std::vector<std::uint64_t> index;
  /// The kept entries.
  std::vector<double> values;
};

/// A separator table that keeps the entries some kept clique entry maps
/// to, or that are non-zero, with the maps from each neighbour's kept
/// entries to its own.
struct CompressedSeparator {
  const Separator* separator = nullptr;
  std::vector<double> values;
  /// Room for a message (as many entries as `values`).
  std::vector<double> scratch;
  /// Position in `values` of the separator entry of each kept entry of the
  /// parent clique, and of the child clique.
  std::vector<std::uint32_t> parent_map;
  std::vector<std::uint32_t> child_map;
};

/// The compressed tables of a junction forest and their index maps.  Index
/// maps into tables other than clique tables are 32-bit, so such a table
/// may keep at most 4294967295 entries.
struct CompressedForest {
  /// Indexed by clique number.
  std::vector<CompressedClique> cliques;
  /// Sorted by separator address (found by binary search).
  std::vector<CompressedSeparator> separators;
  /// Per node record (Forest::nodes order): the index in the node's table
  /// of each kept entry of its assigned clique, and its state for each kept
  /// entry of its home clique; empty where the node has no such clique.
  std::vector<std::vector<std::uint32_t>> assigned_maps;
  std::vector<std::vector<std::uint32_t>> home_maps;
  /// Per chain-graph component (Forest::components order); components are
  /// refused by compression, so this stays empty.
  std::vector<std::vector<std::uint32_t>> component_maps;

  CompressedClique& clique(const Clique& clique) noexcept;
  CompressedSeparator& separator(const Separator& separator) noexcept;
  /// The maps of `slot`, one of the forest's node records.
  const std::vector<std::uint32_t>& assigned_map(const Forest& forest,
                                                 const NodeSlot& slot) const noexcept;
  const std::vector<std::uint32_t>& home_map(const Forest& forest,
                                             const NodeSlot& slot) const noexcept;
};

/// Compresses the clique and separator tables of the compiled `domain`
/// (k_domain_compress) and returns the total number of table entries after
/// compression over the number before, clique and separator tables
/// counted.  Error(usage) for a domain with chain-graph components,
/// utility nodes or CG cliques, Error(not_compiled), Error(no_equilibrium)
/// when a tree holds no equilibrium, Error(table_too_large) when a separator or a node table
/// would need more than 4294967295 entries; nothing changes on failure.  On
/// a domain already compressed nothing changes and the ratio is 1.
double compress_domain(Domain& domain);

}  // namespace kelva
