// EM on random CG networks: complete data give each configuration's
// least-squares regression; with hidden items every iteration raises the
// log-likelihood, which (values all seen) equals a sum over the discrete
// configurations.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <numbers>
#include <random>

#include "inference/net_builder.h"
#include "table/table.h"

namespace kelva::test {
namespace {

k_node_t h(Node* n) { return reinterpret_cast<k_node_t>(n); }

void expect_near(double got, long double want) {
  EXPECT_LE(std::fabs(got - double(want)), 1e-9 * std::fabs(double(want)) + 1e-12)
      << got << " vs " << double(want);
}

TEST(EmCg, LeastSquaresMonotoneAndBruteForceLikelihood) {
  std::mt19937 rng(41);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
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
          k_node_set_alpha(h(x), 3 * u(rng), c);
          k_node_set_gamma(h(x), 0.3 + std::fabs(u(rng)), c);
          for (Node* p : x->parents()) k_node_set_beta(h(x), 1.5 * u(rng), h(p), c);
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
      const std::uint64_t c = config(*x->table(), r);
      double m = k_node_get_alpha(h(x), c);
      for (Node* p : x->parents())
        if (p->is_continuous()) m += k_node_get_beta(h(x), h(p), c) * r[at[p]];
      return m;
    };
    auto log_density = [&](Node* x, const std::vector<double>& r) {
      const double e = r[at[x]] - mean(x, r), v = k_node_get_gamma(h(x), config(*x->table(), r));
      return -0.5 * (std::log(2 * std::numbers::pi * v) + e * e / v);
    };
    randomize();
    std::vector<std::vector<double>> rows(150 + rng() % 150, std::vector<double>(at.size()));
    for (auto& r : rows) {  // forward sampling: creation order is topological
      const std::size_t c = net.d().cases.add();
      for (Node* x : net.nodes) {
        double& v = r[at[x]];
        const double hide = hidden == 0 ? 0.0 : x->is_discrete() ? 0.3 : hidden == 2 ? 0.2 : 0.0;
        const bool seen = (u(rng) + 1) / 2 >= hide;
        if (x->is_continuous()) {
          v = mean(x, r) + std::sqrt(k_node_get_gamma(h(x), config(*x->table(), r))) * z(rng);
          if (seen) x->cases.set_value(c, v);
          continue;
        }
        double left = (u(rng) + 1) / 2;
        for (v = 0; v + 1 < x->state_count(); ++v)
          if ((left -= x->table()->data()[config(*x->table(), r)]) < 0) break;
        if (seen) x->cases.set_state(c, int(v));
      }
    }
    randomize();  // EM starts away from the truth
    ASSERT_EQ(compile_for_test(net.d()), 0);
    std::vector<double> totals;
    k_domain_set_em_progress(
        net.domain,
        [](std::uint64_t, double ll, void* t) {
          return static_cast<std::vector<double>*>(t)->push_back(ll), 1;
        },
        &totals);
    k_domain_set_max_number_of_em_iterations(net.domain, 20);
    ASSERT_EQ(k_domain_learn_tables(net.domain), 0) << k_error_code();
    for (std::size_t k = 1; k < totals.size(); ++k)
      EXPECT_GE(totals[k], totals[k - 1] - 1e-9 * std::fabs(totals[k])) << "iteration " << k;
    if (hidden == 1) {  // sum over the discrete configurations agreeing with each case
      long double ll = 0;
      for (std::size_t c = 0; c < rows.size(); ++c) {
        std::vector<double> r = rows[c];
        for (Node* x : net.nodes) r[at[x]] = x->is_discrete() ? 0 : x->cases.value(c);
        long double p = 0;
        for (std::size_t i = 0; i < r.size();) {
          long double q = 1;
          for (Node* x : net.nodes)
            if (x->is_continuous()) q *= std::exp(log_density(x, r));
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
        ll += std::log(p);
      }
      expect_near(k_domain_get_log_likelihood(net.domain), ll);
    }
    for (Node* x : net.nodes) {  // complete data: least squares per configuration
      if (hidden != 0 || x->is_discrete()) continue;
      std::vector<std::size_t> y{at.size()};  // the intercept's column, then the parents
      for (Node* p : x->parents())
        if (p->is_continuous()) y.push_back(at[p]);
      const std::size_t m = y.size();
      for (std::uint64_t c = 0; c < x->table()->size(); ++c) {
        std::vector<long double> a(m * (m + 1), 0);  // [D^T D | D^T x]
        std::size_t n = 0;
        for (auto r : rows) {
          r.push_back(1);
          if (config(*x->table(), r) != c) continue;
          ++n;
          for (std::size_t i = 0; i < m; ++i)
            for (std::size_t j = 0; j <= m; ++j)
              a[i * (m + 1) + j] += (long double)r[y[i]] * r[j < m ? y[j] : at[x]];
        }
        if (n < m + 2) continue;
        for (std::size_t i = 0; i < m; ++i)  // Gauss-Jordan
          for (std::size_t k = 0; k < m; ++k) {
            const long double f = k == i ? 0 : a[k * (m + 1) + i] / a[i * (m + 1) + i];
            for (std::size_t j = 0; j <= m; ++j) a[k * (m + 1) + j] -= f * a[i * (m + 1) + j];
          }
        long double rss = 0;
        for (auto r : rows) {
          r.push_back(1);
          if (config(*x->table(), r) != c) continue;
          long double e = r[at[x]];
          for (std::size_t i = 0; i < m; ++i)
            e -= a[i * (m + 1) + m] / a[i * (m + 1) + i] * r[y[i]];
          rss += e * e;
        }
        expect_near(k_node_get_alpha(h(x), c), a[m] / a[0]);
        for (std::size_t i = 1; i < m; ++i)
          expect_near(k_node_get_beta(h(x), h(net.nodes[y[i]]), c),
                      a[i * (m + 1) + m] / a[i * (m + 1) + i]);
        expect_near(k_node_get_gamma(h(x), c), rss / n);
      }
    }
  }
}

}  // namespace
}  // namespace kelva::test
