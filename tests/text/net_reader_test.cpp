// The NET reader of domains: tables of bad texts with their exact code,
// messages and lines; what good texts build (nodes, states, links, tables in
// the child's own order, CG items, chain components, models); files and the
// older format.
#include "text/net_reader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "expr/expression.h"
#include "expr/model.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"
#include "table/table.h"
#include "text/text_files.h"

namespace kelva {
namespace {

using test::collect;
using test::TempFile;

// One parse: the domain (deleted at the end), the error code and the
// handler's messages as "position:message" joined by "|".
struct Parsed {
  k_domain_t d = nullptr;
  k_error_t code = K_ERROR_NONE;
  std::string messages;

  // From a file (positions are lines) or, with `string`, from memory.
  explicit Parsed(const std::string& text, bool string = false) {
    if (string) {
      d = k_net_parse_domain_string(text.c_str(), &collect, &messages);
    } else {
      TempFile file(text);
      d = k_net_parse_domain(file.path.c_str(), &collect, &messages);
    }
    code = k_error_code();
  }
  Parsed(const Parsed&) = delete;
  ~Parsed() { k_domain_delete(d); }

  Domain& domain() const { return *reinterpret_cast<Domain*>(d); }
  Node& node(const char* name) const { return *domain().find(name); }
};

// Declarations on one line: a network with CG and function nodes, and an
// influence diagram (the two cannot share a domain).
const std::string kNet =
    "node A { states = (\"a0\" \"a1\"); } node B { states = (\"b0\" \"b1\" \"b2\"); } "
    "node C { states = (\"c0\" \"c1\"); } continuous node X { } continuous node Y { } "
    "function R { } discrete function F { states = (\"f0\" \"f1\"); }\n";
const std::string kId =
    "node A { states = (\"a0\" \"a1\"); } node B { states = (\"b0\" \"b1\"); } "
    "decision D { states = (\"d0\" \"d1\"); } utility U { } function R { }\n";

struct Case {
  std::string text;
  k_error_t code;
  std::string messages;
};

void check_cases(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    Parsed p(c.text);
    EXPECT_EQ(p.code, c.code) << c.text;
    EXPECT_EQ(p.messages, c.messages) << c.text;
    EXPECT_EQ(p.d == nullptr, c.code != K_ERROR_NONE) << c.text;
  }
}

constexpr k_error_t kParse = K_ERROR_PARSE;

std::string api_error(k_error_t code) {
  return std::string("API error: ") + k_error_description(code);
}

TEST(NetReader, BlockErrors) {
  check_cases({
      {"net\n{\n}\n{", kParse, "4:unexpected token"},
      {"a.b", kParse, "1:unexpected token"},
      {"class C { }", kParse, "1:unknown object type: class"},
      {"continuous decision D { }", kParse, "1:keyword `node' expected"},
      {"discrete utility U { }", kParse, "1:keyword `node', `decision', or `function' expected"},
      {"net { foo \"x\"; }", kParse, "1:`=' expected"},
      {"net { foo = \"x\" }", kParse, "1:`;' expected"},
      {"net { foo = 3; }", kParse, "1:value of a user-defined attribute must be a string"},
      {"net { 3 }", kParse, "1:`}' or an attribute name expected"},
      {"net { @ }", kParse, "1:unexpected character: `@'|1:`}' or an attribute name expected"},
      // Counted errors are all reported; the parse fails at the end.
      {"net\n{ node_size = (-1 -2); }", kParse,
       "2:<number> must be nonnegative|2:<number> must be nonnegative"},
      {"node { }", kParse, "1:name expected"},
      {"node A { }\nnode A { }", kParse, "2:a node with name `A' already exists"},
      {"node A\n{ label = 3; }", kParse, "2:string expected"},
      {"continuous node X { states = (\"a\"); }", kParse, "1:only discrete nodes can have states"},
      {"node A { states = (\"a\"); states = (\"a\"); }", kParse,
       "1:states specified twice (or more)"},
      {"node A { states = (\"a\" b); }", kParse, "1:state or `)' expected"},
      {"node A { states = (); }", kParse, "1:empty list of states"},
      {"utility U { subtype = number; }\nnode A { subtype = boolean; }", kParse,
       "1:subtype designations only make sense for discrete nodes|"
       "2:a boolean node must have exactly two states"},
      {"node A { subtype = float; }", kParse,
       "1:`label', `boolean', `number', or `interval' expected"},
      {"continuous node X { state_values = (1); }", kParse,
       "1:only discrete nodes can have state values"},
      {"node A { states = (\"a\"); state_values = (1); }", kParse,
       "1:only numeric nodes can have state values"},
      {"node A { subtype = number; state_values = (1); }", kParse,
       "1:states must be specified before state values"},
      {"node A { states = (\"a\"); subtype = number; state_values = (1); state_values = (1); }",
       kParse, "1:state values have already been specified"},
      {"node A { states = (\"a\"); subtype = number; state_values = (1 x); }", kParse,
       "1:state value expected"},
      {"node A { states = (\"a\" \"b\"); subtype = interval; state_values = (1 2); }\n"
       "node B { states = (\"a\"); subtype = number; state_values = (); }",
       kParse, "1:incorrect number of state values|2:incorrect number of state values"},
      {"continuous node X { }\ndecision D { }", K_ERROR_CG_LIMIDS_NOT_SUPPORTED,
       "2:" + api_error(K_ERROR_CG_LIMIDS_NOT_SUPPORTED)},
  });
}

TEST(NetReader, PotentialChecksInOrder) {
  const std::string n = kNet;
  const std::string id = kId;
  check_cases({
      // A node must be declared before a potential names it.
      {"potential (Q) { }\nnode Q { }", kParse, "1:node `Q' not found"},
      {n + "potential ( | A)", kParse, "2:empty child node list"},
      {n + "potential (A ;", kParse, "2:`|', `)', or a node name expected"},
      {n + "potential (A | B", kParse, "2:`)' or a node name expected"},
      {n + "potential (A | B) data", kParse, "2:`{' expected"},
      {n + "potential (A B | R)", kParse,
       "2:real-valued function nodes are not allowed in chain potentials"},
      {n + "potential (A X)", kParse,
       "2:undirected links can only be specified for discrete chance nodes"},
      {id + "potential (A D)", kParse,
       "2:undirected links can only be specified for discrete chance nodes"},
      {id + "potential (A | U U)", kParse, "2:utility node `U' specified as parent"},
      {n + "potential (A | A)", kParse, "2:node `A' appears twice in potential specification"},
      {n + "potential (A | X X)", kParse, "2:node `X' appears twice in potential specification"},
      {n + "potential (A | X)", kParse,
       "2:continuous node `X' is not allowed as parent of discrete node `A'"},
      {n + "potential (Y | X A)", kParse, "2:discrete parents must appear first"},
      {n + "potential (Y | R X)", kParse, "2:real-valued function parents must appear last"},
      {n + "potential (A | B C);\npotential (A | C)", kParse, "3:links specified twice for A"},
      {n + "potential (A | B C);\npotential (A)", kParse,
       "3:the directed link B --> A should have been included in the potential for A|"
       "3:the directed link C --> A should have been included in the potential for A|"
       "3:potential for node A must include all parents"},
      {n + "potential (A | B);\npotential (B | A)", kParse,
       "3:adding the link A --> B creates a directed cycle"},
      {n + "potential (A | C);\npotential (B C | A)", kParse,
       "3:adding chain potential creates a directed cycle"},
      {n + "potential (A B);\npotential (B)", kParse, "3:potential specified twice for node `B'"},
  });
}

TEST(NetReader, PotentialAttributeErrors) {
  const std::string n = kNet + "potential ";
  const std::string id = kId + "potential ";
  check_cases({
      {n + "(A) { data = (1 0); data = (1 0); }", kParse, "2:`data' attribute specified twice"},
      {n + "(R | A) { data = (1 2); }", kParse,
       "2:`data' attribute is not allowed for real-valued function nodes"},
      {n + "(A | B) { model_nodes = (B); model_nodes = (B); }", kParse,
       "2:`model_nodes' attribute specified twice"},
      {n + "(A C) { model_nodes = (); }", kParse,
       "2:models cannot be specified for chain graph potentials"},
      {n + "(X | A) { model_nodes = (A); }", kParse, "2:models cannot be specified for CG nodes"},
      {n + "(A | B) { model_nodes = (C); }", kParse, "2:node `C' is not a parent of node `A'"},
      {n + "(A | B) { model_nodes = (B B); }", kParse,
       "2:node `B' appears twice in `model_nodes' attribute"},
      {n + "(R | X) { model_nodes = (X); }", kParse,
       "2:the `model_nodes' attribute must contain discrete nodes only"},
      {n + "(A | B) { model_nodes = (B; }", kParse, "2:node name or `)' expected"},
      {n + "(A) { samples_per_interval = 3; }", kParse,
       "2:`model_nodes' attribute has not been specified"},
      {n + "(A) { model_nodes = (); model_data = (1); model_data = (1); }", kParse,
       "2:`model_data' attribute specified twice"},
      {n + "(A | B) { model_nodes = (B); model_data = (1, 2); }", kParse, "2:`,' expected"},
      {n + "(A | B) { model_nodes = (B); model_data = (1, 2, 3, 4); }", kParse, "2:`)' expected"},
      {n + "(A) { model_nodes = (); samples_per_interval = 2.5; }", kParse,
       "2:`samples_per_interval' must be a positive integer"},
      {id + "(D | A) { experience = (1 1); }", kParse,
       "2:experience data can only be specified for chance nodes"},
      {n + "(A C) { experience = 1; }", kParse,
       "2:experience data cannot be specified for chain graph potentials"},
      {n + "(A) { experience = 1; experience = 1; }", kParse,
       "2:`experience' attribute specified twice"},
      {n + "(X) { fading = 1; }", kParse,
       "2:fading data can only be specified for discrete chance nodes"},
      {n + "(A) { fading = 1; fading = 1; }", kParse, "2:`fading' attribute specified twice"},
      {n + "(A) { colour = 1; }", kParse, "2:unknown field: `colour'"},
  });
}

TEST(NetReader, TableValueErrors) {
  const std::string n = kNet + "potential ";
  check_cases({
      // Flat: a negative probability is a counted error; nested: a warning.
      {n + "(A) { data = (0.5 -0.5); }\npotential (B) { data = (-1 0 0); }", kParse,
       "2:<number> must be nonnegative|3:<number> must be nonnegative"},
      {n + "(A | C) {\n data = ((0.5 -0.5)\n (1 0)); }", K_ERROR_NONE,
       "3:warning: negative value in probability potential"},
      {kId + "potential (U | A) { data = (-1 2); }", K_ERROR_NONE, ""},
      {n + "(A) { data = (1e999 0); }", kParse, "2:<number> must be finite"},
      {n + "(A) { data = (0.5); }", kParse, "2:number expected"},
      {n + "(A) { data = (0.5 0.5 0.5); }", kParse, "2:`)' expected"},
      {n + "(A) { data = ((7 8)); }", kParse, "2:number expected"},
      {n + "(A | C) { data = 0.5; }", kParse, "2:`(' expected"},
      // Too few levels of parentheses for three nodes.
      {n + "(A | B C) { data = ((1 0 1 0) (1 0 1 0) (1 0 1 0)); }", kParse, "2:`(' expected"},
      {n + "(A | C) { data = ((1 0) (1 0) (1 0)); }", kParse, "2:`)' expected"},
      {n + "(X) { data = (gauss (1, 2)); }", kParse, "2:the keyword `normal' was expected"},
      {n + "(X | Y) { data = (normal (1 2, 1)); }", kParse, "2:expected one of: ,+-"},
      {n + "(X | Y) { data = (normal (2 * 3, 1)); }", kParse,
       "2:<number> or <node name> expected in mean value expression"},
      {n + "(X | Y) { data = (normal (1, Y)); }", kParse,
       "2:variance (a nonnegative <number>) expected"},
      {n + "(X | A Y) { data = (normal (C + X, -1)\n normal (Q, 1)); }", kParse,
       "2:node `C' is not part of the table|2:node `X' is not part of the table|"
       "2:variance must be nonnegative|3:node `Q' is not part of the table"},
  });
}

// The entries of `table` listed in the configuration order of `order` (first
// slowest), found by decoding each configuration into the table's own order.
template <class Value>
std::string listed(const Table& table, const std::vector<Node*>& order, Value value) {
  std::vector<std::size_t> states(order.size(), 0);
  std::string out;
  for (;;) {
    std::uint64_t index = 0;
    for (std::size_t k = 0; k < table.discrete_count(); ++k) {
      const std::size_t pos =
          std::find(order.begin(), order.end(), table.nodes()[k]) - order.begin();
      index = index * table.state_counts()[k] + states[pos];
    }
    if (!out.empty()) out += ' ';
    out += value(index);
    std::size_t k = order.size();
    while (k > 0 && ++states[k - 1] == order[k - 1]->state_count()) states[--k] = 0;
    if (k == 0) return out;
  }
}

std::string listed(const Table& table, const std::vector<Node*>& order) {
  return listed(table, order, [&](std::uint64_t i) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", table.data()[i]);
    return std::string(text);
  });
}

