// CG propagation against an oracle that enumerates the discrete
// configurations, each a joint Gaussian conditioned analytically.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "common/expect_code.h"
#include "common/shared_nets.h"
#include "inference/net_builder.h"
#include "table/table.h"

namespace kelva::test {
namespace {

// P(e) and per node its beliefs, or its mean and variance; oracle() needs the
// nodes in topological order.
template <class R = long double>
struct CgOracle {
  R total = 0;
  std::vector<std::vector<R>> belief;
};

// Conditions the Gaussian (m, S) on x_e = y in place; the density of y.
template <class R>
R condition(std::vector<R>& m, std::vector<R>& s, std::size_t n, std::size_t e, R y) {
  const R v = s[e * n + e], r = y - m[e];
  const long double lv = static_cast<long double>(v), lr = static_cast<long double>(r);
  const R density = std::exp(-lr * lr / (2 * lv)) / std::sqrt(2 * M_PIl * lv);
  std::vector<R> col(n);
  for (std::size_t i = 0; i < n; ++i) col[i] = s[i * n + e];
  for (std::size_t i = 0; i < n; ++i) {
    m[i] += col[i] / v * r;
    for (std::size_t j = 0; j < n; ++j) s[i * n + j] -= col[i] * col[j] / v;
  }
  return density;
}

template <class R = long double>
CgOracle<R> oracle(const TestNet& net) {
  const std::size_t n = net.nodes.size();
  CgOracle<R> o;
  o.belief.resize(n);
  for (std::size_t i = 0; i < n; ++i)
    o.belief[i].resize(net.nodes[i]->is_discrete() ? net.nodes[i]->state_count() : 2);
  std::vector<std::size_t> state(n, 0);
  auto pos = [&net](const Node* x) {
    return std::size_t(std::find(net.nodes.begin(), net.nodes.end(), x) - net.nodes.begin());
  };
  for (;;) {
    // The discrete configuration's weight with its evidence, and the joint
    // Gaussian of the continuous nodes given it (creation order is
    // topological).
    R w = 1;
    std::vector<R> m(n, 0), s(n * n, 0);
    for (std::size_t i = 0; i < n; ++i) {
      Node* x = net.nodes[i];
      const Table& t = *x->table();
      std::uint64_t c = 0;
      for (std::size_t k = 0; k < t.discrete_count(); ++k)
        c = c * t.state_counts()[k] + state[pos(t.nodes()[k])];
      if (x->is_discrete()) {
        const std::int64_t sel = x->evidence.entered_code;
        w *= sel >= 0 && static_cast<std::size_t>(sel) != state[i] ? 0 : t.data()[c];
        continue;
      }
      const std::size_t self = t.nodes().index_of(x) - t.discrete_count();
      m[i] = t.mean(c, self);
      for (std::size_t j = t.discrete_count(); j < t.nodes().size(); ++j) {
        if (t.nodes()[j] == x) continue;
        const R b = t.coefficient(c, j - t.discrete_count());
        m[i] += b * m[pos(t.nodes()[j])];
        for (std::size_t k = 0; k < i; ++k) s[i * n + k] += b * s[pos(t.nodes()[j]) * n + k];
      }
      s[i * n + i] = t.covariance(c, self, self);
      for (std::size_t j = t.discrete_count(); j < t.nodes().size(); ++j)
        if (t.nodes()[j] != x)
          s[i * n + i] += t.coefficient(c, j - t.discrete_count()) * s[i * n + pos(t.nodes()[j])];
      for (std::size_t k = 0; k < i; ++k) s[k * n + i] = s[i * n + k];
    }
    for (std::size_t i = 0; i < n && w > 0; ++i)
      if (net.nodes[i]->is_continuous() && net.nodes[i]->evidence.entered)
        w *= condition<R>(m, s, n, i, net.nodes[i]->evidence.entered_value);
    o.total += w;
    for (std::size_t i = 0; i < n; ++i) {
      if (net.nodes[i]->is_discrete()) o.belief[i][state[i]] += w;
      else o.belief[i][0] += w * m[i], o.belief[i][1] += w * (s[i * n + i] + m[i] * m[i]);
    }
    std::size_t k = n;
    while (k-- > 0 && (!net.nodes[k]->is_discrete() || ++state[k] == net.nodes[k]->state_count()))
      if (net.nodes[k]->is_discrete()) state[k] = 0;
    if (k == static_cast<std::size_t>(-1)) break;
  }
  for (std::size_t i = 0; i < n; ++i) {
    for (R& b : o.belief[i]) b /= o.total;
    if (!net.nodes[i]->is_discrete()) o.belief[i][1] -= o.belief[i][0] * o.belief[i][0];
  }
  return o;
}

void expect_close(double got, long double want, std::size_t i) {
  EXPECT_LE(std::fabs(got - static_cast<double>(want)), 1e-9 * std::fabs(double(want)) + 1e-14)
      << "node " << i << ": " << got << " vs " << double(want);
}

void expect_oracle(TestNet& net, k_evidence_mode_t mode) {
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, mode), 0) << k_error_code();
  const CgOracle o = oracle(net);
  expect_close(k_domain_get_normalization_constant(net.domain), o.total, 0);
  // The conflict is read as long as no value has been propagated.
  const bool values = k_domain_cg_evidence_is_propagated(net.domain) == 1;
  EXPECT_EQ(k_domain_get_conflict(net.domain) > 0.0, !values);
  EXPECT_EQ(k_error_code(), values ? K_ERROR_CG_EVIDENCE_INCORPORATED : K_ERROR_NONE);
  for (std::size_t i = 0; i < net.nodes.size(); ++i) {
    const k_node_t x = h(net.nodes[i]);
    const bool discrete = net.nodes[i]->is_discrete();
    for (std::size_t s = 0; s < o.belief[i].size(); ++s)
      expect_close(discrete ? k_node_get_belief(x, s)
                            : (s == 0 ? k_node_get_mean(x) : k_node_get_variance(x)),
                   o.belief[i][s], i);
    if (discrete) continue;
    k_table_t mix = k_node_get_distribution(x);  // its weighted means make the mean
    double mean = 0.0;
    for (k_size_t c = 0; c < k_table_get_size(mix); ++c)
      mean += k_table_get_data_item(mix, c) * k_table_get_mean(mix, c, x);
    expect_close(mean, o.belief[i][0], i);
    k_table_delete(mix);
  }
}

