// The SAS node and link file readers: what good files build, the refusals
// with their exact messages and lines, and the domain after a failed parse.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"
#include "table/table.h"
#include "text/text_files.h"

namespace kelva {
namespace {

using test::TempFile;

// A domain (deleted at the end) and the outcome of the last parse into it:
// the code and the messages as "line:message" joined by "|".
struct Sas {
  k_domain_t d = k_new_domain();
  k_error_t code = K_ERROR_NONE;
  std::string messages;

  Sas() = default;
  Sas(const Sas&) = delete;
  ~Sas() { k_domain_delete(d); }

  k_status_t nodes(const std::string& text) { return parse(text, &k_domain_parse_sas_nodes); }
  k_status_t links(const std::string& text) { return parse(text, &k_domain_parse_sas_links); }
  k_status_t table(const std::string& text) { return parse(text, &k_domain_parse_sas_table); }

  k_status_t parse(const std::string& text,
                   k_status_t (*read)(k_domain_t, const char*, k_parse_error_handler_t, void*)) {
    TempFile file(text);
    messages.clear();
    const k_status_t status = read(d, file.path.c_str(), &test::collect, &messages);
    code = k_error_code();
    return status;
  }
  Domain& domain() const { return *reinterpret_cast<Domain*>(d); }
  Node* find(const char* name) const { return domain().find(name); }
  std::size_t count() const {
    std::size_t n = 0;
    for (Node* p = domain().first_node(); p != nullptr; p = p->next) ++n;
    return n;
  }
  std::vector<std::string> parents(const char* name) const {
    std::vector<std::string> result;
    for (Node* p : find(name)->parents()) result.push_back(p->name());
    return result;
  }
};

TEST(SasNodes, BuildWhatTheLinesSay) {
  Sas s;
  ASSERT_EQ(s.nodes("% every type letter\n"
                    "X, L, a\n"
                    "X, L, \"b c\"\n"
                    "X L c   % commas are optional\n"
                    "Bo, B\n"
                    "Num, N, -1.5\n"
                    "Num N 2e1\n"
                    "Num, N, infinity\n"
                    "Iv, I, -infinity\n"
                    "Iv, I, 0\n"
                    "Iv, I, + 10\n"
                    "Iv, I, 1e999\n"
                    "Co, C\n"
                    "Fn, F\n"
                    "Fn, F\n"
                    "in.side, L, only"),  // no final newline
            0)
      << s.messages;
  EXPECT_EQ(s.messages, "");
  // Four bounds make three intervals.
  EXPECT_EQ(test::describe_nodes(s.domain()),
            "in.side 7 0 30 only\nFn 5 -1\nCo 7 1\n"
            "Iv 7 0 33 =-1.7976931348623157e+308,=0,=10<1.7976931348623157e+308\n"
            "Num 7 0 32 =-1.5,=20,=1.7976931348623157e+308\n"
            "Bo 7 0 31 false,true\nX 7 0 30 a,b c,c\n");

  // Empty files are valid and change nothing.
  EXPECT_EQ(s.nodes(""), 0);
  EXPECT_EQ(s.nodes("% nothing\n\n"), 0);
  EXPECT_EQ(s.count(), 7u);
}

struct Refusal {
  std::string text;
  std::string messages;
};

TEST(SasNodes, RefusalsStopAtTheFirstErrorOnItsLine) {
  const std::vector<Refusal> refusals = {
      {"X\n", "1:line is incomplete"},
      {"X,\nY, L, a\n", "1:line is incomplete"},
      // Reported against the line that ended early, not the next one.
      {"X, L, a\nX, L\n\nY, L, a\n", "2:line is incomplete"},
      {"X, N, -\n3\n", "1:line is incomplete"},
      {"X, N, 1\nX, N", "2:line is incomplete"},
      {"X, Q, a\n", "1:invalid type specifier (must be L, B, N, I, C, or F)"},
      {"X, LL, a\n", "1:invalid type specifier (must be L, B, N, I, C, or F)"},
      {"X, l, a\n", "1:invalid type specifier (must be L, B, N, I, C, or F)"},
      {"X, 3\n", "1:invalid type specifier (must be L, B, N, I, C, or F)"},
      {"3, L, a\n", "1:node name expected"},
      {"\"X\", L, a\n", "1:node name expected"},
      {"X, L, 3\n", "1:state label expected"},
      {"X, L, a.b\n", "1:state label expected"},
      {"X, N, a\n", "1:state value expected"},
      {"X, I, \"1\"\n", "1:state value expected"},
      {"X, L, a\nX, N, 1\n", "2:type specifier doesn't match previous specification"},
      {"X, I, 0\nX, N, 1\n", "2:type specifier doesn't match previous specification"},
      {"X, C\nX, F\n", "2:type specifier doesn't match previous specification"},
      {"X, L, a, b\n", "1:extra stuff at end-of-line"},
      {"X, B, b\n", "1:extra stuff at end-of-line"},
      {"X, N, 1 2\n", "1:extra stuff at end-of-line"},
      // One bound is no interval; reported after the last line.
      {"X, I, 0\nY, L, a\n", "3:incomplete specification of node X"},
      // A lexical error is the only message.
      {"X, L, a\nX, L, b.\n", "2:`.' must be followed by a letter or an `_'"},
      {"X, L, \"a\n", "1:string did not end"},
      {"X, L, a\n$\n", "2:unexpected character: `$'"},
      // A number that does not convert is silent in the lexer.
      {"X, N, .\n", "1:state value expected"},
  };
  for (const Refusal& r : refusals) {
    SCOPED_TRACE(r.text);
    Sas s;
    EXPECT_NE(s.nodes(r.text), 0);
    EXPECT_EQ(s.code, K_ERROR_PARSE);
    EXPECT_EQ(s.messages, r.messages);
    EXPECT_EQ(s.count(), 0u);  // nothing of the file stays
  }
}

TEST(SasNodes, NodesFromBeforeAreNeverChangedAndFailuresLeaveTheDomainAsItWas) {
  Sas s;
  ASSERT_EQ(s.nodes("P, L, p0\nP, L, p1\nV, N, 1\n"), 0);
  const std::uint64_t counter = s.domain().counter();

  EXPECT_NE(s.nodes("Q, L, a\nQ, L, b\nP, L, p2\n"), 0);
  EXPECT_EQ(s.messages, "3:attempt to change existing node P in the network");
  // The letter is checked first.
  EXPECT_NE(s.nodes("P, N, 2\n"), 0);
  EXPECT_EQ(s.messages, "1:type specifier doesn't match previous specification");
  EXPECT_NE(s.nodes("A, L, a\nB, C\nV, N, 2\n"), 0);
  EXPECT_EQ(s.messages, "3:attempt to change existing node V in the network");

  EXPECT_EQ(s.count(), 2u);
  EXPECT_EQ(s.find("Q"), nullptr);
  EXPECT_EQ(s.find("A"), nullptr);
  EXPECT_EQ(s.find("P")->state_count(), 2u);
  EXPECT_EQ(s.find("V")->state_count(), 1u);
  EXPECT_EQ(s.domain().counter(), counter);

  // Without a handler the failure shows in the code alone.
  TempFile file("X, Q\n");
  EXPECT_FAILS(k_domain_parse_sas_nodes(s.d, file.path.c_str(), nullptr, nullptr), K_ERROR_PARSE);
}

TEST(SasNodes, EngineRefusalsAreApiErrors) {
  Sas s;
  k_node_t decision = k_domain_new_node(s.d, K_CATEGORY_DECISION, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  ASSERT_EQ(k_node_set_name(decision, "D"), 0);
  EXPECT_NE(s.nodes("A, L, a\nC1, C\n"), 0);
  EXPECT_EQ(s.code, K_ERROR_CG_LIMIDS_NOT_SUPPORTED);
  EXPECT_EQ(s.messages,
            std::string("2:API error: ") + k_error_description(K_ERROR_CG_LIMIDS_NOT_SUPPORTED));
  EXPECT_EQ(s.count(), 1u);
}

TEST(SasLinks, AddLinksInTheOrderWritten) {
  Sas s;
  ASSERT_EQ(s.nodes("A, L, a0\nA, L, a1\nB, B\nY, L, y\nZ, C\nW, C\nn.m, L, x\n"), 0);
  ASSERT_EQ(s.links("% child, then parents\n"
                    "Y A B\n"
                    "Z, Y, W\n"
                    "A\n"  // a single name adds nothing
                    "n.m, A\n"
                    "W"),
            0)
      << s.messages;
  EXPECT_EQ(s.parents("Y"), (std::vector<std::string>{"A", "B"}));
  EXPECT_EQ(s.parents("Z"), (std::vector<std::string>{"Y", "W"}));
  EXPECT_TRUE(s.parents("A").empty());
  EXPECT_EQ(s.parents("n.m"), (std::vector<std::string>{"A"}));
  EXPECT_EQ(s.links(""), 0);
  EXPECT_EQ(s.links("% only a comment"), 0);
}

TEST(SasLinks, RefusalsAndTheDomainAfterThem) {
  const std::vector<Refusal> refusals = {
      {"Q A\n", "1:node `Q' not found"},
      {"Y A\n\n\nY Q\n", "4:node `Q' not found"},
      {"Y A\nA Y\n", "2:adding link from `Y' to `A' failed"},  // a cycle
      {"Y Y\n", "1:adding link from `Y' to `Y' failed"},
      {"Y A\nY A\n", "2:adding link from `A' to `Y' failed"},  // twice
      {"Y A C\n", "1:adding link from `C' to `Y' failed"},     // continuous to discrete
      {"3 A\n", "1:node name expected"},
      {"Y A 3\n", "1:node name expected"},
      {"Y \"A\"\n", "1:node name expected"},
      {"Y A,\nB\n", "1:line is incomplete"},
  };
  for (const Refusal& r : refusals) {
    SCOPED_TRACE(r.text);
    Sas s;
    ASSERT_EQ(s.nodes("A, L, a0\nA, L, a1\nA, L, a2\nY, L, y0\nY, L, y1\nB, L, b\nC, C\n"), 0);
    // Y's table, which gains a parent and loses it again.
    k_table_t table = k_node_get_table(reinterpret_cast<k_node_t>(s.find("Y")));
    const double before[2] = {0.1, 0.9};
    ASSERT_EQ(k_table_set_data(table, before, 2, 0, 2), 0);

    EXPECT_NE(s.links(r.text), 0);
    EXPECT_EQ(s.code, K_ERROR_PARSE);
    EXPECT_EQ(s.messages, r.messages);
    for (const char* name : {"A", "Y", "B", "C"}) EXPECT_TRUE(s.parents(name).empty()) << name;
    ASSERT_EQ(k_table_get_size(table), 2u);
    double after[2] = {};
    ASSERT_EQ(k_table_get_data(table, after, 2, 0, 2), 0);
    EXPECT_EQ(after[0], before[0]);
    EXPECT_EQ(after[1], before[1]);
  }
}

// A network for table files: Y (discrete) with parents B and A, Z
// (continuous) with the discrete parent A and the continuous parent X.
Sas& table_network(Sas& s) {
  EXPECT_EQ(s.nodes("A, L, a0\nA, L, a1\nB, L, b0\nB, L, b1\nB, L, b2\n"
                    "Y, L, y0\nY, L, y1\nX, C\nZ, C\nF, F\n"),
            0);
  EXPECT_EQ(s.links("Y B A\nZ A X\n"), 0);
  return s;
}

TEST(SasTable, RowsInAnyOrderFillTheTable) {
  Sas s;
  table_network(s);
  // Y(a_i, b_j) = (10 i + j, 1), rows shuffled, header order A B.
  ASSERT_EQ(s.table("Y, A, B\n"
                    "a1 b2 12 1\na0 b0 0 1\na1, b0, 10, 1\na1 b1 11 1\na0 b2 2 1\na0 b1 1 1\n"),
            0)
      << s.messages;
  // Y's table holds A (the parent added last) first, then B, then Y.
  std::vector<double> data(12);
  const k_table_t t = k_node_get_table(reinterpret_cast<k_node_t>(s.find("Y")));
  ASSERT_EQ(k_table_get_data(t, data.data(), 12, 0, 12), 0);
  EXPECT_EQ(data, (std::vector<double>{0, 1, 1, 1, 2, 1, 10, 1, 11, 1, 12, 1}));
  ASSERT_EQ(s.table("Z A alpha X variance\na1 -1 0.5 4\na0 1.5 2 0.25\n"), 0) << s.messages;
  const k_node_t z = reinterpret_cast<k_node_t>(s.find("Z"));
  const k_node_t x = reinterpret_cast<k_node_t>(s.find("X"));
  auto cg = [&](k_size_t i) {
    return k_node_get_alpha(z, i) + 10 * k_node_get_beta(z, x, i) + 100 * k_node_get_gamma(z, i);
  };
  EXPECT_EQ(cg(0), 46.5);
  EXPECT_EQ(cg(1), 404.0);
  EXPECT_EQ(s.table(""), 0);
}

TEST(SasTable, RefusalsLeaveEveryTableAsItWas) {
  const std::string y = "Y A B\n";
  const std::vector<Refusal> refusals = {
      {"3 A\n", "1:node name expected"},
      {"Q A\n", "1:node `Q' not found"},
      {"F\n", "1:`F' is not a chance node"},
      {"Y A\n", "1:discrete parent `B' of `Y' is missing in the header"},
      {"Y A B A\n", "1:node `A' appears twice in the header"},
      {"Y A B X\n", "1:node `X' is not a discrete parent of `Y'"},
      {"Y A alpha\n", "1:node `alpha' not found"},
      {"Z A\n", "1:line is incomplete"},
      {"Z A alpha variance\n", "1:continuous parent `X' of `Z' is missing in the header"},
      {"Z A alpha A variance\n", "1:node `A' is not a continuous parent of `Z'"},
      {"Z A alpha X variance 3\n", "1:extra stuff at end-of-line"},
      {y + "a0 b0 1 0\n\na0 b0 1 0\n", "4:parent configuration given twice (line 2)"},
      {y + "3 b0 1 0\n", "2:state label expected"},
      {y + "\"b1\" b1 1 0\n", "2:`b1' is not a state of `A'"},
      {y + "a0 b0 1\n", "2:line is incomplete"},
      {y + "a0 b0 1 x\n", "2:number expected"},
      {y + "a0 b0 1 1e999\n", "2:numbers must be finite"},
      {y + "a0 b0 -1 2\n", "2:probabilities must be nonnegative"},
      {y + "a0 b0 1 2\n", "3:1 of 6 parent configurations given"},
      {"Z A alpha X variance\na0 1 2 -1\n", "2:variance must be nonnegative"},
      {"Z A alpha X variance\na0 1 2 1\na1 1 1 1\n$", "4:unexpected character: `$'"},
  };
  for (const Refusal& r : refusals) {
    SCOPED_TRACE(r.text);
    Sas s;
    table_network(s);
    char* before = k_domain_to_net_string(s.d);
    EXPECT_NE(s.table(r.text), 0);
    EXPECT_EQ(s.code, K_ERROR_PARSE);
    EXPECT_EQ(s.messages, r.messages);
    char* after = k_domain_to_net_string(s.d);
    EXPECT_STREQ(after, before);
    std::free(before);
    std::free(after);
  }
}

TEST(SasFiles, BadArguments) {
  Sas s;
  EXPECT_FAILS(k_domain_parse_sas_nodes(nullptr, "x", nullptr, nullptr), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_parse_sas_links(s.d, nullptr, nullptr, nullptr), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_parse_sas_links(s.d, "/nonexistent/sas.txt", nullptr, nullptr), K_ERROR_IO);
  EXPECT_FAILS(k_domain_parse_sas_table(s.d, "/nonexistent/sas.txt", nullptr, nullptr), K_ERROR_IO);
}

}  // namespace
}  // namespace kelva
