#include "expr/generate.h"

// Table generation: for every configuration of the table's parents, the
// expression of the matching model-node configuration is evaluated (once per
// combination of sample points of the interval parents it refers to) and
// turned into a row of the table.
//
// Interval parents that an expression does not refer to are not sampled:
// every sample would give the same row.  An expression that refers to a
// real-valued function node samples all interval parents, since the
// function may depend on them.
//
// A discrete function node's table is over the node alone, so the walk has
// one row; its parents are not fixed by a configuration but known from the
// beliefs (a model node must be known to be in one state).  A real-valued
// function parent is evaluated through its own model in the configuration
// being generated.  Utility tables hold the expression's number itself: a
// negative utility is no error.  Decision nodes have no table to generate.

#include <algorithm>
#include <cmath>
#include <string>
#include <unordered_map>
#include <vector>

#include "expr/distributions.h"
#include "expr/evaluate.h"
#include "expr/expression.h"
#include "expr/generation_log.h"
#include "expr/model.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "platform/locale_guard.h"
#include "platform/memory.h"
#include "structure/structure.h"
#include "table/size.h"
#include "table/table.h"

namespace kelva {

namespace {

bool is_real_function(const Node& n) noexcept {
  return n.category() == K_CATEGORY_FUNCTION && n.kind() == K_KIND_OTHER;
}

bool is_numeric(const Node& n) noexcept {
  return n.is_discrete() && (n.subtype() == K_SUBTYPE_NUMBER || n.subtype() == K_SUBTYPE_INTERVAL);
}

const char* table_kind(const Node& n) noexcept {
  switch (n.category()) {
    case K_CATEGORY_DECISION:
      return "policy";
    case K_CATEGORY_UTILITY:
      return "utility";
    default:
      return "conditional probability";
  }
}

// Values of a numbered node must increase strictly; those of an interval
// node may repeat (an empty interval) and may be infinite at the two ends.
void verify_state_values(Node& n, const GenerationLog& log) {
  if (!is_numeric(n)) return;
  const bool interval = n.subtype() == K_SUBTYPE_INTERVAL;
  const std::size_t count = n.state_count() + (interval ? 1 : 0);
  const char* problem = nullptr;
  for (std::size_t i = 0; i < count && problem == nullptr; ++i) {
    const double v = n.state_value(i);
    if (!std::isinf(v)) continue;
    const bool end = interval && ((i == 0 && v < 0) || (i + 1 == count && v > 0));
    if (!end) problem = "use infinite values incorrectly";
  }
  for (std::size_t i = 1; i < count && problem == nullptr; ++i) {
    const double a = n.state_value(i - 1);
    const double b = n.state_value(i);
    if (!(interval ? a <= b : a < b)) problem = "do not form an increasing sequence";
  }
  if (problem == nullptr) return;
  log.write("The state values of node %s %s.\n", n.name_or_generate().c_str(), problem);
  throw Error(K_ERROR_INVALID_STATE_VALUES);
}

// Every slot is checked and logged before the verdict.
void verify_slots(const Model& model, const GenerationLog& log) {
  bool ok = true;
  for (std::uint64_t i = 0; i < model.size(); ++i) {
    Expression* e = model.expression(i);
    if (e == nullptr) {
      log.write("No expression at index %s\n", std::to_string(i).c_str());
      ok = false;
      continue;
    }
    try {
      verify_types(*e, true);
    } catch (const Error&) {
      log.write("Invalid expression at index %s\n", std::to_string(i).c_str());
      ok = false;
    }
  }
  if (!ok) throw Error(K_ERROR_INVALID_EXPRESSION);
}

// The parents of a function node must be known before its table can be:
// their beliefs (model nodes: their states) and the values of the
// real-valued function parents the model uses.
void evaluate_function_parents(Node& owner, const Model& model, const Beliefs& beliefs,
                               Evaluator& evaluator, const GenerationLog& log) {
  std::vector<double> scratch;
  for (Node* p : owner.parents()) {
    if (is_real_function(*p)) continue;
    try {
      if (p->is_discrete()) {
        evaluator.distribution_of(*p, scratch);
        if (model.nodes().contains(p)) evaluator.state_of(*p);
      } else {
        double mean = 0.0;
        double variance = 0.0;
        if (!beliefs.moments(*p, mean, variance)) throw Error(K_ERROR_NOT_COMPILED);
      }
    } catch (const Error& e) {
      log.write("Evaluation of parent %s failed\n", p->name_or_generate().c_str());
      throw Error(e.code());
    }
  }
  for (Node* p : owner.parents()) {
    if (!is_real_function(*p) || !model_refers_to(model, *p)) continue;
    try {
      evaluator.value_of(*p);
    } catch (const Error& e) {
      log.write("Evaluation of function node %s failed\n", p->name_or_generate().c_str());
      throw Error(e.code());
    }
  }
}

// The row of a value (not a distribution): probability 1 for the matching
// state.
void value_row(const Value& v, Node& owner, const GenerationLog& log, std::vector<double>& out) {
  const std::size_t n = owner.state_count();
  out.assign(n, 0.0);
  auto choose_label = [&](const char* label) {
    std::size_t found = n;
    std::size_t matches = 0;
    for (std::size_t i = 0; i < n; ++i)
      if (std::string_view(owner.state_label(i)) == label) {
        found = i;
        ++matches;
      }
    if (matches != 1) {
      log.write("Node %s does not have a (unique) state labeled `%s'\n", owner.name().c_str(),
                label);
      throw Error(K_ERROR_INVALID_EXPRESSION);
    }
    out[found] = 1.0;
  };
  switch (v.kind) {
    case Value::Kind::label:
      choose_label(v.label);
      return;
    case Value::Kind::boolean:
      if (owner.subtype() == K_SUBTYPE_BOOLEAN) out[v.boolean ? 1 : 0] = 1.0;
      else choose_label(v.boolean ? "true" : "false");
      return;
    case Value::Kind::number:
      if (owner.subtype() == K_SUBTYPE_NUMBER) {
        for (std::size_t i = 0; i < n; ++i)
          if (owner.state_value(i) == v.number) {
            out[i] = 1.0;
            return;
          }
        log.write("Node %s does not have a state with value %g\n", owner.name().c_str(), v.number);
        throw Error(K_ERROR_INVALID_EXPRESSION);
      }
      if (owner.subtype() == K_SUBTYPE_INTERVAL) {
        for (std::size_t i = 0; i < n; ++i)
          if (owner.state_value(i) <= v.number && v.number < owner.state_value(i + 1)) {
            out[i] = 1.0;
            return;
          }
        log.write("Value for node %s is out of bounds: %g\n", owner.name().c_str(), v.number);
        throw Error(K_ERROR_INVALID_EXPRESSION);
      }
      throw Error(K_ERROR_INVALID_EXPRESSION);
    default:
      throw Error(K_ERROR_INVALID_EXPRESSION);
  }
}

// One evaluation's contribution to a row.
void row_of(const Value& v, Node& owner, Evaluator& evaluator, const GenerationLog& log,
            std::vector<double>& out) {
  if (!owner.is_discrete()) {  // a utility: the number itself
    if (v.kind != Value::Kind::number) throw Error(K_ERROR_INVALID_EXPRESSION);
    out.assign(1, v.number);
    return;
  }
  if (v.kind != Value::Kind::distribution) {
    value_row(v, owner, log, out);
    return;
  }
  if (v.distribution.op == K_OP_AGGREGATE && owner.category() == K_CATEGORY_FUNCTION &&
      owner.subtype() == K_SUBTYPE_INTERVAL &&
      v.distribution.count_node->subtype() == K_SUBTYPE_NUMBER &&
      v.distribution.term_node->subtype() == K_SUBTYPE_INTERVAL) {
    AggregateBeliefs beliefs;
    evaluator.distribution_of(*v.distribution.count_node, beliefs.count);
    evaluator.distribution_of(*v.distribution.term_node, beliefs.term);
    discretise(v.distribution, owner, log, &beliefs, out);
    return;
  }
  discretise(v.distribution, owner, log, nullptr, out);
}

// Which configuration parents (by position) an expression needs sampled.
std::vector<char> sampled_parents(const Expression& e, const std::vector<Node*>& parents) {
  std::vector<char> sampled(parents.size(), 0);
  bool all = false;
  for_each_node_leaf(e, [&](const Node& n) {
    if (is_real_function(n)) all = true;
    for (std::size_t i = 0; i < parents.size(); ++i)
      if (parents[i] == &n) sampled[i] = 1;
  });
  for (std::size_t i = 0; i < parents.size(); ++i)
    sampled[i] = parents[i]->subtype() == K_SUBTYPE_INTERVAL && (all || sampled[i]);
  return sampled;
}

class Generator {
 public:
  Generator(Node& owner, Model& model, const Beliefs& beliefs, const GenerationLog& log)
      : owner_(owner), model_(model), evaluator_(beliefs), log_(log) {}

