// Compilation through the C API: logs compared byte for byte with the
// expected ones in data/compile (the time stamp masked), user orders that
// must be refused, and the triangulated and compiled states after success,
// refusal, failed writes and failed allocations.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "common/fail_new.h"
#include "kelva/kelva.h"

namespace {

namespace fs = std::filesystem;

const fs::path kData = fs::path(KELVA_TEST_DATA_DIR) / "compile";

struct DomainDeleter {
  void operator()(k_domain_t d) const { k_domain_delete(d); }
};
using DomainPtr = std::unique_ptr<std::remove_pointer_t<k_domain_t>, DomainDeleter>;

DomainPtr load(const std::string& net) {
  DomainPtr d(k_net_parse_domain((kData / net).c_str(), nullptr, nullptr));
  EXPECT_NE(d, nullptr) << net;
  return d;
}

k_node_t node(k_domain_t d, const char* name) {
  k_node_t n = k_domain_get_node_by_name(d, name);
  EXPECT_NE(n, nullptr) << name;
  return n;
}

std::vector<k_node_t> nodes(k_domain_t d, const std::vector<const char*>& names) {
  std::vector<k_node_t> list;
  for (const char* name : names) list.push_back(node(d, name));
  list.push_back(nullptr);
  return list;
}

std::string read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// A scratch log file, removed afterwards.
class LogFile {
 public:
  explicit LogFile(const std::string& name)
      : path_(fs::temp_directory_path() /
              ("kelva-compile-" + std::to_string(::getpid()) + "-" + name)) {}
  ~LogFile() {
    std::error_code ignored;
    fs::remove(path_, ignored);
  }
  const char* c_str() const { return path_.c_str(); }
  // The text written so far, with ctime lines replaced by "<time>".
  std::string masked() const {
    static const std::regex stamp(R"(^[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]\d \d\d:\d\d:\d\d \d{4}$)",
                                  std::regex::multiline);
    return std::regex_replace(read_file(path_), stamp, "<time>");
  }

