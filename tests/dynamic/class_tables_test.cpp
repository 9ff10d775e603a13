// Learning the tables of a time-slice class from sequences of a known hidden
// Markov model, the refusals; predicted values of function nodes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "common/expect_code.h"
#include "kelva/kelva.h"

namespace {

using Vec = std::vector<double>;

// The true prior, transition and emission (a row per state); a start far off.
const Vec kPrior{0.6, 0.4}, kA{0.9, 0.1, 0.2, 0.8}, kB{0.7, 0.2, 0.1, 0.1, 0.3, 0.6};
const Vec kA0{0.6, 0.4, 0.45, 0.55}, kB0{0.4, 0.35, 0.25, 0.25, 0.35, 0.4};

void set(k_node_t n, const Vec& v) {
  k_table_set_data(k_node_get_table(n), v.data(), v.size(), 0, v.size());
}

Vec get(k_node_t n) {
  Vec v(k_table_get_size(k_node_get_table(n)));
  k_table_get_data(k_node_get_table(n), v.data(), v.size(), 0, v.size());
  return v;
}

std::size_t draw(const Vec& table, std::size_t row, std::size_t n, std::mt19937& rng) {
  return std::discrete_distribution<std::size_t>(table.begin() + row * n,
                                                 table.begin() + (row + 1) * n)(rng);
}

// A slice class: hidden H, observed O, P the temporal clone of H.
struct Hmm {
  k_class_collection_t cc = k_new_class_collection();
  k_class_t cls = k_cc_new_class(cc, "S");
  k_node_t h = add("H", 2), o = add("O", 3), p = k_node_create_temporal_clone(h);