  // Fills `data` (the table's entries) row by row.
  void run(Table& table, std::vector<double>& data) {
    for (std::size_t i = 0; i < table.discrete_count(); ++i)
      if (table.nodes()[i] != &owner_) parents_.push_back(table.nodes()[i]);
    states_ = owner_.is_discrete() ? owner_.state_count() : 1;
    model_position_.clear();
    for (Node* m : model_.nodes()) {
      auto it = std::find(parents_.begin(), parents_.end(), m);
      model_position_.push_back(
          it == parents_.end() ? kFree : static_cast<std::size_t>(it - parents_.begin()));
    }
    std::vector<std::size_t> config(parents_.size(), 0);
    const std::uint64_t rows = table.size() / states_;
    for (std::uint64_t r = 0; r < rows; ++r) {
      generate_row(config, data.data() + r * states_);
      for (std::size_t k = config.size(); k-- > 0;) {
        if (++config[k] < parents_[k]->state_count()) break;
        config[k] = 0;
      }
    }
  }

  Evaluator& evaluator() noexcept { return evaluator_; }

 private:
  static constexpr std::size_t kFree = static_cast<std::size_t>(-1);

  std::uint64_t model_index(const std::vector<std::size_t>& config) {
    std::uint64_t index = 0;
    for (std::size_t j = 0; j < model_.nodes().size(); ++j) {
      const Node* m = model_.nodes()[j];
      const std::size_t state =
          model_position_[j] == kFree ? evaluator_.state_of(*m) : config[model_position_[j]];
      index = index * m->state_count() + state;
    }
    return index;
  }

