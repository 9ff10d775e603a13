// Distributions of sums against enumeration of the joint, their refusals,
// and deleting an unfolded domain's source lists.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <random>
#include <vector>

#include "kelva/kelva.h"

namespace {

k_node_t numbered(k_domain_t d, const std::vector<double>& values) {
  k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_NUMBER);
  k_node_set_number_of_states(n, values.size());
  for (std::size_t s = 0; s < values.size(); ++s) k_node_set_state_value(n, s, values[s]);
  return n;
}

// Uniform tables for nodes of two states.
void halves(const std::vector<k_node_t>& nodes) {
  for (k_node_t n : nodes) {
    const std::vector<double> t(k_table_get_size(k_node_get_table(n)), 0.5);
    k_table_set_data(k_node_get_table(n), t.data(), t.size(), 0, t.size());
  }
}

std::map<double, double> read(double* sums, k_size_t count) {
  std::map<double, double> out;
  for (k_size_t i = 0; sums != nullptr && i < count; ++i) out[sums[i]] = sums[count + i];
  std::free(sums);
  return out;
}

void expect_near(const std::map<double, double>& got, const std::map<double, double>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (auto g = got.begin(), w = want.begin(); g != got.end(); ++g, ++w) {
    EXPECT_EQ(g->first, w->first);
    EXPECT_NEAR(g->second, w->second, 1e-12);
  }
}

// A -> B, C alone (two trees), random tables, evidence on B; the sums of
// {A, B, C} and of three copies of A against enumeration.
TEST(Convolution, EqualsEnumerationOfTheJoint) {
  for (unsigned seed = 1; seed <= 5; ++seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(0.05, 1);
    k_domain_t d = k_new_domain();
    const std::vector<std::vector<double>> values{{0, 1, 2}, {0, 10}, {1.5, 2.5}};
    std::vector<k_node_t> n;
    for (const auto& v : values) n.push_back(numbered(d, v));
    k_node_set_discrete_type(n[2], K_SUBTYPE_BOOLEAN);
    k_node_add_parent(n[1], n[0]);
    std::vector<std::vector<double>> t(3);
    for (std::size_t v = 0; v < 3; ++v) {
      const k_size_t size = v == 1 ? 6 : (v == 0 ? 3 : 2);
      for (k_size_t i = 0; i < size; ++i) t[v].push_back(u(rng));
      const std::size_t r = values[v].size();  // rows of r entries sum to 1
      for (std::size_t row = 0; row < size; row += r) {
        double sum = 0.0;
        for (std::size_t i = 0; i < r; ++i) sum += t[v][row + i];
        for (std::size_t i = 0; i < r; ++i) t[v][row + i] /= sum;
      }
      k_table_set_data(k_node_get_table(n[v]), t[v].data(), size, 0, size);
    }
    ASSERT_EQ(k_domain_compile(d), 0);
    const double like[2] = {u(rng), u(rng)};
    for (k_size_t s = 0; s < 2; ++s) k_node_enter_finding(n[1], s, like[s]);
    ASSERT_EQ(k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    std::map<double, double> want, single, triple;
    double total = 0.0;
    for (int a = 0; a < 3; ++a)
      for (int b = 0; b < 2; ++b)
        for (int c = 0; c < 2; ++c) {
          const double p = t[0][a] * t[1][a * 2 + b] * like[b] * t[2][c];
          want[values[0][a] + values[1][b] + c] += p;
          single[values[0][a]] += p;
          total += p;
        }
    for (auto& [x, p] : want) p /= total;
    for (auto& [x, p] : single) p /= total;
    for (const auto& [x, p] : single)
      for (const auto& [y, q] : single)
        for (const auto& [z, r] : single) triple[x + y + z] += p * q * r;
    k_size_t count = 0;
    k_node_t list[] = {n[2], n[0], n[1], nullptr};
    double* sums = k_domain_get_convolution(d, list, &count);
    expect_near(read(sums, count), want);
    sums = k_node_get_convolution(n[0], 3, &count);
    expect_near(read(sums, count), triple);
    k_domain_delete(d);
  }
}

TEST(Convolution, RefusalsAndSourceLists) {
  k_domain_t d = k_new_domain();
  k_node_t a = numbered(d, {0, 1}), b = numbered(d, {0, 1}), c = numbered(d, {0, 1});
  k_node_add_parent(b, a);
  k_node_add_parent(c, b);
  k_node_t label = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  k_node_set_number_of_states(label, 2);
  halves({a, b, c, label});
  k_size_t count = 0;
  k_node_t one[] = {a, nullptr}, none[] = {nullptr}, twice[] = {a, a, nullptr},
           apart[] = {a, c, nullptr}, labelled[] = {label, nullptr};
  EXPECT_EQ(k_domain_get_convolution(d, one, &count), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_NOT_COMPILED);
  ASSERT_EQ(k_domain_compile(d), 0);
  struct Refusal {
    k_node_t* nodes;
    k_size_t* count;
  };
  for (const Refusal& r : {Refusal{none, &count},
                           {twice, &count},
                           {apart, &count},
                           {labelled, &count},
                           {one, nullptr}}) {
    EXPECT_EQ(k_domain_get_convolution(d, r.nodes, r.count), nullptr);
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  }
  EXPECT_EQ(k_node_get_convolution(a, 0, &count), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  ASSERT_EQ(k_domain_propagate(d, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), 0);
  EXPECT_EQ(k_node_get_convolution(a, 1, &count), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  k_domain_delete(d);

  // 21 unlinked nodes worth 0 or 2^k: 2^21 distinct sums are too many.
  d = k_new_domain();
  std::vector<k_node_t> bits;
  for (int k = 0; k < 21; ++k) bits.push_back(numbered(d, {0, std::ldexp(1.0, k)}));
  halves(bits);
  bits.push_back(nullptr);
  ASSERT_EQ(k_domain_compile(d), 0);
  EXPECT_EQ(k_domain_get_convolution(d, bits.data(), &count), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_SIZE_TOO_LARGE);
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
  EXPECT_EQ(k_domain_delete_source_lists(d), 0);
  EXPECT_EQ(k_domain_delete(d), 0);
  EXPECT_NE(k_domain_delete_source_lists(nullptr), 0);
}

}  // namespace
