// Moving windows against one long unrolled window, then the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace {

k_domain_t body(k_class_t cls) { return reinterpret_cast<k_domain_t>(cls); }

k_node_t named(k_domain_t d, const std::string& name) {
  k_node_t n = k_domain_get_node_by_name(d, name.c_str());
  EXPECT_NE(n, nullptr) << name;
  return n;
}

// Fills a node's table with random positive distributions.
void random_table(k_node_t node, std::mt19937& rng) {
  k_table_t t = k_node_get_table(node);
  const k_size_t n = k_node_get_number_of_states(node);
  std::vector<double> data(k_table_get_size(t));
  std::uniform_real_distribution<double> u(0.05, 1.0);
  for (std::size_t b = 0; b < data.size(); b += n) {
    double total = 0;
    for (std::size_t s = 0; s < n; ++s) total += data[b + s] = u(rng);
    for (std::size_t s = 0; s < n; ++s) data[b + s] /= total;
  }
  k_table_set_data(t, data.data(), data.size(), 0, data.size());
}

std::string at(int slice, int node) {
  char name[32];
  std::snprintf(name, sizeof name, "T%d.X%d", slice, node);
  return name;
}

// A random slice class: nodes X0..X(n-1), clones P0.. of the first ones,
// Pi a parent of Xi; `single_cluster` tells whether the clones' masters
// form one interface cluster.
struct Slice {
  k_class_collection_t cc = k_new_class_collection();
  k_class_t cls = k_cc_new_class(cc, "S");
  int nodes = 0;
  bool single_cluster = true;
  std::vector<k_size_t> states;
};

void make_slice(Slice& s, std::mt19937& rng) {
  s.nodes = 2 + static_cast<int>(rng() % 3);
  const int clones = 1 + static_cast<int>(rng() % 2);
  std::vector<k_node_t> x;
  std::vector<std::vector<bool>> parent(s.nodes, std::vector<bool>(s.nodes));
  for (int i = 0; i < s.nodes; ++i) {
    x.push_back(
        k_domain_new_node(body(s.cls), K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL));
    k_node_set_name(x[i], at(0, i).c_str() + 3);
    s.states.push_back(2 + rng() % 2);
    k_node_set_number_of_states(x[i], s.states.back());
    for (int j = 0; j < i; ++j)
      if (rng() % 2 == 0) {
        k_node_add_parent(x[i], x[j]);
        parent[i][j] = true;
      }
  }
  std::vector<k_node_t> all = x;
  for (int i = 0; i < clones; ++i) {
    k_node_t p = k_node_create_temporal_clone(x[i]);
    ASSERT_NE(p, nullptr);
    const char* clone_names[] = {"P0", "P1"};
    k_node_set_name(p, clone_names[i]);
    k_node_add_parent(x[i], p);
    if (rng() % 2 == 0) k_node_add_parent(x[s.nodes - 1], p);
    all.push_back(p);
  }
  if (clones == 2) {
    bool joined = parent[1][0];
    for (int c = 0; c < s.nodes; ++c) joined = joined || (parent[c][0] && parent[c][1]);
    s.single_cluster = joined;
  }
  for (k_node_t n : all) random_table(n, rng);
}

// A finding: none (empty), a state (one 1, zeros) or likelihoods.
void enter(k_node_t node, const std::vector<double>& f) {
  for (std::size_t s = 0; s < f.size(); ++s) k_node_enter_finding(node, s, f[s]);
}

double max_difference(k_domain_t a, const std::string& na, k_domain_t b, const std::string& nb,
                      k_size_t states) {
  double worst = 0;
  for (k_size_t s = 0; s < states; ++s)
    worst = std::max(
        worst, std::fabs(k_node_get_belief(named(a, na), s) - k_node_get_belief(named(b, nb), s)));
  return worst;
}

