// EM learning of conditional probability tables from the stored cases, and
// the log-likelihood, AIC and BIC of the cases under the current tables.
//
// The E-step propagates each case and, instead of marginalizing the
// posterior onto every learned family per case, adds the case-weighted
// (already normalized) table of each clique that a learned family is
// assigned to into a running sum; each family is marginalized out of its
// clique's sum once per iteration.  A clique whose families are all fully
// observed in a case gets the case's counts directly, without the sweep.

#include "learning/em.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "compile/compile.h"
#include "compile/compile_log.h"
#include "compile/junction_forest.h"
#include "inference/compile_domain.h"
#include "inference/evidence.h"
#include "inference/propagate.h"
#include "learning/cases.h"
#include "learning/em_cg.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "platform/locale_guard.h"
#include "table/index_plan.h"
#include "table/table.h"
#include "table/table_ops.h"

namespace kelva {

namespace {

// A node whose table is learned, with its tables for the run.
struct Family {
  Node* node = nullptr;
  const NodeSlot* slot = nullptr;
  Table* table = nullptr;
  /// Expected counts in the node table's configuration order.
  std::vector<double> counts;
  /// Prior counts (empty when the experience table gives none).
  std::vector<double> prior;
  /// The table's data before the run, put back when the run fails.
  std::vector<double> original;
  /// Per table entry, the experience count of its parent configuration.
  std::vector<double> experience;
  /// The node's axis in its table: the distance between its states and
  /// their number.
  std::uint64_t stride = 1;
  std::uint64_t states = 1;
  /// The table's discrete nodes and their strides, for direct counting.
  std::vector<const Node*> members;
  std::vector<std::uint64_t> strides;
};

// A clique to which learned families are assigned, with the case-weighted
// sum of its normalized table over the cases of an iteration (the kept
// entries only when the forest is compressed).
struct Home {
  Clique* clique = nullptr;
  std::vector<Family*> families;
  /// Every member of the families, once.
  std::vector<const Node*> observed;
  std::vector<double> sum;
  bool touched = false;
};

// The log of P(evidence) of the last propagation: the sum over the trees of
// their log normalization constants.
double log_probability(const Forest& forest) noexcept {
  double sum = 0.0;
  for (const auto& tree : forest.trees) sum += tree->log_normalization_constant;
  return sum;
}

// Leaves the domain without evidence and up to date with its tables:
// compiles a domain that has no junction trees, else propagates.
void settle(Domain& domain) {
  retract_findings(domain);
  if (domain.forest() == nullptr || domain.forest()->trees.empty()) compile_domain(domain);
  else propagate_domain(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
}

class Learner {
 public:
  explicit Learner(Domain& domain)
      : domain_(domain), forest_(*domain.forest()), continuous_(domain) {}

  // Finds the learned nodes and makes their tables; `with_counts` false
  // makes none (a log-likelihood pass).
  void prepare_families();
  bool has_families() const noexcept { return !families_.empty(); }

  // One pass over the cases: enters and propagates each, returns the sum of
  // count times log-likelihood, and with `accumulate` fills the families'
  // expected counts.
  double pass(bool accumulate);
  // Turns the expected counts into new tables.
  void maximize();
  // Puts every learned table back as it was before the run.
  void restore() noexcept;

 private:
  void clear_counts() noexcept;
  void add_case(Home& home, std::size_t c, double weight);
  void fold_homes();

  Domain& domain_;
  Forest& forest_;
  std::vector<Family> families_;
  std::vector<Home> homes_;
  CgLearner continuous_;
};

void Learner::prepare_families() {
  continuous_.prepare();
  for (Node* node = domain_.first_node(); node != nullptr; node = node->next) {
    if (node->category() != K_CATEGORY_CHANCE || !node->is_discrete()) continue;
    const Table* experience = node->experience_table();
    Table* table = node->table();
    const NodeSlot* slot = forest_.slot(*node);
    if (experience == nullptr || table == nullptr || slot == nullptr || slot->assigned == nullptr)
      continue;
    Family f;
    f.node = node;
    f.slot = slot;
    f.table = table;
    const std::uint64_t size = table->size();
    const double* data = table->data();
    f.original.assign(data, data + size);
    f.counts.assign(size, 0.0);
    f.experience.assign(size, 0.0);
    gather(IndexPlan::between(*table, *experience), f.experience.data(), experience->data());
    const auto& counts = table->state_counts();
    f.strides.assign(counts.size(), 1);
    for (std::size_t i = counts.size(); i-- > 1;) f.strides[i - 1] = f.strides[i] * counts[i];
    for (std::size_t i = 0; i < table->discrete_count(); ++i) {
      f.members.push_back(table->nodes()[i]);
      if (table->nodes()[i] == node) {
        f.stride = f.strides[i];
        f.states = counts[i];
      }
    }
    families_.push_back(std::move(f));
  }
  // Prior counts: a parent configuration of experience count n > 0 counts
  // as n cases distributed as the table's row was at the start.
  for (Family& f : families_) {
    const std::uint64_t size = f.table->size();
    for (std::uint64_t base = 0; base < size; ++base) {
      if ((base / f.stride) % f.states != 0) continue;  // not the row's first entry
      const double n = f.experience[base];
      if (!(n > 0.0)) continue;
      double total = 0.0;
      for (std::uint64_t k = 0; k < f.states; ++k) total += f.original[base + k * f.stride];
      if (!(total > 0.0)) continue;
      if (f.prior.empty()) f.prior.assign(size, 0.0);
      for (std::uint64_t k = 0; k < f.states; ++k)
        f.prior[base + k * f.stride] = n * f.original[base + k * f.stride] / total;
    }
  }
  for (Family& f : families_) {
    Home* home = nullptr;
    for (Home& h : homes_)
      if (h.clique == f.slot->assigned) home = &h;
    if (home == nullptr) {
      homes_.emplace_back();
      home = &homes_.back();
      home->clique = f.slot->assigned;
      const std::uint64_t entries = forest_.compressed
                                        ? forest_.compressed->clique(*home->clique).values.size()
                                        : home->clique->table->size();
      home->sum.assign(entries, 0.0);
    }
    home->families.push_back(&f);
    for (const Node* m : f.members)
      if (std::find(home->observed.begin(), home->observed.end(), m) == home->observed.end())
        home->observed.push_back(m);
  }
}

void Learner::clear_counts() noexcept {
  continuous_.clear();
  for (Family& f : families_) std::fill(f.counts.begin(), f.counts.end(), 0.0);
  for (Home& h : homes_) {
    if (h.touched) std::fill(h.sum.begin(), h.sum.end(), 0.0);
    h.touched = false;
  }
}

// The case's contribution to the families assigned to `home`.
void Learner::add_case(Home& home, std::size_t c, double weight) {
  bool complete = true;
  for (const Node* m : home.observed)
    if (m->cases.state(c) < 0) {
      complete = false;
      break;
    }
  if (complete) {
    // The posterior of each family is the observed configuration.
    for (Family* f : home.families) {
      std::uint64_t index = 0;
      for (std::size_t i = 0; i < f->members.size(); ++i)
        index += f->strides[i] * static_cast<std::uint64_t>(f->members[i]->cases.state(c));
      f->counts[index] += weight;
    }
    return;
  }
  const double* data = forest_.compressed ? forest_.compressed->clique(*home.clique).values.data()
                                          : home.clique->table->data();
  double* sum = home.sum.data();
  const std::size_t n = home.sum.size();
  for (std::size_t i = 0; i < n; ++i) sum[i] += weight * data[i];
  home.touched = true;
}

// Marginalizes each clique sum onto its families.
void Learner::fold_homes() {
  const Parallelism par = Parallelism::of(domain_);
  std::vector<double> marginal;
  for (Home& h : homes_) {
    if (!h.touched) continue;
    for (Family* f : h.families) {
      if (forest_.compressed) {
        const auto& map = forest_.compressed->assigned_map(forest_, *f->slot);
        for (std::size_t k = 0; k < map.size(); ++k) f->counts[map[k]] += h.sum[k];
        continue;
      }
      marginal.assign(f->counts.size(), 0.0);
      marginalize(f->slot->assigned_plan, h.sum.data(), marginal.data(), Reduce::sum, par);
      for (std::size_t i = 0; i < marginal.size(); ++i) f->counts[i] += marginal[i];
    }
  }
}

double Learner::pass(bool accumulate) {
  if (accumulate) clear_counts();
  // Every pass starts from the node tables, so that the same tables give
  // the same total to the last bit whatever the forest held before.
  initialise_domain(domain_);
  const CaseStore& cases = domain_.cases;
  double total = 0.0;
  for (std::size_t c = 0; c < cases.size(); ++c) {
    // A case of count 0 adds nothing, not even a failed propagation.
    const double weight = cases.count(c);
    if (!(weight > 0.0)) continue;
    enter_case_evidence(domain_, c);
    propagate_domain(domain_, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
    total += weight * log_probability(forest_);
    if (accumulate) {
      for (Home& h : homes_) add_case(h, c, weight);
      if (!continuous_.empty()) continuous_.add_case(weight);
    }
  }
  if (accumulate) fold_homes();
  return total;
}

void Learner::maximize() {
  continuous_.maximize();
  for (Family& f : families_) {
    if (!f.prior.empty())
      for (std::size_t i = 0; i < f.counts.size(); ++i) f.counts[i] += f.prior[i];
    double* data = f.table->data();
    const std::uint64_t size = f.table->size();
    for (std::uint64_t base = 0; base < size; ++base) {
      if ((base / f.stride) % f.states != 0) continue;
      // A negative experience count marks a row that is not learned.
      if (f.experience[base] < 0.0) continue;
      double sum = 0.0;
      for (std::uint64_t k = 0; k < f.states; ++k) sum += f.counts[base + k * f.stride];
      if (!(sum > 0.0)) continue;  // no data for this row: it keeps its distribution
      for (std::uint64_t k = 0; k < f.states; ++k)
        data[base + k * f.stride] = f.counts[base + k * f.stride] / sum;
    }
    f.node->table_changed();
  }
}

void Learner::restore() noexcept {
  continuous_.restore();
  for (Family& f : families_) {
    std::copy(f.original.begin(), f.original.end(), f.table->data());
    f.node->table_changed();
  }
}

std::size_t total_count_or_throw(const Domain& domain) {
  require(domain.cases.size() > 0 && domain.cases.total_count() > 0.0);
  return domain.cases.size();
}

// The log-likelihood of the cases under the current tables, cached.
double compute_log_likelihood(Domain& domain) {
  const Domain::LogLikelihoodSource source{domain.cases.size(), domain.cases.total_count(),
                                           domain.forest_serial()};
  if (domain.cached_log_likelihood && domain.cached_log_likelihood_source == source)
    return *domain.cached_log_likelihood;
  double total = 0.0;
  if (domain.cases.size() > 0) {
    require(domain.is_compiled() && domain.forest() != nullptr, K_ERROR_NOT_COMPILED);
    Learner learner(domain);
    try {
      total = learner.pass(false);
      settle(domain);
    } catch (...) {
      retract_findings(domain);
      throw;
    }
  }
  domain.cached_log_likelihood = total;
  domain.cached_log_likelihood_source = source;
  return total;
}

}  // namespace

double free_parameters(const Domain& domain) {
  double n = 0.0;
  for (const Node* node = domain.first_node(); node != nullptr; node = node->next) {
    if (node->category() != K_CATEGORY_CHANCE) continue;
    double configurations = 1.0;
    std::size_t continuous_parents = 0;
    for (const Node* p : node->parents()) {
      if (p->is_discrete()) configurations *= static_cast<double>(p->state_count());
      else if (p->is_continuous()) ++continuous_parents;
    }
    if (node->is_discrete()) n += static_cast<double>(node->state_count() - 1) * configurations;
    else if (node->is_continuous())
      n += static_cast<double>(continuous_parents + 2) * configurations;
  }
  return n;
}

double log_likelihood(Domain& domain) { return compute_log_likelihood(domain); }

double aic(Domain& domain) { return compute_log_likelihood(domain) - free_parameters(domain); }

double bic(Domain& domain) {
  const double cases = domain.cases.total_count();
  require(cases > 0.0);
  return compute_log_likelihood(domain) - 0.5 * free_parameters(domain) * std::log(cases);
}

void learn_tables(Domain& domain) {
  const std::size_t number = total_count_or_throw(domain);
  require(domain.is_compiled() && domain.forest() != nullptr, K_ERROR_NOT_COMPILED);
  bool any = false;
  for (const Node* node = domain.first_node(); node != nullptr && !any; node = node->next)
    any = node->experience_table() != nullptr;
  require(any);

  const platform::CLocaleGuard locale;
  require(locale.ok(), K_ERROR_LOCALE);
  const CompileLog log(domain.log());

  Learner learner(domain);
  try {
    learner.prepare_families();
    if (log.active()) {
      if (domain.cases.counts_set())
        log.write("\n\nEM learning with %g cases:\n\n", domain.cases.total_count());
      else log.write("\n\nEM learning with %s cases:\n\n", std::to_string(number).c_str());
      log.flush();
    }
    double previous = -std::numeric_limits<double>::max();
    std::uint64_t iteration = 0;
    for (bool stop = false; !stop;) {
      const double total = learner.pass(true);
      ++iteration;
      if (log.active()) {
        log.write("    Log-likelihood for iteration %s: %g\n", std::to_string(iteration).c_str(),
                  total);
        log.flush();
      }
      stop = std::fabs(total - previous) <= domain.log_likelihood_tolerance * std::fabs(total);
      if (domain.max_em_iterations != 0 && iteration >= domain.max_em_iterations) stop = true;
      if (domain.em_progress != nullptr &&
          domain.em_progress(iteration, total, domain.em_progress_data) == 0)
        stop = true;
      learner.maximize();
      previous = total;
    }
    if (log.active()) {
      // The final figures are those of the learned tables.
      const double ll = compute_log_likelihood(domain);
      log.write("\nEM learning - final results:\n\n");
      log.write("    Log-likelihood: %g\n", ll);
      log.write("    AIC: %g\n", aic(domain));
      log.write("    BIC: %g\n", bic(domain));
      log.flush();
    } else {
      settle(domain);
    }
  } catch (...) {
    learner.restore();
    retract_findings(domain);
    throw;
  }
}

}  // namespace kelva
