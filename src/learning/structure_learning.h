#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "kelva/kelva.h"
#include "learning/npc.h"
#include "learning/pdag.h"
#include "learning/structure_data.h"
#include "network/node_list.h"

namespace kelva {

class Domain;
class Node;

/// What the last structure learning run of a domain left: the PDAG of PC
/// and the p-values of the marginal tests, over the nodes with the given
/// serials (so a node deleted since is simply not found).
class StructureResults {
 public:
  StructureResults();

  std::vector<std::uint64_t> pdag_nodes;
  Pdag pdag;
  EdgeRules pdag_rules;

  std::vector<std::uint64_t> tested_nodes;
  std::vector<double> marginal_p;  ///< n × n

  std::unique_ptr<NpcState> npc;  ///< the regions of the last NPC run
};

/// The domain's edge constraints over the data's variables.
EdgeRules edge_rules(const Domain& domain, const LearningData& data);

/// Replaces every link of the domain by `parents` (per variable), gives each
/// node a uniform table and positions for a layered picture.  On failure the
/// old links are put back.
void install_structure(Domain& domain, const LearningData& data,
                       const std::vector<std::vector<std::size_t>>& parents);

/// PC-stable with the G² test at the domain's significance level; keeps the
/// PDAG and installs a DAG of it.
void learn_structure_pc(Domain& domain);

/// G² tests of every pair of variables with no condition, kept for
/// data_independency.
void perform_marginal_independence_tests(Domain& domain);
/// The p-value of the last marginal test of a and b.
double data_independency(const Node& a, const Node& b);
/// The strength of the link parent -> child: the mutual information (nats)
/// of the two given the child's other parents, from the stored cases.
double link_strength(const Node& child, const Node& parent);

/// The PDAG of the last PC run: the directed parents and the undirected
/// neighbours of `node`.
NodeList pdag_parents(const Node& node);
NodeList pdag_neighbours(const Node& node);
/// Directs the undirected PDAG edge parent - node towards node, applies
/// Meek's rules and installs a DAG of the new PDAG.
void add_pdag_parent(Node& node, Node& parent);

/// The edge constraint between a and b, stated from a's side.
void set_edge_constraint(Node& a, Node& b, k_edge_constraint_t constraint);
k_edge_constraint_t edge_constraint(const Node& a, const Node& b);

}  // namespace kelva
