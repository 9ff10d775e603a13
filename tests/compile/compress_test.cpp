// Compression of a compiled domain: compressed propagation gives the beliefs
// of uncompressed propagation, the size ratio counts the kept entries, and
// the refusals.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

#include "common/expect_code.h"
#include "compile/junction_forest.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "table/table.h"

namespace kelva {
namespace {

// A quality check with deterministic verdict and shipping nodes, so that
// its clique tables hold many zeros.
constexpr const char* kInspection = R"(
node Supplier { states = ("a" "b" "c"); }
node Batch { states = ("ok" "flawed"); }
node Sensor { states = ("pass" "fail"); }
node Verdict { states = ("accept" "review" "reject"); }
node Shipped { states = ("no" "yes"); }
node Complaint { states = ("no" "yes"); }
potential (Supplier) { data = (0.5 0.3 0.2); }
potential (Batch | Supplier) { data = ((0.95 0.05) (0.8 0.2) (0.6 0.4)); }
potential (Sensor | Batch) { data = ((0.9 0.1) (0.15 0.85)); }
potential (Verdict | Sensor Supplier)
{ data = (((1 0 0) (1 0 0) (0 1 0)) ((0 0 1) (0 1 0) (0 0 1))); }
potential (Shipped | Verdict) { data = ((0 1) (0 1) (1 0)); }
potential (Complaint | Shipped Batch) { data = (((1 0) (1 0)) ((0.97 0.03) (0.4 0.6))); }
)";

struct Net {
  explicit Net(const char* text) : d(k_net_parse_domain_string(text, nullptr, nullptr)) {
    EXPECT_NE(d, nullptr);
  }
  ~Net() { k_domain_delete(d); }
  Net(const Net&) = delete;
  Net& operator=(const Net&) = delete;

  k_node_t node(const char* name) { return k_domain_get_node_by_name(d, name); }
  Forest& forest() { return *reinterpret_cast<Domain*>(d)->forest(); }

