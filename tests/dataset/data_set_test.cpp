// The data set object: columns, rows and cells, missing cells kept apart
// from empty ones by every operation, and failures that change nothing.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "common/fail_new.h"
#include "dataset/data_row.h"
#include "dataset/data_set_fixture.h"
#include "kelva/kelva.h"
#include "network/error.h"

namespace {

using kelva::test::column;
using kelva::test::DataSetHandle;
using kelva::test::fill;
using kelva::test::snapshot;
using Cells = std::vector<std::optional<std::string>>;
const std::nullopt_t missing = std::nullopt;

TEST(DataSet, KeepsMissingAndEmptyCellsApart) {
  DataSetHandle ds;
  ASSERT_NE(ds.ds, nullptr);
  EXPECT_EQ(k_ds_get_number_of_columns(ds), 0u);
  EXPECT_EQ(k_ds_get_number_of_rows(ds), 0u);
  EXPECT_EQ(k_ds_new_row(ds), 0u);  // a row before any column
  EXPECT_EQ(k_ds_new_column(ds, "a"), 0u);
  EXPECT_EQ(k_ds_new_column(ds, ""), 1u);  // any text names a column
  EXPECT_CODE(k_ds_get_data_item(ds, 0, 1), nullptr, K_ERROR_NONE);

  EXPECT_EQ(k_ds_set_data_item(ds, 0, 0, ""), 0);
  EXPECT_STREQ(k_ds_get_data_item(ds, 0, 0), "");
  EXPECT_EQ(k_ds_column_is_empty(ds, 0), 0);
  EXPECT_EQ(k_ds_column_is_empty(ds, 1), 1);
  EXPECT_EQ(k_ds_count_data(ds, 0), 1u);
  EXPECT_EQ(k_ds_column_data_are_numbers(ds, 0), 0);  // "" is no number
  EXPECT_EQ(k_ds_column_data_are_numbers(ds, 1), 1);  // nothing present

  EXPECT_EQ(k_ds_set_data_item(ds, 0, 0, nullptr), 0);
  EXPECT_EQ(k_ds_get_data_item(ds, 0, 0), nullptr);
  EXPECT_EQ(k_ds_count_data(ds, 0), 0u);

  EXPECT_EQ(k_ds_new_row(ds), 1u);
  EXPECT_EQ(k_ds_set_data_item(ds, 1, 1, " x, \"y\" "), 0);
  EXPECT_EQ(k_ds_new_column(ds, "c"), 2u);  // existing rows get a missing cell
  EXPECT_EQ(snapshot(ds),
            (Cells{"a", "", "c", "|", missing, missing, missing, missing, " x, \"y\" ", missing}));
  EXPECT_EQ(k_ds_set_column_name(ds, 2, "two words"), 0);
  EXPECT_STREQ(k_ds_get_column_name(ds, 2), "two words");
}

TEST(DataSet, RefusesBadHandlesAndIndexesWithoutChange) {
  DataSetHandle ds;
  fill(ds, {"a", "b"}, {{"1", missing}, {"", "2"}});
  const Cells before = snapshot(ds);
  const k_size_t big = K_SIZE_ERROR;
  double numbers[4];
  k_domain_t domain = k_new_domain();
  auto wrong = reinterpret_cast<k_data_set_t>(domain);  // a live object of another sort

  const std::vector<std::pair<const char*, std::function<bool()>>> calls = {
      {"delete null", [&] { return k_ds_delete(nullptr) != 0; }},
      {"delete domain", [&] { return k_ds_delete(wrong) != 0; }},
      {"rows of domain", [&] { return k_ds_get_number_of_rows(wrong) == K_SIZE_ERROR; }},
      {"columns of null", [&] { return k_ds_get_number_of_columns(nullptr) == K_SIZE_ERROR; }},
      {"null column name", [&] { return k_ds_new_column(ds, nullptr) == K_SIZE_ERROR; }},
      {"row of null", [&] { return k_ds_new_row(nullptr) == K_SIZE_ERROR; }},
      {"delete column 2", [&] { return k_ds_delete_column(ds, 2) != 0; }},
      {"delete row 2", [&] { return k_ds_delete_row(ds, 2) != 0; }},
      {"name of column 2", [&] { return k_ds_get_column_name(ds, 2) == nullptr; }},
      {"rename column 2", [&] { return k_ds_set_column_name(ds, 2, "x") != 0; }},
      {"rename to null", [&] { return k_ds_set_column_name(ds, 0, nullptr) != 0; }},
      {"get row 2", [&] { return k_ds_get_data_item(ds, 2, 0) == nullptr; }},
      {"get column 2", [&] { return k_ds_get_data_item(ds, 0, 2) == nullptr; }},
      {"get huge", [&] { return k_ds_get_data_item(ds, big, big) == nullptr; }},
      {"set row 2", [&] { return k_ds_set_data_item(ds, 2, 0, "x") != 0; }},
      {"set column 2", [&] { return k_ds_set_data_item(ds, 0, 2, nullptr) != 0; }},
      {"move column 2", [&] { return k_ds_move_column(ds, 2, 0) != 0; }},
      {"move column to 2", [&] { return k_ds_move_column(ds, 0, 2) != 0; }},
      {"move row to 2", [&] { return k_ds_move_row(ds, 0, 2) != 0; }},
      {"copy column 2", [&] { return k_ds_copy_column(ds, 2) == K_SIZE_ERROR; }},
      {"empty column 2", [&] { return k_ds_column_is_empty(ds, 2) == -1; }},
      {"numbers column 2", [&] { return k_ds_column_data_are_numbers(ds, 2) == -1; }},
      {"find from 3", [&] { return k_ds_find_row(ds, 0, "1", 3) == K_SIZE_ERROR; }},
      {"find column 2", [&] { return k_ds_find_row(ds, 2, "1", 0) == K_SIZE_ERROR; }},
      {"distinct column 2", [&] { return k_ds_get_distinct_values(ds, 2) == nullptr; }},
      {"replace column 2", [&] { return k_ds_replace_values(ds, 2, "1", "2") == K_SIZE_ERROR; }},
      {"sort column 2", [&] { return k_ds_sort_rows(ds, 2, 0) != 0; }},
      {"sort direction 2", [&] { return k_ds_sort_rows(ds, 0, 2) != 0; }},
      {"sort numerically column 2", [&] { return k_ds_sort_rows_numerically(ds, 2, 0) != 0; }},
      {"count column 2", [&] { return k_ds_count_data(ds, 2) == K_SIZE_ERROR; }},
      {"numbers into null", [&] { return k_ds_get_numbers(ds, 0, nullptr, 4, 0, 2) != 0; }},
      {"numbers past the rows", [&] { return k_ds_get_numbers(ds, 1, numbers, 4, 1, 2) != 0; }},
      {"numbers past the array", [&] { return k_ds_get_numbers(ds, 1, numbers, 1, 0, 2) != 0; }},
      {"numbers huge start", [&] { return k_ds_get_numbers(ds, 1, numbers, 4, big, 1) != 0; }},
      {"cases past the rows", [&] { return k_domain_add_cases(domain, ds, 1, 2) != 0; }},
      {"cases from null", [&] { return k_domain_add_cases(domain, nullptr, 0, 0) != 0; }},
      {"cases into null", [&] { return k_domain_add_cases(nullptr, ds, 0, 0) != 0; }},
  };
  for (const auto& [name, call] : calls) {
    EXPECT_TRUE(call()) << name;
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE) << name;
    EXPECT_EQ(snapshot(ds), before) << name;
  }
  k_domain_delete(domain);
}