 private:
  fs::path path_;
};

// Runs `action` on the domain of `net` with a log, and returns the log.
std::string logged_run(const std::string& net, const std::function<void(k_domain_t)>& action) {
  DomainPtr d = load(net);
  LogFile log(net + ".log");
  EXPECT_EQ(k_domain_set_log_file(d.get(), log.c_str(), 0), 0);
  action(d.get());
  EXPECT_EQ(k_domain_set_log_file(d.get(), nullptr, 0), 0);
  return log.masked();
}

// True when `log` matches `expected`: its blocks, separated by "...\n"
// lines (any text), appear in order, the first at the log's start and the
// last at its end.
bool matches(const std::string& log, const std::string& expected) {
  std::vector<std::string> blocks{""};
  std::istringstream lines(expected);
  for (std::string line; std::getline(lines, line);) {
    if (line == "...") blocks.emplace_back();
    else blocks.back() += line + "\n";
  }
  if (blocks.size() == 1) return log == expected;
  if (!log.starts_with(blocks.front()) || !log.ends_with(blocks.back())) return false;
  std::size_t at = blocks.front().size();
  for (std::size_t i = 1; i + 1 < blocks.size(); ++i) {
    at = log.find(blocks[i], at);
    if (at == std::string::npos) return false;
    at += blocks[i].size();
  }
  return at + blocks.back().size() <= log.size();
}

struct GoldenCase {
  const char* expected;  // file in data/compile
  const char* net;
  std::function<void(k_domain_t)> action;
};

void compile(k_domain_t d) { EXPECT_CODE(k_domain_compile(d), 0, K_ERROR_NONE); }

// A compile that fails in its first propagation: the triangulation made by
// the same call is discarded again.
void failing_compile(k_domain_t d) {
  EXPECT_FAILS(k_domain_compile(d), K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  EXPECT_EQ(k_domain_is_triangulated(d), 0);
}

std::function<void(k_domain_t)> triangulate(k_triangulation_method_t method) {
  return [method](k_domain_t d) { EXPECT_EQ(k_domain_triangulate(d, method), 0); };
}

std::function<void(k_domain_t)> by_order(std::vector<const char*> names) {
  return [names](k_domain_t d) {
    std::vector<k_node_t> order = nodes(d, names);
    EXPECT_EQ(k_domain_triangulate_with_order(d, order.data()), 0);
  };
}

TEST(CompileLog, WholeLogsMatchTheExpectedOnes) {
  const GoldenCase cases[] = {
      {"chordal.log", "chordal.net", compile},
      {"fillin.log", "fillin.net", compile},
      {"fillin-clique-weight.log", "fillin.net", triangulate(K_TM_CLIQUE_WEIGHT)},
      {"fillin-order.log", "fillin.net", by_order({"F", "E", "D", "C", "B", "A"})},
      {"mixed.log", "mixed.net", compile},
      {"mixed-order.log", "mixed.net", by_order({"Y", "X", "A", "B", "C"})},
      {"chain.log", "chain.net", compile},
      {"utility.log", "utility.net", compile},
      {"potentials.log", "potentials.net", compile},
      {"zero.log", "zero.net", failing_compile},
      {"decision.log", "decision.net", compile},
  };
  for (const GoldenCase& c : cases) {
    const std::string log = logged_run(c.net, c.action);
    EXPECT_TRUE(matches(log, read_file(kData / c.expected))) << c.expected << ":\n" << log;
  }
  EXPECT_FALSE(matches("a\nb\n", "a\n"));
  EXPECT_FALSE(matches("a\nb\n", "...\na\n"));
  EXPECT_TRUE(matches("a\nb\nc\n", "a\n...\nc\n"));
}

TEST(CompileLog, InvalidOrdersAreRefusedWithoutAnyChange) {
  DomainPtr mixed = load("mixed.net");
  DomainPtr other = load("mixed.net");
  DomainPtr utility = load("utility.net");
  LogFile log("orders.log");
  ASSERT_EQ(k_domain_set_log_file(mixed.get(), log.c_str(), 0), 0);
  k_domain_t d = mixed.get();
  const struct {
    const char* what;
    k_domain_t domain;
    std::vector<k_node_t> order;
  } refused[] = {
      {"continuous after discrete", d, nodes(d, {"Y", "A", "X", "B", "C"})},
      {"a node omitted", d, nodes(d, {"Y", "X", "A", "B"})},
      {"a node twice", d, nodes(d, {"Y", "X", "A", "B", "B", "C"})},
      {"a node of another domain",
       d,
       {node(d, "Y"), node(d, "X"), node(d, "A"), node(d, "B"), node(other.get(), "C"), nullptr}},
      {"a utility node", utility.get(), nodes(utility.get(), {"U", "A", "B"})},
      {"a utility node last", utility.get(), nodes(utility.get(), {"A", "B", "U"})},
  };
  for (const auto& r : refused) {
    SCOPED_TRACE(r.what);
    std::vector<k_node_t> order = r.order;
    EXPECT_FAILS(k_domain_triangulate_with_order(r.domain, order.data()), K_ERROR_ENUMERATION);
    EXPECT_EQ(k_domain_is_triangulated(r.domain), 0);
  }
  EXPECT_FAILS(k_domain_triangulate_with_order(d, nullptr), K_ERROR_USAGE);
  EXPECT_NULL_WITH(k_domain_get_elimination_order(d), K_ERROR_USAGE);
  ASSERT_EQ(k_domain_set_log_file(d, nullptr, 0), 0);
  EXPECT_EQ(log.masked(), "");

  // The order given is the order kept; a second triangulation is refused.
  std::vector<k_node_t> order = nodes(d, {"X", "Y", "C", "B", "A"});
  ASSERT_EQ(k_domain_triangulate_with_order(d, order.data()), 0);
  k_node_t* kept = k_domain_get_elimination_order(d);
  ASSERT_NE(kept, nullptr);
  for (std::size_t i = 0; i < order.size(); ++i) EXPECT_EQ(kept[i], order[i]) << i;
  EXPECT_FAILS(k_domain_triangulate_with_order(d, order.data()), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_triangulate(d, K_TM_BEST_GREEDY), K_ERROR_USAGE);
}

TEST(CompileLog, RefusedCallsLeaveTheStateAsItWas) {
  DomainPtr d = load("fillin.net");
  for (int method : {14, 21}) {
    EXPECT_NE(k_domain_triangulate(d.get(), static_cast<k_triangulation_method_t>(method)), 0);
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE) << method;
  }
  EXPECT_EQ(k_domain_is_triangulated(d.get()), 0);
  EXPECT_FAILS(k_domain_compile(nullptr), K_ERROR_USAGE);
  EXPECT_EQ(k_domain_is_triangulated(nullptr), -1);

  ASSERT_EQ(k_domain_compile(d.get()), 0);
  EXPECT_EQ(k_domain_is_compiled(d.get()), 1);
  EXPECT_FAILS(k_domain_compile(d.get()), K_ERROR_USAGE);
  EXPECT_EQ(k_domain_is_compiled(d.get()), 1);
  EXPECT_NE(k_domain_get_first_junction_tree(d.get()), nullptr);

  // Uncompiling twice is harmless; a triangulated domain compiles without
  // a new triangulation and keeps its order.
  EXPECT_EQ(k_domain_uncompile(d.get()), 0);
  EXPECT_EQ(k_domain_uncompile(d.get()), 0);
  EXPECT_EQ(k_domain_is_triangulated(d.get()), 0);
  ASSERT_EQ(k_domain_triangulate(d.get(), K_TM_FILL_IN_SIZE), 0);
  EXPECT_EQ(k_domain_is_compiled(d.get()), 0);
  const k_node_t* order = k_domain_get_elimination_order(d.get());
  ASSERT_EQ(k_domain_compile(d.get()), 0);
  EXPECT_EQ(k_domain_get_elimination_order(d.get()), order);

  // A domain of utility nodes only has nothing to compile.
  DomainPtr only_utility(k_new_domain());
  ASSERT_NE(
      k_domain_new_node(only_utility.get(), K_CATEGORY_UTILITY, K_KIND_OTHER, K_SUBTYPE_LABEL),
      nullptr);
  EXPECT_FAILS(k_domain_compile(only_utility.get()), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_triangulate(only_utility.get(), K_TM_BEST_GREEDY), K_ERROR_USAGE);
}

TEST(CompileLog, StructuralEditsUncompile) {
  const std::vector<std::function<k_status_t(k_domain_t)>> edits = {
      [](k_domain_t d) { return k_node_add_parent(node(d, "F"), node(d, "A")); },
      [](k_domain_t d) { return k_node_remove_parent(node(d, "F"), node(d, "D")); },
      [](k_domain_t d) { return k_node_delete(node(d, "F")); },
      [](k_domain_t d) { return k_node_set_number_of_states(node(d, "A"), 3); },
      [](k_domain_t d) {
        return k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL) != nullptr
                   ? 0
                   : 1;
      },
  };
  for (std::size_t i = 0; i < edits.size(); ++i) {
    SCOPED_TRACE(i);
    DomainPtr d = load("fillin.net");
    ASSERT_EQ(k_domain_compile(d.get()), 0);
    ASSERT_EQ(edits[i](d.get()), 0);
    EXPECT_EQ(k_domain_is_compiled(d.get()), 0);
    EXPECT_EQ(k_domain_is_triangulated(d.get()), 0);
    EXPECT_EQ(k_domain_get_first_junction_tree(d.get()), nullptr);
  }
}

