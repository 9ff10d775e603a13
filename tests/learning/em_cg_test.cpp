// EM on conditional-Gaussian networks: complete data against per
// configuration least squares, incomplete data against a brute-force
// log-likelihood and the monotone rise of EM.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "inference/net_builder.h"
#include "table/table.h"

namespace kelva::test {
namespace {

k_node_t h(Node* n) { return reinterpret_cast<k_node_t>(n); }

// The configuration index of a table's discrete nodes under `state`
// (per node of the net, in creation order).
std::uint64_t config(const TestNet& net, const Table& t, const std::vector<int>& state) {
  std::uint64_t c = 0;
  for (std::size_t k = 0; k < t.discrete_count(); ++k) {
    const auto at = std::find(net.nodes.begin(), net.nodes.end(), t.nodes()[k]);
    c = c * t.state_counts()[k] + static_cast<std::uint64_t>(state[at - net.nodes.begin()]);
  }
  return c;
}

// Random CG parameters for every continuous node.
void randomize_cg(TestNet& net, std::mt19937& rng) {
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (Node* x : net.nodes) {
    if (!x->is_continuous()) continue;
    for (std::uint64_t c = 0; c < x->table()->size(); ++c) {
      k_node_set_alpha(h(x), 3 * u(rng), c);
      k_node_set_gamma(h(x), 0.3 + std::fabs(u(rng)), c);
      for (Node* p : x->parents())
        if (p->is_continuous()) k_node_set_beta(h(x), 1.5 * u(rng), h(p), c);
    }
  }
}

// Up to 4 discrete and 5 continuous nodes, every chance node learned.
void random_cg_network(TestNet& net, std::mt19937& rng) {
  random_network(net, rng, 1 + rng() % 4, 2);
  for (std::size_t i = 0, nc = 1 + rng() % 5; i < nc; ++i) {
    std::vector<Node*> parents;
    for (Node* p : net.nodes)
      if (rng() % (p->is_discrete() ? 3 : 2) == 0) parents.push_back(p);
    net.add_continuous(parents);
  }
  randomize_cg(net, rng);
  for (Node* x : net.nodes) ASSERT_NE(k_node_get_experience_table(h(x)), nullptr);
}

// Log density of x's value in `value` given the others, under its table.
double log_density(const TestNet& net, Node* x, const std::vector<int>& state,
                   const std::vector<double>& value) {
  const Table& t = *x->table();
  const std::uint64_t c = config(net, t, state);
  double mean = k_node_get_alpha(h(x), c);
  for (std::size_t i = 0; i < net.nodes.size(); ++i)
    if (net.nodes[i]->is_continuous() && t.nodes().contains(net.nodes[i]) && net.nodes[i] != x)
      mean += k_node_get_beta(h(x), h(net.nodes[i]), c) * value[i];
  const double v = k_node_get_gamma(h(x), c);
  const double r = value[std::find(net.nodes.begin(), net.nodes.end(), x) - net.nodes.begin()];
  return -0.5 * (std::log(2 * std::numbers::pi * v) + (r - mean) * (r - mean) / v);
}

struct Sample {
  std::vector<std::vector<int>> state;
  std::vector<std::vector<double>> value;
};

// Forward sampling (creation order is topological); items hidden with
// probability hide_discrete / hide_continuous go to the case store unset.
Sample sample(TestNet& net, std::size_t n, double hide_discrete, double hide_continuous,
              std::mt19937& rng) {
  std::uniform_real_distribution<double> u(0.0, 1.0);
  std::normal_distribution<double> z;
  Sample s;
  for (std::size_t k = 0; k < n; ++k) {
    std::vector<int> state(net.nodes.size(), 0);
    std::vector<double> value(net.nodes.size(), 0.0);
    const std::size_t c = net.d().cases.add();
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      Node* x = net.nodes[i];
      if (x->is_discrete()) {
        double r = u(rng);
        for (state[i] = 0; state[i] + 1 < int(x->state_count()); ++state[i]) {
          r -= x->table()->data()[config(net, *x->table(), state)];
          if (r < 0) break;
        }
        if (u(rng) >= hide_discrete) x->cases.set_state(c, state[i]);
      } else {
        const std::uint64_t cf = config(net, *x->table(), state);
        double mean = k_node_get_alpha(h(x), cf);
        for (std::size_t j = 0; j < i; ++j)
          if (net.nodes[j]->is_continuous() && x->table()->nodes().contains(net.nodes[j]))
            mean += k_node_get_beta(h(x), h(net.nodes[j]), cf) * value[j];
        value[i] = mean + std::sqrt(k_node_get_gamma(h(x), cf)) * z(rng);
        if (u(rng) >= hide_continuous) x->cases.set_value(c, value[i]);
      }
    }
    s.state.push_back(state);
    s.value.push_back(value);
  }
  return s;
}

void expect_near(double got, long double want, const char* what) {
  EXPECT_LE(std::fabs(got - double(want)), 1e-9 * std::fabs(double(want)) + 1e-12)
      << what << ": " << got << " vs " << double(want);
}

// Complete data: one EM step is the maximum-likelihood estimate, each
// configuration's least-squares regression (normal equations solved here in
// long double) and relative frequencies; the log-likelihood adds densities.
TEST(EmCg, CompleteDataGivesLeastSquares) {
  std::mt19937 rng(41);
  for (int round = 0; round < 12; ++round) {
    SCOPED_TRACE(round);
    TestNet net;
    random_cg_network(net, rng);
    const Sample s = sample(net, 200 + rng() % 200, 0.0, 0.0, rng);
    randomize_cg(net, rng);  // start away from the truth
    ASSERT_EQ(compile_for_test(net.d()), 0);
    ASSERT_EQ(k_domain_learn_tables(net.domain), 0) << k_error_code();
    long double ll = 0;
    for (std::size_t k = 0; k < s.state.size(); ++k)
      for (Node* x : net.nodes)
        ll += x->is_discrete() ? std::log(x->table()->data()[config(net, *x->table(), s.state[k])])
                               : log_density(net, x, s.state[k], s.value[k]);
    expect_near(k_domain_get_log_likelihood(net.domain), ll, "log-likelihood");
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      Node* x = net.nodes[i];
      const Table& t = *x->table();
      if (x->is_discrete()) {
        std::vector<long double> n(t.size(), 0);
        for (const auto& st : s.state) n[config(net, t, st)] += 1;
        const std::size_t states = x->state_count();  // x is last in its table
        for (std::size_t row = 0; row < t.size(); row += states) {
          long double sum = 0;
          for (std::size_t j = 0; j < states; ++j) sum += n[row + j];
          for (std::size_t j = 0; j < states && sum > 0; ++j)
            expect_near(t.data()[row + j], n[row + j] / sum, "probability");
        }
        continue;
      }
      std::vector<Node*> y;
      for (Node* p : x->parents())
        if (p->is_continuous()) y.push_back(p);
      const std::size_t m = y.size() + 1;
      for (std::uint64_t c = 0; c < t.size(); ++c) {
        std::vector<long double> a(m * (m + 1), 0);  // [X^T X | X^T x] over rows (1, y)
        std::size_t rows = 0;
        for (std::size_t k = 0; k < s.state.size(); ++k) {
          if (config(net, t, s.state[k]) != c) continue;
          ++rows;
          std::vector<long double> r{1};
          for (Node* p : y)
            r.push_back(
                s.value[k][std::find(net.nodes.begin(), net.nodes.end(), p) - net.nodes.begin()]);
          r.push_back(s.value[k][i]);
          for (std::size_t p = 0; p < m; ++p)
            for (std::size_t q = 0; q <= m; ++q) a[p * (m + 1) + q] += r[p] * r[q];
        }
        if (rows < m + 2) continue;
        for (std::size_t p = 0; p < m; ++p)  // Gauss-Jordan
          for (std::size_t q = 0; q < m; ++q) {
            if (q == p) continue;
            const long double f = a[q * (m + 1) + p] / a[p * (m + 1) + p];
            for (std::size_t e = 0; e <= m; ++e) a[q * (m + 1) + e] -= f * a[p * (m + 1) + e];
          }
        std::vector<long double> b(m);
        for (std::size_t p = 0; p < m; ++p) b[p] = a[p * (m + 1) + m] / a[p * (m + 1) + p];
        long double rss = 0;
        for (std::size_t k = 0; k < s.state.size(); ++k) {
          if (config(net, t, s.state[k]) != c) continue;
          long double e = s.value[k][i] - b[0];
          for (std::size_t p = 0; p < y.size(); ++p)
            e -=
                b[p + 1] *
                s.value[k][std::find(net.nodes.begin(), net.nodes.end(), y[p]) - net.nodes.begin()];
          rss += e * e;
        }
        expect_near(k_node_get_alpha(h(x), c), b[0], "alpha");
        for (std::size_t p = 0; p < y.size(); ++p)
          expect_near(k_node_get_beta(h(x), h(y[p]), c), b[p + 1], "beta");
        expect_near(k_node_get_gamma(h(x), c), rss / rows, "gamma");
      }
    }
  }
}

