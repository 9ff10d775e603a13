#pragma once

#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "network/node_list.h"

namespace kelva {

class Domain;
class Node;

/// One output probability P(node = state | evidence).
using SensitivityOutput = std::pair<Node*, std::size_t>;

/// Computes the one-way sensitivity functions of every output to every
/// entry of every chance node's table under the entered evidence, and keeps
/// them in the domain.  An entry theta of node X's table for parent
/// configuration u varies with the other entries of that column scaled
/// proportionally so that the column still sums to one (equally, when they
/// are all 0); then P(output | evidence) = (alpha theta + beta) / (gamma theta +
/// delta), with gamma theta + delta = 1 at the current value.  Throws Error
/// (usage, not_compiled, compressed, inconsistency_or_underflow when the
/// evidence is impossible); the domain's evidence and propagation state are
/// as before.
void compute_sensitivity(Domain& domain, const std::vector<SensitivityOutput>& outputs);

/// alpha, beta, gamma, delta of table entry `input` of `node` for output
/// `output` of the last computation.  Error(usage) when there is none on
/// the current junction forest, or an argument is out of range.
std::array<double, 4> sensitivity_constants(const Node& node, std::size_t input,
                                            std::size_t output);

/// The nodes whose tables can change output `output` (the tables requisite
/// for it given the evidence), in the domain's node order.
const NodeList& sensitivity_set(Domain& domain, std::size_t output);

}  // namespace kelva
