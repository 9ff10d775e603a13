#pragma once

#include <cstdint>

#include "kelva/kelva.h"

namespace kelva::cli {

/// The shape of a compiled domain's junction forest, read through the C API.
struct ForestShape {
  std::uint64_t cliques = 0;
  /// Sum of the cliques' discrete table sizes.
  double total_clique_size = 0.0;
  /// Bytes of table entries one full propagation reads and writes (see
  /// propagation_bytes).
  double bytes_per_propagation = 0.0;
};

/// Reads the cliques of every junction tree of the compiled `domain` and
/// counts the table traffic of one full propagation without evidence, 8
/// bytes per double read or written, as discrete trees propagate: one
/// sweep per clique and pass, each block of the clique table worked on
/// while it is in the first-level cache.
///  - collect: each clique is rebuilt from its node tables and its
///    children's messages and folded onto its parent's separator in one
///    sweep that writes it once (C); each node table is read once;
///  - distribute: each clique is multiplied by its parent's message and
///    folded onto every child separator and its home nodes' marginals in one
///    sweep that reads and writes it once (2C);
///  - at each root, its total reads it once more (R);
///  - each separator S is written by the child's fold and read as a factor
///    by the parent in the collect (after a rebuild the quotients are the
///    new values themselves); in the distribute, the parent's fold writes
///    the new values, which become the separator table by an exchange of
///    buffers, and the child's sweep reads the new and old values, making
///    their quotient per separator entry as it reaches it (3S): 5S in all.
///    This is the path of one thread from the tree's own root; a sweep
///    shared between threads, or a separator that does not lead the
///    child's table (another root), has the quotients written to the
///    scratch and read back (2S more);
///  - each discrete node's marginal writes one entry per state.
/// Two threads walking the passes together save more: a large clique of
/// at most two factors is only folded by the collect and written by the
/// distribute (1C instead of 3C); the model counts one thread's path.
/// Continuous members and CG parts are not counted.  Throws ApiError.
ForestShape read_forest_shape(k_domain_t domain);

}  // namespace kelva::cli