TEST(DataSet, MovesCopiesAndDeletesCarryEveryCellAlong) {
  DataSetHandle ds;
  fill(ds, {"a", "b", "c"}, {{"a0", "", missing}, {missing, "b1", "c1"}});
  k_ds_new_row(ds);  // an untouched row: all missing

  ASSERT_EQ(k_ds_move_column(ds, 0, 2), 0);
  EXPECT_EQ(snapshot(ds), (Cells{"b", "c", "a", "|", "", missing, "a0", "b1", "c1", missing,
                                 missing, missing, missing}));
  ASSERT_EQ(k_ds_move_column(ds, 2, 0), 0);
  ASSERT_EQ(k_ds_move_column(ds, 1, 1), 0);
  ASSERT_EQ(k_ds_move_row(ds, 2, 0), 0);
  EXPECT_EQ(snapshot(ds), (Cells{"a", "b", "c", "|", missing, missing, missing, "a0", "", missing,
                                 missing, "b1", "c1"}));
  ASSERT_EQ(k_ds_move_row(ds, 0, 2), 0);

  EXPECT_EQ(k_ds_copy_column(ds, 1), 3u);
  EXPECT_STREQ(k_ds_get_column_name(ds, 3), "b");
  EXPECT_EQ(column(ds, 3), column(ds, 1));
  EXPECT_EQ(column(ds, 3), (Cells{"", "b1", missing}));
  EXPECT_EQ(k_ds_set_data_item(ds, 0, 3, "changed"), 0);  // the copy is its own
  EXPECT_STREQ(k_ds_get_data_item(ds, 0, 1), "");

  ASSERT_EQ(k_ds_delete_column(ds, 1), 0);
  ASSERT_EQ(k_ds_delete_row(ds, 0), 0);
  EXPECT_EQ(snapshot(ds),
            (Cells{"a", "c", "b", "|", missing, "c1", "b1", missing, missing, missing}));
  ASSERT_EQ(k_ds_delete_column(ds, 0), 0);
  ASSERT_EQ(k_ds_delete_column(ds, 0), 0);
  ASSERT_EQ(k_ds_delete_column(ds, 0), 0);
  EXPECT_EQ(k_ds_get_number_of_rows(ds), 2u);  // rows outlive their columns
  EXPECT_EQ(k_ds_new_column(ds, "again"), 0u);
  EXPECT_EQ(column(ds, 0), (Cells{missing, missing}));
}

