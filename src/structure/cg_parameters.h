#pragma once

#include <cstdint>

namespace kelva {

class Node;

// The conditional-Gaussian parameters of a continuous chance node, per
// configuration `config` of its discrete parents (its table's configuration
// order): X = alpha + sum of beta(Y) * Y over its continuous parents Y, plus
// noise of variance gamma.  All refuse with Error(usage) a node that is not
// continuous, a configuration not below the table size, a `parent` that is
// not a continuous parent, a non-finite value or a negative variance.  A
// write marks the node's table changed, as a table write does.

double cg_alpha(Node& node, std::uint64_t config);
double cg_beta(Node& node, const Node& parent, std::uint64_t config);
double cg_gamma(Node& node, std::uint64_t config);
void set_cg_alpha(Node& node, double alpha, std::uint64_t config);
void set_cg_beta(Node& node, double beta, const Node& parent, std::uint64_t config);
void set_cg_gamma(Node& node, double gamma, std::uint64_t config);

}  // namespace kelva
