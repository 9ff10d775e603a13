// The NET reader on the real networks of the shared folder: which files it
// accepts and which it refuses (with the exact message and line), and, for
// each accepted file, that the numbers of nodes, states, links and table
// entries read equal those counted in the text by a scan of its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "kelva/kelva.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"

namespace kelva {
namespace {

namespace fs = std::filesystem;

struct Expected {
  k_error_t code;        // none: accepted
  std::string messages;  // refused: every message, "line:message", joined by "|"
  int warnings;          // accepted: the number of warnings
};

// What the reader makes of each file.  The refused ones break the grammar:
// unquoted attribute values, node names that are numbers, dotted names with
// a part that starts with a digit, too few levels of parentheses, `((7 8))`
// for a one-node table.
const std::map<std::string, Expected>& expectations() {
  static const std::map<std::string, Expected> table = {
      {"admission-binary-samiam.net", {K_ERROR_NONE, "", 0}},
      {"admission-samiam.net", {K_ERROR_NONE, "", 0}},
      {"agrum-test3.net", {K_ERROR_NONE, "", 0}},
      {"agrum-writer-test.net",
       {K_ERROR_PARSE, "3:value of a user-defined attribute must be a string", 0}},
      {"alarm-samiam.net", {K_ERROR_NONE, "", 0}},
      {"alarm.net", {K_ERROR_NONE, "", 0}},
      {"andes.net", {K_ERROR_NONE, "", 0}},
      {"asia-pgmpy.net", {K_ERROR_NONE, "", 0}},
      {"asia-unbbayes.net", {K_ERROR_NONE, "", 0}},
      {"asia.net", {K_ERROR_NONE, "", 0}},
      {"barley.net", {K_ERROR_NONE, "", 0}},
      {"bn191-tw20-unbbayes.net", {K_ERROR_NONE, "", 0}},
      {"bn20-tw5-tw10-unbbayes.net", {K_ERROR_PARSE, "9:name expected", 0}},
      {"cancer.net", {K_ERROR_NONE, "", 0}},
      {"child.net", {K_ERROR_NONE, "", 0}},
      {"classifier1-samiam.net", {K_ERROR_NONE, "", 0}},
      {"diabetes.net", {K_ERROR_NONE, "", 0}},
      {"earthquake.net", {K_ERROR_NONE, "", 0}},
      {"hailfinder.net", {K_ERROR_NONE, "", 0}},
      {"hepar2-unbbayes-mebn.net", {K_ERROR_NONE, "", 0}},
      {"hepar2.net", {K_ERROR_NONE, "", 0}},
      // Decision nodes with empty attribute blocks.
      {"id-example-unbbayes.net", {K_ERROR_NONE, "", 1}},
      {"id-featuretransition-unbbayes.net", {K_ERROR_NONE, "", 2}},
      {"id-fisher-unbbayes.net", {K_ERROR_NONE, "", 4}},
      {"id-fisher2-unbbayes.net", {K_ERROR_NONE, "", 3}},
      {"id-regular-unbbayes.net", {K_ERROR_NONE, "", 4}},
      {"insurance.net", {K_ERROR_NONE, "", 0}},
      {"ksl-deal.net", {K_ERROR_NONE, "", 0}},
      {"learned48-unbbayes.net", {K_ERROR_NONE, "", 0}},
      {"link.net", {K_ERROR_NONE, "", 0}},
      {"mildew.net", {K_ERROR_NONE, "", 0}},
      {"munin1.net", {K_ERROR_NONE, "", 0}},
      {"munin2.net", {K_ERROR_NONE, "", 0}},
      {"munin3.net", {K_ERROR_NONE, "", 0}},
      // Tiny negative entries in nested data are warnings.
      {"pathfinder-unbbayes.net", {K_ERROR_NONE, "", 18}},
      {"pathfinder.net", {K_ERROR_NONE, "", 0}},
      {"pigs.net", {K_ERROR_NONE, "", 0}},
      {"rats-deal.net", {K_ERROR_NONE, "", 0}},
      {"sachs.net", {K_ERROR_NONE, "", 0}},
      {"survey.net", {K_ERROR_NONE, "", 0}},
      {"toynetwork-unbbayes-test.net", {K_ERROR_NONE, "", 0}},
      {"water.net", {K_ERROR_NONE, "", 0}},
      {"win95pts-crlf.net", {K_ERROR_NONE, "", 0}},
      {"win95pts.net", {K_ERROR_NONE, "", 0}},
      {"wmc-asia3.net", {K_ERROR_PARSE, "35:`(' expected", 0}},
      {"wmc-carpo.net", {K_ERROR_NONE, "", 0}},
      {"wmc-example-determinism.net", {K_ERROR_NONE, "", 0}},
      {"wmc-example8.net", {K_ERROR_PARSE, "47:number expected", 0}},
      {"wmc-giso-net1.net",
       {K_ERROR_PARSE, "4:`.' must be followed by a letter or an `_'|4:name expected", 0}},
      {"wmc-giso-net2.net",
       {K_ERROR_PARSE, "4:`.' must be followed by a letter or an `_'|4:name expected", 0}},
      {"wmc-nivel-aknu50.net",
       {K_ERROR_PARSE, "4:`.' must be followed by a letter or an `_'|4:name expected", 0}},
      {"wmc-test3.net", {K_ERROR_NONE, "", 0}},
  };
  return table;
}

struct Counts {
  std::size_t nodes = 0;
  std::size_t states = 0;
  std::size_t links = 0;
  std::size_t entries = 0;  // numbers (or CG items) given as `data`
  double sum = 0.0;         // of the numbers given as `data`
};

// A scan of NET text of its own: quoted strings, single punctuation
// characters, and words (everything else between blanks); comments dropped.
struct Token {
  bool string;
  std::string text;
};

std::vector<Token> scan(const std::string& text) {
  std::vector<Token> tokens;
  const std::string punctuation = "(){};=|,";
  for (std::size_t i = 0; i < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (std::isspace(c)) {
      ++i;
    } else if (c == '%') {
      while (i < text.size() && text[i] != '\n') ++i;
    } else if (c == '"') {
      std::size_t j = i + 1;
      while (j < text.size() && text[j] != '"') j += text[j] == '\\' ? 2 : 1;
      tokens.push_back({true, text.substr(i + 1, j - i - 1)});
      i = j + 1;
    } else if (punctuation.find(static_cast<char>(c)) != std::string::npos) {
      tokens.push_back({false, std::string(1, static_cast<char>(c))});
      ++i;
    } else {
      std::size_t j = i;
      while (j < text.size() && !std::isspace(static_cast<unsigned char>(text[j])) &&
             punctuation.find(text[j]) == std::string::npos && text[j] != '"' && text[j] != '%')
        ++j;
      tokens.push_back({false, text.substr(i, j - i)});
      i = j;
    }
  }
  return tokens;
}

// Counts what the text declares: node blocks and their state lists,
// potential heads (links: children times parents) and `data` values.
Counts count_in_text(const std::string& text) {
  const std::vector<Token> t = scan(text);
  Counts counts;
  auto is = [&](std::size_t i, const char* s) { return i < t.size() && !t[i].string && t[i].text == s; };
  std::size_t i = 0;
  while (i < t.size()) {
    if (is(i, "potential")) {
      std::size_t children = 0, parents = 0;
      bool bar = false;
      for (i += 2; !is(i, ")"); ++i) {
        if (is(i, "|")) bar = true;
        else (bar ? parents : children)++;
      }
      counts.links += children * parents;
      ++i;
      if (!is(i, "{")) continue;
      for (; !is(i, "}"); ++i) {
        if (!is(i, "data")) continue;
        std::size_t normals = 0, numbers = 0;
        double sum = 0.0;
        for (i += 2; !is(i, ";"); ++i) {
          if (is(i, "normal")) ++normals;
          char* end = nullptr;
          const double v = std::strtod(t[i].text.c_str(), &end);
          if (!t[i].string && !t[i].text.empty() && *end == '\0') {
            ++numbers;
            sum += v;
          }
        }
        counts.entries += normals > 0 ? normals : numbers;
        if (normals == 0) counts.sum += sum;
      }
      ++i;
    } else if (is(i, "net")) {
      while (!is(i, "}")) ++i;
      ++i;
    } else {
      bool discrete = true;
      bool function = false;
      for (; !is(i, "{"); ++i) {
        if (is(i, "continuous") || is(i, "utility")) discrete = false;
        if (is(i, "function")) function = true;
        if (is(i, "discrete")) function = false;
      }
      if (function) discrete = false;
      ++counts.nodes;
      bool states = false;
      for (; !is(i, "}"); ++i) {
        if (!is(i, "states")) continue;
        states = true;
        for (i += 3; !is(i, ")"); ++i) ++counts.states;
      }
      if (discrete && !states) ++counts.states;
      ++i;
    }
  }
  return counts;
}

Counts count_in_domain(const Domain& domain) {
  Counts counts;
  auto add_table = [&](const Table& table, bool cg) {
    if (!table.has_data()) return;
    counts.entries += table.size();
    if (cg) return;
    for (std::uint64_t k = 0; k < table.size(); ++k) counts.sum += table.data()[k];
  };
  for (const Node* n = domain.first_node(); n != nullptr; n = n->next) {
    ++counts.nodes;
    if (n->is_discrete()) counts.states += n->state_count();
    counts.links += n->parents().size();
    if (n->table() != nullptr) add_table(*n->table(), n->is_continuous());
  }
  for (const auto& chain : domain.chain_components) add_table(*chain->table, false);
  return counts;
}

fs::path shared_nets() {
  const char* dir = std::getenv("KELVA_SHARED_DIR");
  return fs::path(dir != nullptr ? dir : KELVA_DEFAULT_SHARED_DIR) / "nets";
}

struct Messages {
  std::vector<std::string> all;
  static void handler(std::uint64_t line, const char* message, void* data) {
    static_cast<Messages*>(data)->all.push_back(std::to_string(line) + ":" + message);
  }
};

TEST(NetFiles, EachSharedNetworkIsAcceptedOrRefusedAsListed) {
  const fs::path dir = shared_nets();
  if (!fs::is_directory(dir))
    GTEST_SKIP() << "no shared networks at " << dir << " (set KELVA_SHARED_DIR)";
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(dir))
    if (entry.path().extension() == ".net") files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  ASSERT_FALSE(files.empty());

