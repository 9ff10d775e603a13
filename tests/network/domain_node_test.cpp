#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "kelva/kelva.h"

namespace {

// A domain deleted at the end of the test.
struct DomainFixture : ::testing::Test {
  k_domain_t d = k_new_domain();
  ~DomainFixture() override { k_domain_delete(d); }

  k_node_t chance(const char* name, k_size_t states = 2) {
    k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
    EXPECT_NE(n, nullptr);
    if (name != nullptr) {
      EXPECT_EQ(k_node_set_name(n, name), 0);
    }
    EXPECT_EQ(k_node_set_number_of_states(n, states), 0);
    return n;
  }
};

using Names = DomainFixture;

TEST_F(Names, RuleAcceptsIdentifiersAndDottedNodeNames) {
  k_node_t n = chance(nullptr);
  for (const char* good : {"a", "_", "A_1", "a.b", "x.y_2.z", "_a._b"}) {
    EXPECT_EQ(k_node_set_name(n, good), 0) << good;
    EXPECT_STREQ(k_node_get_name(n), good);
  }
  for (const char* bad : {"", "1a", "a..b", "a.", ".a", "a b", "a-b", "é", "a.1"}) {
    EXPECT_NE(k_node_set_name(n, bad), 0) << bad;
    EXPECT_EQ(k_error_code(), K_ERROR_INVALID_NAME) << bad;
    EXPECT_STREQ(k_node_get_name(n), "_a._b");  // unchanged
  }
  EXPECT_FAILS(k_node_set_name(n, nullptr), K_ERROR_USAGE);

  // Attribute keys are single identifiers.
  EXPECT_FAILS(k_node_set_attribute(n, "a.b", "v"), K_ERROR_INVALID_NAME);
  EXPECT_FAILS(k_domain_set_attribute(d, "9", "v"), K_ERROR_INVALID_NAME);
}

TEST_F(Names, RuleIgnoresTheProcessLocale) {
  // Under a locale whose character classes include more letters the rule
  // still follows the "C" locale.
  if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) GTEST_SKIP() << "no C.UTF-8 locale";
  k_node_t n = chance(nullptr);
  EXPECT_FAILS(k_node_set_name(n, "\xC3\xA9t\xC3\xA9"), K_ERROR_INVALID_NAME);
  std::setlocale(LC_ALL, "C");
}

TEST_F(Names, DuplicatesLookupAndRenaming) {
  k_node_t a = chance("a");
  k_node_t b = chance("b");
  EXPECT_FAILS(k_node_set_name(b, "a"), K_ERROR_TWICE);
  // The same name again is a success that changes nothing.
  EXPECT_EQ(k_node_set_name(a, "a"), 0);
  EXPECT_EQ(k_domain_get_node_by_name(d, "a"), a);
  EXPECT_EQ(k_node_set_name(a, "c"), 0);
  EXPECT_EQ(k_domain_get_node_by_name(d, "a"), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_NONE);  // "not found" is no error
  EXPECT_EQ(k_domain_get_node_by_name(d, "c"), a);
  EXPECT_EQ(k_node_set_name(b, "a"), 0);  // freed by the rename
  EXPECT_EQ(k_node_delete(a), 0);
  EXPECT_EQ(k_domain_get_node_by_name(d, "c"), nullptr);
}

