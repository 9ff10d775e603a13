// The EM learning functions of the C API: preconditions and their codes,
// settings, the learning log, log-likelihood, AIC and BIC.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

#include "common/expect_code.h"
#include "common/fail_new.h"
#include "em_fixture.h"
#include "learning/em.h"
#include "text/text_files.h"

namespace kelva::test {
namespace {

const char* const kPair = R"(net {}
node A { states = ("a0" "a1"); }
node B { states = ("b0" "b1" "b2"); }
potential (A) { data = (0.4 0.6); }
potential (B | A) { data = ((0.5 0.25 0.25) (0.1 0.2 0.7)); }
)";

std::string read_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(EmApi, PreconditionsInTheirOrder) {
  EXPECT_FAILS(k_domain_learn_tables(nullptr), K_ERROR_USAGE);

  Net net(kPair);
  // Not compiled and no cases: the cases are checked first.
  EXPECT_FAILS(k_domain_learn_tables(net.domain), K_ERROR_USAGE);
  net.add_case({"A", "B"}, {0, 1});
  EXPECT_FAILS(k_domain_learn_tables(net.domain), K_ERROR_NOT_COMPILED);
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  // No experience table.
  EXPECT_FAILS(k_domain_learn_tables(net.domain), K_ERROR_USAGE);
  ASSERT_NE(k_node_get_experience_table(net.h("B")), nullptr);
  // Every count 0: the total is not above 0.
  net.d().cases.set_count(0, 0.0);
  EXPECT_FAILS(k_domain_learn_tables(net.domain), K_ERROR_USAGE);
  net.d().cases.set_count(0, 2.0);
  EXPECT_EQ(k_domain_learn_tables(net.domain), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_NONE);
  // Only B was learned; A keeps its table.
  EXPECT_EQ(net.table("A"), (std::vector<double>{0.4, 0.6}));
  EXPECT_EQ(net.table("B"), (std::vector<double>{0, 1, 0, 0.1, 0.2, 0.7}));
}

TEST(EmApi, Settings) {
  Net net(kPair);
  const k_domain_t d = net.domain;
  EXPECT_EQ(k_domain_get_log_likelihood_tolerance(d), 1e-4);
  EXPECT_EQ(k_domain_get_max_number_of_em_iterations(d), 0u);
  EXPECT_EQ(k_domain_set_log_likelihood_tolerance(d, 0.5), 0);
  EXPECT_FAILS(k_domain_set_log_likelihood_tolerance(d, -1e-300), K_ERROR_USAGE);
  EXPECT_NE(k_domain_set_log_likelihood_tolerance(d, std::nan("")), 0);
  EXPECT_EQ(k_domain_get_log_likelihood_tolerance(d), 0.5);
  EXPECT_EQ(k_domain_set_max_number_of_em_iterations(d, 12), 0);
  EXPECT_EQ(k_domain_get_max_number_of_em_iterations(d), 12u);
  EXPECT_EQ(k_domain_get_log_likelihood_tolerance(nullptr), -1.0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(k_domain_get_max_number_of_em_iterations(nullptr), K_SIZE_ERROR);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_NE(k_domain_set_max_number_of_em_iterations(nullptr, 1), 0);
  EXPECT_NE(k_domain_set_em_progress(nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(k_domain_set_em_progress(d, nullptr, nullptr), 0);
}

// Log-likelihood, AIC and BIC of complete cases by hand; the free
// parameters of continuous nodes; the failure value 1.0.
TEST(EmApi, ScoresByHand) {
  EXPECT_EQ(k_domain_get_log_likelihood(nullptr), 1.0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(k_domain_get_aic(nullptr), 1.0);
  EXPECT_EQ(k_domain_get_bic(nullptr), 1.0);

  Net net(kPair);
  // No cases: log-likelihood 0, compiled or not; BIC needs cases.
  EXPECT_EQ(k_domain_get_log_likelihood(net.domain), 0.0);
  EXPECT_EQ(k_domain_get_aic(net.domain), -5.0);  // 1 + 2 * 2 free parameters
  EXPECT_EQ(k_domain_get_bic(net.domain), 1.0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);

  net.add_case({"A", "B"}, {0, 0});
  net.add_case({"A", "B"}, {1, 2}, 3.0);
  net.add_case({"A", "B"}, {1, -1});
  EXPECT_EQ(k_domain_get_log_likelihood(net.domain), 1.0);
  EXPECT_EQ(k_error_code(), K_ERROR_NOT_COMPILED);
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  const double ll = std::log(0.4 * 0.5) + 3 * std::log(0.6 * 0.7) + std::log(0.6);
  EXPECT_NEAR(k_domain_get_log_likelihood(net.domain), ll, 1e-12);
  EXPECT_NEAR(k_domain_get_aic(net.domain), ll - 5, 1e-12);
  EXPECT_NEAR(k_domain_get_bic(net.domain), ll - 0.5 * 5 * std::log(5.0), 1e-12);
  // The query leaves no evidence behind, and the domain propagated.
  EXPECT_EQ(k_node_evidence_is_entered(net.h("A")), 0);
  EXPECT_NEAR(k_node_get_belief(net.h("A"), 1), 0.6, 1e-15);

  // A changed table makes the cached value stale.
  net.set_table("A", {0.5, 0.5});
  const double ll2 = std::log(0.5 * 0.5) + 3 * std::log(0.5 * 0.7) + std::log(0.5);
  EXPECT_NEAR(k_domain_get_log_likelihood(net.domain), ll2, 1e-12);

  // Continuous chance nodes count (c + 2) per discrete parent
  // configuration, c being their continuous parents; utility and decision
  // nodes nothing.
  Net cg(kPair);
  const k_node_t x =
      k_domain_new_node(cg.domain, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
  const k_node_t y =
      k_domain_new_node(cg.domain, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
  ASSERT_EQ(k_node_add_parent(x, cg.h("A")), 0);
  ASSERT_EQ(k_node_add_parent(y, x), 0);
  ASSERT_EQ(k_node_add_parent(y, cg.h("B")), 0);
  EXPECT_EQ(free_parameters(cg.d()), 5.0 + 2 * 2 + 3 * 3);
}

// The log, byte for byte: the header with the number of cases, one line
// per iteration, the final figures of the learned tables.
TEST(EmApi, LogText) {
  Net net(kPair);
  ASSERT_NE(k_node_get_experience_table(net.h("A")), nullptr);
  ASSERT_NE(k_node_get_experience_table(net.h("B")), nullptr);
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  net.add_case({"A", "B"}, {0, 0});
  net.add_case({"A", "B"}, {-1, 2});
  net.add_case({"A", "B"}, {1, -1});
  net.add_case({"A", "B"}, {1, 1});
  const TempFile log;
  ASSERT_EQ(k_domain_set_log_file(net.domain, log.path.c_str(), 0), 0);
  ASSERT_EQ(k_domain_set_max_number_of_em_iterations(net.domain, 3), 0);
  ASSERT_EQ(k_domain_learn_tables(net.domain), 0);
  // With counts set, the header gives their total.
  net.d().cases.set_count(3, 2.5);
  ASSERT_EQ(k_domain_set_max_number_of_em_iterations(net.domain, 1), 0);
  ASSERT_EQ(k_domain_learn_tables(net.domain), 0);
  ASSERT_EQ(k_domain_set_log_file(net.domain, nullptr, 0), 0);
  const std::string golden =
      read_file(std::filesystem::path(KELVA_TEST_DATA_DIR) / "learning" / "em.log");
  EXPECT_EQ(log.contents(), golden);
}

// A failed write to the log is "io", and the tables are as before.
TEST(EmApi, LogWriteFailure) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  Net net(kPair);
  ASSERT_NE(k_node_get_experience_table(net.h("B")), nullptr);
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  net.add_case({"A", "B"}, {0, 0});
  ASSERT_EQ(k_domain_set_log_file(net.domain, "/dev/full", 1), 0);
  EXPECT_FAILS(k_domain_learn_tables(net.domain), K_ERROR_IO);
  EXPECT_EQ(net.table("B"), (std::vector<double>{0.5, 0.25, 0.25, 0.1, 0.2, 0.7}));
  ASSERT_EQ(k_domain_set_log_file(net.domain, nullptr, 0), 0);
}

// Every allocation of a learning run failing in turn: "no_memory", the
// tables as before, and the domain still usable.
TEST(EmApi, AllocationFailuresLeaveTheTables) {
  Net net(kPair);
  ASSERT_NE(k_node_get_experience_table(net.h("A")), nullptr);
  ASSERT_NE(k_node_get_experience_table(net.h("B")), nullptr);
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  net.add_case({"A", "B"}, {0, -1});
  net.add_case({"A", "B"}, {-1, 2});
  ASSERT_EQ(k_domain_set_max_number_of_em_iterations(net.domain, 2), 0);
  const std::vector<double> a = net.table("A");
  const std::vector<double> b = net.table("B");
  bool succeeded = false;
  long failures = 0;
  for (long n = 0; n < 1000 && !succeeded; ++n) {
    fail_allocation_after(n);
    const k_status_t status = k_domain_learn_tables(net.domain);
    const k_error_t code = k_error_code();
    fail_allocation_after(-1);
    if (status == 0) {
      succeeded = true;
      break;
    }
    ++failures;
    ASSERT_EQ(code, K_ERROR_NO_MEMORY) << "allocation " << n;
    ASSERT_EQ(net.table("A"), a) << "allocation " << n;
    ASSERT_EQ(net.table("B"), b) << "allocation " << n;
  }
  EXPECT_TRUE(succeeded);
  EXPECT_GT(failures, 5);
  EXPECT_NE(net.table("B"), b);
  EXPECT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
}

}  // namespace
}  // namespace kelva::test