TEST(NetReader, NodesInFileOrder) {
  for (const char* text : {"", "% a comment only", "net { }", "net\r\n{\r\n}\r\n"}) {
    Parsed p(text, true);
    EXPECT_TRUE(p.d != nullptr && p.domain().first_node() == nullptr && p.messages.empty());
  }
  Parsed p(
      "net { node_size = (79.5 40.49); title = \"old\"; title = \"new\"; }\n"
      "node A { label = \"the \\\"A\\\"\"; position = (-3.7 12); states = (\"x\" \"y\"); "
      "colour = \"red\"; }\n"
      "discrete node B { subtype = boolean; states = (\"no\" \"yes\"); }\n"
      "decision D { }\ndiscrete decision E { }\nutility U { }\nfunction R { }\n"
      "discrete function F { states = (\"a\" \"b\" \"c\"); subtype = number; "
      "state_values = (+1 -2 3.5); }\n"
      "node I.v_2 { states = (\"lo\" \"hi\"); subtype = interval;\n"
      "  state_values = (-infinity 0 infinity); }\n",
      true);
  ASSERT_NE(p.d, nullptr) << p.messages;
  EXPECT_EQ(p.domain().node_width, 80u);
  EXPECT_EQ(p.domain().node_height, 40u);
  EXPECT_STREQ(p.domain().attributes().get("title"), "new");
  EXPECT_EQ(test::describe_nodes(p.domain()),
            "I.v_2 7 0 33 lo=-1.7976931348623157e+308,hi=0<1.7976931348623157e+308\n"
            "F 5 0 32 a=1,b=-2,c=3.5\nR 5 -1\nU 9 -1\nE 8 0 30 \nD 8 0 30 \n"
            "B 7 0 31 no,yes\nA 7 0 30 x,y\n");
  const Node& a = p.node("A");
  EXPECT_EQ(*a.label, "the \"A\"");
  EXPECT_EQ(a.x, -3);
  EXPECT_EQ(a.y, 12);
  EXPECT_STREQ(p.node("A").attributes().get("colour"), "red");
  // Positions of a string source are counts of characters consumed.
  EXPECT_EQ(Parsed("net { x = 1; }", true).messages,
            "11:value of a user-defined attribute must be a string");
}

