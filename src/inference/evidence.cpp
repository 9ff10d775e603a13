#include "inference/evidence.h"

#include <cfloat>
#include <cmath>
#include <cstdint>

#include "compile/junction_forest.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

namespace {

// evidence_to_propagate(), inlined where evidence is entered and counted
// (a call per node and row of a batch).
[[gnu::always_inline]] inline bool to_propagate(const Node& node) noexcept {
  const Evidence& e = node.evidence;
  if (node.is_continuous()) {
    if (e.entered != e.propagated) return true;
    return e.entered && !(e.entered_value == e.propagated_value);
  }
  if (!node.is_discrete()) return false;
  if (e.entered_code == e.propagated_code) {
    if (e.entered_code != Evidence::kVector) return false;
    if (e.entered_vector.size() != e.propagated_vector.size()) return true;
    for (std::size_t i = 0; i < e.entered_vector.size(); ++i)
      if (!(e.entered_vector[i] == e.propagated_vector[i])) return true;
    return false;
  }
  // Selecting the only state of a one-state node says nothing new.
  if (node.state_count() == 1 && e.entered_code + e.propagated_code == -1 && e.entered_code >= -1 &&
      e.propagated_code >= -1)
    return false;
  return true;
}

// The tree whose count holds the node's contribution: only a compiled
// domain counts, and a node that belongs to no tree counts nowhere.
JunctionTree* counting_tree(const Node& node) noexcept {
  const Domain& domain = node.domain();
  if (!domain.is_compiled() || domain.forest() == nullptr) return nullptr;
  const NodeSlot* slot = domain.forest()->slot(node);
  return slot != nullptr ? slot->tree : nullptr;
}

// Takes the node's contribution out of its tree's count when made and puts
// it back (as it is then) by commit(); the change in between cannot fail.
class CountAdjustment {
 public:
  explicit CountAdjustment(const Node& node) noexcept : node_(node), tree_(counting_tree(node)) {
    if (tree_ != nullptr && to_propagate(node) && tree_->evidence_to_propagate > 0)
      --tree_->evidence_to_propagate;
  }
  void commit() noexcept {
    if (tree_ != nullptr && to_propagate(node_)) ++tree_->evidence_to_propagate;
  }

 private:
  const Node& node_;
  JunctionTree* tree_;
};

// The node's domain takes evidence, or Error(usage).
void require_accepting(const Node& node) { require(accepts_evidence(node.domain())); }

bool is_numeric(const Node& node) noexcept {
  return node.subtype() == K_SUBTYPE_NUMBER || node.subtype() == K_SUBTYPE_INTERVAL;
}

// Values of a numbered node increase strictly and are finite; those of an
// interval node (one more bound than states) may repeat, and may be
// infinite only at the two ends.
bool state_values_valid(const Node& node) noexcept {
  const bool interval = node.subtype() == K_SUBTYPE_INTERVAL;
  const std::size_t count = node.state_count() + (interval ? 1 : 0);
  for (std::size_t i = 0; i < count; ++i) {
    const double v = node.state_value(i);
    if (std::isnan(v)) return false;
    if (std::isinf(v) && !(interval && ((i == 0 && v < 0) || (i + 1 == count && v > 0))))
      return false;
    if (i == 0) continue;
    const double previous = node.state_value(i - 1);
    if (interval ? !(previous <= v) : !(previous < v)) return false;
  }
  return true;
}

// The state of a numeric node that holds `value`, or the state count.
std::size_t state_holding(const Node& node, double value) noexcept {
  const std::size_t count = node.state_count();
  for (std::size_t i = 0; i < count; ++i) {
    if (node.subtype() == K_SUBTYPE_NUMBER
            ? node.state_value(i) == value
            : node.state_value(i) <= value && value < node.state_value(i + 1))
      return i;
  }
  return count;
}

double finding_of(std::int64_t code, const std::vector<double>& vector,
                  std::size_t state) noexcept {
  if (code == Evidence::kNone) return 1.0;
  if (code >= 0) return static_cast<std::size_t>(code) == state ? 1.0 : 0.0;
  return state < vector.size() ? vector[state] : 1.0;
}

// Sets the code of a discrete node whose domain takes evidence.
void set_code(Node& node, std::int64_t code) {
  Evidence& e = node.evidence;
  if (e.entered_code == code) return;
  CountAdjustment count(node);
  e.entered_code = code;
  e.value_entered = false;
  count.commit();
}

}  // namespace

bool accepts_evidence(const Domain& domain) noexcept { return !domain.is_class(); }

