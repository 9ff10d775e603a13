// Models: creation rules, slots and their checks, samples, the raw
// generation flag, back-pointers and deletion.
#include <gtest/gtest.h>

#include "common/expect_code.h"
#include "generate_fixture.h"

namespace kelva::test {
namespace {

TEST(Model, NewModelRefusesWhatCannotBeModelNodes) {
  GenNet net;
  k_node_t a = net.labelled("A", {"a0", "a1", "a2"});
  k_node_t b = net.labelled("B", {"b0", "b1"});
  k_node_t c = net.labelled("C", {"c0", "c1"});
  k_node_t x = k_domain_new_node(net.d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
  k_node_t f = k_domain_new_node(net.d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  link(a, c);
  link(b, c);
  link(x, f);
  link(a, f);
  GenNet other;
  k_node_t alien = other.labelled("A", {"x"});

  const k_node_t none[] = {nullptr};
  const k_node_t with_alien[] = {alien, nullptr};
  const k_node_t not_parent[] = {c, nullptr};
  const k_node_t continuous[] = {x, nullptr};
  const k_node_t twice[] = {a, a, nullptr};
  struct Case {
    k_node_t owner;
    const k_node_t* list;
  } refused[] = {{nullptr, none}, {c, nullptr},    {x, none},       {c, with_alien},
                 {b, not_parent}, {f, continuous}, {c, not_parent}, {c, twice}};
  for (const Case& r : refused) {
    EXPECT_NULL_WITH(k_node_new_model(r.owner, r.list), K_ERROR_USAGE);
  }
  EXPECT_EQ(k_node_get_model(c), nullptr);

  // Model nodes in the order given; the size is the product of their counts.
  k_model_t m = model(c, {b, a});
  EXPECT_EQ(k_node_get_model(c), m);
  EXPECT_EQ(k_model_get_size(m), 6u);
  k_node_t* nodes = k_model_get_nodes(m);
  EXPECT_EQ(nodes[0], b);
  EXPECT_EQ(nodes[1], a);
  EXPECT_EQ(nodes[2], nullptr);
  EXPECT_EQ(k_model_get_size(model(f, {a})), 3u);

  // A new model replaces the old one; a model without model nodes has one slot.
  k_model_t again = model(c);
  EXPECT_EQ(k_node_get_model(c), again);
  EXPECT_EQ(k_model_get_size(again), 1u);
  EXPECT_EQ(k_model_get_nodes(again)[0], nullptr);
  EXPECT_CODE(k_model_get_size(nullptr), K_SIZE_ERROR, K_ERROR_USAGE);
}

TEST(Model, SetExpressionChecksTheExpressionAgainstTheOwner) {
  GenNet net;
  k_node_t a = net.labelled("A", {"a0", "a1"});
  k_node_t n = net.numbered("N", {0, 1});
  k_node_t c = net.labelled("C", {"c0", "c1"});
  k_node_t stranger = net.labelled("S", {"s0", "s1"});
  k_node_t f = k_domain_new_node(net.d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  k_node_t df = net.interval("D", {0, 1, 2}, K_CATEGORY_FUNCTION);
  for (k_node_t child : {c, f, df}) {
    link(a, child);
    link(n, child);
  }
  k_model_t m = model(c, {a});
  k_model_t fm = model(f);
  k_model_t dm = model(df);

  k_expression_t unused = lab("c0");
  EXPECT_FAILS(k_model_set_expression(m, 2, unused), K_ERROR_USAGE);
  EXPECT_FAILS(k_model_set_expression(nullptr, 0, unused), K_ERROR_USAGE);
  k_expression_delete(unused);

  k_expression_t probability = op(K_OP_PROBABILITY, {op(K_OP_EQUALS, {leaf(a), lab("a0")})});
  k_expression_t variance = op(K_OP_VARIANCE, {leaf(n)});
  k_expression_t aggregate = op(K_OP_AGGREGATE, {leaf(n), leaf(a)});
  struct Case {
    k_model_t model;
    k_expression_t e;
  } invalid[] = {
      {m, leaf(stranger)},                                           // not a parent
      {m, leaf(c)},                                                  // the owner itself
      {m, probability},                                              // not a function owner
      {m, variance},       {m, aggregate},                           // not a discrete function
      {fm, aggregate},     {fm, op(K_OP_NORMAL, {num(0), num(1)})},  // real-valued needs a number
      {fm, lab("x")},
  };
  for (const Case& k : invalid) {
    EXPECT_FAILS(k_model_set_expression(k.model, 0, k.e), K_ERROR_INVALID_EXPRESSION);
    EXPECT_EQ(k_model_get_expression(k.model, 0), nullptr);
    if (k.e != probability && k.e != variance && k.e != aggregate) k_expression_delete(k.e);
  }

  // Function owners take "probability" and "variance"; discrete ones "aggregate".
  set(fm, 0, op(K_OP_ADD, {probability, variance}));
  set(fm, 0, leaf(n));
  set(dm, 0, aggregate);

  // The model holds its expressions: deleting one it holds changes nothing.
  k_expression_t held = lab("c1");
  set(m, 1, held);
  EXPECT_EQ(k_model_get_expression(m, 1), held);
  EXPECT_EQ(k_expression_delete(held), 0);
  EXPECT_STREQ(k_expression_get_label(k_model_get_expression(m, 1)), "c1");
  // Setting the slot's own expression again keeps it alive; null clears.
  set(m, 1, held);
  EXPECT_STREQ(k_expression_get_label(k_model_get_expression(m, 1)), "c1");
  set(m, 1, nullptr);
  EXPECT_EQ(k_model_get_expression(m, 1), nullptr);
  EXPECT_NULL_WITH(k_model_get_expression(m, 2), K_ERROR_USAGE);
}

TEST(Model, ExpressionsFromTextGoThroughTheSameChecks) {
  GenNet net;
  k_node_t a = net.labelled("A", {"a0", "a1"});
  k_node_t b = net.interval("B", {-kInf, 0, kInf});
  link(a, b);
  k_model_t m = model(b, {a});
  ASSERT_EQ(k_model_set_expression_from_string(m, 1, "Normal(1, 4)", nullptr, nullptr), 0)
      << k_error_name(k_error_code());
  EXPECT_EQ(k_expression_get_operator(k_model_get_expression(m, 1)), K_OP_NORMAL);
  EXPECT_FAILS(k_model_set_expression_from_string(m, 2, "Normal(1, 4)", nullptr, nullptr),
               K_ERROR_USAGE);
  EXPECT_FAILS(k_model_set_expression_from_string(m, 0, "Normal(1,", nullptr, nullptr),
               K_ERROR_SYNTAX);
  // Parsed but refused: the parsed tree is freed, the slot keeps its content.
  EXPECT_NE(k_model_set_expression_from_string(m, 1, "probability(A == \"a0\")", nullptr, nullptr),
            0);
  EXPECT_EQ(k_error_code(), K_ERROR_INVALID_EXPRESSION);
  EXPECT_EQ(k_expression_get_operator(k_model_get_expression(m, 1)), K_OP_NORMAL);
  ASSERT_EQ(k_model_set_expression_from_string(m, 0, "if (A == \"a0\", Normal(0, 1), Normal(2, 1))",
                                               nullptr, nullptr),
            0);
  ASSERT_EQ(k_node_generate_table(b), 0) << k_error_name(k_error_code());
  expect_close(table_of(b), {0.5, 0.5, phi(-0.5), 1 - phi(-0.5)});
}

TEST(Model, GenerationFlagSamplesAndBackpointer) {
  GenNet net;
  k_node_t a = net.labelled("A", {"a0", "a1"});
  k_node_t b = net.labelled("B", {"b0", "b1"});
  link(a, b);
  k_model_t m = model(b);

  // The raw flag: 1 from creation until generated, 0 after.
  EXPECT_EQ(k_model_table_is_generated(m), 1);
  set(m, 0, op(K_OP_DISTRIBUTION, {num(1), num(3)}));
  ASSERT_EQ(k_node_generate_table(b), 0);
  EXPECT_EQ(k_model_table_is_generated(m), 0);
  expect_close(table_of(b), {0.25, 0.75, 0.25, 0.75});

  EXPECT_EQ(k_model_get_number_of_samples_per_interval(m), 25u);
  EXPECT_FAILS(k_model_set_number_of_samples_per_interval(m, 0), K_ERROR_USAGE);
  EXPECT_EQ(k_model_table_is_generated(m), 0);
  EXPECT_EQ(k_model_set_number_of_samples_per_interval(m, 3), 0);
  EXPECT_EQ(k_model_get_number_of_samples_per_interval(m), 3u);
  EXPECT_EQ(k_model_table_is_generated(m), 1);
  EXPECT_CODE(k_model_get_number_of_samples_per_interval(nullptr), K_SIZE_ERROR, K_ERROR_USAGE);
  EXPECT_EQ(k_model_table_is_generated(nullptr), -1);

  // Structure edits mark the model; a clear flag skips generation entirely.
  ASSERT_EQ(k_node_generate_table(b), 0);
  EXPECT_EQ(k_table_set_data_item(k_node_get_table(b), 0, 0.5), 0);
  ASSERT_EQ(k_node_generate_table(b), 0);
  EXPECT_EQ(table_of(b)[0], 0.5);
  ASSERT_EQ(k_node_set_number_of_states(a, 3), 0);
  EXPECT_EQ(k_model_table_is_generated(m), 1);
  ASSERT_EQ(k_node_generate_table(b), 0);
  expect_close(table_of(b), {0.25, 0.75, 0.25, 0.75, 0.25, 0.75});

  int cookie = 0;
  EXPECT_EQ(k_model_get_backpointer(m), nullptr);
  EXPECT_EQ(k_model_set_backpointer(m, &cookie), 0);
  EXPECT_EQ(k_model_get_backpointer(m), &cookie);

  EXPECT_EQ(k_model_delete(m), 0);
  EXPECT_EQ(k_node_get_model(b), nullptr);
  EXPECT_FAILS(k_model_delete(nullptr), K_ERROR_USAGE);
  EXPECT_FAILS(k_node_generate_table(b), K_ERROR_USAGE);
}

TEST(Model, AFailedGenerationKeepsTheTableAndTheMark) {
  GenNet net;
  k_node_t b = net.labelled("B", {"b0", "b1"});
  k_model_t m = model(b);
  set(m, 0, op(K_OP_DISTRIBUTION, {num(1), num(1)}));
  ASSERT_EQ(k_node_generate_table(b), 0);
  set(m, 0, lab("nowhere"));
  EXPECT_FAILS(k_node_generate_table(b), K_ERROR_INVALID_EXPRESSION);
  EXPECT_EQ(k_model_table_is_generated(m), 1);
  expect_close(table_of(b), {0.5, 0.5});

  // Nodes without a table cannot generate one.
  k_node_t f = k_domain_new_node(net.d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  set(model(f), 0, num(1));
  EXPECT_FAILS(k_node_generate_table(f), K_ERROR_USAGE);
  EXPECT_FAILS(k_node_generate_table(nullptr), K_ERROR_USAGE);
}

// A model keeps each expression with its configuration when a model node's
// states change.
TEST(ModelReshape, SlotsFollowTheStatesOfModelNodes) {
  GenNet net;
  k_node_t a = net.labelled("A", {"x", "y"});
  k_node_t b = net.labelled("B", {"b0", "b1"});
  k_node_t c = net.numbered("C", {0});
  link(a, c);
  link(b, c);
  k_model_t m = model(c, {a, b});
  k_expression_t e[4];
  for (int i = 0; i < 4; ++i) set(m, i, e[i] = num(i));
  // a gets a third state: slots (a=2, b) are new and empty.
  ASSERT_EQ(k_node_set_number_of_states(a, 3), 0);
  EXPECT_EQ(k_model_get_size(m), 6u);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(k_model_get_expression(m, i), e[i]);
  EXPECT_EQ(k_model_get_expression(m, 4), nullptr);
  EXPECT_EQ(k_model_get_expression(m, 5), nullptr);
  ASSERT_EQ(k_node_set_state_label(a, 2, "z"), 0);
  // Reordering moves whole rows of slots.
  const char* order[] = {"z", "y", "x", nullptr};
  ASSERT_EQ(k_node_reorder_states(a, order), 0);
  EXPECT_EQ(k_model_get_expression(m, 0), nullptr);
  EXPECT_EQ(k_model_get_expression(m, 2), e[2]);
  EXPECT_EQ(k_model_get_expression(m, 5), e[1]);
  // Shrinking drops the slots of the removed states.
  ASSERT_EQ(k_node_set_number_of_states(a, 2), 0);
  EXPECT_EQ(k_model_get_size(m), 4u);
  EXPECT_EQ(k_model_get_expression(m, 3), e[3]);
  EXPECT_EQ(k_model_table_is_generated(m), 1);
  // Split intervals share their interval's expression; a merged pair keeps
  // the lower one's.
  k_node_t i = net.interval("I", {0, 1, 2});
  k_node_t p = net.numbered("P", {0});
  k_node_t d = net.numbered("D", {0});
  link(i, d);
  link(p, d);
  k_model_t md = model(d, {i});
  k_expression_t lo = num(0), hi = leaf(p);
  set(md, 0, lo);
  set(md, 1, hi);
  ASSERT_EQ(k_node_double_number_of_intervals(i), 0);
  EXPECT_EQ(k_model_get_size(md), 4u);
  EXPECT_EQ(k_model_get_expression(md, 1), lo);
  EXPECT_EQ(k_model_get_expression(md, 2), hi);
  ASSERT_EQ(k_node_halve_number_of_intervals(i), 0);
  EXPECT_EQ(k_model_get_expression(md, 1), hi);
  // A parent that an expression names takes the model with it.
  ASSERT_EQ(k_node_remove_parent(d, p), 0);
  EXPECT_EQ(k_node_get_model(d), nullptr);
}

}  // namespace
}  // namespace kelva::test
