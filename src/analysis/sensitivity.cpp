#include "analysis/sensitivity.h"

#include <algorithm>
#include <cstdint>
#include <unordered_map>

#include "analysis/query_results.h"
#include "analysis/query_support.h"
#include "compile/junction_forest.h"
#include "inference/evidence.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "structure/graph_queries.h"
#include "table/table.h"
#include "table/table_ops.h"

namespace kelva {

namespace {

// Where a node's own states lie in its table: entry i is state (i / stride)
// % states of the node, and its column mates are i + (k - state) * stride.
StateAxis column_of(const Table& table, const Node& node) {
  const StateAxis c = state_axis(table, node);
  require(c.states != 0, K_ERROR_ERROR);
  return c;
}

// The derivative of the tree's total (the probability of its evidence) with
// respect to every entry of the node's table, from the calibrated tree:
// the family marginal times the total, over the entry.  Entries of 0 must
// go the other way (ones_derivative).
std::vector<double> divided_derivative(const Node& node) {
  const NodeSlot& slot = query_slot(node);
  const Table& table = *node.table();
  std::vector<double> q(table.size());
  marginalize(slot.assigned_plan, slot.assigned->table->data(), q.data(), Reduce::sum);
  const double z = slot.tree->normalization_constant;
  const double* theta = table.data();
  for (std::size_t i = 0; i < q.size(); ++i) q[i] = q[i] * z / theta[i];
  return q;
}

// The same with the node's table set to all ones: the family marginal
// times the total is then the derivative itself.
std::vector<double> ones_derivative(const Node& node) {
  const NodeSlot& slot = query_slot(node);
  std::vector<double> q(node.table()->size());
  marginalize(slot.assigned_plan, slot.assigned->table->data(), q.data(), Reduce::sum);
  for (double& v : q) v *= slot.tree->normalization_constant;
  return q;
}

// Replaces a node's table data by ones until destroyed.
class OnesTable {
 public:
  explicit OnesTable(Node& node) : node_(node), saved_(node.table()->data(), end(node)) {
    std::fill(node.table()->data(), end(node), 1.0);
    node.table_changed();
  }
  ~OnesTable() {
    std::copy(saved_.begin(), saved_.end(), node_.table()->data());
    node_.table_changed();
  }
  OnesTable(const OnesTable&) = delete;
  OnesTable& operator=(const OnesTable&) = delete;

