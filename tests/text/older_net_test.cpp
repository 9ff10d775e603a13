// The older network format: a file read through k_net_parse_domain builds
// what the same network in NET text builds; every refusal with its message
// and line; node entries read into a domain that is put back on failure.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"
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
      "Wet \"the wet grass net\" 40 30 2   % header: width, height, scale\n"
      "Grass \"wet grass\" 2 \"dry\" \"wet\" 10 20\n"
      "  Rain 2 Sprinkler 2 (1 0  0.1 0.9  0.2 0.8  0.01 0.99)\n"
      "Rain \"rain\" 2 \"no\" \"yes\" (0.8 0.2)\n"
      "Sprinkler \"\" 2 -5 +5 Rain 2 (0.6 .4 0.99 1e-2)\n");
  std::string messages;
  k_domain_t d = k_net_parse_domain(older.path.c_str(), &test::collect, &messages);
  ASSERT_NE(d, nullptr) << messages;
  const k_domain_t expected = k_net_parse_domain_string(
      "net { node_size = (40 30); label = \"the wet grass net\"; }\n"
      "node Rain { label = \"rain\"; states = (\"no\" \"yes\"); }\n"
      "node Sprinkler { label = \"\"; position = (-10 10); states = (\"\" \"\"); }\n"
      "node Grass { label = \"wet grass\"; position = (20 40); states = (\"dry\" \"wet\"); }\n"
      "potential (Grass | Rain Sprinkler) { data = (1 0 0.1 0.9 0.2 0.8 0.01 0.99); }\n"
      "potential (Rain) { data = (0.8 0.2); }\n"
      "potential (Sprinkler | Rain) { data = (0.6 0.4 0.99 0.01); }\n",
      nullptr, nullptr);
  ASSERT_NE(expected, nullptr);
  EXPECT_EQ(net_text(d), net_text(expected));
  EXPECT_STREQ(k_domain_get_file_name(d), older.path.c_str());
  k_domain_delete(expected);
  k_domain_delete(d);
}

struct Refusal {
  std::string text;
  std::string messages;
  k_error_t code = K_ERROR_PARSE;
};

TEST(OlderNet, RefusalsNameTheirLine) {
  const std::string h = "W \"x\" 1 1 1\n";
  const std::vector<Refusal> refusals = {
      {"W \"x\" 1 -1 1\n", "1:node width and height, and scale factor must be nonnegative"},
      {"W \"x\" 1 1 +nan\n", "1:node width and height, and scale factor must be nonnegative"},
      {h + "\"A\" \"a\" 1 (1)\n", "2:node name (or end-of-file) expected"},
      {h + "A \"a\" 2 (0.5 0.5)\nA \"b\" 2 (1 0)\n",
       "3:node `A' has already been defined (at line 2)"},
      {h + "B \"b\" 2 A 3 (1 0 1 0 1 0)\nA \"a\" 2 (1 0)\n",
       "3:number of states (2) does not match previous usage (line 2)"},
      {h + "B \"b\" 2 A 3 (1 0 1 0 1 0)\nC \"c\" 1 A 2 (1 1)\n",
       "3:number of states (2) does not match previous usage (line 2)"},
      {h + "A \"a\" 2 (1 0)\n\nC \"c\" 1 A 3 (1 1 1)\n",
       "4:number of states (3) does not match previous usage (line 2)"},
      {h + "A \"a\" 2 5 5 \"p\" (1 0)\n", "2:parent node name or a left parenthesis expected"},
      {h + "A \"a\" 2 B 2 B 2 (1 0 1 0 1 0 1 0)\n", "2:node `B' appears twice as a parent of `A'"},
      {h + "A \"a\" 2 B 2 (1 0 1 0)\nB \"b\" 2 A 2 (1 0 1 0)\n",
       "3:adding the link A --> B creates a directed cycle"},
      {h + "A \"a\" 2 A 2 (1 0 1 0)\n", "2:adding the link A --> A creates a directed cycle"},
      {h + "B \"b\" 2 A 2 C 1\n(1 0 1 0)\n",
       "4:node `A' (used at line 2) has not been defined|"
       "4:node `C' (used at line 2) has not been defined"},
      {h + "A \"a\" 2 (1)\n", "2:the table of `A' needs 2 numbers"},
      {h + "A \"a\" 2 (1 0 1)\n", "2:the table of `A' needs 2 numbers"},
      {h + "A \"a\" 2 (-1 2)\n", "2:table entries must be finite and nonnegative"},
      {h + "A \"a\" 2 (1 +inf)\n", "2:table entries must be finite and nonnegative"},
      {h + "A \"a\" 2 (1 x)\n", "2:number or `)' expected"},
      {h + "A \"a\" 0 ()\n", "2:number of states must be a whole number from 1 to 65535"},
      {h + "A \"a\" 1.5 (1 1)\n", "2:number of states must be a whole number from 1 to 65535"},
      {h + "A \"a\" 65536 ()\n", "2:number of states must be a whole number from 1 to 65535"},
      {h + "A \"a\" x (1)\n", "2:number of states expected"},
      {h + "A \"a\" 1 B x (1)\n", "2:number of states expected"},
      {h + "A 2 (1 0)\n", "2:label string expected"},
      {h + "A \"a\" 2 \"x\" (1 0)\n", "2:1 state labels given for 2 states"},
      {h + "A \"a\" 2 1 x (1 0)\n", "2:y coordinate expected"},
      {"W \"x\" 1 1 1e300\nA \"a\" 2 1 1 (1 0)\n", "2:position out of range"},
      {h + "A \"a\" 2 (1 0) {\n", "2:unexpected character: `{'"},
      {h + "A \"a\" 1 (1) \"b\n", "2:string did not end"},
      {h + "a/b \"a\" 1 (1)\n",
       std::string("2:API error: ") + k_error_description(K_ERROR_INVALID_NAME),
       K_ERROR_INVALID_NAME},
  };
  for (const Refusal& r : refusals) {
    SCOPED_TRACE(r.text);
    TempFile file(r.text);
    std::string messages;
    EXPECT_EQ(k_net_parse_domain(file.path.c_str(), &test::collect, &messages), nullptr);
    EXPECT_EQ(k_error_code(), r.code);
    EXPECT_EQ(messages, r.messages);
  }
}

