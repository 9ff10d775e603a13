// The older network format: a file builds what the same network in NET text
// builds; every refusal with its message and line; node entries read into a
// domain that is put back on failure.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "kelva/kelva.h"
#include "text/text_files.h"

namespace kelva {
namespace {

using test::TempFile;

std::string net_text(k_domain_t d) {
  char* text = k_domain_to_net_string(d);
  std::string s = text != nullptr ? text : "";
  std::free(text);
  return s;
}

TEST(OlderNet, ReadsWhatTheSameNetworkInNetTextReads) {
  TempFile older(
      "Wet \"the net\" 40 30 2  % width, height, scale\n"
      "Grass \"\" 2 \"dry\" \"wet\" -5 +10 Rain 2 (1 0 .2 8e-1)\n"
      "Rain \"rain\" 2 (0.8 0.2)\n");
  const k_domain_t d = k_net_parse_domain(older.path.c_str(), nullptr, nullptr);
  const k_domain_t expected = k_net_parse_domain_string(
      "net { node_size = (40 30); label = \"the net\"; }\n"
      "node Rain { label = \"rain\"; states = (\"\" \"\"); }\n"
      "node Grass { label = \"\"; position = (-10 20); states = (\"dry\" \"wet\"); }\n"
      "potential (Grass | Rain) { data = (1 0 0.2 0.8); } potential (Rain) { data = (0.8 0.2); }",
      nullptr, nullptr);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(net_text(d), net_text(expected));
  k_domain_delete(expected);
  k_domain_delete(d);
}

// Parses each text (`parse` says whether it succeeded) and expects "parse"
// with the messages as "line:message" joined by "|".
template <class Parse>
void expect_refusals(const std::vector<std::pair<std::string, std::string>>& refusals,
                     Parse parse) {
  for (const auto& [text, expected] : refusals) {
    SCOPED_TRACE(text);
    TempFile file(text);
    std::string messages;
    EXPECT_FALSE(parse(file.path.c_str(), &messages));
    EXPECT_EQ(k_error_code(), K_ERROR_PARSE);
    EXPECT_EQ(messages, expected);
  }
}

TEST(OlderNet, RefusalsNameTheirLine) {
  const std::string h = "W \"\" 1 1 1\n";
  // clang-format off
  expect_refusals({
      {"W \"\" 1 -1 1\n", "1:node width and height, and scale factor must be nonnegative"},
      {h + "\"A\"\n", "2:node name (or end-of-file) expected"},
      {h + "A \"\" 1 (1)\nA \"\" 1 (1)\n", "3:node `A' has already been defined (at line 2)"},
      {h + "B \"\" 1 A 3 (1 1 1)\nA \"\" 2 (1 0)\n", "3:number of states (2) does not match previous usage (line 2)"},
      {h + "A \"\" 2 (1 0)\n\nC \"\" 1 A 3 (1 1 1)\n", "4:number of states (3) does not match previous usage (line 2)"},
      {h + "A \"\" 2 5 5 \"p\" (1 0)\n", "2:parent node name or a left parenthesis expected"},
      {h + "A \"\" 1 B 2 B 2 (1 1 1 1)\n", "2:node `B' appears twice as a parent of `A'"},
      {h + "A \"\" 1 B 1 (1)\nB \"\" 1 A 1 (1)\n", "3:adding the link A --> B creates a directed cycle"},
      {h + "A \"\" 1 A 1 (1)\n", "2:adding the link A --> A creates a directed cycle"},
      {h + "B \"\" 1 A 2 C 1\n(1 1)\n", "4:node `A' (used at line 2) has not been defined|4:node `C' (used at line 2) has not been defined"},
      {h + "A \"\" 2 (1 0 1)\n", "2:the table of `A' needs 2 numbers"},
      {h + "A \"\" 2 (1 +inf)\n", "2:table entries must be finite and nonnegative"},
      {h + "A \"\" 2 (1 x)\n", "2:number or `)' expected"},
      {h + "A \"\" 1.5 (1 1)\n", "2:number of states must be a whole number from 1 to 65535"},
      {h + "A \"\" 1 B x (1)\n", "2:number of states expected"},
      {h + "A 2 (1 0)\n", "2:label string expected"},
      {h + "A \"\" 2 \"x\" (1 0)\n", "2:1 state labels given for 2 states"},
      {h + "A \"\" 2 1 x (1 0)\n", "2:y coordinate expected"},
      {"W \"\" 1 1 1e300\nA \"\" 2 1 1 (1 0)\n", "2:position out of range"},
      {h + "A \"\" 2 (1 0) {\n", "2:unexpected character: `{'"},
  }, [](const char* path, std::string* messages) {
    return k_net_parse_domain(path, &test::collect, messages) != nullptr;
  });
  // clang-format on
  TempFile bad_name(h + "a/b \"\" 1 (1)\n");
  EXPECT_EQ(k_net_parse_domain(bad_name.path.c_str(), nullptr, nullptr), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_INVALID_NAME);
}

TEST(OlderNet, NodeEntriesJoinADomainOrLeaveItAsItWas) {
  k_domain_t d = k_net_parse_domain_string(
      "node P { states = (\"p0\" \"p1\"); } continuous node X { }", nullptr, nullptr);
  const std::string before = net_text(d);
  // clang-format off
  expect_refusals({
      {"P \"\" 2 (1 0)\n", "1:node `P' is already in the domain"},
      {"A \"\" 1 X 1 (1)\n", "1:node `X' of the domain is not a discrete node with 1 states"},
      {"A \"\" 2 (1 0)\nB \"\" 1 A 2 P 2 Q 1\n(1 1 1 1)\n", "4:node `Q' (used at line 2) has not been defined"},
  }, [&](const char* path, std::string* messages) {
    const bool ok = k_domain_parse_nodes(d, path, &test::collect, messages) == 0;
    const k_error_t code = k_error_code();
    EXPECT_EQ(net_text(d), before);
    k_error_set(code);
    return ok;
  });
  // clang-format on
  TempFile good("A \"\" 2 P 2 (1 0 0 1)\n");
  ASSERT_EQ(k_domain_parse_nodes(d, good.path.c_str(), nullptr, nullptr), 0);
  EXPECT_EQ(k_node_get_parents(k_domain_get_node_by_name(d, "A"))[0],
            k_domain_get_node_by_name(d, "P"));
  EXPECT_NE(k_domain_parse_nodes(d, "/nonexistent/x", nullptr, nullptr), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_IO);
  EXPECT_NE(k_domain_parse_nodes(d, nullptr, nullptr, nullptr), 0);
  k_domain_delete(d);
}

}  // namespace
}  // namespace kelva
