// Learning class tables from a domain made from classes: the copies of a
// class node (found through their source lists) share its table.  EM ties
// them in its M-step; fractional updating and online EM update the class
// node's counts, kept in its experience table, case by case.

#include "learning/class_tables.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "compile/junction_forest.h"
#include "inference/evidence.h"
#include "inference/propagate.h"
#include "learning/adapt.h"
#include "learning/cases.h"
#include "learning/em.h"
#include "network/dbn_layout.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "table/index_plan.h"
#include "table/table.h"
#include "table/table_ops.h"

namespace kelva {

namespace {

// A copy of a class node: its table has the class table's shape, or (a
// window's first-slice clone) it is the class table's node with parents
// added, whose counts are summed onto the node.
struct Copy {
  Node* node = nullptr;
  bool folded = false;
  std::size_t index = 0;  // in ClassTies::nodes()
};

// A learned class node and its copies.
struct Group {
  Node* original = nullptr;
  StateAxis axis;
  std::vector<Copy> copies;
  /// Per class-table entry: its row's experience entry, and fading entry
  /// (empty without a fading table).
  std::vector<std::uint64_t> to_experience;
  std::vector<std::uint64_t> to_fading;
  /// Prior counts of EM: experience count times the row at the start.
  std::vector<double> prior;
  /// Positions of the window's clones and the predictor's nodes that
  /// take the class table.
  std::vector<std::size_t> clones;
  std::vector<Node*> predictor;
};

// A table's contents, to put back after a failure.
struct Saved {
  Table* table;
  std::vector<double> data;
};

class ClassTies final : public TiedTables {
 public:
  // With `from_class`, every copy first takes its class node's table, so
  // that learning starts from the class tables.
  ClassTies(Domain& domain, bool from_class);

  const std::vector<Node*>& nodes() const noexcept override { return nodes_; }
  void maximize(const std::vector<const std::vector<double>*>& counts) override;
  void restore() noexcept override;

  // The class nodes' new counts from the evidence now propagated, with
  // `weight` the case count: fractional updating, or an online EM step of
  // size `step`.
  void fractional_update(double weight);
  void online_step(double weight, double step);

 private:
  void save(Table* table);
  // The expected counts of the family of every copy, folded onto the class
  // table, from `counts` (per copy) or from the propagated evidence.
  std::vector<double> copy_counts(const Group& g, const Copy& c, const std::vector<double>& counts);
  void write(Group& g, const std::vector<double>& table, const std::vector<double>* experience);

