// The k_table_* functions: configuration order, data access rules, size
// saturation, arithmetic, marginals, reordering, updates and deletion.
#include <gtest/gtest.h>

#include <vector>

#include "common/expect_code.h"
#include "fixture.h"

namespace kelva {
namespace {

using test::Net;
using test::values;
using Data = std::vector<double>;

TEST(TableApi, ConfigurationOrderHasTheLastNodeFastest) {
  Net net;
  k_node_t a = net.discrete(2), b = net.discrete(3);
  k_table_t t = net.table({a, b});
  EXPECT_EQ(k_table_get_size(t), 6u);
  const k_size_t c12[] = {1, 2};
  EXPECT_EQ(k_table_get_index_from_configuration(t, c12), 5);
  k_size_t config[2] = {9, 9};
  EXPECT_EQ(k_table_get_configuration_from_index(t, config, 4), 0);
  EXPECT_EQ(config[0], 1u);
  EXPECT_EQ(config[1], 1u);
  // Round trip over every index.
  for (k_size_t i = 0; i < 6; ++i) {
    ASSERT_EQ(k_table_get_configuration_from_index(t, config, i), 0);
    EXPECT_EQ(k_table_get_index_from_configuration(t, config), static_cast<int64_t>(i));
  }

  for (const auto& bad : {std::vector<k_size_t>{2, 0}, std::vector<k_size_t>{0, 3}}) {
    EXPECT_CODE(k_table_get_index_from_configuration(t, bad.data()), -1, K_ERROR_USAGE);
  }
  EXPECT_NE(k_table_get_configuration_from_index(t, config, 6), 0);
  EXPECT_NE(k_table_get_configuration_from_index(t, nullptr, 0), 0);
  EXPECT_EQ(k_table_get_index_from_configuration(nullptr, c12), -1);

  // Without nodes: one entry, index 0.
  k_table_t empty = net.table({});
  EXPECT_EQ(k_table_get_size(empty), 1u);
  EXPECT_EQ(k_table_get_index_from_configuration(empty, c12), 0);
  EXPECT_EQ(k_table_get_index_from_configuration(empty, nullptr), 0);
  EXPECT_EQ(k_table_get_nodes(empty)[0], nullptr);

  // Nodes of a table: distinct nodes of the domain, discrete ones first.
  Net other;
  k_node_t foreign = other.discrete(2), x = net.continuous();
  const std::vector<std::vector<k_node_t>> refused{
      {a, a, nullptr}, {a, foreign, nullptr}, {x, a, nullptr}};
  for (const auto& bad : refused) {
    EXPECT_NULL_WITH(k_domain_new_table(net.d, bad.data()), K_ERROR_USAGE);
  }
  EXPECT_NULL_WITH(k_domain_new_table(net.d, nullptr), K_ERROR_USAGE);
}

TEST(TableApi, DataAccessChecksItsRangeAndMarksTheTableChanged) {
  Net net;
  k_node_t a = net.discrete(2), b = net.discrete(3);
  k_table_t t = net.table({a, b}, {0, 1, 2, 3, 4, 5});
  double out[6] = {};
  EXPECT_EQ(k_table_get_data(t, out, 6, 2, 3), 0);
  EXPECT_EQ(out[0], 2.0);
  EXPECT_EQ(out[2], 4.0);
  EXPECT_EQ(k_table_get_data(t, out, 6, 5, 0), 0);  // count 0 copies nothing
  const struct {
    double* array;
    k_size_t length, start, count;
  } refused[] = {{nullptr, 6, 0, 1}, {out, 6, 6, 0}, {out, 6, 4, 3}, {out, 2, 0, 3}};
  for (const auto& r : refused) {
    EXPECT_FAILS(k_table_get_data(t, r.array, r.length, r.start, r.count), K_ERROR_USAGE);
    EXPECT_FAILS(k_table_set_data(t, r.array, r.length, r.start, r.count), K_ERROR_USAGE);
  }
  EXPECT_EQ(values(t), (Data{0, 1, 2, 3, 4, 5}));

  const std::uint64_t changes = net.domain().table_changes();
  const double in[] = {7, 8};
  EXPECT_EQ(k_table_set_data(t, in, 2, 4, 2), 0);
  EXPECT_EQ(k_table_set_data_item(t, 0, -1.5), 0);
  EXPECT_EQ(k_table_get_data_item(t, 0), -1.5);
  EXPECT_EQ(values(t), (Data{-1.5, 1, 2, 3, 7, 8}));
  EXPECT_GE(net.domain().table_changes(), changes + 2);
  EXPECT_CODE(k_table_get_data_item(t, 6), -1.0, K_ERROR_USAGE);
  EXPECT_NE(k_table_set_data_item(t, 6, 1.0), 0);
  EXPECT_EQ(k_table_set_all_data_items(t, 0.25), 0);
  EXPECT_CODE(values(t), Data(6, 0.25), K_ERROR_NONE);
  EXPECT_NE(k_table_set_all_data_items(nullptr, 0.25), 0);

  EXPECT_EQ(k_table_set_backpointer(t, out), 0);
  EXPECT_EQ(k_table_get_backpointer(t), out);
  EXPECT_NULL_WITH(k_table_get_backpointer(nullptr), K_ERROR_USAGE);
}

TEST(TableApi, SizesSaturateAtAllOnes) {
  Net net;
  std::vector<k_node_t> nodes;
  for (int i = 0; i < 8; ++i) nodes.push_back(net.discrete(256));  // 2^64 configurations
  nodes.push_back(nullptr);
  k_table_t t = k_domain_new_table(net.d, nodes.data());
  ASSERT_NE(t, nullptr);
  EXPECT_CODE(k_table_get_size(t), K_SIZE_ERROR, K_ERROR_SIZE_TOO_LARGE);
  EXPECT_CODE(k_table_get_cg_size(t), K_SIZE_ERROR, K_ERROR_SIZE_TOO_LARGE);
  std::vector<k_size_t> config(8, 0);
  EXPECT_EQ(k_table_get_index_from_configuration(t, config.data()), -1);
  double out[1];
  EXPECT_CODE(k_table_get_data_item(t, 0), -1.0, K_ERROR_NO_MEMORY);
  EXPECT_FAILS(k_table_get_data(t, out, 1, 0, 1), K_ERROR_NO_MEMORY);
  EXPECT_FAILS(k_table_set_all_data_items(t, 1.0), K_ERROR_NO_MEMORY);
  EXPECT_CODE(k_table_get_size(nullptr), K_SIZE_ERROR, K_ERROR_USAGE);

  // 2^63 configurations fit, but not twice that with two continuous nodes.
  k_node_t x = net.continuous(), y = net.continuous();
  std::vector<k_node_t> cg{nodes[0], nodes[1],          nodes[2], nodes[3], nodes[4], nodes[5],
                           nodes[6], net.discrete(128), x,        y,        nullptr};
  k_table_t c = k_domain_new_table(net.d, cg.data());
  EXPECT_CODE(k_table_get_size(c), std::uint64_t{1} << 63, K_ERROR_NONE);
  EXPECT_CODE(k_table_get_cg_size(c), K_SIZE_ERROR, K_ERROR_SIZE_TOO_LARGE);
}

TEST(TableApi, MultiplyAndDivideBySubsetTables) {
  Net net;
  k_node_t a = net.discrete(2), b = net.discrete(3);
  k_table_t x = net.table({a}, {2, 4});
  EXPECT_EQ(k_table_divide(x, net.table({a}, {0, 2})), 0);
  EXPECT_EQ(values(x), (Data{2, 2}));  // x / 0 leaves x

  k_table_t ab = net.table({a, b}, {1, 2, 3, 4, 5, 6});
  EXPECT_EQ(k_table_multiply(ab, net.table({b}, {1, 10, 100})), 0);
  EXPECT_EQ(values(ab), (Data{1, 20, 300, 4, 50, 600}));
  EXPECT_EQ(k_table_divide(ab, net.table({b, a}, {1, 4, -1, 5, 0, 6})), 0);
  EXPECT_EQ(values(ab), (Data{1, 20, 300, 1, 10, 100}));
  EXPECT_EQ(k_table_divide(ab, net.table({}, {10})), 0);
  EXPECT_EQ(values(ab), (Data{0.1, 2, 30, 0.1, 1, 10}));
  EXPECT_EQ(k_table_divide(ab, net.table({}, {0})), 0);
  EXPECT_EQ(k_table_multiply(ab, ab), 0);
  EXPECT_EQ(values(ab)[5], 100.0);

  // The other table's nodes must be among the table's, and discrete.
  k_node_t c = net.discrete(2), z = net.continuous();
  for (k_table_t other : {net.table({a, c}), net.table({z}), static_cast<k_table_t>(nullptr)}) {
    EXPECT_FAILS(k_table_multiply(x, other), K_ERROR_USAGE);
    EXPECT_NE(k_table_divide(x, other), 0);
  }
  EXPECT_EQ(values(x), (Data{2, 2}));
  // A table with continuous members has its discrete weights multiplied.
  k_table_t az = net.table({a, z}, {3, 5});
  EXPECT_EQ(k_table_multiply(az, x), 0);
  EXPECT_EQ(values(az), (Data{6, 10}));
}

TEST(TableApi, MarginalsSumOrMaximiseOverTheOtherNodes) {
  Net net;
  k_node_t a = net.discrete(2), b = net.discrete(3), c = net.discrete(2);
  k_table_t t = net.table({a, b, c}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  const k_node_t ca[] = {c, a, nullptr};
  k_table_t sum = k_table_get_marginal(t, ca, K_EQUILIBRIUM_SUM);
  ASSERT_NE(sum, nullptr);
  EXPECT_EQ(k_table_get_nodes(sum)[0], c);
  EXPECT_EQ(values(sum), (Data{9, 27, 12, 30}));
  const k_node_t just_b[] = {b, nullptr};
  k_table_t max = k_table_get_marginal(t, just_b, K_EQUILIBRIUM_MAX);
  EXPECT_EQ(values(max), (Data{8, 10, 12}));
  const k_node_t none[] = {nullptr};
  EXPECT_EQ(values(k_table_get_marginal(t, none, K_EQUILIBRIUM_SUM)), Data{78});
  EXPECT_EQ(k_table_delete(sum), 0);  // free-standing: freed
  EXPECT_EQ(net.domain().free_tables().count(&test::table(max)), 1u);

  Net other;
  k_node_t foreign = other.discrete(2), d = net.discrete(2), x = net.continuous();
  k_table_t tx = net.table({a, x});
  const std::vector<k_node_t> in_other{foreign, nullptr}, not_in_table{d, nullptr},
      continuous{x, nullptr}, twice{a, a, nullptr};
  const struct {
    k_table_t table;
    const k_node_t* nodes;
    k_equilibrium_t code;
  } refused[] = {{t, nullptr, K_EQUILIBRIUM_SUM},
                 {t, in_other.data(), K_EQUILIBRIUM_SUM},
                 {t, not_in_table.data(), K_EQUILIBRIUM_MAX},
                 {t, just_b, K_EQUILIBRIUM_NONE},
                 {tx, continuous.data(), K_EQUILIBRIUM_SUM},
                 {t, twice.data(), K_EQUILIBRIUM_SUM}};
  for (const auto& r : refused) {
    EXPECT_NULL_WITH(k_table_get_marginal(r.table, r.nodes, r.code), K_ERROR_USAGE);
  }
}

TEST(TableApi, ReorderAndUpdateKeepTheFunction) {
  Net net;
  k_node_t a = net.discrete(2), b = net.discrete(3), c = net.discrete(2);
  k_table_t t = net.table({a, b}, {0, 1, 2, 3, 4, 5});
  const k_node_t ba[] = {b, a, nullptr};
  EXPECT_EQ(k_table_reorder_nodes(t, ba), 0);
  EXPECT_EQ(k_table_get_nodes(t)[0], b);
  EXPECT_EQ(values(t), (Data{0, 3, 1, 4, 2, 5}));
  const std::vector<std::vector<k_node_t>> refused{
      {b, nullptr}, {b, c, nullptr}, {b, b, nullptr}, {b, a, c, nullptr}};
  for (const auto& r : refused) {
    EXPECT_FAILS(k_table_reorder_nodes(t, r.data()), K_ERROR_USAGE);
  }
  EXPECT_EQ(values(t), (Data{0, 3, 1, 4, 2, 5}));

  // Update needs the same size and CG dimension only.
  k_table_t same_size = net.table({c, b}, {6, 5, 4, 3, 2, 1});
  EXPECT_EQ(k_table_update(t, same_size), 0);
  EXPECT_EQ(values(t), (Data{6, 5, 4, 3, 2, 1}));
  EXPECT_EQ(k_table_get_nodes(t)[0], b);
  k_node_t x = net.continuous();
  for (k_table_t other : {net.table({a}), net.table({b, x}), static_cast<k_table_t>(nullptr)}) {
    EXPECT_FAILS(k_table_update(t, other), K_ERROR_USAGE);
  }
}

TEST(TableApi, DeleteFreesOnlyFreeExperienceAndFadingTables) {
  Net net;
  k_node_t parent = net.discrete(2), child = net.discrete(2);
  ASSERT_EQ(k_node_add_parent(child, parent), 0);
  k_table_t cpt = k_node_get_table(child);
  ASSERT_NE(cpt, nullptr);
  EXPECT_EQ(k_table_set_data_item(cpt, 3, 0.75), 0);
  EXPECT_EQ(k_table_delete(cpt), 0);  // belongs to the node: kept
  EXPECT_EQ(k_error_code(), K_ERROR_NONE);
  EXPECT_EQ(k_node_get_table(child), cpt);
  EXPECT_EQ(k_table_get_data_item(cpt, 3), 0.75);

  k_table_t experience = k_node_get_experience_table(child);
  k_table_t fading = k_node_get_fading_table(child);
  ASSERT_NE(experience, nullptr);
  ASSERT_NE(fading, nullptr);
  EXPECT_EQ(k_table_delete(experience), 0);
  EXPECT_EQ(k_node_has_experience_table(child), 0);
  EXPECT_EQ(k_node_has_fading_table(child), 1);
  EXPECT_EQ(k_table_delete(fading), 0);
  EXPECT_EQ(k_node_has_fading_table(child), 0);
  // A new one can be made, and is dropped with the node.
  EXPECT_NE(k_node_get_experience_table(child), nullptr);

  k_table_t free_table = net.table({parent});
  EXPECT_EQ(k_table_delete(free_table), 0);
  EXPECT_TRUE(net.domain().free_tables().empty());
  EXPECT_FAILS(k_table_delete(nullptr), K_ERROR_USAGE);
  net.table({parent, child});  // left for the domain to free
}

}  // namespace
}  // namespace kelva
