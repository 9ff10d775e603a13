// Learning the tables of a time-slice class from sequences sampled from a
// known hidden Markov model, then the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "kelva/kelva.h"

namespace {

using Rows = std::vector<std::vector<double>>;

// The hidden Markov model: a class with hidden H, observed O and P, the
// temporal clone of H (H at the previous step).
struct Hmm {
  k_class_collection_t cc = k_new_class_collection();
  k_class_t cls = k_cc_new_class(cc, "S");
  k_node_t h = nullptr, o = nullptr, p = nullptr;
  ~Hmm() { k_cc_delete(cc); }
};

k_node_t new_node(k_class_t cls, const char* name, k_size_t states) {
  k_node_t n = k_domain_new_node(reinterpret_cast<k_domain_t>(cls), K_CATEGORY_CHANCE,
                                 K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  k_node_set_name(n, name);
  k_node_set_number_of_states(n, states);
  return n;
}

void set_table(k_node_t n, const Rows& rows) {
  std::vector<double> data;
  for (const auto& r : rows) data.insert(data.end(), r.begin(), r.end());
  k_table_set_data(k_node_get_table(n), data.data(), data.size(), 0, data.size());
}

Rows get_table(k_node_t n, std::size_t states) {
  std::vector<double> d(k_table_get_size(k_node_get_table(n)));
  k_table_get_data(k_node_get_table(n), d.data(), d.size(), 0, d.size());
  Rows rows(d.size() / states);
  for (std::size_t r = 0; r < rows.size(); ++r)
    rows[r].assign(d.begin() + r * states, d.begin() + (r + 1) * states);
  return rows;
}

void make_hmm(Hmm& m, const Rows& prior, const Rows& transition, const Rows& emission) {
  m.h = new_node(m.cls, "H", 2);
  m.o = new_node(m.cls, "O", 3);
  m.p = k_node_create_temporal_clone(m.h);
  k_node_set_name(m.p, "P");
  k_node_add_parent(m.h, m.p);
  k_node_add_parent(m.o, m.h);
  set_table(m.p, prior);
  set_table(m.h, transition);
  set_table(m.o, emission);
  for (k_node_t n : {m.h, m.o, m.p}) k_node_get_experience_table(n);  // zero counts
}

std::size_t draw(const std::vector<double>& p, std::mt19937& rng) {
  return std::discrete_distribution<std::size_t>(p.begin(), p.end())(rng);
}

// A window of `slices` slices, compiled, with `count` sequences of 20 to
// `slices` observations sampled from the given tables.
k_domain_t sampled_window(k_class_t cls, k_size_t slices, std::size_t count, const Rows& prior,
                          const Rows& transition, const Rows& emission, unsigned seed) {
  k_domain_t d = k_class_create_dbn_domain(cls, slices);
  EXPECT_EQ(k_domain_triangulate_dbn(d, K_TM_BEST_GREEDY), 0);
  EXPECT_EQ(k_domain_compile(d), 0);
  k_domain_set_number_of_cases(d, count);
  std::mt19937 rng(seed);
  for (std::size_t c = 0; c < count; ++c) {
    std::size_t state = draw(prior[0], rng);
    const std::size_t length = 20 + rng() % (slices - 19);
    for (std::size_t t = 1; t <= length; ++t) {
      state = draw(transition[state], rng);
      char name[32];
      std::snprintf(name, sizeof name, "T%zu.O", t);
      k_node_set_case_state(k_domain_get_node_by_name(d, name), c,
                            draw(emission[state], rng));
    }
  }
  return d;
}

// The largest difference between learned and true tables under the better
// labelling of the two hidden states.
double recovery_error(const Hmm& m, const Rows& transition, const Rows& emission) {
  const Rows a = get_table(m.h, 2), b = get_table(m.o, 3);
  double best = 1e300;
  for (int swap = 0; swap < 2; ++swap) {
    double worst = 0;
    for (std::size_t i = 0; i < 2; ++i) {
      const std::size_t li = swap != 0 ? 1 - i : i;
      for (std::size_t j = 0; j < 2; ++j)
        worst = std::max(worst, std::fabs(a[li][swap != 0 ? 1 - j : j] - transition[i][j]));
      for (std::size_t k = 0; k < 3; ++k) worst = std::max(worst, std::fabs(b[li][k] - emission[i][k]));
    }
    best = std::min(best, worst);
  }
  return best;
}

std::vector<double> iterations;
int record(k_size_t, double ll, void*) {
  iterations.push_back(ll);
  return 1;
}

const Rows kPrior{{0.6, 0.4}};
const Rows kTransition{{0.9, 0.1}, {0.2, 0.8}};
const Rows kEmission{{0.7, 0.2, 0.1}, {0.1, 0.3, 0.6}};
const Rows kStartTransition{{0.6, 0.4}, {0.45, 0.55}};
const Rows kStartEmission{{0.4, 0.35, 0.25}, {0.25, 0.35, 0.4}};

TEST(ClassTables, TiedEmAndOnlineVariantsRecoverAHiddenMarkovModel) {
  Hmm m;
  make_hmm(m, {{0.5, 0.5}}, kStartTransition, kStartEmission);
  const auto restart = [&] {
    set_table(m.h, kStartTransition);
    set_table(m.o, kStartEmission);
    for (k_node_t n : {m.h, m.o, m.p})
      k_table_set_all_data_items(k_node_get_experience_table(n), 0.0);
  };
  k_domain_t d = sampled_window(m.cls, 40, 300, kPrior, kTransition, kEmission, 7);
  // Online EM and fractional updating in one pass from the perturbed start.
  for (double rate : {0.6, 1.0, 0.0}) {
    restart();
    ASSERT_EQ(rate > 0 ? k_domain_learn_class_tables_using_online_em(d, rate)
                       : k_domain_learn_class_tables_using_fractional_update(d),
              0);
    const double error = recovery_error(m, kTransition, kEmission);
    std::printf("one pass, %s %.1f: largest error %.4f\n", rate > 0 ? "online EM rate" : "fractional",
                rate, error);
    if (rate > 0) {
      EXPECT_LT(error, 0.1);
    }
  }
  restart();
  k_domain_t e = sampled_window(m.cls, 40, 300, kPrior, kTransition, kEmission, 7);
  k_domain_set_log_likelihood_tolerance(e, 1e-9);
  k_domain_set_max_number_of_em_iterations(e, 400);
  k_domain_set_em_progress(e, record, nullptr);
  ASSERT_EQ(k_domain_learn_class_tables(e), 0) << k_error_code();
  ASSERT_GT(iterations.size(), 2U);
  for (std::size_t i = 1; i < iterations.size(); ++i)
    EXPECT_GE(iterations[i], iterations[i - 1] - 1e-9 * std::fabs(iterations[i])) << i;
  const double em = recovery_error(m, kTransition, kEmission);
  std::printf("tied EM: %zu iterations, largest error %.4f\n", iterations.size(), em);
  EXPECT_LT(em, 0.05);
  // Every copy holds the class table, and the log-likelihood is that of it.
  const Rows a = get_table(m.h, 2);
  for (const char* name : {"T1.H", "T17.H", "T40.H"})
    EXPECT_EQ(get_table(k_domain_get_node_by_name(e, name), 2), a) << name;
  EXPECT_NEAR(k_domain_get_log_likelihood(e), iterations.back(), 1e-6 * std::fabs(iterations.back()));
  k_domain_delete(d);
  k_domain_delete(e);
}

// The adaptation variants, case by case from the propagated evidence, give
// the tables the learning variants give from the stored cases.
TEST(ClassTables, AdaptingCaseByCaseEqualsLearningFromTheCases) {
  for (int online = 0; online < 2; ++online) {
    Hmm m;
    make_hmm(m, {{0.5, 0.5}}, kStartTransition, kStartEmission);
    k_table_set_all_data_items(k_node_get_fading_table(m.o), 0.9);
    Rows learned[2];
    for (int adapt = 0; adapt < 2; ++adapt) {
      set_table(m.h, kStartTransition);
      set_table(m.o, kStartEmission);
      set_table(m.p, {{0.5, 0.5}});
      for (k_node_t n : {m.h, m.o, m.p}) k_table_set_all_data_items(k_node_get_experience_table(n), 1.0);
      k_domain_t d = sampled_window(m.cls, 22, 12, kPrior, kTransition, kEmission, 3);
      if (adapt == 0) {
        ASSERT_EQ(online != 0 ? k_domain_learn_class_tables_using_online_em(d, 0.75)
                              : k_domain_learn_class_tables_using_fractional_update(d),
                  0);
      } else {
        for (k_size_t c = 0; c < 12; ++c) {
          ASSERT_EQ(k_domain_enter_case(d, c), 0);
          ASSERT_EQ(k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
          ASSERT_EQ(online != 0 ? k_domain_adapt_class_tables_using_online_em(d, 0.75)
                                : k_domain_adapt_class_tables_using_fractional_update(d),
                    0);
        }
      }
      learned[adapt] = get_table(m.o, 3);
      for (const auto& row : get_table(m.p, 2)) learned[adapt].push_back(row);
      k_domain_delete(d);
    }
    ASSERT_EQ(learned[0].size(), learned[1].size());
    for (std::size_t r = 0; r < learned[0].size(); ++r)
      for (std::size_t k = 0; k < learned[0][r].size(); ++k)
        EXPECT_NEAR(learned[0][r][k], learned[1][r][k], 1e-12) << online << " " << r;
    EXPECT_NE(learned[0][0], kStartEmission[0]);
  }
}

TEST(ClassTables, RefusalsLeaveEveryTableAsItWas) {
  Hmm m;
  make_hmm(m, kPrior, kTransition, {{0.7, 0.3, 0.0}, {0.4, 0.6, 0.0}});
  k_domain_t d = sampled_window(m.cls, 20, 3, kPrior, kTransition, kEmission, 5);
  const Rows before = get_table(m.o, 3);
  // Null, bad rates, an impossible case (O never takes state 2), then
  // evidence entered and not propagated.
  EXPECT_FAILS(k_domain_learn_class_tables(nullptr), K_ERROR_USAGE);
  for (double rate : {0.5, 1.5, std::nan("")}) {
    EXPECT_FAILS(k_domain_learn_class_tables_using_online_em(d, rate), K_ERROR_USAGE);
    EXPECT_FAILS(k_domain_adapt_class_tables_using_online_em(d, rate), K_ERROR_USAGE);
  }
  EXPECT_FAILS(k_domain_learn_class_tables(d), K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  EXPECT_FAILS(k_domain_learn_class_tables_using_fractional_update(d),
               K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  EXPECT_EQ(get_table(m.o, 3), before);
  EXPECT_EQ(get_table(k_domain_get_node_by_name(d, "T3.O"), 3), before);
  k_node_select_state(k_domain_get_node_by_name(d, "T1.O"), 0);
  EXPECT_FAILS(k_domain_adapt_class_tables_using_fractional_update(d), K_ERROR_USAGE);
  // A moved window's first clones hold the filtered past: the class clone
  // keeps its table.
  k_domain_retract_findings(d);
  ASSERT_EQ(k_domain_move_dbn_window(d, 1), 0);
  ASSERT_EQ(k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  ASSERT_EQ(k_domain_adapt_class_tables_using_fractional_update(d), 0);
  EXPECT_EQ(get_table(m.p, 2), kPrior);
  // A copy whose shape changed; no cases; not compiled; no class node
  // learned; no class at all; its class collection gone.
  k_node_add_parent(k_domain_get_node_by_name(d, "T2.O"), k_domain_get_node_by_name(d, "T1.O"));
  k_domain_compile(d);
  EXPECT_FAILS(k_domain_learn_class_tables(d), K_ERROR_USAGE);
  k_domain_t fresh = k_class_create_dbn_domain(m.cls, 2);
  EXPECT_FAILS(k_domain_learn_class_tables_using_online_em(fresh, 1.0), K_ERROR_NOT_COMPILED);
  k_domain_compile(fresh);
  EXPECT_FAILS(k_domain_learn_class_tables_using_fractional_update(fresh), K_ERROR_USAGE);
  for (k_node_t n : {m.h, m.o, m.p}) k_table_delete(k_node_get_experience_table(n));
  EXPECT_FAILS(k_domain_adapt_class_tables_using_online_em(fresh, 1.0), K_ERROR_USAGE);
  k_domain_t plain = k_new_domain();
  k_node_t lone = k_domain_new_node(plain, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  k_node_set_number_of_states(lone, 2);
  k_table_set_all_data_items(k_node_get_table(lone), 0.5);
  k_domain_compile(plain);
  EXPECT_FAILS(k_domain_adapt_class_tables_using_fractional_update(plain), K_ERROR_USAGE);
  k_domain_delete(plain);
  k_domain_delete(d);
  k_cc_delete(m.cc);
  m.cc = k_new_class_collection();
  EXPECT_FAILS(k_domain_adapt_class_tables_using_fractional_update(fresh), K_ERROR_USAGE);
  k_domain_delete(fresh);
}

}  // namespace