TEST(DataSet, SortsRowsStablyWithMissingCellsLast) {
  DataSetHandle ds;
  fill(ds, {"key", "tag"},
       {{"10", "r0"}, {missing, "r1"}, {"9", "r2"}, {"", "r3"}, {" 2 ", "r4"}, {"9", "r5"}});
  k_ds_new_row(ds);  // r6: all missing
  k_ds_set_data_item(ds, 6, 1, "r6");

  ASSERT_EQ(k_ds_sort_rows(ds, 0, 0), 0);
  EXPECT_EQ(column(ds, 1), (Cells{"r3", "r4", "r0", "r2", "r5", "r1", "r6"}));
  ASSERT_EQ(k_ds_sort_rows(ds, 0, 1), 0);
  EXPECT_EQ(column(ds, 1), (Cells{"r2", "r5", "r0", "r4", "r3", "r1", "r6"}));

  // "" is present but no number: nothing moves.
  const Cells before = snapshot(ds);
  EXPECT_NE(k_ds_sort_rows_numerically(ds, 0, 0), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_INVALID_EXPRESSION);
  EXPECT_EQ(snapshot(ds), before);

  ASSERT_EQ(k_ds_set_data_item(ds, 4, 0, "-1e1"), 0);  // was ""
  ASSERT_EQ(k_ds_sort_rows_numerically(ds, 0, 0), 0);
  EXPECT_EQ(column(ds, 0), (Cells{"-1e1", " 2 ", "9", "9", "10", missing, missing}));
  EXPECT_EQ(column(ds, 1), (Cells{"r3", "r4", "r2", "r5", "r0", "r1", "r6"}));
  ASSERT_EQ(k_ds_sort_rows_numerically(ds, 0, 1), 0);
  EXPECT_EQ(column(ds, 1), (Cells{"r0", "r2", "r5", "r4", "r3", "r1", "r6"}));
}

