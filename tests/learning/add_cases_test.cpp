// Adding the rows of a data set to a domain's stored cases.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "capi/case_domain.h"
#include "common/fail_new.h"
#include "dataset/data_set_fixture.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"

namespace {

using kelva::test::DataSetHandle;
using kelva::test::fill;
const std::nullopt_t missing = std::nullopt;

kelva::Node& engine(k_node_t n) { return *reinterpret_cast<kelva::Node*>(n); }
kelva::Domain& engine(k_domain_t d) { return *reinterpret_cast<kelva::Domain*>(d); }

// The items of stored cases: a state index, a value or "-" per node.
struct CaseDomain : kelva::test::CaseDomain {
  std::vector<std::string> items(std::size_t c) {
    std::vector<std::string> out;
    for (k_node_t n : {level, flag, number, interval, function}) {
      const auto s = engine(n).cases.state(c);
      out.push_back(s < 0 ? "-" : std::to_string(s));
    }
    const double v = engine(x).cases.value(c);
    out.push_back(std::isnan(v) ? "-" : std::to_string(v));
    return out;
  }
  std::size_t cases() { return engine(d).cases.size(); }
};

using Items = std::vector<std::string>;

TEST_F(CaseDomain, EachSortOfNodeReadsItsCells) {
  DataSetHandle ds;
  fill(ds, {"N", "unknown", "L", "B", "I", "X", "R", "F"},
       {{"2.5", "zz", "mid dle", "true", "0", "-1.5", "99", "#1"},
        {" 10 ", missing, "#2", "false", "4.99", "1e2", "x", missing},
        {missing, missing, missing, missing, missing, missing, missing, missing},
        {"#0", "", "low", "#1", "#1", "0", "", "#0"}});
  ASSERT_EQ(k_domain_add_cases(d, ds, 0, 4), 0) << k_error_name(k_error_code());
  ASSERT_EQ(cases(), 4u);
  EXPECT_EQ(items(0), (Items{"1", "1", "1", "0", "1", std::to_string(-1.5)}));
  EXPECT_EQ(items(1), (Items{"2", "0", "2", "1", "-", std::to_string(100.0)}));
  EXPECT_EQ(items(2), (Items{"-", "-", "-", "-", "-", "-"}));
  EXPECT_EQ(items(3), (Items{"0", "1", "0", "1", "0", std::to_string(0.0)}));
  EXPECT_FALSE(engine(d).cases.counts_set());
  EXPECT_EQ(engine(d).cases.count(3), 1.0);

  // A range appends after the cases already stored.
  ASSERT_EQ(k_domain_add_cases(d, ds, 1, 1), 0);
  ASSERT_EQ(cases(), 5u);
  EXPECT_EQ(items(4), items(1));
  ASSERT_EQ(k_domain_add_cases(d, ds, 4, 0), 0);
  EXPECT_EQ(cases(), 5u);
}

TEST_F(CaseDomain, CountColumnWeighsCases) {
  DataSetHandle ds;
  fill(ds, {"#", "L"}, {{"2.5", "low"}, {missing, "high"}, {"0", missing}});
  ASSERT_EQ(k_domain_add_cases(d, ds, 0, 3), 0);
  EXPECT_TRUE(engine(d).cases.counts_set());
  EXPECT_EQ(engine(d).cases.count(0), 2.5);
  EXPECT_EQ(engine(d).cases.count(1), 1.0);
  EXPECT_EQ(engine(d).cases.count(2), 0.0);
  EXPECT_EQ(engine(d).cases.total_count(), 3.5);
}

// Every refusal leaves the stored cases, their items and counts as they were.
TEST_F(CaseDomain, RefusedCellsAddNothing) {
  DataSetHandle good;
  fill(good, {"L", "X"}, {{"high", "3"}});
  ASSERT_EQ(k_domain_add_cases(d, good, 0, 1), 0);

  const std::vector<
      std::tuple<std::vector<std::string>, std::vector<std::optional<std::string>>, k_error_t>>
      refused = {
          {{"L"}, {"medium"}, K_ERROR_USAGE},
          {{"L"}, {""}, K_ERROR_USAGE},
          {{"L"}, {"#3"}, K_ERROR_USAGE},
          {{"L"}, {"?"}, K_ERROR_USAGE},
          {{"B"}, {"yes"}, K_ERROR_USAGE},
          {{"B"}, {"TRUE"}, K_ERROR_USAGE},
          {{"N"}, {"3"}, K_ERROR_USAGE},
          {{"I"}, {"5"}, K_ERROR_USAGE},  // intervals hold their low end only
          {{"I"}, {"-0.5"}, K_ERROR_USAGE},
          {{"X"}, {"nan"}, K_ERROR_USAGE},
          {{"X"}, {"low"}, K_ERROR_USAGE},
          {{"#"}, {"-1"}, K_ERROR_USAGE},
          {{"#"}, {"x"}, K_ERROR_USAGE},
          {{"L", "L"}, {"low", "low"}, K_ERROR_USAGE},
          {{"#", "#"}, {"1", "1"}, K_ERROR_USAGE},
      };
  for (const auto& [names, line, code] : refused) {
    DataSetHandle ds;
    // A good row first: the bad one is the second.
    std::vector<std::optional<std::string>> first(names.size(), missing);
    fill(ds, names, {first, line});
    EXPECT_NE(k_domain_add_cases(d, ds, 0, 2), 0) << names[0] << " " << line[0].value_or("-");
    EXPECT_EQ(k_error_code(), code);
    ASSERT_EQ(cases(), 1u);
    EXPECT_EQ(items(0), (Items{"2", "-", "-", "-", "-", std::to_string(3.0)}));
    EXPECT_FALSE(engine(d).cases.counts_set());
  }
}

TEST_F(CaseDomain, StatesAboveTheCaseLimitAreRefused) {
  k_node_t wide = discrete("W", K_CATEGORY_CHANCE, K_SUBTYPE_LABEL, 40000);
  DataSetHandle ds;
  fill(ds, {"W"}, {{"#32767"}, {"#32768"}});
  ASSERT_EQ(k_domain_add_cases(d, ds, 0, 1), 0);
  EXPECT_EQ(engine(wide).cases.state(0), 32767);
  EXPECT_NE(k_domain_add_cases(d, ds, 0, 2), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_CASE_STATE_TOO_LARGE);
  EXPECT_EQ(cases(), 1u);
}

TEST_F(CaseDomain, FailedAllocationAddsNothing) {
  DataSetHandle ds;
  fill(ds, {"#", "L", "B", "N", "I", "X"},
       {{"2", "low", "true", "1", "0.5", "1"}, {missing, "high", "false", "10", "4.5", "2"}});
  long n = 0;
  for (;; ++n) {
    kelva::test::fail_allocation_after(n);
    const k_status_t status = k_domain_add_cases(d, ds, 0, 2);
    kelva::test::fail_allocation_after(-1);
    if (status == 0) break;
    ASSERT_EQ(k_error_code(), K_ERROR_NO_MEMORY);
    ASSERT_EQ(cases(), 0u);
    for (k_node_t node : all()) EXPECT_FALSE(engine(node).cases.is_set(0));
    EXPECT_FALSE(engine(d).cases.counts_set());
    ASSERT_LT(n, 1000);
  }
  EXPECT_GT(n, 5);
  EXPECT_EQ(items(1), (Items{"2", "0", "2", "1", "-", std::to_string(2.0)}));
}

}  // namespace
