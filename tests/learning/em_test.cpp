// EM learning: recovery of known tables, the E- and M-steps against brute
// force, case counts, impossible cases and compressed forests, the stopping
// rules.
#include "learning/em.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "em_fixture.h"
#include "platform/worker_pool.h"

namespace kelva::test {
namespace {

// Records every iteration's log-likelihood; stops at `stop_at` (0: never).
struct Progress {
  std::vector<double> totals;
  std::uint64_t stop_at = 0;
  static int call(std::uint64_t iteration, double ll, void* data) {
    auto* self = static_cast<Progress*>(data);
    EXPECT_EQ(iteration, self->totals.size() + 1);
    self->totals.push_back(ll);
    return self->stop_at != 0 && iteration >= self->stop_at ? 0 : 1;
  }
  void attach(k_domain_t domain) { ASSERT_EQ(k_domain_set_em_progress(domain, &call, this), 0); }
};

// P(parent configuration) under `net`'s tables for each entry of the
// node's table (the node is last in its table, so rows are contiguous).
std::vector<double> row_probabilities(const Net& net, const char* name) {
  const Table& t = *net.node(name).table();
  std::vector<double> family(t.size(), 0.0);
  enumerate(net.d(), [&](double q, auto state_of) { family[entry_of(t, state_of)] += q; });
  const std::size_t n = net.node(name).state_count();
  std::vector<double> rows(t.size(), 0.0);
  for (std::size_t r = 0; r < t.size() / n; ++r) {
    double sum = 0.0;
    for (std::size_t k = 0; k < n; ++k) sum += family[r * n + k];
    for (std::size_t k = 0; k < n; ++k) rows[r * n + k] = sum;
  }
  return rows;
}

const std::vector<const char*> kNames = {"A", "B", "C", "D", "E", "F"};

TEST(EmLearning, RecoversKnownTablesFromIncompleteCases) {
  Net truth(kSixNodes);
  Net learner(kSixNodes);
  learner.uniform();
  learner.all_experience();
  ASSERT_EQ(k_domain_compile(learner.domain), 0);
  std::mt19937_64 rng(20240611);
  constexpr std::size_t kCases = 5000;
  sample_cases(truth, learner, kCases, 0.2, rng);
  Progress progress;
  progress.attach(learner.domain);
  ASSERT_EQ(k_domain_set_log_likelihood_tolerance(learner.domain, 1e-7), 0);
  ASSERT_EQ(k_domain_learn_tables(learner.domain), 0);

  // EM never lowers the likelihood (up to rounding of the sums).
  ASSERT_GE(progress.totals.size(), 3u);
  for (std::size_t i = 1; i < progress.totals.size(); ++i)
    EXPECT_GE(progress.totals[i], progress.totals[i - 1] - 1e-9 * std::fabs(progress.totals[i]))
        << "iteration " << i + 1;

  // Each learned probability is within four standard errors of a
  // proportion (at worst 0.5 / sqrt(n)) of the truth, n being the 80% of
  // the N * P(row) cases that show the item: wide enough for sampling
  // noise at this fixed seed, far narrower than the distance from the
  // uniform start.
  for (const char* name : kNames) {
    const std::vector<double> want = truth.table(name);
    const std::vector<double> got = learner.table(name);
    const std::vector<double> rows = row_probabilities(truth, name);
    for (std::size_t i = 0; i < want.size(); ++i) {
      const double tolerance = 4.0 * 0.5 / std::sqrt(0.8 * kCases * rows[i]);
      EXPECT_NEAR(got[i], want[i], tolerance) << name << " entry " << i;
    }
  }
  // The last reported total is that of the tables before the final M-step;
  // the domain's log-likelihood is that of the learned tables, at least as
  // high.
  EXPECT_GE(k_domain_get_log_likelihood(learner.domain), progress.totals.back() - 1e-6);
}

// One iteration from given tables: expected counts by enumeration of the
// joint, prior counts from the experience table, a row held by a negative
// experience count.
TEST(EmLearning, OneIterationMatchesBruteForceExpectedCounts) {
  Net net(kSixNodes);
  net.all_experience();
  // D's table is (B, C, D); its experience table (B, C).
  Table& exp = *net.node("D").experience_table();
  ASSERT_EQ(exp.size(), 6u);
  const std::vector<double> experience = {0, 2.5, 0, -1, 4, 0};
  std::copy(experience.begin(), experience.end(), exp.data());
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  std::mt19937_64 rng(7);
  sample_cases(net, net, 40, 0.35, rng);

  const Domain& d = net.d();
  std::vector<std::vector<double>> counts;
  std::vector<std::vector<double>> before;
  for (const char* name : kNames) {
    counts.emplace_back(net.node(name).table()->size(), 0.0);
    before.push_back(net.table(name));
  }
  double ll = 0.0;
  for (std::size_t c = 0; c < d.cases.size(); ++c) {
    double pe = 0.0;
    enumerate(d, [&](double p, auto state_of) {
      if (agrees(d, c, state_of)) pe += p;
    });
    ll += std::log(pe);
    enumerate(d, [&](double p, auto state_of) {
      if (!agrees(d, c, state_of)) return;
      for (std::size_t i = 0; i < kNames.size(); ++i)
        counts[i][entry_of(*net.node(kNames[i]).table(), state_of)] += p / pe;
    });
  }
  Progress progress;
  progress.attach(net.domain);
  ASSERT_EQ(k_domain_set_max_number_of_em_iterations(net.domain, 1), 0);
  ASSERT_EQ(k_domain_learn_tables(net.domain), 0);
  ASSERT_EQ(progress.totals.size(), 1u);
  EXPECT_NEAR(progress.totals[0], ll, 1e-9 * std::fabs(ll));

  for (std::size_t i = 0; i < kNames.size(); ++i) {
    const Node& node = net.node(kNames[i]);
    const std::size_t n = node.state_count();  // the node is last in its table
    const std::vector<double> got = net.table(kNames[i]);
    for (std::size_t row = 0; row < got.size() / n; ++row) {
      const bool is_d = i == 3;
      double prior = is_d ? experience[row] : 0.0;
      if (prior < 0.0) {
        for (std::size_t k = 0; k < n; ++k) EXPECT_EQ(got[row * n + k], before[i][row * n + k]);
        continue;
      }
      double old_sum = 0.0;
      double sum = 0.0;
      for (std::size_t k = 0; k < n; ++k) {
        old_sum += before[i][row * n + k];
        sum += counts[i][row * n + k];
      }
      for (std::size_t k = 0; k < n; ++k) {
        const double want =
            (counts[i][row * n + k] + prior * before[i][row * n + k] / old_sum) / (sum + prior);
        EXPECT_NEAR(got[row * n + k], want, 1e-12) << kNames[i] << " row " << row;
      }
    }
  }
}

// Complete cases: one iteration gives counts over sums exactly; a parent
// configuration that never occurs keeps its row; tolerance 0 stops at the
// first repeated total.
TEST(EmLearning, CompleteCasesGiveRelativeFrequencies) {
  Net net(R"(net {}
node A { states = ("a0" "a1" "a2"); }
node B { states = ("b0" "b1"); }
potential (A) { data = (0.2 0.3 0.5); }
potential (B | A) { data = ((0.5 0.5) (0.25 0.75) (0.6 0.4)); }
)");
  net.all_experience();
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  // A = a2 never occurs.
  const std::vector<std::vector<int>> cases = {{0, 0}, {0, 1}, {0, 1}, {1, 0},
                                               {0, 0}, {1, 1}, {1, 1}};
  for (const auto& c : cases) net.add_case({"A", "B"}, c);
  Progress progress;
  progress.attach(net.domain);
  ASSERT_EQ(k_domain_set_max_number_of_em_iterations(net.domain, 1), 0);
  ASSERT_EQ(k_domain_learn_tables(net.domain), 0);
  EXPECT_EQ(progress.totals.size(), 1u);
  EXPECT_EQ(net.table("A"), (std::vector<double>{4.0 / 7, 3.0 / 7, 0.0}));
  EXPECT_EQ(net.table("B"), (std::vector<double>{2.0 / 4, 2.0 / 4, 1.0 / 3, 2.0 / 3, 0.6, 0.4}));
  // The first total is that of the starting tables.
  const double start = 4 * std::log(0.2 * 0.5) + std::log(0.3 * 0.25) + 2 * std::log(0.3 * 0.75);
  EXPECT_NEAR(progress.totals[0], start, 1e-12);

  // Tolerance 0, no limit: the totals of iterations 2 and 3 are those of
  // the same tables, and equal, so the run ends there.
  progress.totals.clear();
  ASSERT_EQ(k_domain_set_max_number_of_em_iterations(net.domain, 0), 0);
  ASSERT_EQ(k_domain_set_log_likelihood_tolerance(net.domain, 0.0), 0);
  ASSERT_EQ(k_domain_learn_tables(net.domain), 0);
  ASSERT_EQ(progress.totals.size(), 2u);  // the tables were learned already
  EXPECT_EQ(progress.totals[0], progress.totals[1]);
  EXPECT_EQ(k_domain_get_log_likelihood(net.domain), progress.totals[1]);
}

// With tolerance 0 and missing items the run goes on until the call-back
// says stop.
TEST(EmLearning, CallbackStopsARunWithoutTolerance) {
  Net net(kSixNodes);
  net.uniform();
  net.all_experience();
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  Net truth(kSixNodes);
  std::mt19937_64 rng(3);
  sample_cases(truth, net, 200, 0.3, rng);
  ASSERT_EQ(k_domain_set_log_likelihood_tolerance(net.domain, 0.0), 0);
  Progress progress;
  progress.stop_at = 4;
  progress.attach(net.domain);
  ASSERT_EQ(k_domain_learn_tables(net.domain), 0);
  EXPECT_EQ(progress.totals.size(), 4u);
  for (std::size_t i = 1; i < progress.totals.size(); ++i)
    EXPECT_NE(progress.totals[i], progress.totals[i - 1]);
}

// A case of count 3 weighs as three copies of it; a case of count 0 adds
// nothing, even when it is impossible, but counted it fails the run.  A
// compressed forest (only the non-zero clique entries) learns the same.
TEST(EmLearning, CaseCountsWeightCases) {
  Net weighted(kSixNodes);
  Net copied(kSixNodes);
  Net compressed(kSixNodes);
  std::mt19937_64 rng(11);
  for (Net* net : {&weighted, &copied, &compressed}) {
    net->uniform();
    net->all_experience();
    // A = a0 cannot go with B = b1 in any network, so such a case is
    // impossible.
    net->set_table("B", {0.5, 0.0, 0.5, 0.3, 0.3, 0.4});
    ASSERT_EQ(k_domain_compile(net->domain), 0);
    ASSERT_EQ(k_domain_set_max_number_of_em_iterations(net->domain, 5), 0);
  }
  ASSERT_GT(k_domain_compress(compressed.domain), 0.0);
  Net truth(kSixNodes);
  truth.set_table("B", {0.5, 0.0, 0.5, 0.3, 0.3, 0.4});
  Net sampled(kSixNodes);
  sample_cases(truth, sampled, 30, 0.4, rng);
  for (std::size_t c = 0; c < 30; ++c) {
    std::vector<int> states;
    for (const char* name : kNames) states.push_back(sampled.node(name).cases.state(c));
    weighted.add_case(kNames, states, c % 3 == 0 ? 3.0 : 1.0);
    for (Net* net : {&copied, &compressed})
      for (int copies = c % 3 == 0 ? 3 : 1; copies > 0; --copies) net->add_case(kNames, states);
  }
  weighted.add_case({"A", "B"}, {0, 1}, 0.0);
  for (Net* net : {&weighted, &copied, &compressed})
    ASSERT_EQ(k_domain_learn_tables(net->domain), 0);
  for (const char* name : kNames) {
    const std::vector<double> a = copied.table(name);
    for (const Net* net : {&weighted, &compressed}) {
      const std::vector<double> b = net->table(name);
      for (std::size_t i = 0; i < a.size(); ++i) EXPECT_NEAR(a[i], b[i], 1e-12) << name << i;
    }
  }
  EXPECT_EQ(compressed.table("B")[1], 0.0);
  EXPECT_NEAR(k_domain_get_log_likelihood(weighted.domain),
              k_domain_get_log_likelihood(copied.domain), 1e-9);
  EXPECT_EQ(weighted.d().cases.total_count(), 50.0);

  // Counted once, the impossible case ends the run with the propagation's
  // error; the tables are as before and the domain stays compiled and usable.
  weighted.d().cases.set_count(30, 1.0);
  weighted.d().cases.add();  // an empty case after it
  std::vector<std::vector<double>> before;
  for (const char* name : kNames) before.push_back(weighted.table(name));
  EXPECT_NE(k_domain_learn_tables(weighted.domain), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  for (std::size_t i = 0; i < kNames.size(); ++i) EXPECT_EQ(weighted.table(kNames[i]), before[i]);
  EXPECT_EQ(k_domain_get_log_likelihood(weighted.domain), 1.0);
  EXPECT_EQ(k_error_code(), K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  EXPECT_EQ(k_domain_is_compiled(weighted.domain), 1);
  EXPECT_EQ(k_node_evidence_is_entered(weighted.h("A")), 0);
  EXPECT_EQ(k_domain_propagate(weighted.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
}

// With a concurrency level above 1 the E-step shares the cases among compiled
// copies of the domain; every total, table and error is that of one thread
// to the last bit, also when an impossible case stops the run.
TEST(EmLearning, ThreadsGiveTheBitsOfOneThread) {
  const std::vector<double> b_table = {0.5, 0.0, 0.5, 0.3, 0.3, 0.4};
  Net truth(kSixNodes);
  truth.set_table("B", b_table);
  std::vector<std::unique_ptr<Net>> nets;
  std::vector<Progress> progress(3);
  for (std::size_t t = 0; t < 3; ++t) {
    nets.push_back(std::make_unique<Net>(kSixNodes));
    Net& net = *nets.back();
    net.uniform();
    net.all_experience();
    net.set_table("B", b_table);
    ASSERT_EQ(k_domain_compile(net.domain), 0);
    ASSERT_EQ(k_domain_set_concurrency_level(net.domain, t + 1), 0);
    ASSERT_EQ(k_domain_set_max_number_of_em_iterations(net.domain, 4), 0);
    std::mt19937_64 rng(77);
    sample_cases(truth, net, 3000, 0.3, rng);
    progress[t].attach(net.domain);
    ASSERT_EQ(k_domain_learn_tables(net.domain), 0);
  }
  EXPECT_GT(platform::WorkerPool::shared().worker_count(), 0u);
  for (std::size_t t = 1; t < 3; ++t) {
    EXPECT_EQ(progress[t].totals, progress[0].totals) << t + 1 << " threads";
    EXPECT_EQ(k_domain_get_log_likelihood(nets[t]->domain),
              k_domain_get_log_likelihood(nets[0]->domain));
    for (const char* name : kNames) EXPECT_EQ(nets[t]->table(name), nets[0]->table(name)) << name;
  }
  // Impossible cases in two chunks: the first one's error, tables kept.
  for (auto& net : nets) {
    for (std::size_t c : {2900u, 1400u}) {
      net->node("A").cases.set_state(c, 0);
      net->node("B").cases.set_state(c, 1);
    }
    const std::vector<double> before = net->table("D");
    EXPECT_NE(k_domain_learn_tables(net->domain), 0);
    EXPECT_EQ(k_error_code(), K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
    EXPECT_EQ(net->table("D"), before);
  }
}

}  // namespace
}  // namespace kelva::test