// Random CG networks: discrete nodes first, then continuous ones with
// discrete and continuous parents; random values entered and retracted.
TEST(CgPropagation, RandomNetworksEqualTheOracle) {
  std::mt19937 rng(17);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (int round = 0; round < 30; ++round) {
    SCOPED_TRACE(round);
    TestNet net;
    random_network(net, rng, 1 + rng() % 8, 2);
    for (std::size_t i = 0, nc = 1 + rng() % 8; i < nc; ++i) {
      std::vector<Node*> parents;
      for (std::size_t k = 0; k < net.nodes.size(); ++k)
        if (rng() % (net.nodes[k]->is_discrete() ? 5 : 3) == 0) parents.push_back(net.nodes[k]);
      Node* x = net.add_continuous(parents);
      for (std::uint64_t c = 0; c < x->table()->size(); ++c) {
        ASSERT_EQ(k_node_set_alpha(h(x), 3 * u(rng), c), 0);
        ASSERT_EQ(k_node_set_gamma(h(x), 0.2 + std::fabs(u(rng)), c), 0);
        for (Node* p : parents) k_node_set_beta(h(x), 1.5 * u(rng), h(p), c);  // discrete: refused
      }
    }
    ASSERT_EQ(compile_for_test(net.d()), 0);
    // 10,000 changes on the first network (checked every 500), 6 on others.
    const int steps = round == 0 ? 10000 : 6, every = round == 0 ? 500 : 1;
    for (int step = 1; step <= steps; ++step) {
      Node* x = net.nodes[rng() % net.nodes.size()];
      if (rng() % 3 == 0) retract(*x);
      else if (x->is_discrete()) select_state(*x, rng() % x->state_count());
      else ASSERT_EQ(k_node_enter_value(h(x), 2 * u(rng)), 0);
      const k_evidence_mode_t mode = step % 2 == 0 ? K_MODE_NORMAL : K_MODE_FAST_RETRACTION;
      if (step % every == 0) expect_oracle(net, mode);
      else ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, mode), 0);
    }
  }
}

// The shared CG networks, values entered on half their continuous nodes.
TEST(CgPropagation, SharedNetworksEqualTheOracle) {
  for (const char* name : {"ksl-deal.net", "rats-deal.net"}) {
    TestNet net;
    net.domain = parse_net_quietly(shared_dir() / "nets" / name);
    ASSERT_NE(net.domain, nullptr) << name;
    std::vector<k_node_t> all = domain_nodes(net.domain);  // parents first:
    std::ranges::sort(all, {},
                      [](k_node_t x) { return node_list(k_node_get_ancestors(x)).size(); });
    for (k_node_t x : all) net.nodes.push_back(reinterpret_cast<Node*>(x));
    ASSERT_EQ(k_domain_compile(net.domain), 0);
    for (std::size_t i = 0; i < all.size(); i += 2)
      if (k_node_get_kind(all[i]) == K_KIND_CONTINUOUS)
        k_node_enter_value(all[i],
                           k_node_get_mean(all[i]) + std::sqrt(k_node_get_variance(all[i])) / 2);
    expect_oracle(net, K_MODE_NORMAL);
  }
}