  for (const fs::path& file : files) {
    const std::string name = file.filename().string();
    SCOPED_TRACE(name);
    const auto it = expectations().find(name);
    ASSERT_NE(it, expectations().end()) << "not listed in the expectations";
    const Expected& expected = it->second;

    Messages messages;
    k_domain_t d = k_net_parse_domain(file.c_str(), &Messages::handler, &messages);
    EXPECT_EQ(k_error_code(), expected.code);
    if (expected.code != K_ERROR_NONE) {
      EXPECT_EQ(d, nullptr);
      std::string joined;
      for (const std::string& m : messages.all) joined += (joined.empty() ? "" : "|") + m;
      EXPECT_EQ(joined, expected.messages);
      continue;
    }
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(static_cast<int>(messages.all.size()), expected.warnings);
    for (const std::string& m : messages.all) EXPECT_NE(m.find(":warning: "), std::string::npos) << m;

    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    const Counts want = count_in_text(text.str());
    const Counts got = count_in_domain(*reinterpret_cast<Domain*>(d));
    EXPECT_EQ(got.nodes, want.nodes);
    EXPECT_EQ(got.states, want.states);
    EXPECT_EQ(got.links, want.links);
    EXPECT_EQ(got.entries, want.entries);
    EXPECT_NEAR(got.sum, want.sum, 1e-9 * std::max(1.0, std::fabs(want.sum)));
    EXPECT_STREQ(k_domain_get_file_name(d), file.c_str());
    k_domain_delete(d);
  }
}

}  // namespace
}  // namespace kelva
