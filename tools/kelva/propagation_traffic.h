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
///  - each separator S is written by a fold and read as a factor in each
///    direction; in the distribute, its update also reads the new and old
///    values and writes the quotient and the new values (4S): 8S in all (the
///    collect's quotients after a rebuild are the new values themselves);
///  - each discrete node's marginal writes one entry per state.
/// Continuous members and CG parts are not counted.  Throws ApiError.
ForestShape read_forest_shape(k_domain_t domain);

}  // namespace kelva::cli
