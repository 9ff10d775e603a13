#include "inference/clique_ops.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "inference/compressed_ops.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "platform/worker_pool.h"
#include "table/table.h"
#include "table/table_ops.h"

namespace kelva {

void verify_total(double x) {
  if (x < 0.0) return;
  if (x >= DBL_MIN && x < DBL_MAX) return;
  if (x < DBL_MIN) throw Error(K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  throw Error(K_ERROR_OVERFLOW);
}

void evidence_vector(std::int64_t code, const std::vector<double>& vector, std::size_t states,
                     double* out) noexcept {
  if (code >= 0) {
    // One pass (a few states: a call to memset costs more).
    for (std::size_t i = 0; i < states; ++i)
      out[i] = static_cast<std::uint64_t>(code) == i ? 1.0 : 0.0;
    return;
  }
  if (code == Evidence::kVector) {
    const std::size_t have = std::min(states, vector.size());
    std::copy(vector.begin(), vector.begin() + static_cast<std::ptrdiff_t>(have), out);
    std::fill(out + have, out + states, 1.0);
    return;
  }
  std::fill(out, out + states, 1.0);
}

double evidence_entry(std::int64_t code, const std::vector<double>& vector,
                      std::size_t i) noexcept {
  if (code >= 0) return static_cast<std::uint64_t>(code) == i ? 1.0 : 0.0;
  if (code == Evidence::kVector && i < vector.size()) return vector[i];
  return 1.0;
}

namespace {

// Whether the tree's tables are compressed: each step below then takes the
// compressed path.
bool is_compressed(const JunctionTree& tree) noexcept {
  return tree.domain->forest()->compressed != nullptr;
}

}  // namespace

void initialise_cliques(JunctionTree& tree, const Parallelism& parallelism) {
  if (is_compressed(tree)) return compressed::initialise_cliques(tree);
  Forest& forest = *tree.domain->forest();
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c) {
    Clique& clique = **c;
    Table& table = *clique.table;
    double* data = table.data();
    // A node's table is assigned to a clique that holds the node, so the
    // members' records name every table assigned here.  The first one is
    // copied in, which saves a pass over the clique.
    bool first = true;
    for (Node* const* m = clique.members.data(); *m != nullptr; ++m) {
      const NodeSlot* slot = forest.slot(**m);
      if (slot == nullptr || slot->assigned != &clique || !is_node_factor(**m)) continue;
      const Table* own = (*m)->table();
      if (own == nullptr) continue;
      if (first) gather(slot->assigned_plan, data, own->data(), parallelism);
      else multiply(slot->assigned_plan, data, own->data(), parallelism);
      first = false;
    }
    if (first) std::fill(data, data + table.size(), 1.0);
    // The separators start empty of information too (the tables then
    // stand for the product of the node tables).
    for (const Clique::Link& link : clique.links) {
      if (link.separator->child != &clique) continue;
      Table& sep = *link.separator->table;
      std::fill(sep.data(), sep.data() + sep.size(), 1.0);
    }
  }
  for (const ComponentSlot& slot : forest.components) {
    if (slot.assigned == nullptr || slot.assigned->tree != &tree) continue;
    const Table& potential = *slot.component->table;
    multiply(slot.assigned_plan, slot.assigned->table->data(), potential.data(), parallelism);
  }
}

void multiply_into_home(const NodeSlot& slot, const double* vector,
                        const Parallelism& parallelism) {
  if (is_compressed(*slot.tree)) return compressed::multiply_into_home(slot, vector);
  multiply(slot.home_plan, slot.home->table->data(), vector, parallelism);
}

double message_inverse(const double* fresh, std::uint64_t n, double* scale) noexcept {
  if (scale == nullptr) return 1.0;
  double largest = 0.0;
  for (std::uint64_t i = 0; i < n; ++i) largest = std::fmax(largest, fresh[i]);
  *scale = largest > 0.0 ? largest : 1.0;
  return 1.0 / *scale;
}

void exchange_separator(double* old, double* fresh, std::uint64_t n, double* scale) noexcept {
  const double inverse = message_inverse(fresh, n, scale);
  for (std::uint64_t i = 0; i < n; ++i) {
    const double o = old[i];
    const double f = fresh[i];
    old[i] = f;
    fresh[i] = separator_quotient(f, o) * inverse;
  }
}

void separator_quotients(const double* fresh, double* old, std::uint64_t n,
                         double* scale) noexcept {
  const double inverse = message_inverse(fresh, n, scale);
  // separator_quotient's bits, a vector at a time; then each quotient times
  // the inverse, as one expression rounds them (x * 1 is x).
  quotient_entries(old, fresh, old, n);
  if (scale != nullptr)
    for (std::uint64_t i = 0; i < n; ++i) old[i] *= inverse;
}

void separator_quotients(const double* fresh, double* old, std::uint64_t n,
                         const Parallelism& parallelism) noexcept {
  // Ranges of at least this many entries; a smaller separator is one pass.
  constexpr std::uint64_t kLeast = 1 << 15;
  const std::uint64_t pieces = std::min<std::uint64_t>(parallelism.threads, n / kLeast);
  auto piece = [&](std::size_t j) noexcept {
    const std::uint64_t a = n * j / pieces, b = n * (j + 1) / pieces;
    separator_quotients(fresh + a, old + a, b - a, nullptr);
  };
  if (pieces < 2) separator_quotients(fresh, old, n, nullptr);
  else platform::WorkerPool::shared().run(pieces, pieces, piece);
}

void send_message(const JunctionTree::Message& link, bool outward, Reduce how,
                  const Parallelism& parallelism, bool marginal_ready, Separator* next,
                  const IndexPlan* next_plan, double* scale) {
  // The compressed path computes each marginal itself, fused or not.
  if (is_compressed(*link.inner->tree)) return compressed::send_message(link, outward, how, scale);
  Separator& sep = *link.separator;
  const Clique& from = outward ? *link.inner : *link.outer;
  Clique& to = outward ? *link.outer : *link.inner;
  const IndexPlan& from_plan = outward ? *link.inner_plan : *link.outer_plan;
  const IndexPlan& to_plan = outward ? *link.outer_plan : *link.inner_plan;

  double* fresh = sep.scratch.data();
  if (!marginal_ready) marginalize(from_plan, from.table->data(), fresh, how, parallelism);
  // Keep the new values, and leave in the scratch the quotient new / old
  // that the receiver is multiplied by.
  exchange_separator(sep.table->data(), fresh, from_plan.small_size(), scale);
  if (next != nullptr)
    multiply_marginalize(to_plan, to.table->data(), fresh, *next_plan, next->scratch.data(), how,
                         parallelism);
  else multiply(to_plan, to.table->data(), fresh, parallelism);
}

double clique_total(const Clique& clique, Reduce how, const Parallelism& parallelism) {
  if (is_compressed(*clique.tree)) return compressed::clique_total(clique, how);
  double total = 0.0;
  marginalize(clique.total_plan, clique.table->data(), &total, how, parallelism);
  return total;
}

void scale_clique(Clique& clique, double factor, const Parallelism& parallelism) {
  if (is_compressed(*clique.tree)) return compressed::scale_clique(clique, factor);
  multiply(clique.total_plan, clique.table->data(), &factor, parallelism);
}

void node_marginal(NodeSlot& slot, Reduce how, const Parallelism& parallelism) {
  if (is_compressed(*slot.tree)) return compressed::node_marginal(slot, how);
  marginalize(slot.home_plan, slot.home->table->data(), slot.marginal.data(), how, parallelism);
}

double expected_utility(const NodeSlot& slot) {
  if (is_compressed(*slot.tree)) return compressed::expected_utility(slot);
  const double* p = slot.assigned->table->data();
  const double* u = slot.node->table()->data();
  const std::uint64_t ss = slot.assigned_plan.inner_small_stride();
  double total = 0.0;
  slot.assigned_plan.walk(0, slot.assigned_plan.large_size(),
                          [&](std::uint64_t l, std::uint64_t s, std::uint64_t n) {
                            for (std::uint64_t k = 0; k < n; ++k) total += p[l + k] * u[s + k * ss];
                          });
  return total;
}

namespace {

// The link through which the tree's schedule reaches `clique`, searched
// from position `from`; null for the schedule's root.
const JunctionTree::Message* incoming(const JunctionTree& tree, const Clique* clique,
                                      std::size_t& from) noexcept {
  for (; from < tree.schedule.size(); ++from)
    if (tree.schedule[from].outer == clique) return &tree.schedule[from];
  return nullptr;
}

// temp := the clique's table times the expected utility it receives: the
// utility table itself in the utility's clique, else E[U | separator] of
// the link that reaches it.
void weigh(const Clique& clique, const JunctionTree::Message* in, const NodeSlot& utility,
           double* temp, const Parallelism& par) {
  const double* p = clique.table->data();
  std::copy(p, p + clique.table->size(), temp);
  if (in == nullptr) multiply(utility.assigned_plan, temp, utility.node->table()->data(), par);
  else multiply(*in->outer_plan, temp, in->separator->scratch.data(), par);
}

}  // namespace

void add_conditional_utilities(JunctionTree& tree, const NodeSlot& utility,
                               const Parallelism& parallelism) {
  double* temp = tree.utility_scratch.data();
  std::size_t search = 0;
  for (const JunctionTree::Message& link : tree.schedule) {
    const JunctionTree::Message* in = incoming(tree, link.inner, search);
    if (in == nullptr) search = 0;
    weigh(*link.inner, in, utility, temp, parallelism);
    Separator& sep = *link.separator;
    double* e = sep.scratch.data();
    marginalize(*link.inner_plan, temp, e, Reduce::sum, parallelism);
    const double* ps = sep.table->data();
    for (std::uint64_t i = 0; i < link.inner_plan->small_size(); ++i)
      e[i] = ps[i] > 0.0 ? e[i] / ps[i] : 0.0;
  }
  Forest& forest = *tree.domain->forest();
  double* num = tree.evidence_scratch.data();
  for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p) {
    NodeSlot* slot = forest.slot(**p);
    if (slot == nullptr || !(*p)->is_discrete() || slot->home == nullptr) continue;
    std::size_t from = 0;
    weigh(*slot->home, incoming(tree, slot->home, from), utility, temp, parallelism);
    marginalize(slot->home_plan, temp, num, Reduce::sum, parallelism);
    for (std::size_t k = 0; k < slot->expected_utility.size(); ++k)
      slot->expected_utility[k] += slot->marginal[k] > 0.0 ? num[k] / slot->marginal[k] : 0.0;
  }
}

}  // namespace kelva