TEST_F(Names, GeneratedNamesSkipTakenNumbersAndMoveTheCounterOn) {
  k_node_t n1 = chance(nullptr);
  k_node_t n2 = chance(nullptr);
  k_node_t n3 = chance(nullptr);
  EXPECT_EQ(k_node_set_name(n1, "C3"), 0);
  EXPECT_STREQ(k_node_get_name(n2), "C2");
  EXPECT_STREQ(k_node_get_name(n3), "C4");  // C3 taken: the counter moved to 4
  k_node_t n5 = chance(nullptr);            // so this node is number 5
  EXPECT_STREQ(k_node_get_name(n5), "C5");
  k_node_t dec = k_domain_new_node(d, K_CATEGORY_DECISION, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  k_node_t util = k_domain_new_node(d, K_CATEGORY_UTILITY, K_KIND_OTHER, K_SUBTYPE_LABEL);
  k_node_t fn = k_domain_new_node(d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  EXPECT_STREQ(k_node_get_name(dec), "D6");
  EXPECT_STREQ(k_node_get_name(util), "U7");
  EXPECT_STREQ(k_node_get_name(fn), "F8");
  // A generated name is a real name: it is found and blocks duplicates.
  EXPECT_EQ(k_domain_get_node_by_name(d, "D6"), dec);
  EXPECT_FAILS(k_node_set_name(n1, "U7"), K_ERROR_TWICE);
}

using Nodes = DomainFixture;

TEST_F(Nodes, CreationChecksAndCounts) {
  // Combinations that are no node at all.
  EXPECT_EQ(k_domain_new_node(d, static_cast<k_category_t>(4), K_KIND_DISCRETE, K_SUBTYPE_LABEL),
            nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(k_domain_new_node(d, K_CATEGORY_UTILITY, K_KIND_DISCRETE, K_SUBTYPE_LABEL), nullptr);
  EXPECT_EQ(k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_ERROR), nullptr);
  EXPECT_EQ(k_domain_new_node(nullptr, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL),
            nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);

  // Continuous chance nodes and decision or utility nodes never meet.
  k_node_t x = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
  ASSERT_NE(x, nullptr);
  EXPECT_NULL_WITH(k_domain_new_node(d, K_CATEGORY_DECISION, K_KIND_DISCRETE, K_SUBTYPE_LABEL),
                   K_ERROR_CG_LIMIDS_NOT_SUPPORTED);
  EXPECT_EQ(k_node_delete(x), 0);
  k_node_t u = k_domain_new_node(d, K_CATEGORY_UTILITY, K_KIND_OTHER, K_SUBTYPE_LABEL);
  ASSERT_NE(u, nullptr);
  EXPECT_NULL_WITH(k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL),
                   K_ERROR_CG_LIMIDS_NOT_SUPPORTED);
  EXPECT_NE(k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL), nullptr);

  EXPECT_EQ(k_domain_get_number_of_chance_nodes(d), 1u);
  EXPECT_EQ(k_domain_get_number_of_utility_nodes(d), 1u);
  EXPECT_EQ(k_domain_get_number_of_decision_nodes(d), 0u);
  EXPECT_EQ(k_domain_get_number_of_instance_nodes(d), 0u);
  EXPECT_EQ(k_domain_get_number_of_chance_nodes(nullptr), K_SIZE_ERROR);

  // Getters' error values.
  EXPECT_EQ(k_node_get_category(nullptr), K_CATEGORY_ERROR);
  EXPECT_EQ(k_node_get_kind(nullptr), K_KIND_ERROR);
  EXPECT_EQ(k_node_get_subtype(nullptr), K_SUBTYPE_ERROR);
  EXPECT_EQ(k_node_get_subtype(u), K_SUBTYPE_ERROR);
  EXPECT_EQ(k_node_get_kind(u), K_KIND_OTHER);
  EXPECT_EQ(k_node_get_category(u), K_CATEGORY_UTILITY);
}

TEST_F(Nodes, ChainRunsNewestFirst) {
  k_node_t a = chance("a");
  k_node_t b = chance("b");
  k_node_t c = chance("c");
  std::vector<k_node_t> seen;
  for (k_node_t n = k_domain_get_first_node(d); n != nullptr; n = k_node_get_next(n))
    seen.push_back(n);
  EXPECT_EQ(seen, (std::vector<k_node_t>{c, b, a}));
  EXPECT_EQ(k_node_delete(b), 0);
  EXPECT_EQ(k_node_get_next(c), a);
  EXPECT_EQ(k_node_get_home_domain(a), d);
}