// A chain of 200 continuous nodes, noise variances 1e-8 to 1e8, against
// the oracle in quadruple precision.
TEST(CgPropagation, LongChainKeepsItsPrecision) {
  std::mt19937 rng(5);
  std::uniform_real_distribution<double> u(-8.0, 8.0);
  TestNet net;
  const std::size_t n = 200;
  std::normal_distribution<double> z;
  std::vector<double> draw(n);  // values drawn from the chain: representable densities
  for (std::size_t i = 0; i < n; ++i) {
    Node* x =
        net.add_continuous(i == 0 ? std::vector<Node*>{} : std::vector<Node*>{net.nodes[i - 1]});
    const double alpha = u(rng), gamma = std::pow(10.0, u(rng)),
                 beta = (rng() % 2 ? 1.0 : -1.0) * (1.0 + u(rng) / 16);
    k_node_set_alpha(h(x), alpha, 0);
    k_node_set_gamma(h(x), gamma, 0);
    if (i > 0) k_node_set_beta(h(x), beta, h(net.nodes[i - 1]), 0);
    draw[i] = alpha + (i > 0 ? beta * draw[i - 1] : 0.0) + std::sqrt(gamma) * z(rng);
  }
  ASSERT_EQ(compile_for_test(net.d()), 0);
  for (int round = 0; round < 3; ++round) {
    for (int k = 0; k < 5; ++k) {
      const std::size_t i = rng() % n;
      if (!net.nodes[i]->evidence.entered) k_node_enter_value(h(net.nodes[i]), draw[i]);
    }
    ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    const CgOracle<__float128> o = oracle<__float128>(net);
    for (std::size_t i = 0; i < n; ++i) {
      const double m = static_cast<double>(o.belief[i][0]), v = static_cast<double>(o.belief[i][1]);
      EXPECT_NEAR(k_node_get_mean(h(net.nodes[i])), m,
                  1e-6 * (std::fabs(m) + std::sqrt(std::fabs(v))))
          << i;
      EXPECT_NEAR(k_node_get_variance(h(net.nodes[i])), v, 1e-6 * std::fabs(v) + 1e-20) << i;
    }
  }
}

// The failures leave the domain compiled and usable; the parameters'
// refusals change nothing.
TEST(CgPropagation, FailuresAndRefusals) {
  TestNet net;
  Node* a = net.add(K_CATEGORY_CHANCE, 2, {});
  net.nodes[0]->table()->data()[0] = net.nodes[0]->table()->data()[1] = 0.5;
  Node* x = net.add_continuous({a});
  Node* y = net.add_continuous({x});
  ASSERT_EQ(k_node_set_gamma(h(x), 0.0, 1), 0);  // x is exactly alpha in state 1
  ASSERT_EQ(k_node_set_beta(h(y), 2.0, h(x), 0), 0);
  ASSERT_EQ(compile_for_test(net.d()), 0);
  EXPECT_FAILS(k_domain_propagate(net.domain, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), K_ERROR_USAGE);
  // Refusals (wrong node, configuration, parent, values) change nothing.
  EXPECT_EQ(k_node_get_alpha(h(a), 0) + k_node_get_beta(h(x), h(y), 0), -2.0);
  EXPECT_EQ(k_node_get_gamma(h(x), 2) + k_node_get_mean(h(a)), -2.0);
  EXPECT_FAILS(k_node_set_gamma(h(x), -1.0, 0) + k_node_set_alpha(h(x), NAN, 0) +
                   k_node_set_beta(h(y), INFINITY, h(x), 0),
               K_ERROR_USAGE);
  EXPECT_EQ(k_node_get_beta(h(y), h(x), 0) + k_node_get_gamma(h(x), 0), 4.0);

  const struct {
    Node* node;
    int state;  // of a, -1: none
    double value;
    k_error_t code;
  } cases[] = {{x, 1, 1.0, K_ERROR_ZERO_VARIANCE},   // x known exactly, then observed
               {y, -1, 1e300, K_ERROR_LOW_DENSITY},  // far beyond any density
               {y, 1, 3.0, K_ERROR_NONE}};
  for (const auto& c : cases) {
    if (c.state >= 0) select_state(*a, c.state);
    ASSERT_EQ(k_node_enter_value(h(c.node), c.value), 0);
    const k_status_t status = k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
    EXPECT_EQ(k_error_code(), c.code);
    if (c.code == K_ERROR_NONE) {
      EXPECT_EQ(status + k_node_get_mean(h(x)) + k_node_get_variance(h(x)) + k_node_get_mean(h(y)) +
                    k_domain_cg_evidence_is_propagated(net.domain),
                5.0);
      EXPECT_CODE(k_domain_get_conflict(net.domain), -1.0, K_ERROR_CG_EVIDENCE_INCORPORATED);
    }
    EXPECT_EQ(k_domain_is_compiled(net.domain), 1);
    for (Node* n : {a, x, y}) retract(*n);
    ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    EXPECT_EQ(k_node_get_mean(h(y)), 3.0);
  }
  // Impossible discrete evidence beside a value is inconsistent, and the
  // domain stays compiled and usable.
  ASSERT_EQ(k_node_enter_finding(h(a), 0, 0.0) + k_node_enter_finding(h(a), 1, 0.0) +
                k_node_enter_value(h(y), 3.0),
            0);
  EXPECT_FAILS(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL),
               K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  for (Node* n : {a, y}) retract(*n);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  EXPECT_EQ(k_domain_is_compiled(net.domain) + k_node_get_mean(h(y)), 4.0);
}

}  // namespace
}  // namespace kelva::test
