#include "structure/cg_parameters.h"

#include <cmath>

#include "network/error.h"
#include "network/node.h"
#include "structure/structure.h"
#include "table/table.h"

namespace kelva {

namespace {

// The node's table, checked for a continuous node and configuration.
Table& cg_table(Node& node, std::uint64_t config) {
  require(node.is_continuous() && node.category() == K_CATEGORY_CHANCE);
  Table& table = node_table(node);
  require(config < table.size());
  return table;
}

std::size_t position(const Table& table, const Node& member) {
  const std::size_t at = table.nodes().index_of(&member);
  require(at != NodeList::npos && at >= table.discrete_count());
  return at - table.discrete_count();
}

}  // namespace

double cg_alpha(Node& node, std::uint64_t config) {
  Table& t = cg_table(node, config);
  return t.mean(config, position(t, node));
}

double cg_beta(Node& node, const Node& parent, std::uint64_t config) {
  Table& t = cg_table(node, config);
  require(&parent != &node);
  return t.coefficient(config, position(t, parent));
}

double cg_gamma(Node& node, std::uint64_t config) {
  Table& t = cg_table(node, config);
  const std::size_t self = position(t, node);
  return t.covariance(config, self, self);
}

void set_cg_alpha(Node& node, double alpha, std::uint64_t config) {
  Table& t = cg_table(node, config);
  require(std::isfinite(alpha));
  t.set_mean(config, position(t, node), alpha);
  t.notify_changed();
}

void set_cg_beta(Node& node, double beta, const Node& parent, std::uint64_t config) {
  Table& t = cg_table(node, config);
  require(&parent != &node && std::isfinite(beta));
  t.set_coefficient(config, position(t, parent), beta);
  t.notify_changed();
}

void set_cg_gamma(Node& node, double gamma, std::uint64_t config) {
  Table& t = cg_table(node, config);
  require(std::isfinite(gamma) && gamma >= 0.0);
  const std::size_t self = position(t, node);
  t.set_covariance(config, self, self, gamma);
  t.notify_changed();
}

}  // namespace kelva