TEST(NetReader, ValuesGoIntoTheChildsOwnOrder) {
  // C's tables keep the parents most recent first (B, A, C); the text gives
  // them as written (A, B, C), in either form.
  const std::string head = kNet + "potential (C | A B) {\n";
  for (const char* body : {" data = (1 2 3 4 5 6 7 8 9 10 11 12);\n experience = (1 2 3 4 5 6);\n"
                           " fading = (1 2 3 4 5 6); }",
                           " data = (((1 2) (3 4) (5 6)) ((7 8) (9 10) (11 12)));\n"
                           " experience = ((1 2 3) (4 5 6));\n fading = ((1 2 3) (4 5 6)); }"}) {
    Parsed p(head + body);
    ASSERT_NE(p.d, nullptr) << p.messages;
    Node& a = p.node("A");
    Node& b = p.node("B");
    Node& c = p.node("C");
    EXPECT_EQ(c.parents()[0], &a);
    EXPECT_EQ(c.table()->nodes()[0], &b);
    EXPECT_EQ(listed(*c.table(), {&a, &b, &c}), "1 2 3 4 5 6 7 8 9 10 11 12");
    EXPECT_EQ(listed(*c.experience_table(), {&a, &b}), "1 2 3 4 5 6");
    EXPECT_EQ(listed(*c.fading_table(), {&a, &b}), "1 2 3 4 5 6");
  }
  // Tables without nodes take a bare number or a parenthesised one; a
  // function node's table is over the node alone.
  Parsed u(kId + "utility V { }\npotential (U) { data = 5; }\npotential (V) { data = (-6); }");
  ASSERT_NE(u.d, nullptr) << u.messages;
  EXPECT_EQ(u.node("U").table()->data()[0] + u.node("V").table()->data()[0], -1.0);
  Parsed f(kNet + "potential (F | A X) { data = (0.5 0.5); }");
  ASSERT_NE(f.d, nullptr) << f.messages;
  EXPECT_EQ(f.node("F").table()->nodes().size(), 1u);
}

