// A model keeps each expression with its configuration when a model node's
// states change.
#include <gtest/gtest.h>

#include "kelva/kelva.h"

namespace {

TEST(ModelReshape, SlotsFollowTheStatesOfModelNodes) {
  k_domain_t d = k_new_domain();
  k_node_t a = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  k_node_t b = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  k_node_t c = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_NUMBER);
  ASSERT_EQ(k_node_set_number_of_states(a, 2), 0);
  ASSERT_EQ(k_node_set_number_of_states(b, 2), 0);
  ASSERT_EQ(k_node_set_state_label(a, 0, "x"), 0);
  ASSERT_EQ(k_node_set_state_label(a, 1, "y"), 0);
  ASSERT_EQ(k_node_add_parent(c, a), 0);
  ASSERT_EQ(k_node_add_parent(c, b), 0);
  const k_node_t model_nodes[] = {a, b, nullptr};
  k_model_t m = k_node_new_model(c, model_nodes);
  ASSERT_NE(m, nullptr);
  k_expression_t e[4];
  for (int i = 0; i < 4; ++i) {
    e[i] = k_number_make_expression(i);
    ASSERT_EQ(k_model_set_expression(m, i, e[i]), 0);
  }
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
  k_domain_delete(d);
}

}  // namespace
