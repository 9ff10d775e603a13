// NET class files: every message of the class grammar at its line, a failed parse leaving the
// collection as it was, the class-loading call-back, and byte-identical round trips.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "kelva/kelva.h"

namespace {

constexpr const char* kLeaf =
    "class Leaf {\n"
    "inputs = (u);\n"
    "outputs = (y);\n"
    "node u { states = (\"a\" \"b\"); }\n"
    "node y { states = (\"a\" \"b\"); }\n"
    "}\n";  // lines 1-6; the cases below start on line 7

using Messages = std::vector<std::pair<std::uint64_t, std::string>>;

void collect(std::uint64_t line, const char* message, void* data) {
  static_cast<Messages*>(data)->emplace_back(line, message);
}

std::string text_of(k_class_collection_t cc) {
  char* s = k_cc_to_net_string(cc);
  std::string text = s == nullptr ? "" : s;
  std::free(s);
  return text;
}

TEST(ClassFiles, EveryGrammarMessageAtItsLineLeavesTheCollectionAsItWas) {
  struct Case {
    const char* text;
    std::uint64_t line;
    const char* message;
  };
  const Case cases[] = {
      {"node x {}", 7, "expected `class' keyword"},
      {"class {", 7, "class name expected"},
      {"class Leaf {}", 7, "a class with name `Leaf' already exists"},
      {"class A {\nclass B {}\n}", 8, "nested classes are not permitted"},
      {"class A {\n5 }", 8, "unexpected token"},
      {"class A {\nnode a.b {}\n}", 8, "name expected"},
      {"class A {\ninputs = (x);\n}", 9, "node `x' is not a valid input node"},
      {"class A {\nnode u {}\ninputs = (u u);\n}", 10, "node `u' specified as input twice"},
      {"class A {\noutputs = (q);\n}", 9, "node `q' is not a valid output node"},
      {"class A {\nnode u {}\noutputs = (u u);\n}", 10, "node `u' specified as output twice"},
      {"class A {\nnode u {}\ninputs = (u);\noutputs = (u);\n}", 11,
       "node `u' is specified both as input and as output"},
      {"class A {\ninputs = (5);\n}", 8, "node name or `)' expected"},
      {"class A {\nnode v { states = (\"a\" \"b\" \"c\"); }\ninstance I : Leaf (u = v) {}\n}", 9,
       "nodes `u' and `v' are not compatible"},
      {"class A {\nnode v { states = (\"a\" \"b\"); }\ninstance I : Leaf (u = v, u = v) {}\n}", 9,
       "input for node `u' has been specified twice"},
      {"class A {\nnode v { states = (\"a\" \"b\"); }\ninstance I : Leaf (y = v) {}\n}", 9,
       "node `y' is not an input parameter of class `Leaf'"},
      {"class A {\nnode v {}\ninstance I : Leaf (q = v) {}\n}", 9,
       "class `Leaf' does not have a node named `q'"},
      {"class A {\ninstance I : Leaf (; u) {}\n}", 8,
       "node `u' is not an output node in class `Leaf'"},
      {"class A {\ninstance I : Leaf () {}\ninstance I : Leaf () {}\n}", 9,
       "a node named `I' already exists"},
      {"class A {\ninstance I : A () {}\n}", 8,
       "adding class instance `I' creates a cycle in the instance hierarchy"},
      {"class A {\ninstance I : Nope () {}\n}", 8, "loading class `Nope' failed"},
      {"class A {\ninstance 5", 8, "name expected"},
      {"class A {\ninstance I : Leaf (5", 8, "name, `;', or `)' expected"},
      {"class A {\nnode v {}\ninstance I : Leaf (u = v 5", 9, "`,', `;', or `)' expected"},
      {"class A {\ninstance I : Leaf (; 5", 8, "name or `)' expected"},
      {"class A {\ninstance I : Leaf (; y 5", 8, "`,' or `)' expected"},
      {"class A {\nnode a {}\nnode b {}\npotential (a b) {}\n}", 10,
       "undirected links are not allowed in classes"},
      {"class A {\nnode z {}\ninstance I : Leaf (; y = Y) {}\npotential (z | Y) {}\n}", 10,
       "output clone `Y' found in potential specification"},
      {"class A {\nnode z {}\ninstance I : Leaf () {}\npotential (z | I) {}\n}", 10,
       "class instance node `I' found in potential specification"},
      {"class A {\npotential (zz) {}\n}", 8, "class `A' has no node named `zz'"},
      {"class A {\ntemporal p : q {}\n}", 8, "class `A' does not have a node named `q'"},
      {"class A {\ncontinuous node q {}\ntemporal p : q {}\n}", 9,
       "invalid creation of a temporal clone of `q'"},
      {"class A {\nnode q {}\ntemporal p : q {}\ntemporal r : q {}\n}", 10,
       "invalid creation of a temporal clone of `q'"},
      {"class A {\nnode q {}\ntemporal q : q {}\n}", 9, "a node with name `q' already exists"},
      {"class A {\ntemporal 5", 8, "name expected"},
      {"class A {\ntemporal p : 5", 8, "name expected"},
      {"class A {\nnode z {}\nnode v {}\npotential (z | v.y) {}\n}", 10,
       "node `v' is not an instance node in class `A'"},
      {"class A {\nnode z {}\ninstance I : Leaf () {}\npotential (z | I.u) {}\n}", 10,
       "node `u' is not an output node in class `Leaf'"},
  };
  // Each failed parse also takes back the Leaf it read first.
  k_class_collection_t cc = k_new_class_collection();
  k_cc_new_class(cc, "Kept");
  const std::string before = text_of(cc);
  const std::string path =
      testing::TempDir() + "class_file_test_" + std::to_string(::getpid()) + ".net";
  for (const Case& c : cases) {
    Messages messages;
    std::FILE* f = std::fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fputs(kLeaf, f);
    std::fputs(c.text, f);
    std::fclose(f);
    EXPECT_NE(k_net_parse_classes(path.c_str(), cc, nullptr, nullptr, collect, &messages), 0)
        << c.text;
    bool found = false;
    for (const auto& [line, message] : messages) found |= message == c.message && line == c.line;
    EXPECT_TRUE(found) << c.text;
    EXPECT_EQ(text_of(cc), before) << c.text;
  }
  k_cc_delete(cc);
  std::remove(path.c_str());
}

// Loads Leaf when an instance asks for it; "Fail" is never found.
int load(const char* name, k_class_collection_t cc, void* calls) {
  ++*static_cast<int*>(calls);
  if (std::string(name) != "Leaf") return 1;
  return k_net_parse_classes_string(kLeaf, cc, nullptr, nullptr, nullptr, nullptr);
}

TEST(ClassFiles, CallBackLoadsMissingClassesAndRoundTripsAreByteIdentical) {
  const char* text =
      "class Mid {\n"
      "node_size = (80 40);\n"
      "inputs = (a);\n"
      "outputs = (m);\n"
      "team = \"blue \\\"one\\\"\";\n"
      "node a { label = \"A\"; position = (3 -4); states = (\"lo\" \"hi\"); }\n"
      "continuous node c {}\n"
      "node m { states = (\"x\" \"y\"); subtype = number; state_values = (1 2); }\n"
      "temporal m0 : m { label = \"before\"; position = (1 2); note = \"n\"; }\n"
      "instance L1 : Leaf (u = a; y = Y1) { label = \"first\"; }\n"
      "instance L2 : Leaf (u = L1.y) {}\n"
      "potential (a) { data = (0.25 0.75); }\n"
      "potential (m0) { data = (0.5 0.5); }\n"
      "potential (m | L1.y L2.y a) {}\n"
      "potential (c | m) { data = ( normal ( 1 , 2 ) normal ( -1.5 , 0.5 ) ); }\n"
      "}\n";
  k_class_collection_t cc = k_new_class_collection();
  int calls = 0;
  ASSERT_EQ(k_net_parse_classes_string(text, cc, load, &calls, nullptr, nullptr), 0)
      << k_error_code();
  EXPECT_EQ(calls, 1);
  const std::string first = text_of(cc);
  k_class_collection_t again = k_new_class_collection();
  ASSERT_EQ(k_net_parse_classes_string(first.c_str(), again, nullptr, nullptr, nullptr, nullptr), 0)
      << first;
  EXPECT_EQ(text_of(again), first);
  // Saved to a file, the same text; an unwritable path is an I/O error.
  const std::string path = testing::TempDir() + "classes_" + std::to_string(::getpid()) + ".net";
  ASSERT_EQ(k_cc_save_as_net(cc, path.c_str()), 0);
  k_class_collection_t saved = k_new_class_collection();
  ASSERT_EQ(k_net_parse_classes(path.c_str(), saved, nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(text_of(saved), first);
  std::remove(path.c_str());
  EXPECT_NE(k_cc_save_as_net(cc, "/nonexistent/classes.net"), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_IO);
  k_cc_delete(saved);

  // A loader that fails leaves nothing behind.
  k_class_collection_t other = k_new_class_collection();
  const std::string failing = std::string(text).replace(std::string(text).find(": Leaf"), 6, ": F");
  EXPECT_NE(k_net_parse_classes_string(failing.c_str(), other, load, &calls, nullptr, nullptr), 0);
  EXPECT_EQ(k_cc_get_members(other)[0], nullptr);
  for (k_class_collection_t c : {cc, again, other}) k_cc_delete(c);
}

// Each class alone is fine; unfolded, continuous nodes meet a decision.
TEST(ClassFiles, UnfoldingRefusesContinuousNodesBesideDecisions) {
  k_class_collection_t cc = k_new_class_collection();
  ASSERT_EQ(k_net_parse_classes_string("class G { continuous node x {} }\n"
                                       "class T { decision d {} instance g : G () {} }",
                                       cc, nullptr, nullptr, nullptr, nullptr),
            0);
  EXPECT_EQ(k_class_create_domain(k_cc_get_class_by_name(cc, "T")), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_CG_LIMIDS_NOT_SUPPORTED);
  k_cc_delete(cc);
}

// Unfolding copies models, their expressions naming the unfolded nodes (the
// bound input `u` of I becomes `r`); generated tables give the beliefs.
TEST(ClassFiles, UnfoldingCopiesModelsNamingTheUnfoldedNodes) {
  const char* text =
      "class Leaf {\ninputs = (u);\noutputs = (x);\nnode u { states = (\"a\" \"b\"); }\n"
      "node x { states = (\"a\" \"b\"); }\npotential (u) { data = (0.5 0.5); }\n"
      "potential (x | u) { model_nodes = (); model_data = ( if (u == "
      "\"a\", Distribution (0.2, 0.8), Distribution (0.7, 0.3)) ); }\n}\n"
      "class Top {\nnode r { states = (\"a\" \"b\"); }\npotential (r) { data = (0.4 0.6); }\n"
      "instance I : Leaf (u = r; x = Ix) {}\n}\n";
  k_class_collection_t cc = k_new_class_collection();
  ASSERT_EQ(k_net_parse_classes_string(text, cc, nullptr, nullptr, nullptr, nullptr), 0);
  k_domain_t flat = k_class_create_domain(k_cc_get_class_by_name(cc, "Top"));
  k_node_t ix = k_domain_get_node_by_name(flat, "I.x");
  char* printed = k_expression_to_string(k_model_get_expression(k_node_get_model(ix), 0));
  EXPECT_STREQ(printed, "if (r == \"a\", Distribution (0.2, 0.8), Distribution (0.7, 0.3))");
  std::free(printed);
  ASSERT_EQ(k_domain_compile(flat), 0);
  EXPECT_NEAR(k_node_get_belief(ix, 0), 0.4 * 0.2 + 0.6 * 0.7, 1e-12);
  k_domain_delete(flat);
  k_cc_delete(cc);
}

}  // namespace