TEST(NetReader, ConditionalGaussianItems) {
  Parsed p(kNet +
           "potential (X | A C Y) {\n data = ((normal ( 1 + 2 * Y - Y, 3 ) normal ( -Y, 0 ))\n"
           " (normal ( -.5-1.5*Y+Y, 1e-2 ) normal ( 0, 4 )));\n}");
  ASSERT_NE(p.d, nullptr) << p.messages;
  const Table& t = *p.node("X").table();
  ASSERT_EQ(t.cg_dimension(), 2u);  // X, then its continuous parent Y
  EXPECT_EQ(listed(t, {&p.node("A"), &p.node("C")},
                   [&](std::uint64_t i) {
                     char item[64];
                     std::snprintf(item, sizeof item, "%g%+gY/%g", t.mean(i, 0),
                                   t.coefficient(i, 1), t.covariance(i, 0, 0));
                     return std::string(item);
                   }),
            "1+1Y/3 0-1Y/0 -0.5-0.5Y/0.01 0+0Y/4");
}

TEST(NetReader, ChainPotentialsMakeComponents) {
  Parsed p(kNet + "potential (B A | C) { data = (((1 2) (3 4) (5 6)) ((7 8) (9 10) (11 12))); }");
  ASSERT_NE(p.d, nullptr) << p.messages;
  ASSERT_EQ(p.domain().chain_components.size(), 1u);
  const ChainComponent& chain = *p.domain().chain_components[0];
  Node* a = &p.node("A");
  Node* b = &p.node("B");
  Node* c = &p.node("C");
  EXPECT_EQ(std::vector<Node*>(chain.members.begin(), chain.members.end()),
            (std::vector<Node*>{b, a}));
  EXPECT_EQ(chain.parents.size(), 1u);
  EXPECT_TRUE(a->parents().contains(c) && b->parents().contains(c));
  EXPECT_FALSE(a->parents().contains(b));
  EXPECT_TRUE(a->table() == nullptr && b->table() == nullptr);
  EXPECT_EQ(listed(*chain.table, {c, b, a}), "1 2 3 4 5 6 7 8 9 10 11 12");
}

