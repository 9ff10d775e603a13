// EM learning of conditional probability tables from the stored cases, and
// the log-likelihood, AIC and BIC of the cases under the current tables.
//
// The E-step propagates each case and, instead of marginalizing the
// posterior onto every learned family per case, adds the case-weighted
// (already normalized) table of each clique that a learned family is
// assigned to into a running sum; each family is marginalized out of its
// clique's sum once per iteration.  A clique whose families are all fully
// observed in a case gets the case's counts directly, without the sweep.
//
// The cases are taken in chunks of a fixed size whose counts and
// log-likelihood are added to the pass's totals in chunk order, so the sums
// are the same to the last bit whether one thread does every chunk or, with
// a concurrency level above 1, several threads each propagate chunks in a
// compiled copy of the domain.

#include "learning/em.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <exception>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
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
#include "platform/worker_pool.h"
#include "structure/classes.h"
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
  /// Expected counts in the node table's configuration order: `counts` of
  /// the current chunk, `sums` of the pass.
  std::vector<double> counts;
  std::vector<double> sums;
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

// Cases per chunk of a pass.
constexpr std::size_t kChunkCases = 256;

class Learner {
 public:
  explicit Learner(Domain& domain)
      : domain_(domain), forest_(*domain.forest()), continuous_(domain) {}

  // Finds the learned nodes among `candidates` (every node of the domain
  // when null) and makes their tables.  With `tied`, every discrete chance
  // candidate is a family, experience tables are ignored, and continuous
  // nodes are not learned.
  void prepare_families(const std::vector<Node*>* candidates = nullptr, bool tied = false);
  bool tied() const noexcept { return tied_; }
  // The pass's counts of each of `nodes` (null for a node without family).
  std::vector<const std::vector<double>*> sums_of(const std::vector<Node*>& nodes) const;
  const std::vector<Family>& families() const noexcept { return families_; }
  bool has_continuous() const noexcept { return !continuous_.empty(); }

  // Starts a pass: initialises the forest and, with `accumulate`, clears
  // the pass's counts.
  void begin_pass(bool accumulate);
  // Enters and propagates cases [first, last); returns the sum of count
  // times log-likelihood, and with `accumulate` leaves the chunk's
  // expected counts in the families' `counts`.
  double run_chunk(std::size_t first, std::size_t last, bool accumulate);
  // Adds the chunk counts of `from` (same families in the same order, or
  // this learner) to the pass's counts.
  void add_chunk(const Learner& from);
  void add_chunk(const double* counts);
  // The chunk counts of every family, one after the other.
  void copy_chunk(std::vector<double>& out) const;
  // One pass over every case, chunk by chunk on this thread.
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
  bool tied_ = false;
};