TEST_F(Nodes, SettingsLabelsAndPositions) {
  EXPECT_EQ(k_domain_get_grain_size(d), 10000u);
  EXPECT_EQ(k_domain_get_concurrency_level(d), 1u);
  EXPECT_EQ(k_domain_get_node_width(d), 0u);
  EXPECT_FAILS(k_domain_set_grain_size(d, 0), K_ERROR_USAGE);
  EXPECT_NE(k_domain_set_concurrency_level(d, 0), 0);
  EXPECT_EQ(k_domain_get_grain_size(d), 10000u);
  EXPECT_EQ(k_domain_set_concurrency_level(d, 4), 0);
  EXPECT_EQ(k_domain_get_concurrency_level(d), 4u);
  EXPECT_EQ(k_domain_set_node_size(d, 80, 40), 0);
  EXPECT_EQ(k_domain_get_node_height(d), 40u);
  EXPECT_EQ(k_domain_get_node_width(nullptr), K_SIZE_ERROR);
  EXPECT_EQ(k_domain_get_grain_size(nullptr), K_SIZE_ERROR);

  k_node_t n = chance("n");
  EXPECT_STREQ(k_node_get_label(n), "");
  EXPECT_EQ(k_node_set_label(n, "Lung cancer?"), 0);
  EXPECT_STREQ(k_node_get_label(n), "Lung cancer?");
  EXPECT_NE(k_node_set_label(n, nullptr), 0);
  EXPECT_EQ(k_node_set_position(n, -3, 7), 0);
  EXPECT_EQ(k_node_get_x_coordinate(n), -3);
  EXPECT_EQ(k_node_get_y_coordinate(n), 7);
  int tag = 0;
  EXPECT_EQ(k_node_set_backpointer(n, &tag), 0);
  EXPECT_EQ(k_node_get_backpointer(n), &tag);
}

TEST_F(Nodes, AttributesNewestFirstReplacedAndRemoved) {
  k_node_t n = chance("n");
  EXPECT_EQ(k_node_get_first_attribute(n), nullptr);
  EXPECT_EQ(k_node_set_attribute(n, "first", "1"), 0);
  EXPECT_EQ(k_node_set_attribute(n, "second", "2"), 0);
  EXPECT_EQ(k_node_set_attribute(n, "third", "3"), 0);
  EXPECT_EQ(k_node_set_attribute(n, "first", "one"), 0);  // replaced in place
  std::vector<std::string> keys;
  for (k_attribute_t a = k_node_get_first_attribute(n); a != nullptr; a = k_attribute_get_next(a))
    keys.push_back(std::string(k_attribute_get_key(a)) + "=" + k_attribute_get_value(a));
  EXPECT_EQ(keys, (std::vector<std::string>{"third=3", "second=2", "first=one"}));
  EXPECT_EQ(k_node_set_attribute(n, "second", nullptr), 0);
  EXPECT_EQ(k_node_get_attribute(n, "second"), nullptr);
  EXPECT_EQ(k_node_set_attribute(n, "absent", nullptr), 0);  // not an error
  EXPECT_STREQ(k_node_get_attribute(n, "first"), "one");
  EXPECT_CODE(k_node_set_attribute(n, nullptr, "x"), 1, K_ERROR_USAGE);

  EXPECT_EQ(k_domain_set_attribute(d, "a", "x"), 0);
  EXPECT_EQ(k_domain_set_attribute(d, "b", "y"), 0);
  EXPECT_STREQ(k_attribute_get_key(k_domain_get_first_attribute(d)), "b");
  EXPECT_STREQ(k_domain_get_attribute(d, "a"), "x");
  EXPECT_NULL_WITH(k_attribute_get_key(nullptr), K_ERROR_USAGE);
}