TEST(OlderNet, NodeEntriesJoinADomainOrLeaveItAsItWas) {
  k_domain_t d = k_net_parse_domain_string(
      "node P { states = (\"p0\" \"p1\"); } continuous node X { }", nullptr, nullptr);
  ASSERT_NE(d, nullptr);
  Domain& domain = *reinterpret_cast<Domain*>(d);
  const std::uint64_t counter = domain.counter();
  const std::string before = net_text(d);
  const std::vector<Refusal> refusals = {
      {"P \"p\" 2 (1 0)\n", "1:node `P' is already in the domain"},
      {"A \"a\" 2 P 3 (1 0 1 0 1 0)\n",
       "1:node `P' of the domain is not a discrete node with 3 states"},
      {"A \"a\" 2 X 1 (1 0)\n", "1:node `X' of the domain is not a discrete node with 1 states"},
      {"A \"a\" 2 (1 0)\nB \"b\" 2 A 2 P 2 Q 2\n(1 0 1 0 1 0 1 0 1 0 1 0 1 0 1 0)\n",
       "4:node `Q' (used at line 2) has not been defined"},
      {"W \"x\" 1 1 1\n", "2:parent node name or a left parenthesis expected"},
  };
  for (const Refusal& r : refusals) {
    SCOPED_TRACE(r.text);
    TempFile file(r.text);
    std::string messages;
    EXPECT_NE(k_domain_parse_nodes(d, file.path.c_str(), &test::collect, &messages), 0);
    EXPECT_EQ(k_error_code(), K_ERROR_PARSE);
    EXPECT_EQ(messages, r.messages);
    EXPECT_EQ(net_text(d), before);
    EXPECT_EQ(domain.counter(), counter);
  }
  TempFile good("A \"a\" 2 P 2 (1 0 0 1)\n");
  ASSERT_EQ(k_domain_parse_nodes(d, good.path.c_str(), nullptr, nullptr), 0);
  const k_node_t a = k_domain_get_node_by_name(d, "A");
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(k_node_get_parents(a)[0], k_domain_get_node_by_name(d, "P"));
  EXPECT_NE(k_domain_parse_nodes(d, "/nonexistent/x", nullptr, nullptr), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_IO);
  EXPECT_NE(k_domain_parse_nodes(d, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  k_domain_delete(d);
}

}  // namespace
}  // namespace kelva