  explicit Hmm(const Vec& b = kB0) {
    k_node_add_parent(h, p);
    k_node_add_parent(o, h);
    restart(0.0, b);
  }
  ~Hmm() { k_cc_delete(cc); }
  k_node_t add(const char* name, k_size_t states) {
    k_node_t n = k_domain_new_node(reinterpret_cast<k_domain_t>(cls),
                                   states > 0 ? K_CATEGORY_CHANCE : K_CATEGORY_FUNCTION,
                                   states > 0 ? K_KIND_DISCRETE : K_KIND_OTHER, K_SUBTYPE_NUMBER);
    k_node_set_name(n, name);
    if (states > 0) k_node_set_number_of_states(n, states);
    for (k_size_t s = 0; s < states; ++s) k_node_set_state_value(n, s, 2.0 * s);
    return n;
  }
  void restart(double experience, const Vec& b = kB0) {
    set(p, {0.5, 0.5});
    set(h, kA0);
    set(o, b);
    for (k_node_t n : {h, o, p})
      k_table_set_all_data_items(k_node_get_experience_table(n), experience);
  }
  // A compiled window of `slices` slices with `count` cases: sequences of
  // 20 to `slices` symbols drawn from the true model.
  k_domain_t window(k_size_t slices, std::size_t count, unsigned seed) const {
    k_domain_t d = k_class_create_dbn_domain(cls, slices);
    EXPECT_EQ(k_domain_triangulate_dbn(d, K_TM_BEST_GREEDY) + k_domain_compile(d), 0);
    k_domain_set_number_of_cases(d, count);
    std::mt19937 rng(seed);
    for (std::size_t c = 0; c < count; ++c) {
      std::size_t state = draw(kPrior, 0, 2, rng);
      const std::size_t length = 20 + rng() % (slices - 19);
      for (std::size_t t = 1; t <= length; ++t) {
        state = draw(kA, state, 2, rng);
        char name[32];
        std::snprintf(name, sizeof name, "T%zu.O", t);
        k_node_set_case_state(k_domain_get_node_by_name(d, name), c, draw(kB, state, 3, rng));
      }
    }
    return d;
  }
  // The largest difference from the true tables under the better labelling
  // of the hidden states.
  double error() const {
    const Vec a = get(h), b = get(o);
    double worst[2] = {0, 0};  // as labelled, and swapped
    for (std::size_t i = 0; i < 6; ++i)
      for (std::size_t swap = 0; swap < 2; ++swap) {
        const double da = i < 4 ? std::fabs(a[swap != 0 ? 3 - i : i] - kA[i]) : 0.0;
        const double db = std::fabs(b[(i / 3 ^ swap) * 3 + i % 3] - kB[i]);
        worst[swap] = std::max({worst[swap], da, db});
      }
    return std::min(worst[0], worst[1]);
  }
};

TEST(ClassTables, TiedEmAndOnlineVariantsRecoverAHiddenMarkovModel) {
  Hmm m;
  k_domain_t d = m.window(40, 300, 7);
  for (double rate : {0.6, 1.0}) {
    m.restart(0.0);
    ASSERT_EQ(k_domain_learn_class_tables_using_online_em(d, rate), 0);
    std::printf("one pass of online EM, rate %.1f: largest error %.4f\n", rate, m.error());
    EXPECT_LT(m.error(), rate < 1 ? 0.1 : 0.3);  // steps of 1/n forget a bad start slowly
  }
  m.restart(0.0);
  k_table_set_all_data_items(k_node_get_experience_table(m.p), -1.0);  // P is not learned
  k_domain_set_log_likelihood_tolerance(d, 1e-9);
  k_domain_set_max_number_of_em_iterations(d, 400);
  static std::vector<double> iterations;
  const auto record = [](k_size_t, double ll, void*) { return (iterations.push_back(ll), 1); };
  k_domain_set_em_progress(d, record, nullptr);
  ASSERT_EQ(k_domain_learn_class_tables(d), 0) << k_error_code();
  for (std::size_t i = 1; i < iterations.size(); ++i)
    EXPECT_GE(iterations[i], iterations[i - 1] - 1e-9 * std::fabs(iterations[i])) << i;
  std::printf("tied EM: %zu iterations, largest error %.4f\n", iterations.size(), m.error());
  EXPECT_LT(m.error(), 0.05);
  // Every copy holds the class table; the log-likelihood is that of it.
  for (const char* name : {"T1.H", "T17.H", "T40.H"})
    EXPECT_EQ(get(k_domain_get_node_by_name(d, name)), get(m.h)) << name;
  EXPECT_NEAR(k_domain_get_log_likelihood(d), iterations.back(), 1e-9 * -iterations.back());
  k_domain_delete(d);
}

// Adapting case by case from the propagated evidence gives the tables that
// learning from the stored cases gives.
TEST(ClassTables, AdaptingCaseByCaseEqualsLearningFromTheCases) {
  for (int online = 0; online < 2; ++online) {
    Hmm m;
    k_table_set_all_data_items(k_node_get_fading_table(m.o), 0.9);
    Vec learned[2];
    for (int adapt = 0; adapt < 2; ++adapt) {
      m.restart(1.0);
      k_table_set_data_item(k_node_get_experience_table(m.o), 1, -1.0);  // row 1 is kept
      k_domain_t d = m.window(22, 12, 3);
      for (k_size_t c = 0; adapt == 1 && c < 12; ++c) {
        ASSERT_EQ(k_domain_enter_case(d, c), 0);
        ASSERT_EQ(k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
        ASSERT_EQ(online != 0 ? k_domain_adapt_class_tables_using_online_em(d, 0.75)
                              : k_domain_adapt_class_tables_using_fractional_update(d),
                  0);
      }
      if (adapt == 0) {
        ASSERT_EQ(online != 0 ? k_domain_learn_class_tables_using_online_em(d, 0.75)
                              : k_domain_learn_class_tables_using_fractional_update(d),
                  0);
      }
      learned[adapt] = get(m.o);
      for (k_node_t n : {m.p, m.h}) learned[adapt].push_back(get(n)[0]);
      k_domain_delete(d);
    }
    for (std::size_t i = 0; i < learned[0].size(); ++i)
      EXPECT_NEAR(learned[0][i], learned[1][i], 1e-12) << online << " " << i;
    EXPECT_NE(learned[0][0], kB0[0]);
  }
}

TEST(ClassTables, RefusalsLeaveEveryTableAsItWas) {
  const Vec no_third{0.7, 0.3, 0.0, 0.4, 0.6, 0.0};
  Hmm m(no_third);
  k_domain_t d = m.window(20, 3, 5);
  EXPECT_FAILS(k_domain_learn_class_tables(nullptr), K_ERROR_USAGE);
  for (double rate : {0.5, 1.5, std::nan("")}) {
    EXPECT_FAILS(k_domain_learn_class_tables_using_online_em(d, rate), K_ERROR_USAGE);
    EXPECT_FAILS(k_domain_adapt_class_tables_using_online_em(d, rate), K_ERROR_USAGE);
  }
  // A case impossible under the tables: O never takes its third symbol.
  EXPECT_FAILS(k_domain_learn_class_tables(d), K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  EXPECT_FAILS(k_domain_learn_class_tables_using_fractional_update(d),
               K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  EXPECT_EQ(get(m.o), no_third);
  EXPECT_EQ(get(k_domain_get_node_by_name(d, "T3.O")), no_third);
  k_node_select_state(k_domain_get_node_by_name(d, "T1.O"), 0);
  EXPECT_FAILS(k_domain_adapt_class_tables_using_fractional_update(d), K_ERROR_USAGE);
  // A moved window's first clones hold the past: the class clone is kept.
  ASSERT_EQ(k_domain_move_dbn_window(d, 1), 0);
  ASSERT_EQ(k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  ASSERT_EQ(k_domain_adapt_class_tables_using_fractional_update(d), 0);
  EXPECT_EQ(get(m.p), Vec({0.5, 0.5}));
  // A copy whose shape changed; not compiled; no cases; no class node
  // learned; the classes gone (the nodes name no class node).
  k_node_add_parent(k_domain_get_node_by_name(d, "T2.O"), k_domain_get_node_by_name(d, "T1.O"));
  k_domain_compile(d);
  EXPECT_FAILS(k_domain_learn_class_tables(d), K_ERROR_USAGE);
  k_domain_t fresh = k_class_create_dbn_domain(m.cls, 2);
  EXPECT_FAILS(k_domain_learn_class_tables_using_online_em(fresh, 1.0), K_ERROR_NOT_COMPILED);
  k_domain_compile(fresh);
  EXPECT_FAILS(k_domain_learn_class_tables_using_fractional_update(fresh), K_ERROR_USAGE);
  for (k_node_t n : {m.h, m.o, m.p}) k_table_delete(k_node_get_experience_table(n));
  EXPECT_FAILS(k_domain_adapt_class_tables_using_online_em(fresh, 1.0), K_ERROR_USAGE);
  k_domain_delete(d);
  k_cc_delete(m.cc);
  m.cc = k_new_class_collection();
  EXPECT_FAILS(k_domain_adapt_class_tables_using_fractional_update(fresh), K_ERROR_USAGE);
  k_domain_delete(fresh);
}

// A function of H's belief and one of H's state (no value unless known).
TEST(DbnPredictions, FunctionValuesAreThoseOfTheUnrolledWindow) {
  Hmm m(kB);
  k_node_t none[] = {nullptr};
  for (const char* text : {"variance (H) + 1", "H * 2"}) {
    k_node_t f = m.add(text[0] == 'v' ? "F" : "G", 0);
    k_node_add_parent(f, m.h);
    k_model_set_expression_from_string(k_node_new_model(f, none), 0, text, nullptr, nullptr);
  }
  k_domain_t win = k_class_create_dbn_domain(m.cls, 1), flat = k_class_create_dbn_domain(m.cls, 5);
  ASSERT_EQ(k_domain_triangulate_dbn(win, K_TM_BEST_GREEDY), 0);
  for (k_domain_t d : {win, flat}) ASSERT_EQ(k_domain_compile(d), 0);
  const auto node = &k_domain_get_node_by_name;
  for (k_domain_t d : {win, flat}) k_node_select_state(node(d, "T1.O"), 2);
  ASSERT_EQ(k_domain_move_dbn_window(win, 1), 0);
  k_node_select_state(node(win, "T1.O"), 0);
  k_node_select_state(node(flat, "T2.O"), 0);
  ASSERT_EQ(k_domain_propagate(flat, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  ASSERT_EQ(k_domain_compute_dbn_predictions(win, 3), 0) << k_error_code();
  const char* there[] = {"T3.F", "T4.F", "T5.F"};
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(k_node_get_predicted_value(node(win, "T1.F"), i),
                k_node_get_value(node(flat, there[i])), 1e-12);
    EXPECT_CODE(k_node_get_predicted_value(node(win, "T1.G"), i), -1.0, K_ERROR_NO_VALUE);
  }
  EXPECT_CODE(k_node_get_predicted_value(node(win, "T1.H"), 0), -1.0, K_ERROR_USAGE);
  for (k_domain_t d : {win, flat}) k_domain_delete(d);
}

}  // namespace