std::int64_t finding_code(const std::vector<double>& vector) noexcept {
  if (vector.empty()) return Evidence::kNone;
  std::size_t ones = 0;
  std::size_t one_at = 0;
  for (std::size_t i = 0; i < vector.size(); ++i) {
    if (vector[i] == 1.0) {
      ++ones;
      one_at = i;
    } else if (vector[i] != 0.0) {
      return Evidence::kVector;  // a likelihood, or NaN
    }
  }
  if (ones == vector.size()) return Evidence::kNone;
  if (ones == 1) return static_cast<std::int64_t>(one_at);
  return Evidence::kVector;
}

bool evidence_to_propagate(const Node& node) noexcept { return to_propagate(node); }

std::uint64_t count_evidence_to_propagate(const JunctionTree& tree) noexcept {
  std::uint64_t count = 0;
  for (Node* const* n = tree.nodes.data(); *n != nullptr; ++n)
    if (to_propagate(**n)) ++count;
  return count;
}

void forget_propagated_evidence(Forest& forest) noexcept {
  for (auto& tree : forest.trees) tree->evidence_to_propagate = 0;
  // A tree's nodes are the slots that name it.  With nothing propagated,
  // to_propagate() is: a discrete node has evidence other than the only
  // state of a one-state node (codes above -1 + 1, or above -1 + 0), a
  // continuous node has a value.  Whether a node has evidence changes
  // from case to case, so it is counted without a branch on it.
  for (NodeSlot& slot : forest.nodes) {
    Node* node = slot.node;
    if (node == nullptr) continue;
    Evidence& e = node->evidence;
    e.forget_propagated();
    if (slot.tree == nullptr) continue;
    if (node->is_discrete()) {
      const std::uint64_t quiet = slot.one_state;
      slot.tree->evidence_to_propagate += static_cast<std::uint64_t>(e.entered_code + 1) > quiet;
    } else if (node->is_continuous()) {
      slot.tree->evidence_to_propagate += e.entered;
    }
  }
}

double entered_finding(const Node& node, std::size_t state) noexcept {
  return finding_of(node.evidence.entered_code, node.evidence.entered_vector, state);
}

double propagated_finding(const Node& node, std::size_t state) noexcept {
  return finding_of(node.evidence.propagated_code, node.evidence.propagated_vector, state);
}

void note_propagated(Node& node) {
  Evidence& e = node.evidence;
  if (node.is_continuous()) {
    e.propagated = e.entered;
    e.propagated_value = e.entered_value;
    return;
  }
  if (e.entered_code == Evidence::kVector) e.propagated_vector = e.entered_vector;
  e.propagated_code = e.entered_code;
}

void select_state(Node& node, std::size_t state) {
  require(node.is_discrete() && state < node.state_count());
  require_accepting(node);
  set_code(node, static_cast<std::int64_t>(state));
}

void enter_finding(Node& node, std::size_t state, double value) {
  require(node.is_discrete() && state < node.state_count());
  require(value >= 0.0 && value < DBL_MAX);  // refuses NaN too
  require_accepting(node);
  Evidence& e = node.evidence;
  const std::size_t n = node.state_count();
  if (e.entered_vector.size() != n) e.entered_vector.assign(n, 1.0);  // may throw: first
  CountAdjustment count(node);
  // The vector is meaningful only for code -2; otherwise it is rebuilt from
  // the code first.
  if (e.entered_code != Evidence::kVector) {
    for (std::size_t i = 0; i < n; ++i) e.entered_vector[i] = finding_of(e.entered_code, {}, i);
  }
  e.entered_vector[state] = value;
  e.entered_code =
      value == 0.0 || value == 1.0 ? finding_code(e.entered_vector) : Evidence::kVector;
  e.value_entered = false;
  count.commit();
}

void enter_value(Node& node, double value) {
  require_accepting(node);
  Evidence& e = node.evidence;
  if (node.is_continuous()) {
    require(std::isfinite(value));
    CountAdjustment count(node);
    e.entered = true;
    e.entered_value = value;
    count.commit();
    return;
  }
  require(node.is_discrete() && is_numeric(node) && !std::isnan(value));
  require(state_values_valid(node), K_ERROR_INVALID_STATE_VALUES);
  const std::size_t state = state_holding(node, value);
  require(state < node.state_count());
  set_code(node, static_cast<std::int64_t>(state));
  e.entered_value = value;
  e.value_entered = true;
}

void retract_findings(Node& node) {
  require(node.is_discrete() || node.is_continuous());
  require_accepting(node);
  Evidence& e = node.evidence;
  const bool has = node.is_continuous() ? e.entered : e.entered_code != Evidence::kNone;
  if (!has) return;
  CountAdjustment count(node);
  e.entered_code = Evidence::kNone;
  e.entered = false;
  e.value_entered = false;
  count.commit();
}

void retract_findings(Domain& domain) {
  require(accepts_evidence(domain));
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    if (n->is_discrete() || n->is_continuous()) retract_findings(*n);
}

}  // namespace kelva