  Domain& domain_;
  std::vector<Group> groups_;
  std::vector<Node*> nodes_;
  std::vector<Saved> saved_;
  std::vector<std::vector<double>> priors_;
};

ClassTies::ClassTies(Domain& domain, bool from_class) : domain_(domain) {
  std::vector<Node*> order;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next) order.push_back(n);
  std::reverse(order.begin(), order.end());  // oldest first: slice by slice
  DbnLayout* layout = domain.dbn.get();
  std::unordered_map<const Node*, std::size_t> index;
  bool any_source = false;
  for (Node* n : order) {
    if (n->source.empty()) continue;
    any_source = true;
    Node* original = n->source[n->source.size() - 1];
    if (original->category() != K_CATEGORY_CHANCE || !original->is_discrete() ||
        original->experience_table() == nullptr || original->table() == nullptr)
      continue;
    Copy copy{n, false, nodes_.size()};
    if (layout != nullptr &&
        std::find(layout->clones.begin(), layout->clones.end(), n) != layout->clones.end()) {
      if (layout->offset != 0) continue;  // holds the filtered past
      copy.folded = true;
    } else if (n->table() == nullptr ||
               n->table()->state_counts() != original->table()->state_counts() ||
               n->table()->discrete_count() != original->table()->discrete_count()) {
      throw Error(K_ERROR_USAGE, "the table of `" + n->name() +
                                     "' does not have the shape of its class node's table");
    }
    auto [it, added] = index.emplace(original, groups_.size());
    if (added) {
      Group& g = groups_.emplace_back();
      g.original = original;
      const Table& table = *original->table();
      g.axis = state_axis(table, *original);
      g.to_experience = entry_map(table, *original->experience_table());
      if (original->fading_table() != nullptr)
        g.to_fading = entry_map(table, *original->fading_table());
      const double* experience = original->experience_table()->data();
      g.prior.assign(table.size(), 0.0);
      for (std::uint64_t base = 0; base < table.size(); ++base) {
        if ((base / g.axis.stride) % g.axis.states != 0) continue;
        const double n_j = experience[g.to_experience[base]];
        double total = 0.0;
        for (std::uint64_t k = 0; k < g.axis.states; ++k)
          total += table.data()[base + k * g.axis.stride];
        if (!(n_j > 0.0) || !(total > 0.0)) continue;
        for (std::uint64_t k = 0; k < g.axis.states; ++k)
          g.prior[base + k * g.axis.stride] = n_j * table.data()[base + k * g.axis.stride] / total;
      }
    }
    groups_[it->second].copies.push_back(copy);
    nodes_.push_back(n);
  }
  if (!any_source)
    throw Error(K_ERROR_USAGE,
                "the domain was not made from classes, or a node of its classes was deleted");
  if (groups_.empty())
    throw Error(K_ERROR_USAGE, "no class node of the domain has an experience table");
  if (layout != nullptr) {
    for (Group& g : groups_) {
      for (std::size_t i = 0; i < layout->clones.size(); ++i)
        if (layout->clones[i]->source[0] == g.original) g.clones.push_back(i);
      const auto& first = layout->slices.front();
      for (std::size_t j = 0; j < first.size(); ++j)
        if (!first[j]->source.empty() &&
            first[j]->source[first[j]->source.size() - 1] == g.original)
          g.predictor.push_back(layout->predictor->dbn->slices.front()[j]);
    }
    priors_ = layout->initial_priors;
  }
  for (Group& g : groups_) {
    save(g.original->table());
    save(g.original->experience_table());
    for (const Copy& c : g.copies) save(c.node->table());
    for (Node* p : g.predictor) save(p->table());
  }
  for (Group& g : groups_) {
    const Table& own = *g.original->table();
    if (from_class) write(g, std::vector<double>(own.data(), own.data() + own.size()), nullptr);
  }
}

void ClassTies::save(Table* table) {
  saved_.push_back({table, std::vector<double>(table->data(), table->data() + table->size())});
}

void ClassTies::restore() noexcept {
  for (Saved& s : saved_) {
    std::copy(s.data.begin(), s.data.end(), s.table->data());
    if (s.table->owner() != nullptr) s.table->owner()->table_changed();
  }
  if (domain_.dbn != nullptr) domain_.dbn->initial_priors = priors_;
}

std::vector<double> ClassTies::copy_counts(const Group& g, const Copy& c,
                                           const std::vector<double>& counts) {
  if (!c.folded) return counts;
  const StateAxis a = state_axis(*c.node->table(), *c.node);
  std::vector<double> folded(g.axis.states, 0.0);
  for (std::uint64_t i = 0; i < counts.size(); ++i) folded[(i / a.stride) % a.states] += counts[i];
  return folded;
}

void ClassTies::write(Group& g, const std::vector<double>& table,
                      const std::vector<double>* experience) {
  std::copy(table.begin(), table.end(), g.original->table()->data());
  g.original->table_changed();
  if (experience != nullptr)
    std::copy(experience->begin(), experience->end(), g.original->experience_table()->data());
  for (const Copy& c : g.copies) {
    Table& t = *c.node->table();
    if (c.folded) {
      const StateAxis a = state_axis(t, *c.node);
      for (std::uint64_t i = 0; i < t.size(); ++i) t.data()[i] = table[(i / a.stride) % a.states];
    } else {
      std::copy(table.begin(), table.end(), t.data());
    }
    c.node->table_changed();
  }
  for (Node* p : g.predictor) {
    std::copy(table.begin(), table.end(), p->table()->data());
    p->table_changed();
  }
  for (std::size_t i : g.clones) domain_.dbn->initial_priors[i] = table;
  if (domain_.dbn != nullptr) domain_.dbn->predicted.clear();
}

void ClassTies::maximize(const std::vector<const std::vector<double>*>& counts) {
  for (Group& g : groups_) {
    std::vector<double> sums = g.prior;
    for (const Copy& c : g.copies) {
      if (const std::vector<double>* mine = counts[c.index]; mine != nullptr) {
        const std::vector<double> add = copy_counts(g, c, *mine);
        for (std::size_t i = 0; i < sums.size(); ++i) sums[i] += add[i];
      }
    }
    const Table& old = *g.original->table();
    const double* experience = g.original->experience_table()->data();
    std::vector<double> table(old.data(), old.data() + old.size());
    for (std::uint64_t base = 0; base < table.size(); ++base) {
      if ((base / g.axis.stride) % g.axis.states != 0) continue;
      double sum = 0.0;
      for (std::uint64_t k = 0; k < g.axis.states; ++k) sum += sums[base + k * g.axis.stride];
      // A row that is not learned, or has no data, keeps its distribution.
      if (experience[g.to_experience[base]] < 0.0 || !(sum > 0.0)) continue;
      for (std::uint64_t k = 0; k < g.axis.states; ++k)
        table[base + k * g.axis.stride] = sums[base + k * g.axis.stride] / sum;
    }
    write(g, table, nullptr);
  }
}

void ClassTies::fractional_update(double weight) {
  Forest& forest = *domain_.forest();
  for (Group& g : groups_) {
    const Table& old = *g.original->table();
    std::vector<double> table(old.data(), old.data() + old.size());
    const Table& exp_table = *g.original->experience_table();
    std::vector<double> experience(exp_table.data(), exp_table.data() + exp_table.size());
    const Table* fading = g.original->fading_table();
    // Copy by copy, so that each fades the counts once by its own weight.
    for (const Copy& c : g.copies) {
      const std::vector<double> w = copy_counts(g, c, family_posterior(*c.node, forest));
      for (std::uint64_t base = 0; base < table.size(); ++base) {
        if ((base / g.axis.stride) % g.axis.states != 0) continue;
        double& n = experience[g.to_experience[base]];
        double wj = 0.0, row = 0.0;
        for (std::uint64_t k = 0; k < g.axis.states; ++k) {
          wj += w[base + k * g.axis.stride];
          row += table[base + k * g.axis.stride];
        }
        if (n < 0.0 || !(wj > 0.0)) continue;
        const double lambda = fading != nullptr ? fading->data()[g.to_fading[base]] : 1.0;
        const double faded = (1.0 - wj * (1.0 - lambda)) * n;
        const double n_new = faded + weight * wj;
        for (std::uint64_t k = 0; k < g.axis.states; ++k) {
          double& p = table[base + k * g.axis.stride];
          p = ((row > 0.0 ? faded * p / row : 0.0) + weight * w[base + k * g.axis.stride]) / n_new;
        }
        n = n_new;
      }
    }
    write(g, table, &experience);
  }
}

void ClassTies::online_step(double weight, double step) {
  Forest& forest = *domain_.forest();
  for (Group& g : groups_) {
    const Table& old = *g.original->table();
    std::vector<double> table(old.data(), old.data() + old.size());
    std::vector<double> stats(table.size(), 0.0);
    for (const Copy& c : g.copies) {
      const std::vector<double> w = copy_counts(g, c, family_posterior(*c.node, forest));
      for (std::size_t i = 0; i < w.size(); ++i) stats[i] += weight * w[i];
    }
    const Table& exp_table = *g.original->experience_table();
    std::vector<double> experience(exp_table.data(), exp_table.data() + exp_table.size());
    for (std::uint64_t base = 0; base < table.size(); ++base) {
      if ((base / g.axis.stride) % g.axis.states != 0) continue;
      double& n = experience[g.to_experience[base]];
      double row = 0.0, n_new = 0.0;
      for (std::uint64_t k = 0; k < g.axis.states; ++k) row += table[base + k * g.axis.stride];
      for (std::uint64_t k = 0; k < g.axis.states; ++k) {
        const std::uint64_t i = base + k * g.axis.stride;
        stats[i] = (1.0 - step) * (row > 0.0 ? n * table[i] / row : 0.0) + step * stats[i];
        n_new += stats[i];
      }
      // A row that is not learned, or has no statistics yet, keeps its distribution.
      if (n < 0.0 || !(n_new > 0.0)) continue;
      for (std::uint64_t k = 0; k < g.axis.states; ++k)
        table[base + k * g.axis.stride] = stats[base + k * g.axis.stride] / n_new;
      n = n_new;
    }
    write(g, table, &experience);
  }
}

// Runs `update` on every stored case of positive count, propagated alone,
// in order; leaves the domain propagated without evidence.
template <class Update>
void for_each_case(Domain& domain, ClassTies& ties, Update update) {
  try {
    require(domain.cases.size() > 0 && domain.cases.total_count() > 0.0);
    if (domain.is_compressed())
      throw Error(K_ERROR_COMPRESSED, "sequential learning needs the full clique tables");
    for (std::size_t c = 0; c < domain.cases.size(); ++c) {
      const double weight = domain.cases.count(c);
      if (!(weight > 0.0)) continue;
      enter_case_evidence(domain, c);
      propagate_domain(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
      update(weight);
    }
    retract_findings(domain);
    propagate_domain(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  } catch (...) {
    ties.restore();
    retract_findings(domain);
    throw;
  }
}

void check_rate(double rate) {
  if (!(rate > 0.5 && rate <= 1.0))
    throw Error(K_ERROR_USAGE, "the rate of online EM must lie in (0.5, 1]");
}

void require_compiled(const Domain& domain) {
  require(domain.is_compiled() && domain.forest() != nullptr, K_ERROR_NOT_COMPILED);
}

}  // namespace

void learn_class_tables(Domain& domain) {
  require_compiled(domain);
  ClassTies ties(domain, true);
  try {
    learn_tied_tables(domain, ties);
  } catch (...) {
    ties.restore();  // the copies took the class tables first
    throw;
  }
}

void learn_class_tables_by_fractional_update(Domain& domain) {
  require_compiled(domain);
  ClassTies ties(domain, true);
  for_each_case(domain, ties, [&](double weight) { ties.fractional_update(weight); });
}

void learn_class_tables_by_online_em(Domain& domain, double rate) {
  check_rate(rate);
  require_compiled(domain);
  ClassTies ties(domain, true);
  std::uint64_t n = 0;
  for_each_case(domain, ties, [&](double weight) {
    ++n;
    ties.online_step(weight, std::pow(static_cast<double>(n), -rate));
  });
  domain.online_em_steps = n;
}

void adapt_class_tables_by_fractional_update(Domain& domain) {
  require_adaptable(domain);
  ClassTies ties(domain, false);
  ties.fractional_update(1.0);
}

void adapt_class_tables_by_online_em(Domain& domain, double rate) {
  check_rate(rate);
  require_adaptable(domain);
  ClassTies ties(domain, false);
  ties.online_step(1.0, std::pow(static_cast<double>(domain.online_em_steps + 1), -rate));
  ++domain.online_em_steps;
}

}  // namespace kelva
