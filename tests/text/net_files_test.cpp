// The NET reader on the real networks of the shared folder: which files it
// accepts and which it refuses (with the exact message and line), and, for
// each accepted file, that the numbers of nodes, states, links and table
// entries read equal those counted in the text by a scan of its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "common/shared_nets.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"
#include "table/table.h"
#include "text/text_files.h"

namespace kelva {
namespace {

namespace fs = std::filesystem;

// What the reader makes of each file: accepted with no messages unless
// listed here, with so many warnings or refused with these messages
// ("line:message", joined by "|").  The refused ones break the grammar: an
// unquoted attribute value, node names that are numbers, dotted names with a
// part that starts with a digit, too few levels of parentheses, `((7 8))`
// for a one-node table.  The warnings are of empty potential blocks of
// decision nodes and tiny negative entries in nested data.
const std::map<std::string, std::size_t> kWarnings = {
    {"id-example-unbbayes.net", 1}, {"id-featuretransition-unbbayes.net", 2},
    {"id-fisher-unbbayes.net", 4},  {"id-fisher2-unbbayes.net", 3},
    {"id-regular-unbbayes.net", 4}, {"pathfinder-unbbayes.net", 18}};
const std::string kDigitPart = "4:`.' must be followed by a letter or an `_'|4:name expected";
const std::map<std::string, std::string> kRefused = {
    {"agrum-writer-test.net", "3:value of a user-defined attribute must be a string"},
    {"bn20-tw5-tw10-unbbayes.net", "9:name expected"},
    {"wmc-asia3.net", "35:`(' expected"},
    {"wmc-example8.net", "47:number expected"},
    {"wmc-giso-net1.net", kDigitPart},
    {"wmc-giso-net2.net", kDigitPart},
    {"wmc-nivel-aknu50.net", kDigitPart}};

struct Counts {
  std::size_t nodes = 0;
  std::size_t states = 0;
  std::size_t links = 0;
  std::size_t entries = 0;  // numbers (or CG items) given as `data`
  double sum = 0.0;         // of the numbers given as `data`
};

// A scan of its own: comments go, a quoted string becomes the word `"`,
// punctuation stands alone, and anything else between blanks is a word.
std::vector<std::string> scan(const std::string& text) {
  std::vector<std::string> words;
  const char* const stops = " \t\r\n(){};=|,\"%";
  std::size_t i = 0;
  while (i < text.size()) {
    const char c = text[i];
    if (c == '%') {
      i = std::min(text.find('\n', i), text.size());
    } else if (c == '"') {
      for (++i; i < text.size() && text[i] != '"'; ++i) i += text[i] == '\\';
      words.emplace_back("\"");
      ++i;
    } else if (std::isspace(static_cast<unsigned char>(c))) {
      ++i;
    } else if (std::strchr(stops, c) != nullptr) {
      words.emplace_back(1, c);
      ++i;
    } else {
      const std::size_t end = std::min(text.find_first_of(stops, i), text.size());
      words.push_back(text.substr(i, end - i));
      i = end;
    }
  }
  return words;
}

// Counts what the text declares: node blocks and their state lists,
// potential heads (links: children times parents) and `data` values.
Counts count_in_text(const std::string& text) {
  const std::vector<std::string> w = scan(text);
  Counts counts;
  std::size_t i = 0;
  while (i < w.size()) {
    if (w[i] == "net") {
      while (w[i] != "}") ++i;
    } else if (w[i] == "potential") {
      std::size_t children = 0, parents = 0;
      std::size_t* side = &children;
      for (i += 2; w[i] != ")"; ++i) w[i] == "|" ? void(side = &parents) : void(++*side);
      counts.links += children * parents;
      const bool block = w[++i] == "{";
      for (; block && w[i] != "}"; ++i) {
        if (w[i] != "data") continue;
        std::size_t normals = 0, numbers = 0;
        double sum = 0.0;
        for (i += 2; w[i] != ";"; ++i) {
          char* end = nullptr;
          const double v = std::strtod(w[i].c_str(), &end);
          if (w[i] == "normal") ++normals;
          if (end != w[i].c_str() && *end == '\0') ++numbers, sum += v;
        }
        counts.entries += normals > 0 ? normals : numbers;
        if (normals == 0) counts.sum += sum;
      }
    } else {
      bool said_discrete = false, other = false, states = false;
      for (; w[i] != "{"; ++i) {
        said_discrete = said_discrete || w[i] == "discrete";
        other = other || w[i] == "continuous" || w[i] == "utility" || w[i] == "function";
      }
      for (++counts.nodes; w[i] != "}"; ++i) {
        if (w[i] != "states") continue;
        states = true;
        for (i += 3; w[i] != ")"; ++i) ++counts.states;
      }
      if ((said_discrete || !other) && !states) ++counts.states;
    }
    ++i;
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
    // A decision's table is its policy, uniform unless the file gives one.
    if (n->table() != nullptr && n->category() != K_CATEGORY_DECISION)
      add_table(*n->table(), n->is_continuous());
  }
  for (const auto& chain : domain.chain_components) add_table(*chain->table, false);
  return counts;
}

TEST(NetFiles, EachSharedNetworkIsAcceptedOrRefusedAsListed) {
  const std::vector<fs::path> files = test::shared_nets();
  if (files.empty()) GTEST_SKIP() << "no shared networks (set KELVA_SHARED_DIR)";

  for (const fs::path& file : files) {
    const std::string name = file.filename().string();
    SCOPED_TRACE(name);
    const auto warned = kWarnings.find(name);
    const auto refused = kRefused.find(name);

    std::string messages;
    k_domain_t d = k_net_parse_domain(file.c_str(), &test::collect, &messages);
    if (refused != kRefused.end()) {
      EXPECT_EQ(d, nullptr);
      EXPECT_EQ(k_error_code(), K_ERROR_PARSE);
      EXPECT_EQ(messages, refused->second);
      continue;
    }
    ASSERT_NE(d, nullptr) << messages;
    // Nothing but the warnings listed.
    const std::size_t warnings = warned == kWarnings.end() ? 0 : warned->second;
    std::size_t found = 0;
    for (auto at = messages.find(":warning: "); at != std::string::npos;
         at = messages.find(":warning: ", at + 1))
      ++found;
    EXPECT_EQ(found, warnings);
    EXPECT_EQ(messages.empty() ? 0 : 1 + std::count(messages.begin(), messages.end(), '|'),
              static_cast<long>(warnings));

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