TEST(NetReader, ModelsWithEmptyPlaces) {
  Parsed p(kNet +
           "potential (A | B C) {\n model_nodes = (C);\n samples_per_interval = 7;\n"
           " model_data = ( , Distribution (C + 1, 2) );\n}\n"
           "potential (R | A) { model_nodes = (); model_data = (if (A == \"a0\", 1, 2)); }");
  ASSERT_NE(p.d, nullptr) << p.messages;
  const Model& m = *p.node("A").model();
  EXPECT_EQ(m.samples_per_interval, 7u);
  EXPECT_EQ(m.expression(0), nullptr);
  EXPECT_EQ(expression_to_string(m.expression(1)), "Distribution (C + 1, 2)");
  EXPECT_EQ(expression_to_string(p.node("R").model()->expression(0)), "if (A == \"a0\", 1, 2)");
}

TEST(NetReader, DeepNesting) {
  // A table over 3000 one-state parents: 3001 levels of parentheses.
  constexpr int kParents = 3000;
  std::string text = "node A { states = (\"a\" \"b\"); }\n";
  std::string head = "potential (A |";
  for (int i = 0; i < kParents; ++i) {
    text += "node N" + std::to_string(i) + " { states = (\"s\"); }\n";
    head += " N" + std::to_string(i);
  }
  text += head + ") { data = " + std::string(kParents + 1, '(') + "0.25 0.75" +
          std::string(kParents + 1, ')') + "; }";
  Parsed p(text, true);
  ASSERT_NE(p.d, nullptr) << p.messages;
  EXPECT_EQ(p.node("A").table()->data()[1], 0.75);
}

