// The belief report: its exact text on hand-set propagation results, and
// its error codes.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "compile/junction_forest.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"

namespace kelva {
namespace {

/// A domain whose "propagation results" are set by hand on a junction
/// forest of one tree, so the report is tested apart from propagation.
class ReportNet {
 public:
  ReportNet() : log_path_(::testing::TempDir() + "report_" + std::to_string(::getpid()) + ".log") {}
  ~ReportNet() {
    k_domain_delete(d);
    std::remove(log_path_.c_str());
  }
  ReportNet(const ReportNet&) = delete;
  ReportNet& operator=(const ReportNet&) = delete;

  k_domain_t d = k_new_domain();

  Domain& domain() { return *reinterpret_cast<Domain*>(d); }

  k_node_t node(const char* name, k_category_t category, k_kind_t kind,
                k_subtype_t subtype = K_SUBTYPE_LABEL) {
    k_node_t n = k_domain_new_node(d, category, kind, subtype);
    EXPECT_NE(n, nullptr);
    EXPECT_EQ(k_node_set_name(n, name), 0);
    return n;
  }
  /// A discrete node with these labels ("" leaves a state unlabelled).
  k_node_t labelled(const char* name, std::initializer_list<const char*> labels,
                    k_category_t category = K_CATEGORY_CHANCE) {
    k_node_t n = node(name, category, K_KIND_DISCRETE);
    EXPECT_EQ(k_node_set_number_of_states(n, labels.size()), 0);
    std::size_t i = 0;
    for (const char* l : labels) {
      if (*l != '\0') {
        EXPECT_EQ(k_node_set_state_label(n, i, l), 0);
      }
      ++i;
    }
    return n;
  }

  /// Gives every discrete, continuous and utility node a record in a
  /// one-tree forest and marks the domain compiled, in `equilibrium`.
  void compile(k_equilibrium_t equilibrium = K_EQUILIBRIUM_SUM) {
    ForestPtr forest(new Forest(domain()));
    forest->trees.push_back(std::make_unique<JunctionTree>(domain()));
    tree_ = forest->trees.back().get();
    tree_->equilibrium = equilibrium;
    for (Node* n = domain().first_node(); n != nullptr; n = n->next) {
      if (!n->is_discrete() && !n->is_continuous() && n->category() != K_CATEGORY_UTILITY) continue;
      n->forest_slot = forest->nodes.size();
      NodeSlot slot;
      slot.node = n;
      slot.tree = tree_;
      forest->nodes.push_back(std::move(slot));
    }
    domain().install_forest(std::move(forest));
    domain().set_compiled(true);
  }
  NodeSlot& slot(k_node_t n) { return *domain().forest()->slot(*reinterpret_cast<Node*>(n)); }
  void set(k_node_t n, std::vector<double> marginal, std::vector<double> utilities = {}) {
    slot(n).marginal = std::move(marginal);
    slot(n).expected_utility = std::move(utilities);
  }
  /// Marks state `k` of `n` as selected by the propagated evidence.
  void select(k_node_t n, std::int64_t k) {
    reinterpret_cast<Node*>(n)->evidence.propagated_code = k;
  }
  JunctionTree& tree() { return *tree_; }