void Learner::prepare_families(const std::vector<Node*>* candidates, bool tied) {
  tied_ = tied;
  if (!tied) continuous_.prepare();
  std::vector<Node*> all;
  if (candidates == nullptr) {
    for (Node* node = domain_.first_node(); node != nullptr; node = node->next) all.push_back(node);
    candidates = &all;
  }
  for (Node* node : *candidates) {
    if (node->category() != K_CATEGORY_CHANCE || !node->is_discrete()) continue;
    const Table* experience = tied ? nullptr : node->experience_table();
    Table* table = node->table();
    const NodeSlot* slot = forest_.slot(*node);
    if ((experience == nullptr && !tied) || table == nullptr || slot == nullptr ||
        slot->assigned == nullptr)
      continue;
    Family f;
    f.node = node;
    f.slot = slot;
    f.table = table;
    const std::uint64_t size = table->size();
    const double* data = table->data();
    f.original.assign(data, data + size);
    f.counts.assign(size, 0.0);
    f.sums.assign(size, 0.0);
    f.experience.assign(size, 0.0);
    if (experience != nullptr)
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

std::vector<const std::vector<double>*> Learner::sums_of(const std::vector<Node*>& nodes) const {
  std::vector<const std::vector<double>*> out;
  for (const Node* node : nodes) {
    const auto it = std::find_if(families_.begin(), families_.end(),
                                 [&](const Family& f) { return f.node == node; });
    out.push_back(it == families_.end() ? nullptr : &it->sums);
  }
  return out;
}

void Learner::clear_counts() noexcept {
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

void Learner::begin_pass(bool accumulate) {
  if (accumulate) {
    continuous_.clear();
    for (Family& f : families_) std::fill(f.sums.begin(), f.sums.end(), 0.0);
  }
  // Every pass starts from the node tables, so that the same tables give
  // the same total to the last bit whatever the forest held before.
  initialise_domain(domain_);
}

double Learner::run_chunk(std::size_t first, std::size_t last, bool accumulate) {
  if (accumulate) clear_counts();
  const CaseStore& cases = domain_.cases;
  double total = 0.0;
  for (std::size_t c = first; c < last; ++c) {
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

void Learner::add_chunk(const Learner& from) {
  for (std::size_t i = 0; i < families_.size(); ++i) {
    std::vector<double>& sums = families_[i].sums;
    const std::vector<double>& counts = from.families_[i].counts;
    for (std::size_t k = 0; k < sums.size(); ++k) sums[k] += counts[k];
  }
}

void Learner::add_chunk(const double* counts) {
  for (Family& f : families_) {
    for (double& sum : f.sums) sum += *counts++;
  }
}

void Learner::copy_chunk(std::vector<double>& out) const {
  out.clear();
  for (const Family& f : families_) out.insert(out.end(), f.counts.begin(), f.counts.end());
}

double Learner::pass(bool accumulate) {
  begin_pass(accumulate);
  const std::size_t n = domain_.cases.size();
  double total = 0.0;
  for (std::size_t first = 0; first < n; first += kChunkCases) {
    total += run_chunk(first, std::min(n, first + kChunkCases), accumulate);
    if (accumulate) add_chunk(*this);
  }
  return total;
}

void Learner::maximize() {
  continuous_.maximize();
  for (Family& f : families_) {
    if (!f.prior.empty())
      for (std::size_t i = 0; i < f.sums.size(); ++i) f.sums[i] += f.prior[i];
    double* data = f.table->data();
    const std::uint64_t size = f.table->size();
    for (std::uint64_t base = 0; base < size; ++base) {
      if ((base / f.stride) % f.states != 0) continue;
      // A negative experience count marks a row that is not learned.
      if (f.experience[base] < 0.0) continue;
      double sum = 0.0;
      for (std::uint64_t k = 0; k < f.states; ++k) sum += f.sums[base + k * f.stride];
      if (!(sum > 0.0)) continue;  // no data for this row: it keeps its distribution
      for (std::uint64_t k = 0; k < f.states; ++k)
        data[base + k * f.stride] = f.sums[base + k * f.stride] / sum;
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

// A compiled copy of the domain with the cases, on which one more thread
// propagates chunks of a pass.
struct Replica {
  std::unique_ptr<Domain> domain;
  std::unique_ptr<Learner> learner;
};

// Whether two forests have the same cliques with the same members in the
// same order (names compared), so that a case propagates to the same bits.
bool same_forest(const Forest& a, const Forest& b) {
  if (a.trees.size() != b.trees.size() || a.cliques.size() != b.cliques.size() ||
      a.separators.size() != b.separators.size())
    return false;
  for (std::size_t i = 0; i < a.cliques.size(); ++i) {
    const NodeList& x = a.cliques[i]->members;
    const NodeList& y = b.cliques[i]->members;
    if (x.size() != y.size()) return false;
    for (std::size_t k = 0; k < x.size(); ++k)
      if (x[k]->name() != y[k]->name()) return false;
  }
  for (std::size_t i = 0; i < a.separators.size(); ++i)
    if (a.separators[i]->parent->number != b.separators[i]->parent->number ||
        a.separators[i]->child->number != b.separators[i]->child->number)
      return false;
  return true;
}

// Up to `threads` - 1 replicas of `domain` for a row-parallel E-step, or
// none when a copy cannot propagate exactly as the domain does (continuous
// or chain-graph parts, a compressed forest, nodes without names) or there
// are too few cases to share.
std::vector<Replica> make_replicas(Domain& domain, const Learner& main) {
  std::vector<Replica> replicas;
  const std::size_t chunks = (domain.cases.size() + kChunkCases - 1) / kChunkCases;
  const std::size_t threads = std::min<std::size_t>(
      {domain.concurrency_level, chunks, platform::WorkerPool::kMaxWorkers + 1});
  if (threads < 2 || main.has_continuous() || domain.is_compressed() ||
      domain.forest()->compressed || !domain.chain_components.empty() ||
      domain.continuous_count() > 0)
    return replicas;
  for (const Node* node = domain.first_node(); node != nullptr; node = node->next)
    if (!node->has_name()) return replicas;
  for (std::size_t t = 1; t < threads; ++t) {
    Replica r;
    r.domain = clone_domain(domain);
    Domain& copy = *r.domain;
    copy.grain_size = domain.grain_size;
    copy.scaled_propagation = domain.scaled_propagation;
    copy.cases = domain.cases;
    for (const Node* node = domain.first_node(); node != nullptr; node = node->next)
      copy.find(node->name())->cases = node->cases;
    std::vector<Node*> order;
    for (const Node* node : domain.forest()->elimination_order)
      order.push_back(copy.find(node->name()));
    triangulate_domain_with_order(copy, order);
    compile_domain(copy);
    if (!same_forest(*domain.forest(), *copy.forest())) return {};
    std::vector<Node*> candidates;
    for (const Family& f : main.families()) candidates.push_back(copy.find(f.node->name()));
    r.learner = std::make_unique<Learner>(copy);
    r.learner->prepare_families(&candidates, main.tied());
    if (r.learner->families().size() != main.families().size()) return {};
    replicas.push_back(std::move(r));
  }
  return replicas;
}

// One pass over the cases shared by the main learner (on this thread) and
// the replicas: each thread takes the next chunk, and the chunks' counts and
// log-likelihoods are added in chunk order.  A failing case stops the pass
// with the error of the first failing chunk, as one thread would.
double parallel_pass(Domain& domain, Learner& main, std::vector<Replica>& replicas,
                     bool accumulate) {
  // Each thread propagates alone: table operations are not split further.
  struct Level {
    Domain& domain;
    std::uint64_t saved;
    ~Level() { domain.concurrency_level = saved; }
  } level{domain, domain.concurrency_level};
  domain.concurrency_level = 1;

  main.begin_pass(accumulate);
  for (Replica& r : replicas) {
    const auto& from = main.families();
    const auto& to = r.learner->families();
    for (std::size_t i = 0; i < from.size(); ++i) {
      std::copy(from[i].table->data(), from[i].table->data() + from[i].table->size(),
                to[i].table->data());
      to[i].node->table_changed();
    }
    r.learner->begin_pass(accumulate);
  }
  std::vector<Learner*> learners{&main};
  for (Replica& r : replicas) learners.push_back(r.learner.get());

  const std::size_t n = domain.cases.size();
  const std::size_t chunks = (n + kChunkCases - 1) / kChunkCases;
  std::atomic<std::size_t> next{0};
  std::mutex mutex;
  std::size_t combined = 0;  // chunks added so far; guarded by mutex
  std::map<std::size_t, std::pair<double, std::vector<double>>> waiting;
  double total = 0.0;
  std::size_t failed_chunk = chunks;  // guarded by mutex
  std::exception_ptr failure;
  std::atomic<std::size_t> stop{chunks};

  auto task = [&](std::size_t w) noexcept {
    Learner& learner = *learners[w];
    std::size_t k = 0;
    try {
      for (;;) {
        k = next.fetch_add(1);
        if (k >= stop.load()) return;
        const std::size_t first = k * kChunkCases;
        const double ll = learner.run_chunk(first, std::min(n, first + kChunkCases), accumulate);
        const std::lock_guard lock(mutex);
        if (k == combined) {
          total += ll;
          if (accumulate) main.add_chunk(learner);
          ++combined;
        } else {
          auto& entry = waiting[k];
          entry.first = ll;
          if (accumulate) learner.copy_chunk(entry.second);
        }
        for (auto it = waiting.find(combined); it != waiting.end(); it = waiting.find(combined)) {
          total += it->second.first;
          if (accumulate) main.add_chunk(it->second.second.data());
          waiting.erase(it);
          ++combined;
        }
      }
    } catch (...) {
      const std::lock_guard lock(mutex);
      if (k < failed_chunk) {
        failed_chunk = k;
        failure = std::current_exception();
        stop.store(k);
      }
    }
  };
  platform::WorkerPool::shared().run(learners.size(), learners.size(), task);
  if (failure) std::rethrow_exception(failure);
  return total;
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

namespace {

// EM over the stored cases; with `tied`, its M-step.
void run_em(Domain& domain, TiedTables* tied) {
  const std::size_t number = total_count_or_throw(domain);
  require(domain.is_compiled() && domain.forest() != nullptr, K_ERROR_NOT_COMPILED);
  bool any = tied != nullptr && !tied->nodes().empty();
  for (const Node* node = domain.first_node(); node != nullptr && !any && tied == nullptr;
       node = node->next)
    any = node->experience_table() != nullptr;
  require(any);

  const platform::CLocaleGuard locale;
  require(locale.ok(), K_ERROR_LOCALE);
  const CompileLog log(domain.log());

  Learner learner(domain);
  try {
    if (tied != nullptr) learner.prepare_families(&tied->nodes(), true);
    else learner.prepare_families();
    // The copies only save time: without them one thread gives the same bits.
    std::vector<Replica> replicas;
    try {
      replicas = make_replicas(domain, learner);
    } catch (const Error&) {
      replicas.clear();
    } catch (const std::bad_alloc&) {
      replicas.clear();
    }
    if (log.active()) {
      if (domain.cases.counts_set())
        log.write("\n\nEM learning with %g cases:\n\n", domain.cases.total_count());
      else log.write("\n\nEM learning with %s cases:\n\n", std::to_string(number).c_str());
      log.flush();
    }
    double previous = -std::numeric_limits<double>::max();
    std::uint64_t iteration = 0;
    for (bool stop = false; !stop;) {
      const double total =
          replicas.empty() ? learner.pass(true) : parallel_pass(domain, learner, replicas, true);
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
      if (tied != nullptr) tied->maximize(learner.sums_of(tied->nodes()));
      else learner.maximize();
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
    if (tied != nullptr) tied->restore();
    retract_findings(domain);
    throw;
  }
}

}  // namespace

void learn_tables(Domain& domain) { run_em(domain, nullptr); }

void learn_tied_tables(Domain& domain, TiedTables& tied) { run_em(domain, &tied); }

}  // namespace kelva