TEST(DbnWindow, MovingWindowPredictionsAndBkMatchTheUnrolledNetwork) {
  constexpr int kSteps = 50;
  constexpr int kAhead = 3;
  double bk_error = 0;
  for (unsigned seed = 1; seed <= 12; ++seed) {
    std::mt19937 rng(seed);
    Slice s;
    make_slice(s, rng);
    const int w = 1 + static_cast<int>(rng() % 3);
    k_domain_t win = k_class_create_dbn_domain(s.cls, w);
    k_domain_t bk = k_class_create_dbn_domain(s.cls, w);
    k_domain_t flat = k_class_create_dbn_domain(s.cls, kSteps + w + kAhead);
    ASSERT_EQ(k_domain_triangulate_dbn(win, K_TM_BEST_GREEDY), 0) << k_error_code();
    ASSERT_EQ(k_domain_triangulate_dbn_for_bk(bk, K_TM_FILL_IN_WEIGHT), 0) << k_error_code();
    EXPECT_EQ(k_domain_is_triangulated_for_bk(bk), 1);
    EXPECT_EQ(k_domain_is_triangulated_for_bk(win), 0);
    for (k_domain_t d : {win, bk, flat}) ASSERT_EQ(k_domain_compile(d), 0) << k_error_code();

    std::size_t offset = 0;
    auto propagate_and_compare = [&] {
      for (k_domain_t d : {win, bk, flat})
        ASSERT_EQ(k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
      for (int slice = 1; slice <= w; ++slice)
        for (int j = 0; j < s.nodes; ++j) {
          const std::string there = at(static_cast<int>(offset) + slice, j);
          EXPECT_LT(max_difference(win, at(slice, j), flat, there, s.states[j]), 1e-12)
              << "seed " << seed << " " << there;
          const double e = max_difference(bk, at(slice, j), flat, there, s.states[j]);
          if (s.single_cluster) {
            EXPECT_LT(e, 1e-12) << "seed " << seed << " BK " << there;
          }
          bk_error = std::max(bk_error, e);
        }
    };
    for (int t = 0; t < kSteps; ++t) {
      const int slice = t - static_cast<int>(offset) + 1;
      for (int j = 0; j < s.nodes; ++j) {
        const unsigned kind = rng() % 4, state = rng() % s.states[j];
        std::vector<double> f;
        for (k_size_t i = 0; kind < 2 && i < s.states[j]; ++i)
          f.push_back(kind == 0 ? 0.1 + (rng() % 10) / 10.0 : i == state ? 1.0 : 0.0);
        enter(named(win, at(slice, j)), f);
        enter(named(bk, at(slice, j)), f);
        enter(named(flat, at(t + 1, j)), f);
      }
      propagate_and_compare();
      if (t % 9 == 4) {
        ASSERT_EQ(k_domain_compute_dbn_predictions(win, kAhead), 0) << k_error_code();
        for (int i = 0; i < kAhead; ++i)
          for (int j = 0; j < s.nodes; ++j)
            for (k_size_t st = 0; st < s.states[j]; ++st)
              EXPECT_NEAR(
                  k_node_get_predicted_belief(named(win, at(w, j)), st, i),
                  k_node_get_belief(named(flat, at(static_cast<int>(offset) + w + i + 1, j)), st),
                  1e-12);
      }
      // Move when the window is full, and now and then earlier, so that
      // evidence of later slices moves down with them.
      if (slice == w || rng() % 3 == 0) {
        const bool beyond = slice == w && rng() % 4 == 0;
        int k = 1 + static_cast<int>(rng() % static_cast<unsigned>(slice == w ? w : slice));
        if (beyond) k += w;
        ASSERT_EQ(k_domain_move_dbn_window(win, k), 0) << k_error_code();
        ASSERT_EQ(k_domain_move_dbn_window(bk, k), 0) << k_error_code();
        offset += k;
        if (beyond) t = static_cast<int>(offset) - 1;
        EXPECT_EQ(k_domain_get_dbn_window_offset(win), offset);
        propagate_and_compare();
      }
    }
    for (k_domain_t d : {win, bk, flat}) k_domain_delete(d);
    k_cc_delete(s.cc);
  }
  std::printf("largest Boyen-Koller error against exact filtering: %.3g\n", bk_error);
}

TEST(DbnWindow, RefusalsLeaveTheWindowAsItWas) {
  k_class_collection_t cc = k_new_class_collection();
  k_class_t cls = k_cc_new_class(cc, "S");
  auto node = [&](const char* name) {
    k_node_t n = k_domain_new_node(body(cls), K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
    k_node_set_name(n, name);
    k_node_set_number_of_states(n, 2);
    return n;
  };
  k_node_t h = node("H"), o = node("O"), g = node("G");
  k_node_t c = k_domain_new_node(body(cls), K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
  k_node_t h0 = k_node_create_temporal_clone(h);
  k_node_t g0 = k_node_create_temporal_clone(g);
  k_node_set_name(h0, "H0");
  k_node_set_name(g0, "G0");
  EXPECT_EQ(k_node_get_temporal_master(h0), h);
  EXPECT_EQ(k_node_get_temporal_clone(h), h0);
  k_node_add_parent(h, h0);
  k_node_add_parent(g, g0);
  k_node_add_parent(o, h);
  const double identity[] = {1, 0, 0, 1}, half[] = {0.5, 0.5};
  k_table_set_data(k_node_get_table(o), identity, 4, 0, 4);
  for (k_node_t n : {h0, g0}) k_table_set_data(k_node_get_table(n), half, 2, 0, 2);
  k_table_set_data(k_node_get_table(h), identity, 4, 0, 4);
  k_table_set_data(k_node_get_table(g), identity, 4, 0, 4);
  k_domain_t plain = k_new_domain();
  k_node_t p = k_domain_new_node(plain, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  // Clones: of a continuous node, a clone, a node with one, a plain domain's.
  for (k_node_t bad : {c, h0, h, p, static_cast<k_node_t>(nullptr)}) {
    EXPECT_EQ(k_node_create_temporal_clone(bad), nullptr);
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  }
  k_node_delete(c);
  EXPECT_NE(k_node_set_number_of_states(h0, 3), 0);
  EXPECT_NE(k_node_add_parent(h0, o), 0);
  EXPECT_EQ(k_class_create_dbn_domain(cls, 0), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);

  k_domain_t win = k_class_create_dbn_domain(cls, 2);
  EXPECT_EQ(k_domain_move_dbn_window(win, 1), 1);
  EXPECT_EQ(k_error_code(), K_ERROR_NOT_COMPILED);
  // An ordinary triangulation puts H and G, joined only through their
  // clones, in no one clique.
  ASSERT_EQ(k_domain_compile(win), 0);
  k_node_select_state(named(win, "T1.O"), 1);
  EXPECT_EQ(k_domain_move_dbn_window(win, 1), 1);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(k_domain_triangulate_dbn(win, K_TM_BEST_GREEDY), 1);
  k_domain_uncompile(win);
  EXPECT_EQ(k_domain_triangulate_dbn(win, K_TM_TOTAL_WEIGHT), 1);
  ASSERT_EQ(k_domain_triangulate_dbn(win, K_TM_BEST_GREEDY), 0);
  ASSERT_EQ(k_domain_compile(win), 0);
  EXPECT_EQ(k_domain_move_dbn_window(win, 0), 1);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  // Impossible evidence in the leaving slice: the move fails, nothing moves.
  k_node_select_state(named(win, "T1.H"), 0);
  EXPECT_EQ(k_domain_move_dbn_window(win, 1), 1);
  EXPECT_EQ(k_error_code(), K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  EXPECT_EQ(k_node_evidence_is_entered(named(win, "T1.H")), 1);
  EXPECT_EQ(k_domain_get_dbn_window_offset(win), 0u);
  k_node_retract_findings(named(win, "T1.H"));
  k_node_select_state(named(win, "T2.O"), 1);
  k_node_enter_finding(named(win, "T2.G"), 0, 0.5);
  ASSERT_EQ(k_domain_move_dbn_window(win, 1), 0);
  EXPECT_EQ(k_node_evidence_is_entered(named(win, "T1.O")), 1);
  EXPECT_EQ(k_node_evidence_is_entered(named(win, "T1.G")), 1);
  EXPECT_EQ(k_node_evidence_is_entered(named(win, "T2.O")), 0);
  ASSERT_EQ(k_domain_propagate(win, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  // The prior carries H = 1, seen through O in the slice that left.
  EXPECT_NEAR(k_node_get_belief(named(win, "T1.H0"), 1), 1.0, 1e-15);
  // Predictions: out of range, the wrong kind, a clone, a plain node.
  ASSERT_EQ(k_domain_compute_dbn_predictions(win, 2), 0) << k_error_code();
  EXPECT_NEAR(k_node_get_predicted_belief(named(win, "T1.H"), 1, 1), 1.0, 1e-15);
  const struct {
    k_node_t node;
    k_size_t state, time;
  } bad_reads[] = {{named(win, "T2.H"), 2, 0},
                   {named(win, "T2.H"), 0, 2},
                   {named(win, "T1.H0"), 0, 0},
                   {p, 0, 0},
                   {nullptr, 0, 0}};
  for (const auto& r : bad_reads) {
    EXPECT_EQ(k_node_get_predicted_belief(r.node, r.state, r.time), -1.0);
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  }
  ASSERT_EQ(k_domain_initialize_dbn_window(win), 0);
  EXPECT_EQ(k_domain_get_dbn_window_offset(win), 0u);
  EXPECT_EQ(k_node_get_predicted_belief(named(win, "T1.H"), 1, 0), -1.0);
  ASSERT_EQ(k_domain_propagate(win, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  EXPECT_GE(k_domain_compress(win), 0.0) << k_error_code();
  EXPECT_EQ(k_domain_move_dbn_window(win, 1), 1);
  EXPECT_EQ(k_error_code(), K_ERROR_COMPRESSED);
  // Without a window: a plain domain, and one whose node was deleted.
  k_node_delete(named(win, "T2.O"));
  for (k_domain_t d : {win, plain}) {
    EXPECT_EQ(k_domain_get_dbn_window_offset(d), K_SIZE_ERROR);
    EXPECT_EQ(k_domain_is_triangulated_for_bk(d), -1);
    EXPECT_EQ(k_domain_initialize_dbn_window(d), 1);
    EXPECT_EQ(k_domain_compute_dbn_predictions(d, 1), 1);
  }
  // Deleting a master leaves its clone an ordinary node.
  k_node_delete(h);
  EXPECT_EQ(k_node_get_temporal_master(h0), nullptr);
  EXPECT_EQ(k_node_add_parent(h0, o), 0);
  // A continuous node's value moves with its slice; its moments are
  // predicted as in the unrolled network.
  k_class_t cg = k_cc_new_class(cc, "C");
  k_node_t a = k_domain_new_node(body(cg), K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  k_node_set_number_of_states(a, 2);
  k_node_set_name(a, "A");
  k_node_t a0 = k_node_create_temporal_clone(a);
  k_node_t y = k_domain_new_node(body(cg), K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
  k_node_set_name(y, "Y");
  k_node_add_parent(a, a0);
  k_node_add_parent(y, a);
  const double move_on[] = {0.8, 0.2, 0.3, 0.7};
  k_table_set_data(k_node_get_table(a0), half, 2, 0, 2);
  k_table_set_data(k_node_get_table(a), move_on, 4, 0, 4);
  for (k_size_t i = 0; i < 2; ++i) {
    k_node_set_alpha(y, 10.0 * static_cast<double>(i), i);
    k_node_set_gamma(y, 1.0, i);
  }
  k_domain_t cw = k_class_create_dbn_domain(cg, 2), unrolled = k_class_create_dbn_domain(cg, 4);
  ASSERT_EQ(k_domain_triangulate_dbn(cw, K_TM_BEST_GREEDY), 0);
  for (k_domain_t d : {cw, unrolled}) ASSERT_EQ(k_domain_compile(d), 0);
  k_node_enter_value(named(cw, "T2.Y"), 9.0);
  k_node_enter_value(named(unrolled, "T2.Y"), 9.0);
  ASSERT_EQ(k_domain_move_dbn_window(cw, 1), 0);
  EXPECT_EQ(k_node_evidence_is_entered(named(cw, "T1.Y")), 1);
  ASSERT_EQ(k_domain_compute_dbn_predictions(cw, 1), 0) << k_error_code();
  ASSERT_EQ(k_domain_propagate(unrolled, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  EXPECT_NEAR(k_node_get_predicted_mean(named(cw, "T2.Y"), 0),
              k_node_get_mean(named(unrolled, "T4.Y")), 1e-12);
  EXPECT_NEAR(k_node_get_predicted_variance(named(cw, "T1.Y"), 0),
              k_node_get_variance(named(unrolled, "T4.Y")), 1e-12);
  // Slices without temporal clones are independent.
  k_class_t lone = k_cc_new_class(cc, "Lone");
  k_node_t only =
      k_domain_new_node(body(lone), K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  k_node_set_number_of_states(only, 2);
  k_table_set_data(k_node_get_table(only), half, 2, 0, 2);
  k_domain_t lw = k_class_create_dbn_domain(lone, 2);
  ASSERT_EQ(k_domain_triangulate_dbn(lw, K_TM_BEST_GREEDY), 0);
  ASSERT_EQ(k_domain_compile(lw), 0);
  EXPECT_EQ(k_domain_move_dbn_window(lw, 2), 0);
  EXPECT_EQ(k_domain_compute_dbn_predictions(lw, 1), 0);
  for (k_domain_t d : {win, plain, cw, unrolled, lw}) k_domain_delete(d);
  k_cc_delete(cc);
}

}  // namespace