// Incomplete data: every iteration's log-likelihood is at least the one
// before, with hidden discrete items (then checked against the sum over the
// discrete configurations) and with hidden continuous values too.
TEST(EmCg, IncompleteDataRaisesTheLikelihood) {
  std::mt19937 rng(43);
  for (int round = 0; round < 12; ++round) {
    SCOPED_TRACE(round);
    TestNet net;
    random_cg_network(net, rng);
    const bool hide_values = round % 2 == 1;
    sample(net, 150, 0.3, hide_values ? 0.3 : 0.0, rng);
    randomize_cg(net, rng);
    ASSERT_EQ(compile_for_test(net.d()), 0);
    std::vector<double> totals;
    ASSERT_EQ(k_domain_set_em_progress(
                  net.domain,
                  [](std::uint64_t, double ll, void* data) {
                    static_cast<std::vector<double>*>(data)->push_back(ll);
                    return 1;
                  },
                  &totals),
              0);
    ASSERT_EQ(k_domain_set_max_number_of_em_iterations(net.domain, 25), 0);
    ASSERT_EQ(k_domain_set_log_likelihood_tolerance(net.domain, 0.0), 0);
    ASSERT_EQ(k_domain_learn_tables(net.domain), 0) << k_error_code();
    for (std::size_t k = 1; k < totals.size(); ++k)
      EXPECT_GE(totals[k], totals[k - 1] - 1e-9 * std::fabs(totals[k])) << "iteration " << k;
    if (hide_values) continue;
    long double ll = 0;
    const Domain& d = net.d();
    for (std::size_t c = 0; c < d.cases.size(); ++c) {
      std::vector<int> state(net.nodes.size(), 0);
      std::vector<double> value(net.nodes.size(), 0.0);
      for (std::size_t i = 0; i < net.nodes.size(); ++i) value[i] = net.nodes[i]->cases.value(c);
      long double p = 0;
      for (;;) {  // every discrete configuration that agrees with the case
        bool agrees = true;
        long double q = 1;
        for (std::size_t i = 0; i < net.nodes.size(); ++i) {
          Node* x = net.nodes[i];
          if (x->is_continuous()) q *= std::exp(log_density(net, x, state, value));
          else {
            agrees = agrees && (x->cases.state(c) < 0 || x->cases.state(c) == state[i]);
            q *= x->table()->data()[config(net, *x->table(), state)];
          }
        }
        if (agrees) p += q;
        std::size_t i = 0;
        for (; i < net.nodes.size(); ++i) {
          if (net.nodes[i]->is_continuous()) continue;
          if (++state[i] < int(net.nodes[i]->state_count())) break;
          state[i] = 0;
        }
        if (i == net.nodes.size()) break;
      }
      ll += std::log(p);
    }
    expect_near(k_domain_get_log_likelihood(net.domain), ll, "log-likelihood");
  }
}

}  // namespace
}  // namespace kelva::test