TEST(NetReader, FilesAndTheOlderFormat) {
  TempFile file("net\r\n{\r\n}\r\n");
  const k_domain_t d = k_net_parse_domain(file.path.c_str(), nullptr, nullptr);
  EXPECT_STREQ(k_domain_get_file_name(d), file.path.c_str());
  k_domain_delete(d);
  EXPECT_EQ(k_domain_get_file_name(Parsed("", true).d), nullptr);
  check_cases({
      // CRLF line ends count once; a latin-1 byte in a comment is skipped.
      {"% caf\xe9\r\nnet\r\n{\r\n}\r\n\r\n{", kParse, "6:unexpected token"},
      // A header of a name, a label and three numbers is the older format.
      {"Rain \"the rain net\" 40 40 1.5\nR 2 ()\n", kParse, "2:label string expected"},
      {"net \"label\" 40 40 x\n", kParse, "1:`{' expected"},
      {"Rain \"the rain net\" 40 40", kParse, "1:unknown object type: Rain"},
  });
  EXPECT_EQ(k_net_parse_domain("/nonexistent/x.net", nullptr, nullptr), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_IO);
  EXPECT_EQ(k_net_parse_domain_string(nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
}

TEST(NetReader, ReadErrorsAreNotEndOfFile) {
  // A directory opens as a file but reads with EISDIR: every reader fails
  // with "io" instead of reading nothing.
  const std::string dir =
      ::testing::TempDir() + "read_error_dir_" + std::to_string(::getpid()) + ".net";
  ASSERT_TRUE(mkdir(dir.c_str(), 0700) == 0 || errno == EEXIST);
  EXPECT_EQ(k_net_parse_domain(dir.c_str(), nullptr, nullptr), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_IO);
  Parsed net(kNet, true);
  EXPECT_NE(k_domain_parse_case(net.d, dir.c_str(), nullptr, nullptr), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_IO);
  EXPECT_NE(k_domain_parse_cases(net.d, dir.c_str(), nullptr, nullptr), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_IO);
  EXPECT_NE(k_domain_parse_sas_nodes(net.d, dir.c_str(), nullptr, nullptr), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_IO);
  EXPECT_EQ(k_parse_data_set(dir.c_str(), ',', nullptr, nullptr), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_IO);
  rmdir(dir.c_str());
  // A stream that cannot be read (opened for writing only).
  TempFile file("net { }\n");
  std::FILE* stream = std::fopen(file.path.c_str(), "w");
  ASSERT_NE(stream, nullptr);
  try {
    delete read_net_domain(stream, nullptr, nullptr, nullptr);
    ADD_FAILURE() << "a write-only stream was read";
  } catch (const Error& e) {
    EXPECT_EQ(e.code(), K_ERROR_IO);
  }
  std::fclose(stream);
}

TEST(NetReader, NormalModelOverTheWholeLine) {
  // "infinity" in the text is the largest double: the ends count as
  // unbounded, so the Normal's support fits and the table is exact.
  Parsed p(
      "node N { states = (\"a\" \"b\" \"c\" \"d\"); subtype = interval;\n"
      "  state_values = (-infinity -1 0 1 infinity); }\n"
      "potential (N) { model_nodes = (); model_data = (Normal (0, 1)); }\n");
  ASSERT_NE(p.d, nullptr) << p.messages;
  ASSERT_EQ(k_node_generate_table(reinterpret_cast<k_node_t>(&p.node("N"))), 0)
      << k_error_name(k_error_code());
  const double phi_1 = 0.5 * std::erfc(1.0 / std::sqrt(2.0));  // P(X < -1)
  const double expected[] = {phi_1, 0.5 - phi_1, 0.5 - phi_1, phi_1};
  const Table& t = *p.node("N").table();
  for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(t.data()[i], expected[i], 1e-15) << i;
  // A range that starts at 0 still does not hold the Normal.
  Parsed half(
      "node N { states = (\"a\" \"b\"); subtype = interval;\n"
      "  state_values = (0 1 infinity); }\n"
      "potential (N) { model_nodes = (); model_data = (Normal (0, 1)); }\n");
  ASSERT_NE(half.d, nullptr) << half.messages;
  EXPECT_NE(k_node_generate_table(reinterpret_cast<k_node_t>(&half.node("N"))), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_INSUFFICIENT_STATE_RANGE);
}

}  // namespace
}  // namespace kelva