  void open_log() { ASSERT_EQ(k_domain_set_log_file(d, log_path_.c_str(), 0), 0); }
  /// Closes the log and returns what was written to it.
  std::string log_text() {
    EXPECT_EQ(k_domain_set_log_file(d, nullptr, 0), 0);
    std::ifstream in(log_path_, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

 private:
  std::string log_path_;
  JunctionTree* tree_ = nullptr;
};

TEST(BeliefReport, DiscreteSectionsInNodeOrder) {
  ReportNet net;
  k_node_t weather = net.labelled("Weather", {"dry", "wet"});
  k_node_t plain = net.labelled("Plain", {"", "", ""});
  k_node_t flag = net.node("Flag", K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_BOOLEAN);
  k_node_t count = net.node("Count", K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_NUMBER);
  ASSERT_EQ(k_node_set_number_of_states(count, 3), 0);
  for (k_size_t i = 0; i < 3; ++i) ASSERT_EQ(k_node_set_state_value(count, i, 0.5 * i), 0);
  k_node_t same = net.labelled("Same", {"x", "x"});
  k_node_t act = net.labelled("Act", {"go", "stay"}, K_CATEGORY_DECISION);
  k_node_t fn = net.labelled("Fn", {"a_long_label_here", "b"}, K_CATEGORY_FUNCTION);
  net.compile();
  net.set(weather, {0.25, 0.75});
  net.set(plain, {0.5, 0.125, 0.375});
  net.set(flag, {0, 1});
  net.select(flag, 1);
  net.set(count, {0, 0, 1});
  net.select(count, 2);
  net.set(same, {0, 1});
  net.select(same, 1);
  net.set(act, {1, 0});
  net.select(act, 0);
  net.set(fn, {0.9, 0.1});
  net.open_log();
  ASSERT_EQ(k_domain_report_beliefs(net.d), 0);
  EXPECT_EQ(net.log_text(),
            "\n\nBeliefs for decision nodes:\n"
            "\n    Act --> \"go\"\n"
            "\n\nBeliefs for chance nodes:\n"
            "\n    Same --> #1\n"
            "\n    Count --> 1\n"
            "\n    Flag --> true\n"
            "\n    Plain:\n\tstate0   0.5\n\tstate1   0.125\n\tstate2   0.375\n"
            "\n    Weather:\n\tdry        0.25\n\twet        0.75\n"
            "\n\nBeliefs for discrete function nodes:\n"
            "\n    Fn:\n\ta_long_label_here 0.9\n\tb          0.1\n");

  // One node alone, appended; a utility node cannot be reported.
  net.open_log();
  ASSERT_EQ(k_node_report_beliefs(weather), 0);
  EXPECT_EQ(net.log_text(), "\n    Weather:\n\tdry        0.25\n\twet        0.75\n");
}

TEST(BeliefReport, ExpectedUtilitiesAndFunctionValues) {
  ReportNet net;
  k_node_t level = net.node("Level", K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_NUMBER);
  ASSERT_EQ(k_node_set_number_of_states(level, 2), 0);
  ASSERT_EQ(k_node_set_state_value(level, 0, 1.5), 0);
  ASSERT_EQ(k_node_set_state_value(level, 1, 4), 0);
  k_node_t act = net.labelled("Act", {"go", "stay"}, K_CATEGORY_DECISION);
  k_node_t gain = net.node("Gain", K_CATEGORY_UTILITY, K_KIND_OTHER);
  k_node_t cost = net.node("Cost", K_CATEGORY_UTILITY, K_KIND_OTHER);
  // A function of Level (known only when Level is), and one without a model.
  k_node_t twice = net.node("Twice", K_CATEGORY_FUNCTION, K_KIND_OTHER);
  ASSERT_EQ(k_node_add_parent(twice, level), 0);
  k_node_t none[] = {nullptr};
  k_model_t model = k_node_new_model(twice, none);
  ASSERT_NE(model, nullptr);
  ASSERT_EQ(k_model_set_expression_from_string(model, 0, "Level * 2", nullptr, nullptr), 0);
  net.node("Bare", K_CATEGORY_FUNCTION, K_KIND_OTHER);
  // A function of an expected utility.
  k_node_t plus = net.node("Plus", K_CATEGORY_FUNCTION, K_KIND_OTHER);
  ASSERT_EQ(k_node_add_parent(plus, gain), 0);
  ASSERT_EQ(k_model_set_expression_from_string(k_node_new_model(plus, none), 0, "Gain + 1", nullptr,
                                               nullptr),
            0);
  net.compile();
  net.set(level, {0.5, 0.5}, {10, -2.5});
  net.set(act, {0.5, 0.5}, {3, 4});
  net.set(gain, {}, {12.5});
  net.set(cost, {}, {-0.5});
  net.open_log();
  ASSERT_EQ(k_domain_report_beliefs(net.d), 0);
  EXPECT_EQ(net.log_text(),
            "\n\nBeliefs (and expected utilities) for decision nodes:\n"
            "\n    Act:\n\tgo         0.5 (3)\n\tstay       0.5 (4)\n"
            "\n\nBeliefs (and expected utilities) for chance nodes:\n"
            "\n    Level:\n\tstate0   0.5 (10)\n\tstate1   0.5 (-2.5)\n"
            "\n\nExpected utilities for utility nodes:\n"
            "\n    Cost: -0.5\n"
            "\n    Gain: 12.5\n"
            "\nOverall expected utility: 12\n"
            "\n\nValues for real-valued function nodes:\n"
            "\n    Plus: 13.5\n"
            "\n    Bare: N/A\n"
            "\n    Twice: N/A\n");

  EXPECT_CODE(k_node_get_value(twice), -1.0, K_ERROR_NO_VALUE);

  // Once Level is known, so is the function of it.
  net.set(level, {0, 1}, {10, -2.5});
  net.select(level, 1);
  EXPECT_EQ(k_node_get_value(twice), 8.0);
  EXPECT_CODE(k_node_get_value(level), -1.0, K_ERROR_USAGE);
  net.open_log();
  ASSERT_EQ(k_node_report_beliefs(level), 0);
  ASSERT_EQ(k_node_report_beliefs(twice), 0);
  EXPECT_EQ(net.log_text(), "\n    Level --> 4 (-2.5)\n\n    Twice: 8\n");
  EXPECT_EQ(k_node_report_beliefs(gain), K_ERROR_USAGE);
}

TEST(BeliefReport, ContinuousNodes) {
  ReportNet net;
  k_node_t known = net.node("Known", K_CATEGORY_CHANCE, K_KIND_CONTINUOUS);
  k_node_t spread = net.node("Spread", K_CATEGORY_CHANCE, K_KIND_CONTINUOUS);
  k_node_t unknown = net.node("Unknown", K_CATEGORY_CHANCE, K_KIND_CONTINUOUS);
  net.compile();
  net.slot(known).mean = 2.5;
  net.slot(known).variance = 0.0;
  net.slot(spread).mean = -1;
  net.slot(spread).variance = 4;
  net.open_log();
  for (k_node_t n : {known, spread, unknown}) ASSERT_EQ(k_node_report_beliefs(n), 0);
  EXPECT_EQ(net.log_text(),
            "\n    Known --> 2.5\n"
            "\n    Spread:\n\tMean: -1   Variance: 4   SD: 2\n"
            "\n    Unknown: N/A\n");
}

TEST(BeliefReport, Errors) {
  ReportNet net;
  k_node_t a = net.labelled("A", {"x", "y"});
  // Not compiled: the domain report fails with or without a log; the node
  // report only with one.
  EXPECT_EQ(k_domain_report_beliefs(net.d), K_ERROR_NOT_COMPILED);
  EXPECT_EQ(k_node_report_beliefs(a), 0);
  net.open_log();
  EXPECT_EQ(k_domain_report_beliefs(net.d), K_ERROR_NOT_COMPILED);
  EXPECT_EQ(k_node_report_beliefs(a), K_ERROR_NOT_COMPILED);
  EXPECT_EQ(net.log_text(), "");

  // Compiled without a log: nothing is written, nothing fails.
  net.compile(K_EQUILIBRIUM_NONE);
  EXPECT_EQ(k_domain_report_beliefs(net.d), 0);
  net.open_log();
  EXPECT_EQ(k_domain_report_beliefs(net.d), K_ERROR_NO_EQUILIBRIUM);
  EXPECT_EQ(k_node_report_beliefs(a), K_ERROR_NO_EQUILIBRIUM);
  EXPECT_EQ(net.log_text(), "\n\nBeliefs for chance nodes:\n");

  EXPECT_EQ(k_domain_report_beliefs(nullptr), K_ERROR_USAGE);
  EXPECT_EQ(k_node_report_beliefs(nullptr), K_ERROR_USAGE);
  EXPECT_EQ(k_node_report_beliefs(reinterpret_cast<k_node_t>(net.d)), K_ERROR_USAGE);

  // A failed write is "io".
  net.tree().equilibrium = K_EQUILIBRIUM_SUM;
  net.set(a, {0.5, 0.5});
  if (std::FILE* full = std::fopen("/dev/full", "w")) {
    std::fclose(full);
    ASSERT_EQ(k_domain_set_log_file(net.d, "/dev/full", 0), 0);
    EXPECT_CODE(k_domain_report_beliefs(net.d), K_ERROR_IO, K_ERROR_IO);
    k_domain_set_log_file(net.d, nullptr, 0);
  }
}

}  // namespace
}  // namespace kelva