TEST_F(Nodes, StatesLabelsValuesAndBooleans) {
  k_node_t b = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_BOOLEAN);
  EXPECT_EQ(k_node_get_number_of_states(b), 2u);
  EXPECT_STREQ(k_node_get_state_label(b, 0), "false");
  EXPECT_STREQ(k_node_get_state_label(b, 1), "true");
  EXPECT_EQ(k_node_get_state_index_from_label(b, "true"), 1);
  EXPECT_FAILS(k_node_set_number_of_states(b, 3), K_ERROR_USAGE);
  EXPECT_EQ(k_node_get_number_of_states(b), 2u);

  k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  EXPECT_EQ(k_node_get_number_of_states(n), 1u);
  EXPECT_NE(k_node_set_number_of_states(n, 0), 0);
  EXPECT_EQ(k_node_set_number_of_states(n, 3), 0);
  EXPECT_STREQ(k_node_get_state_label(n, 2), "");
  EXPECT_NULL_WITH(k_node_get_state_label(n, 3), K_ERROR_USAGE);
  EXPECT_EQ(k_node_set_state_label(n, 0, "low"), 0);
  EXPECT_EQ(k_node_set_state_label(n, 1, "high"), 0);
  EXPECT_EQ(k_node_set_state_label(n, 2, "low"), 0);
  // Two states share a label: -1, deliberately, and no error.
  EXPECT_CODE(k_node_get_state_index_from_label(n, "low"), -1, K_ERROR_NONE);
  EXPECT_EQ(k_node_get_state_index_from_label(n, "high"), 1);
  EXPECT_EQ(k_node_get_state_index_from_label(n, "none"), -1);
  EXPECT_CODE(k_node_get_state_index_from_label(n, nullptr), -1, K_ERROR_USAGE);
  // Shrinking keeps the first labels; growing adds empty ones.
  EXPECT_EQ(k_node_set_number_of_states(n, 1), 0);
  EXPECT_EQ(k_node_set_number_of_states(n, 2), 0);
  EXPECT_STREQ(k_node_get_state_label(n, 0), "low");
  EXPECT_STREQ(k_node_get_state_label(n, 1), "");

  // Values: only numeric nodes; interval nodes have one more bound.
  EXPECT_CODE(k_node_get_state_value(n, 0), -1.0, K_ERROR_USAGE);
  k_node_t iv = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_INTERVAL);
  EXPECT_EQ(k_node_set_number_of_states(iv, 2), 0);
  for (k_size_t i = 0; i < 3; ++i) EXPECT_EQ(k_node_set_state_value(iv, i, 10.0 * i), 0);
  EXPECT_NE(k_node_set_state_value(iv, 3, 1.0), 0);
  EXPECT_EQ(k_node_get_state_value(iv, 2), 20.0);
  EXPECT_EQ(k_node_get_state_index_from_value(iv, 0.0), 0);
  EXPECT_EQ(k_node_get_state_index_from_value(iv, 15.0), 1);
  EXPECT_EQ(k_node_get_state_index_from_value(iv, 20.0), -1);
  k_node_t num = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_NUMBER);
  EXPECT_EQ(k_node_set_number_of_states(num, 2), 0);
  EXPECT_EQ(k_node_set_state_value(num, 1, 2.5), 0);
  EXPECT_NE(k_node_set_state_value(num, 2, 1.0), 0);
  EXPECT_EQ(k_node_get_state_index_from_value(num, 2.5), 1);
  EXPECT_EQ(k_node_get_state_index_from_value(num, 3.0), -1);

  // Subtypes: boolean needs two states.
  EXPECT_EQ(k_node_set_number_of_states(n, 3), 0);
  EXPECT_NE(k_node_set_discrete_type(n, K_SUBTYPE_BOOLEAN), 0);
  EXPECT_EQ(k_node_set_number_of_states(n, 2), 0);
  EXPECT_EQ(k_node_set_state_label(n, 0, ""), 0);
  EXPECT_EQ(k_node_set_discrete_type(n, K_SUBTYPE_BOOLEAN), 0);
  EXPECT_EQ(k_node_get_subtype(n), K_SUBTYPE_BOOLEAN);
}

TEST_F(Nodes, LogFileOpensAppendsAndReportsIo) {
  const std::string path =
      ::testing::TempDir() + "kelva_log_test_" + std::to_string(::getpid()) + ".txt";
  std::remove(path.c_str());
  EXPECT_EQ(k_domain_set_log_file(d, path.c_str(), 0), 0);
  EXPECT_EQ(k_domain_set_log_file(d, nullptr, 0), 0);  // closes
  EXPECT_FAILS(k_domain_set_log_file(d, "/nonexistent-dir/x/log.txt", 1), K_ERROR_IO);
  EXPECT_EQ(k_domain_set_log_file(d, path.c_str(), 1), 0);
  std::FILE* f = std::fopen(path.c_str(), "r");
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  std::remove(path.c_str());
}

TEST(Handles, WrongSortsAndNullsGiveUsage) {
  k_domain_t d = k_new_domain();
  k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  // A domain handle where a node is expected, and the other way round.
  EXPECT_NULL_WITH(k_node_get_name(reinterpret_cast<k_node_t>(d)), K_ERROR_USAGE);
  EXPECT_NULL_WITH(k_domain_get_first_node(reinterpret_cast<k_domain_t>(n)), K_ERROR_USAGE);
  EXPECT_EQ(k_node_get_parents(nullptr), nullptr);
  EXPECT_EQ(k_node_get_number_of_states(nullptr), K_SIZE_ERROR);
  EXPECT_EQ(k_node_get_state_index_from_label(nullptr, "x"), -1);
  EXPECT_EQ(k_domain_delete(nullptr), 1);
  EXPECT_EQ(k_domain_delete(d), 0);
}

}  // namespace