 private:
  static double* end(Node& node) { return node.table()->data() + node.table()->size(); }
  Node& node_;
  std::vector<double> saved_;
};

// Runs `body` with the output's state selected, then gives the node its
// evidence back.  Returns the likelihood factor of the state, or 0 when
// the state is impossible (body is not run).
template <class F>
double with_state(Domain& domain, Node& node, std::size_t state, F&& body) {
  const Evidence saved = node.evidence;
  const double factor = entered_factor(node, state);
  select_state(node, state);
  struct Restore {
    Node& node;
    const Evidence& saved;
    ~Restore() { set_entered(node, saved); }
  } restore{node, saved};
  if (factor == 0.0 || !propagate_sum(domain)) return 0.0;
  body();
  return factor;
}

// The constants of entry i from the derivatives q of the total P and of the
// total with the output's state selected, as (a, b) of P(theta) = a theta + b.
std::pair<double, double> linear(const double* theta, const std::vector<double>& q, double total,
                                 std::uint64_t i, const StateAxis& c) {
  const std::size_t x = static_cast<std::size_t>((i / c.stride) % c.states);
  const std::uint64_t first = i - x * c.stride;
  double rest = total;  // the part of the total that no entry of the column scales
  for (std::size_t k = 0; k < c.states; ++k)
    rest -= theta[first + k * c.stride] * q[first + k * c.stride];
  // The column mates keep their proportions and fill the column up to 1;
  // when they are all 0 they share it equally.
  double mates = 0.0;
  for (std::size_t k = 0; k < c.states; ++k)
    if (k != x) mates += theta[first + k * c.stride];
  double others = 0.0;  // sum of w_k q_k over the column mates
  for (std::size_t k = 0; k < c.states; ++k) {
    if (k == x) continue;
    const std::uint64_t j = first + k * c.stride;
    const double w = mates > 0.0 ? theta[j] / mates : 1.0 / static_cast<double>(c.states - 1);
    others += w * q[j];
  }
  return {q[i] - others, rest + others};
}

}  // namespace

void compute_sensitivity(Domain& domain, const std::vector<SensitivityOutput>& outputs) {
  require_queryable(domain);
  require(!outputs.empty());
  for (const auto& [node, state] : outputs) {
    require(node != nullptr && &node->domain() == &domain && node->is_discrete() &&
            state < node->state_count());
    query_slot(*node);
  }
  EvidenceScope scope(domain);
  if (!propagate_sum(domain)) throw Error(K_ERROR_INCONSISTENCY_OR_UNDERFLOW);

  std::vector<const Node*> hard, soft;
  evidence_nodes(domain, hard, soft);
  const std::vector<Node*> chain = chain_nodes(domain);
  SensitivityResults results;
  std::vector<double> totals;  // P(evidence) of each output's tree
  std::vector<Node*> members;  // nodes in some set, chain order
  std::vector<bool> member(chain.size());
  for (const auto& [node, state] : outputs) {
    SensitivityResults::Output out{node, state, posterior(*node, state), {}};
    totals.push_back(query_slot(*node).tree->normalization_constant);
    if (node->evidence.entered_code < 0) {
      const BallMarks marks = bayes_ball(domain, {node}, hard, soft);
      for (std::size_t j = 0; j < chain.size(); ++j) {
        Node* n = chain[j];
        if (!marks.top[j] || n->category() != K_CATEGORY_CHANCE || n->table() == nullptr) continue;
        out.set.push_back(n);
        member[j] = true;
      }
    }
    results.outputs.push_back(std::move(out));
  }
  for (std::size_t j = 0; j < chain.size(); ++j)
    if (member[j]) members.push_back(chain[j]);

  // Derivatives of P(e) and, per output, of P(y, e) for every member.
  std::unordered_map<const Node*, std::vector<double>> qe;
  std::unordered_map<const Node*, std::vector<std::vector<double>>> qy;
  auto in_set = [&](std::size_t o, const Node* n) { return results.outputs[o].set.contains(n); };
  auto has_zero = [](const Node* n) {
    const double* d = n->table()->data();
    return std::find(d, d + n->table()->size(), 0.0) != d + n->table()->size();
  };
  for (Node* n : members) {
    qy[n].assign(outputs.size(), std::vector<double>(n->table()->size(), 0.0));
    if (!has_zero(n)) qe[n] = divided_derivative(*n);
  }
  for (std::size_t o = 0; o < outputs.size(); ++o) {
    Node& y = *outputs[o].first;
    std::vector<std::pair<const Node*, std::vector<double>>> found;
    const double factor = with_state(domain, y, outputs[o].second, [&] {
      for (Node* n : members)
        if (in_set(o, n) && !has_zero(n)) found.emplace_back(n, divided_derivative(*n));
    });
    for (auto& [n, q] : found) {
      for (double& v : q) v *= factor;
      qy[n][o] = std::move(q);
    }
  }
  for (Node* n : members) {
    if (!has_zero(n)) continue;
    OnesTable ones(*n);
    if (!propagate_sum(domain)) throw Error(K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
    qe[n] = ones_derivative(*n);
    for (std::size_t o = 0; o < outputs.size(); ++o) {
      if (!in_set(o, n)) continue;
      std::vector<double> q;
      const double factor = with_state(domain, *outputs[o].first, outputs[o].second,
                                       [&] { q = ones_derivative(*n); });
      for (double& v : q) v *= factor;
      if (!q.empty()) qy[n][o] = std::move(q);
    }
  }

  for (Node* n : members) {
    const Table& table = *n->table();
    const StateAxis column = column_of(table, *n);
    std::vector<double>& constants = results.constants[n];
    constants.resize(outputs.size() * table.size() * 4);
    for (std::size_t o = 0; o < outputs.size(); ++o) {
      const double pe = totals[o];
      const double py = pe * results.outputs[o].probability;
      for (std::uint64_t i = 0; i < table.size(); ++i) {
        double* k = &constants[(o * table.size() + i) * 4];
        if (!in_set(o, n)) {
          k[0] = k[2] = 0.0;
          k[1] = results.outputs[o].probability;
          k[3] = 1.0;
          continue;
        }
        const auto [a, b] = linear(table.data(), qy[n][o], py, i, column);
        const auto [c, d] = linear(table.data(), qe[n], pe, i, column);
        k[0] = a / pe;
        k[1] = b / pe;
        k[2] = c / pe;
        k[3] = d / pe;
      }
    }
  }

  QueryResults& q = query_results(domain);
  q.sensitivity = std::move(results);
  q.sensitivity_forest = domain.forest_serial();
  q.has_sensitivity = true;
}

namespace {

const SensitivityResults& current(const Domain& domain) {
  const QueryResults* q = domain.query_results.get();
  if (q == nullptr || !q->has_sensitivity || !domain.is_compiled() ||
      q->sensitivity_forest != domain.forest_serial())
    throw Error(K_ERROR_USAGE, "no sensitivity data computed on the current junction forest");
  return q->sensitivity;
}

}  // namespace

std::array<double, 4> sensitivity_constants(const Node& node, std::size_t input,
                                            std::size_t output) {
  const SensitivityResults& r = current(node.domain());
  require(output < r.outputs.size());
  require(node.category() == K_CATEGORY_CHANCE && node.table() != nullptr &&
          input < node.table()->size());
  auto it = r.constants.find(&node);
  if (it == r.constants.end()) return {0.0, r.outputs[output].probability, 0.0, 1.0};
  const double* k = &it->second[(output * node.table()->size() + input) * 4];
  return {k[0], k[1], k[2], k[3]};
}

const NodeList& sensitivity_set(Domain& domain, std::size_t output) {
  const SensitivityResults& r = current(domain);
  require(output < r.outputs.size());
  return r.outputs[output].set;
}

QueryResults::QueryResults() {
  Destroy<QueryResults>::registered = [](QueryResults* r) noexcept { delete r; };
}

QueryResults& query_results(Domain& domain) {
  if (!domain.query_results) domain.query_results.reset(new QueryResults);
  return *domain.query_results;
}

}  // namespace kelva
