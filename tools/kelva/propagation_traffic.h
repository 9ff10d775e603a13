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
/// bytes per double read or written, by each kernel's operands:
///  - initialisation: each clique table is written once; each node table is
///    multiplied into the smallest clique that holds its discrete nodes
///    (read the node table, read and write the clique table);
///  - each of the two messages over a link from clique A to clique B through
///    separator S: marginalising A reads A and writes S; the update of the
///    separator reads the new and old S and writes the quotient and the new
///    S (4 S); multiplying B by the quotient reads S and reads and writes B:
///    A + 2B + 6S in all;
///  - at each root: the sum reads the root table, the normalisation reads
///    and writes it (3 R);
///  - each discrete node's marginal reads the smallest clique holding it and
///    writes one entry per state.
/// Continuous members and CG parts are not counted.  Throws ApiError.
ForestShape read_forest_shape(k_domain_t domain);

}  // namespace kelva::cli