  const std::vector<char>& sampling_of(std::uint64_t index, const Expression& e) {
    auto it = sampling_.find(index);
    if (it == sampling_.end()) it = sampling_.emplace(index, sampled_parents(e, parents_)).first;
    return it->second;
  }

  void generate_row(const std::vector<std::size_t>& config, double* row) {
    evaluator_.clear();
    std::vector<std::size_t> slot(parents_.size());
    for (std::size_t k = 0; k < parents_.size(); ++k) {
      const Node& p = *parents_[k];
      const double value = is_numeric(p) ? p.state_value(config[k]) : 0.0;
      slot[k] = evaluator_.bind(p, config[k], value);
    }
    const std::uint64_t index = model_index(config);
    const Expression& e = *model_.expression(index);
    const std::vector<char>& sampled = sampling_of(index, e);

    // The sample points of each sampled interval parent, nested.
    std::vector<std::vector<double>> points(parents_.size());
    for (std::size_t k = 0; k < parents_.size(); ++k) {
      const Node& p = *parents_[k];
      if (p.subtype() != K_SUBTYPE_INTERVAL) continue;
      const double lo = p.state_value(config[k]);
      const double hi = p.state_value(config[k] + 1);
      points[k] = sampled[k] ? interval_samples(lo, hi, model_.samples_per_interval)
                             : std::vector<double>{interval_point(lo, hi)};
      evaluator_.set_value(slot[k], points[k][0]);
    }
    std::vector<std::size_t> at(parents_.size(), 0);
    sum_.assign(states_, 0.0);
    min_.assign(states_, HUGE_VAL);
    max_.assign(states_, -HUGE_VAL);
    double count = 0.0;
    for (;;) {
      row_of(evaluator_.evaluate(e), owner_, evaluator_, log_, one_);
      for (std::size_t i = 0; i < states_; ++i) {
        sum_[i] += one_[i];
        min_[i] = std::min(min_[i], one_[i]);
        max_[i] = std::max(max_[i], one_[i]);
      }
      count += 1.0;
      std::size_t k = parents_.size();
      while (k-- > 0) {
        if (points[k].size() <= 1) continue;
        if (++at[k] < points[k].size()) {
          evaluator_.set_value(slot[k], points[k][at[k]]);
          break;
        }
        at[k] = 0;
        evaluator_.set_value(slot[k], points[k][0]);
      }
      if (k == static_cast<std::size_t>(-1)) break;
    }
    bool negative = false;
    const bool probabilities = owner_.is_discrete();
    for (std::size_t i = 0; i < states_; ++i) {
      row[i] = count == 1.0 ? sum_[i] : sum_[i] / count;
      if (max_[i] > min_[i] || (probabilities && min_[i] < 0.0)) {
        log_.write("(");
        for (std::size_t c : config) log_.write("%s,", std::to_string(c).c_str());
        log_.write("%s): ", std::to_string(i).c_str());
        log_.write("%g (min=%g, max=%g)\n", row[i], min_[i], max_[i]);
      }
      negative = negative || (probabilities && min_[i] < 0.0);
    }
    if (negative) throw Error(K_ERROR_INVALID_PROBABILITY_POTENTIAL);
  }

