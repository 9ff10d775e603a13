#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace kelva::cli {

/// The beliefs of one discrete node after propagation.
struct NodeBeliefs {
  std::string name;
  /// One label per state; the empty text for an unlabelled state.
  std::vector<std::string> labels;
  std::vector<double> beliefs;
  /// Whether evidence was entered on the node.
  bool evidence = false;
  /// A continuous node: `beliefs` are its mean and variance, drawn
  /// without bars.
  bool moments = false;
};

/// The results of `kelva beliefs`.
struct BeliefsInfo {
  /// Where the network came from.
  std::string source;
  k_equilibrium_t equilibrium = K_EQUILIBRIUM_SUM;
  /// The evidence as given on the command line (NODE=STATE).
  std::vector<std::string> findings;
  /// Every discrete node (chance, decision, discrete function), in the
  /// domain's order.
  std::vector<NodeBeliefs> nodes;
  double normalization_constant = 0.0;
  /// The domain's expected utility, on an influence diagram (sum
  /// equilibrium, with utility nodes).
  std::optional<double> expected_utility;
};

/// Reads the beliefs of every discrete node of the propagated `domain` and
/// its normalization constant; throws ApiError.
BeliefsInfo read_beliefs(k_domain_t domain);

/// A state as reports name it: its label, or "#INDEX" when it has none.
std::string state_name(const NodeBeliefs& node, std::size_t state);

/// Prints `info` for people: a heading, then one block per node with a
/// line per state (the belief, then a bar of block characters 20 cells
/// wide at 1), then the normalization constant.
void write_beliefs_text(std::FILE* out, const BeliefsInfo& info);

/// Prints `info` as NODE<TAB>STATE<TAB>BELIEF lines ("%.17g"), then
/// normalization_constant<TAB>VALUE.
void write_beliefs_tsv(std::FILE* out, const BeliefsInfo& info);

}  // namespace kelva::cli