TEST(DataSet, FindsReplacesAndListsValues) {
  DataSetHandle ds;
  fill(ds, {"v"}, {{"?"}, {"a"}, {""}, {missing}, {"a"}, {"b"}, {"?"}});
  k_ds_new_row(ds);  // an absent row

  EXPECT_EQ(k_ds_find_row(ds, 0, "a", 0), 1u);
  EXPECT_EQ(k_ds_find_row(ds, 0, "a", 2), 4u);
  EXPECT_EQ(k_ds_find_row(ds, 0, "", 0), 2u);
  EXPECT_EQ(k_ds_find_row(ds, 0, nullptr, 0), 3u);
  EXPECT_EQ(k_ds_find_row(ds, 0, nullptr, 4), 7u);
  EXPECT_CODE(k_ds_find_row(ds, 0, "c", 0), K_SIZE_ERROR, K_ERROR_NONE);
  EXPECT_CODE(k_ds_find_row(ds, 0, "a", 8), K_SIZE_ERROR, K_ERROR_NONE);

  const char* const* values = k_ds_get_distinct_values(ds, 0);
  ASSERT_NE(values, nullptr);
  std::vector<std::string> listed;
  for (; *values != nullptr; ++values) listed.emplace_back(*values);
  EXPECT_EQ(listed, (std::vector<std::string>{"?", "a", "", "b"}));

  EXPECT_EQ(k_ds_replace_values(ds, 0, "?", nullptr), 2u);
  EXPECT_EQ(k_ds_replace_values(ds, 0, "zz", "y"), 0u);
  EXPECT_EQ(k_ds_replace_values(ds, 0, nullptr, ""), 4u);  // absent rows too
  EXPECT_EQ(column(ds, 0), (Cells{"", "a", "", "", "a", "b", "", ""}));
  EXPECT_EQ(k_ds_replace_values(ds, 0, "", nullptr), 5u);
  EXPECT_EQ(k_ds_replace_values(ds, 0, nullptr, nullptr), 5u);
  EXPECT_EQ(column(ds, 0), (Cells{missing, "a", missing, missing, "a", "b", missing, missing}));
  EXPECT_EQ(*k_ds_get_distinct_values(ds, 0), std::string("a"));
}

TEST(DataSet, ReadsDecimalNumbersOnly) {
  const std::vector<std::pair<const char*, bool>> texts = {
      {"1", true},    {"-2.5", true},  {"+.5", true},    {"1.", true},     {"1e3", true},
      {" 7\t", true}, {"1E-5", true},  {"1e-400", true}, {"1e400", false}, {"inf", false},
      {"nan", false}, {"0x10", false}, {"", false},      {" ", false},     {".", false},
      {"e5", false},  {"1e", false},   {"1 2", false},   {"--1", false},   {"1,5", false},
  };
  for (const auto& [text, number] : texts) {
    DataSetHandle ds;
    fill(ds, {"x"}, {{text}});
    EXPECT_EQ(k_ds_column_data_are_numbers(ds, 0), number ? 1 : 0) << '"' << text << '"';
    double value = 0.0;
    EXPECT_EQ(k_ds_get_numbers(ds, 0, &value, 1, 0, 1) == 0, number) << '"' << text << '"';
    if (!number) {
      EXPECT_EQ(k_error_code(), K_ERROR_INVALID_EXPRESSION);
    }
  }

  DataSetHandle ds;
  fill(ds, {"x"}, {{"1.5"}, {missing}, {"-3"}, {"oops"}});
  double numbers[3] = {7, 7, 7};
  ASSERT_EQ(k_ds_get_numbers(ds, 0, numbers, 3, 0, 3), 0);
  EXPECT_EQ(numbers[0], 1.5);
  EXPECT_TRUE(std::isnan(numbers[1]));
  EXPECT_EQ(numbers[2], -3.0);
  double untouched[2] = {7, 7};
  EXPECT_NE(k_ds_get_numbers(ds, 0, untouched, 2, 2, 2), 0);
  EXPECT_EQ(untouched[0], 7.0);
  EXPECT_EQ(k_ds_get_numbers(ds, 0, untouched, 0, 4, 0), 0);  // nothing at the end
}