  k_domain_t d;
};

/// Clique and separator entries, and how many of them are not 0.0.
std::pair<std::uint64_t, std::uint64_t> entry_counts(Forest& forest) {
  std::uint64_t all = 0;
  std::uint64_t kept = 0;
  auto count = [&](const Table& t) {
    for (std::uint64_t i = 0; i < t.size(); ++i) kept += t.data()[i] != 0.0;
    all += t.size();
  };
  for (const auto& c : forest.cliques) count(*c->table);
  for (const auto& s : forest.separators) count(*s->table);
  return {all, kept};
}

/// Propagates both domains and expects the same results, or the same
/// failure.
void expect_same(Net& full, Net& small, k_equilibrium_t equilibrium, const std::string& what) {
  SCOPED_TRACE(what);
  const k_status_t status = k_domain_propagate(full.d, equilibrium, K_MODE_NORMAL);
  const k_error_t code = k_error_code();
  ASSERT_EQ(k_domain_propagate(small.d, equilibrium, K_MODE_NORMAL) != 0, status != 0);
  ASSERT_EQ(k_error_code(), code);
  if (status != 0) return;
  EXPECT_NEAR(k_domain_get_normalization_constant(small.d),
              k_domain_get_normalization_constant(full.d), 1e-15);
  for (k_node_t a = k_domain_get_first_node(full.d); a != nullptr; a = k_node_get_next(a)) {
    k_node_t b = small.node(k_node_get_name(a));
    for (k_size_t s = 0; s < k_node_get_number_of_states(a); ++s)
      EXPECT_NEAR(k_node_get_belief(b, s), k_node_get_belief(a, s), 1e-14)
          << k_node_get_name(a) << " state " << s;
  }
  k_node_t pair[] = {full.node("Batch"), full.node("Sensor"), nullptr};
  k_node_t pair_small[] = {small.node("Batch"), small.node("Sensor"), nullptr};
  k_table_t m = k_domain_get_marginal(full.d, pair);
  k_table_t n = k_domain_get_marginal(small.d, pair_small);
  ASSERT_NE(m, nullptr);
  ASSERT_NE(n, nullptr);
  for (k_size_t i = 0; i < 4; ++i)
    EXPECT_NEAR(k_table_get_data_item(n, i), k_table_get_data_item(m, i), 1e-14);
  k_table_delete(m);
  k_table_delete(n);
}

TEST(Compress, BeliefsEqualUncompressedUnderEvidence) {
  Net full(kInspection);
  Net small(kInspection);
  ASSERT_EQ(k_domain_compile(full.d), 0);
  ASSERT_EQ(k_domain_compile(small.d), 0);
  const auto [all, kept] = entry_counts(small.forest());
  ASSERT_LT(kept, all);
  EXPECT_EQ(k_domain_is_compressed(small.d), 0);
  EXPECT_DOUBLE_EQ(k_domain_compress(small.d), static_cast<double>(kept) / all);
  EXPECT_EQ(k_domain_is_compressed(small.d), 1);
  // Compressing again changes nothing.
  EXPECT_EQ(k_domain_compress(small.d), 1.0);

  expect_same(full, small, K_EQUILIBRIUM_SUM, "no evidence");
  expect_same(full, small, K_EQUILIBRIUM_MAX, "no evidence, max");
  auto both = [&](auto&& enter) {
    enter(full);
    enter(small);
  };
  both([](Net& n) { k_node_select_state(n.node("Complaint"), 1); });
  expect_same(full, small, K_EQUILIBRIUM_SUM, "a complaint");
  both([](Net& n) {
    k_node_enter_finding(n.node("Sensor"), 0, 0.7);
    k_node_enter_finding(n.node("Sensor"), 1, 0.2);
  });
  expect_same(full, small, K_EQUILIBRIUM_SUM, "a likelihood on Sensor");
  expect_same(full, small, K_EQUILIBRIUM_MAX, "a likelihood on Sensor, max");
  both([](Net& n) { k_node_select_state(n.node("Supplier"), 2); });
  expect_same(full, small, K_EQUILIBRIUM_SUM, "supplier c");
  both([](Net& n) { k_node_retract_findings(n.node("Supplier")); });
  expect_same(full, small, K_EQUILIBRIUM_SUM, "supplier retracted");
  both([](Net& n) {
    k_domain_retract_findings(n.d);
    k_node_select_state(n.node("Verdict"), 2);
    k_node_select_state(n.node("Shipped"), 1);
  });
  expect_same(full, small, K_EQUILIBRIUM_SUM, "a rejected batch shipped");
  EXPECT_EQ(k_error_code(), K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  both([](Net& n) { k_node_retract_findings(n.node("Shipped")); });
  expect_same(full, small, K_EQUILIBRIUM_SUM, "rejected");

  // Fast retraction is refused; uncompiling forgets the compression.
  EXPECT_NE(k_domain_propagate(small.d, K_EQUILIBRIUM_SUM, K_MODE_FAST_RETRACTION), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_COMPRESSED);
  ASSERT_EQ(k_domain_uncompile(small.d), 0);
  EXPECT_EQ(k_domain_is_compressed(small.d), 0);
  ASSERT_EQ(k_domain_compile(small.d), 0);
  expect_same(full, small, K_EQUILIBRIUM_SUM, "recompiled");
}

TEST(Compress, Refusals) {
  Net net(kInspection);
  EXPECT_CODE(k_domain_compress(nullptr), -1.0, K_ERROR_USAGE);
  EXPECT_EQ(k_domain_is_compressed(nullptr), -1);
  EXPECT_CODE(k_domain_compress(net.d), -1.0, K_ERROR_NOT_COMPILED);
  ASSERT_EQ(k_domain_compile(net.d), 0);
  // A failed propagation leaves no equilibrium, and nothing to compress.
  k_node_select_state(net.node("Verdict"), 2);
  k_node_select_state(net.node("Shipped"), 1);
  ASSERT_NE(k_domain_propagate(net.d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  EXPECT_CODE(k_domain_compress(net.d), -1.0, K_ERROR_NO_EQUILIBRIUM);
  EXPECT_EQ(k_domain_is_compressed(net.d), 0);

  // Continuous clique members are refused.
  Net cg(R"(
node X { states = ("lo" "hi"); }
continuous node Y { }
potential (X) { data = (0.4 0.6); }
potential (Y | X) { data = (normal (0, 1) normal (2, 1)); }
)");
  ASSERT_EQ(k_domain_compile(cg.d), 0);
  EXPECT_CODE(k_domain_compress(cg.d), -1.0, K_ERROR_USAGE);
  // So are utility nodes.
  Net id(R"(
node A { states = ("a0" "a1"); }
utility U { }
potential (A) { data = (0.5 0.5); }
potential (U | A) { data = (1 3); }
)");
  ASSERT_EQ(k_domain_compile(id.d), 0);
  EXPECT_CODE(k_domain_compress(id.d), -1.0, K_ERROR_USAGE);
}

}  // namespace
}  // namespace kelva