  Node& owner_;
  Model& model_;
  Evaluator evaluator_;
  const GenerationLog& log_;
  std::vector<Node*> parents_;
  std::vector<std::size_t> model_position_;
  std::size_t states_ = 1;
  std::unordered_map<std::uint64_t, std::vector<char>> sampling_;
  std::vector<double> sum_, min_, max_, one_;
};

void generate(Node& owner, Model& model, const Beliefs& beliefs, const GenerationLog& log) {
  const std::string& name = owner.name_or_generate();
  if (!model.has_slots()) {
    log.write("Model for %s is unspecified\n", name.c_str());
    throw Error(K_ERROR_INVALID_EXPRESSION);
  }
  log.write("Using model for %s to generate a %s table\n", name.c_str(), table_kind(owner));
  verify_state_values(owner, log);
  for (Node* p : owner.parents()) verify_state_values(*p, log);
  verify_slots(model, log);

  Generator generator(owner, model, beliefs, log);
  if (owner.category() == K_CATEGORY_FUNCTION)
    evaluate_function_parents(owner, model, beliefs, generator.evaluator(), log);

  Table& table = node_table(owner);
  require(platform::allocation_possible(sat_mul(table.size(), sizeof(double))), K_ERROR_NO_MEMORY);
  std::vector<double> data(static_cast<std::size_t>(table.size()));
  try {
    generator.run(table, data);
  } catch (const FunctionNodeFailure& f) {
    log.write("Evaluation of function node %s failed\n",
              const_cast<Node&>(f.node()).name_or_generate().c_str());
    throw Error(f.code());
  }
  double* entries = table.data();
  std::copy(data.begin(), data.end(), entries);
  owner.table_changed();
}

}  // namespace

bool generates_table(const Node& node) noexcept {
  return node.model() != nullptr && can_have_table(node);
}

void generate_table(Node& node, const Beliefs& beliefs) {
  Model* model = node.model();
  require(model != nullptr && can_have_table(node));
  if (!node.needs_generation) return;
  platform::CLocaleGuard locale;
  if (!locale.ok()) throw Error(K_ERROR_LOCALE);
  const GenerationLog log(node.domain().log());
  try {
    generate(node, *model, beliefs, log);
  } catch (...) {
    try {
      log.flush();
    } catch (const Error&) {
      // The generation's own failure is the one to report.
    }
    throw;
  }
  node.needs_generation = false;
  log.flush();
}

void generate_tables(Domain& domain, const Beliefs& beliefs) {
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    if (generates_table(*n)) generate_table(*n, beliefs);
}

}  // namespace kelva