// Every operation that allocates, failed at each allocation in turn, leaves
// the data set exactly as it was.
// Rows written straight into an arena: a row that outgrows its chunk moves
// whole to a new one, cells not written read as missing, and a text that
// would reach 2 GiB is refused before anything is read from it.
TEST(DataSet, ArenaRowsMoveWholeAndRefuseHugeTexts) {
  kelva::RowArena arena;
  kelva::ArenaRowWriter writer(arena, 3);
  std::vector<std::string> texts;
  std::vector<kelva::DataRow> rows;
  for (std::size_t n = 0; n < 60; ++n) {
    texts.emplace_back(n * n * 997 % 300000, static_cast<char>('a' + n % 26));
    writer.begin();
    writer.add("x", 1);
    writer.add(texts[n].c_str(), texts[n].size(), texts[n].size() + 1);
    rows.push_back(writer.finish());
  }
  for (std::size_t n = 0; n < rows.size(); ++n) {
    ASSERT_EQ(rows[n].size(), 3u);
    EXPECT_STREQ(rows[n].cell(0), "x");
    EXPECT_EQ(rows[n].cell(1), texts[n]) << n;
    EXPECT_EQ(rows[n].cell(2), nullptr);
  }
  writer.begin();
  const volatile std::size_t huge = 0x7FFFFFFFu;  // a length only, never read
  EXPECT_THROW(writer.add(texts[1].c_str(), huge), kelva::Error);
}

TEST(DataSet, FailedAllocationChangesNothing) {
  const std::vector<std::pair<const char*, std::function<bool(k_data_set_t)>>> calls = {
      {"new column",
       [](k_data_set_t ds) {
         return k_ds_new_column(ds, "a long column name here") != K_SIZE_ERROR;
       }},
      {"new row", [](k_data_set_t ds) { return k_ds_new_row(ds) != K_SIZE_ERROR; }},
      {"copy column", [](k_data_set_t ds) { return k_ds_copy_column(ds, 0) != K_SIZE_ERROR; }},
      {"set cell",
       [](k_data_set_t ds) { return k_ds_set_data_item(ds, 2, 1, "a long cell text here") == 0; }},
      {"rename",
       [](k_data_set_t ds) {
         return k_ds_set_column_name(ds, 1, "another long column name") == 0;
       }},
      {"replace",
       [](k_data_set_t ds) {
         return k_ds_replace_values(ds, 1, nullptr, "a long replacement text") != K_SIZE_ERROR;
       }},
      {"sort", [](k_data_set_t ds) { return k_ds_sort_rows_numerically(ds, 0, 1) == 0; }},
  };
  for (const auto& [name, call] : calls) {
    long n = 0;
    for (;; ++n) {
      DataSetHandle ds;
      fill(ds, {"n", "text"}, {{"3", "a long cell text, one"}, {"1", missing}, {"2", ""}});
      k_ds_new_row(ds);
      const Cells before = snapshot(ds);
      kelva::test::fail_allocation_after(n);
      const bool ok = call(ds);
      const bool failed = kelva::test::allocations_left() == -1 && !ok;
      kelva::test::fail_allocation_after(-1);
      if (ok) break;
      ASSERT_TRUE(failed) << name;
      EXPECT_EQ(k_error_code(), K_ERROR_NO_MEMORY) << name;
      EXPECT_EQ(snapshot(ds), before) << name << " failing allocation " << n;
      ASSERT_LT(n, 1000) << name;
    }
    EXPECT_GT(n, 0) << name << " never allocated";
  }
}

}  // namespace