TEST(CompileLog, FailedLogWritesAreIoErrors) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  DomainPtr d = load("fillin.net");
  ASSERT_EQ(k_domain_set_log_file(d.get(), "/dev/full", 0), 0);
  EXPECT_FAILS(k_domain_triangulate(d.get(), K_TM_BEST_GREEDY), K_ERROR_IO);
  EXPECT_EQ(k_domain_is_triangulated(d.get()), 0);
  EXPECT_FAILS(k_domain_compile(d.get()), K_ERROR_IO);
  EXPECT_EQ(k_domain_is_triangulated(d.get()), 0);

  // Triangulated beforehand, the domain stays so when the compile stage
  // cannot write its log.
  ASSERT_EQ(k_domain_set_log_file(d.get(), nullptr, 0), 0);
  ASSERT_EQ(k_domain_triangulate(d.get(), K_TM_BEST_GREEDY), 0);
  ASSERT_EQ(k_domain_set_log_file(d.get(), "/dev/full", 0), 0);
  EXPECT_FAILS(k_domain_compile(d.get()), K_ERROR_IO);
  EXPECT_EQ(k_domain_is_triangulated(d.get()), 1);
  EXPECT_EQ(k_domain_is_compiled(d.get()), 0);
}

// Every allocation of a compile, made to fail in turn: a failure leaves
// the domain as triangulated as it was, and a later compile succeeds.
TEST(CompileLog, FailedAllocationsKeepTheTriangulationState) {
  for (bool triangulated_before : {false, true}) {
    for (const char* net : {"fillin.net", "mixed.net", "chain.net"}) {
      bool succeeded = false;
      for (long n = 0; !succeeded && n < 100000; ++n) {
        DomainPtr d = load(net);
        if (triangulated_before) {
          ASSERT_EQ(k_domain_triangulate(d.get(), K_TM_BEST_GREEDY), 0);
        }
        kelva::test::fail_allocation_after(n);
        const k_status_t status = k_domain_compile(d.get());
        const bool failed = kelva::test::allocations_left() == -1 && status != 0;
        kelva::test::fail_allocation_after(-1);
        succeeded = status == 0;
        if (!failed) continue;
        SCOPED_TRACE(std::string(net) + " allocation " + std::to_string(n));
        EXPECT_EQ(k_error_code(), K_ERROR_NO_MEMORY);
        EXPECT_EQ(k_domain_is_compiled(d.get()), 0);
        EXPECT_EQ(k_domain_is_triangulated(d.get()), triangulated_before ? 1 : 0);
        ASSERT_EQ(k_domain_compile(d.get()), 0);
      }
      EXPECT_TRUE(succeeded) << net;
    }
  }
}

}  // namespace
