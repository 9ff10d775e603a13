// Sums of numeric nodes against enumeration, refusals, deleting source lists.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <random>
#include <vector>

#include "kelva/kelva.h"

namespace {

using Sums = std::map<double, double>;

k_node_t numbered(k_domain_t d, const std::vector<double>& values, std::vector<double> table) {
  k_node_t n = k_domain_create_discrete_node(d, K_CATEGORY_CHANCE, K_SUBTYPE_NUMBER, values.size());
  for (std::size_t s = 0; s < values.size(); ++s) k_node_set_state_value(n, s, values[s]);
  k_table_set_data(k_node_get_table(n), table.data(), table.size(), 0, table.size());
  return n;
}

void expect_sums(double* sums, k_size_t count, const Sums& want, double scale) {
  ASSERT_EQ(count, want.size());
  for (k_size_t i = 0; i < count; ++i)
    EXPECT_NEAR(sums[count + i], want.at(sums[i]) / scale, 1e-12);
  std::free(sums);
}

// A -> B, C alone (two trees), random tables, a likelihood on B; the sums of
// {C, A, B} and of three copies of A against enumeration.
TEST(Convolution, EqualsEnumerationOfTheJoint) {
  for (unsigned seed = 1; seed <= 5; ++seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(0.05, 0.45);
    const double a0 = u(rng), a1 = u(rng), c = u(rng), like[2] = {u(rng), u(rng)},
                 b[3] = {u(rng), u(rng), u(rng)};
    k_domain_t d = k_new_domain();
    k_node_t na = numbered(d, {0, 1, 2}, {a0, a1, 1 - a0 - a1});
    k_node_t nb = numbered(d, {0, 10}, {});
    k_node_t nc = numbered(d, {0, 1}, {c, 1 - c});
    k_node_set_discrete_type(nc, K_SUBTYPE_BOOLEAN);
    k_node_add_parent(nb, na);
    const std::vector<double> tb{b[0], 1 - b[0], b[1], 1 - b[1], b[2], 1 - b[2]};
    k_table_set_data(k_node_get_table(nb), tb.data(), 6, 0, 6);
    ASSERT_EQ(k_domain_compile(d), 0);
    for (k_size_t s = 0; s < 2; ++s) k_node_enter_finding(nb, s, like[s]);
    ASSERT_EQ(k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    const double pa[3] = {a0, a1, 1 - a0 - a1}, pc[2] = {c, 1 - c};
    Sums want, single, triple;
    double total = 0.0;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 2; ++j)
        for (int k = 0; k < 2; ++k) {
          const double p = pa[i] * tb[2 * i + j] * like[j] * pc[k];
          want[i + 10 * j + k] += p;
          single[i] += p;
          total += p;
        }
    for (const auto& [x, p] : single)
      for (const auto& [y, q] : single)
        for (const auto& [z, r] : single) triple[x + y + z] += p * q * r / (total * total * total);
    k_size_t count = 0;
    k_node_t list[] = {nc, na, nb, nullptr};
    double* sums = k_domain_get_convolution(d, list, &count);
    expect_sums(sums, count, want, total);
    sums = k_node_get_convolution(na, 3, &count);
    expect_sums(sums, count, triple, 1.0);
    k_domain_delete(d);
  }
}

TEST(Convolution, RefusalsAndSourceLists) {
  k_domain_t d = k_new_domain();
  k_node_t a = numbered(d, {0, 1}, {0.5, 0.5}), b = numbered(d, {0, 1}, {}),
           c = numbered(d, {0, 1}, {});
  k_node_add_parent(b, a);
  k_node_add_parent(c, b);
  const std::vector<double> halves(4, 0.5);
  for (k_node_t n : {b, c}) k_table_set_data(k_node_get_table(n), halves.data(), 4, 0, 4);
  k_size_t count = 0;
  k_node_t one[] = {a, nullptr}, none[] = {nullptr}, apart[] = {a, c, nullptr};
  ASSERT_EQ(k_domain_compile(d), 0);
  for (k_node_t* nodes : {none, apart, one}) {
    EXPECT_EQ(k_domain_get_convolution(d, nodes, nodes == one ? nullptr : &count), nullptr);
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  }
  EXPECT_EQ(k_node_get_convolution(a, 0, &count), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  ASSERT_EQ(k_domain_propagate(d, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), 0);
  EXPECT_EQ(k_node_get_convolution(a, 1, &count), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  k_domain_delete(d);

  // Source lists go, and the domain outlives its classes untouched.
  k_class_collection_t cc = k_new_class_collection();
  k_class_t cls = k_cc_new_class(cc, "C");
  k_domain_new_node(reinterpret_cast<k_domain_t>(cls), K_CATEGORY_CHANCE, K_KIND_DISCRETE,
                    K_SUBTYPE_LABEL);
  d = k_class_create_domain(cls);
  k_node_t n = k_domain_get_first_node(d);
  EXPECT_NE(k_node_get_source(n)[0], nullptr);
  EXPECT_EQ(k_domain_delete_source_lists(d), 0);
  EXPECT_EQ(k_node_get_source(n)[0], nullptr);
  k_cc_delete(cc);
  EXPECT_EQ(k_domain_delete(d), 0);
}

}  // namespace
