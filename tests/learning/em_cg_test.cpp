// EM on random CG networks: complete data give each configuration's
// least-squares regression (the normal equations hold); with hidden items
// every iteration raises the log-likelihood, which (values all seen) is a
// sum over the discrete configurations.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <numbers>
#include <random>

#include "inference/net_builder.h"
#include "table/table.h"

namespace kelva::test {
namespace {

TEST(EmCg, LeastSquaresMonotoneAndBruteForceLikelihood) {
  std::mt19937 rng(41);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  std::normal_distribution<double> z;
  for (int round = 0; round < 30; ++round) {
    SCOPED_TRACE(round);
    const int hidden = round % 3;  // 0: complete; 1: states hidden; 2: values too
    TestNet net;
    random_network(net, rng, 1 + rng() % 4, 2);
    for (std::size_t i = 0, nc = 1 + rng() % 5; i < nc; ++i) {
      std::vector<Node*> parents;
      for (Node* p : net.nodes)
        if (rng() % (p->is_discrete() ? 3 : 2) == 0) parents.push_back(p);
      net.add_continuous(parents);
    }
    std::map<const Node*, std::size_t> at;
    for (Node* x : net.nodes) at.emplace(x, at.size()), k_node_get_experience_table(h(x));
    auto randomize = [&] {
      for (Node* x : net.nodes)
        for (std::uint64_t c = 0; x->is_continuous() && c < x->table()->size(); ++c) {
          k_node_set_alpha(h(x), 6 * u(rng) - 3, c);
          k_node_set_gamma(h(x), 0.3 + u(rng), c);
          for (Node* p : x->parents()) k_node_set_beta(h(x), 3 * u(rng) - 1.5, h(p), c);
        }
    };
    // A case is a row of states and values by node: a table's configuration
    // in it, a continuous node's mean and log density given it.
    auto config = [&](const Table& t, const std::vector<double>& r) {
      std::uint64_t c = 0;
      for (std::size_t k = 0; k < t.discrete_count(); ++k)
        c = c * t.state_counts()[k] + std::uint64_t(r[at[t.nodes()[k]]]);
      return c;
    };
    auto mean = [&](Node* x, const std::vector<double>& r) {
      double m = k_node_get_alpha(h(x), config(*x->table(), r));
      for (Node* p : x->parents())
        if (p->is_continuous()) m += k_node_get_beta(h(x), h(p), config(*x->table(), r)) * r[at[p]];
      return m;
    };
    auto gamma = [&](Node* x, const std::vector<double>& r) {
      return k_node_get_gamma(h(x), config(*x->table(), r));
    };
    randomize();
    std::vector<std::vector<double>> rows(150 + rng() % 150, std::vector<double>(at.size()));
    for (auto& r : rows) {  // forward sampling: creation order is topological
      const std::size_t c = net.d().cases.add();
      for (Node* x : net.nodes) {
        double& v = r[at[x]];
        const bool seen = u(rng) >= (hidden == 0        ? 0
                                     : x->is_discrete() ? 0.3
                                                        : 0.2 * (hidden == 2));
        if (x->is_continuous()) v = mean(x, r) + std::sqrt(gamma(x, r)) * z(rng);
        for (double left = u(rng); x->is_discrete() && v + 1 < x->state_count(); ++v)
          if ((left -= x->table()->data()[config(*x->table(), r)]) < 0) break;
        if (seen && x->is_continuous()) x->cases.set_value(c, v);
        if (seen && x->is_discrete()) x->cases.set_state(c, int(v));
      }
    }
    randomize();  // EM starts away from the truth, one iteration per call
    ASSERT_EQ(compile_for_test(net.d()), 0);
    k_domain_set_max_number_of_em_iterations(net.domain, 1);
    double ll = -HUGE_VAL;
    for (int iteration = 0; iteration < 15; ++iteration) {
      ASSERT_EQ(k_domain_learn_tables(net.domain), 0) << k_error_code();
      EXPECT_GE(k_domain_get_log_likelihood(net.domain), ll - 1e-9 * std::fabs(ll)) << iteration;
      ll = k_domain_get_log_likelihood(net.domain);
    }
    long double brute = 0;  // sum over the discrete configurations agreeing with each case
    for (std::size_t c = 0; c < rows.size() && hidden < 2; ++c) {
      std::vector<double> r = rows[c];
      for (Node* x : net.nodes) r[at[x]] = x->is_discrete() ? 0 : r[at[x]];
      long double p = 0;
      for (std::size_t i = 0; i < r.size();) {
        long double q = 1;
        for (Node* x : net.nodes)
          if (x->is_continuous())
            q *= std::exp(-std::pow(r[at[x]] - mean(x, r), 2) / (2 * gamma(x, r))) /
                 std::sqrt(2 * std::numbers::pi * gamma(x, r));
          else if (x->cases.state(c) < 0 || x->cases.state(c) == r[at[x]])
            q *= x->table()->data()[config(*x->table(), r)];
          else q = 0;
        p += q;
        for (i = 0; i < r.size(); ++i) {  // the next configuration, first node fastest
          if (net.nodes[i]->is_continuous()) continue;
          if (++r[i] < net.nodes[i]->state_count()) break;
          r[i] = 0;
        }
      }
      brute += std::log(p);
    }
    EXPECT_NEAR(ll, hidden < 2 ? double(brute) : ll, 1e-9 * std::fabs(ll));
    for (Node* x : net.nodes) {  // complete data: the residuals of each configuration
      if (hidden != 0 || x->is_discrete()) continue;  // are orthogonal to (1, parents)
      std::vector<std::size_t> y;
      for (Node* p : x->parents())
        if (p->is_continuous()) y.push_back(at[p]);
      const std::size_t m = y.size() + 1, size = x->table()->size();
      std::vector<long double> g(size * m), scale(size * m), rss(size), n(size);
      for (const auto& r : rows) {
        const std::uint64_t c = config(*x->table(), r);
        const long double e = r[at[x]] - mean(x, r);
        n[c] += 1, rss[c] += e * e;
        for (std::size_t j = 0; j < m; ++j) {
          g[c * m + j] += e * (j == 0 ? 1 : r[y[j - 1]]);
          scale[c * m + j] += std::fabs(e * (j == 0 ? 1 : r[y[j - 1]]));
        }
      }
      for (std::uint64_t c = 0; c < size; ++c) {
        if (n[c] < m + 2) continue;  // fewer cases keep their parameters
        for (std::size_t j = 0; j < m; ++j)
          EXPECT_LE(std::fabs(g[c * m + j]), 1e-9 * scale[c * m + j]) << c << " " << j;
        EXPECT_NEAR(k_node_get_gamma(h(x), c), double(rss[c] / n[c]), 1e-9 * rss[c] / n[c]);
      }
    }
  }
}

}  // namespace
}  // namespace kelva::test
