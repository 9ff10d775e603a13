/* Builds a two-node network through the C API (rain -> wet grass), fills
 * the conditional tables, prints the table of the child, then compiles the
 * network, enters the evidence that the grass is wet and prints the belief
 * in rain and the probability of the evidence.
 *
 *   cc rain.c -I include -L build/release -lkelva -o rain
 */
#include <stdio.h>
#include <stdlib.h>

#include "kelva/kelva.h"

/* Stops the program with the library's error name and description. */
static void fail(const char *what) {
  k_error_t code = k_error_code();
  fprintf(stderr, "%s: %s: %s\n", what, k_error_name(code), k_error_description(code));
  exit(1);
}

/* Makes a labelled chance node with two states, "yes" and "no". */
static k_node_t new_yes_no_node(k_domain_t domain, const char *name) {
  k_node_t node = k_domain_new_node(domain, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  if (node == NULL || k_node_set_name(node, name) != 0 ||
      k_node_set_number_of_states(node, 2) != 0 || k_node_set_state_label(node, 0, "yes") != 0 ||
      k_node_set_state_label(node, 1, "no") != 0)
    fail(name);
  return node;
}

int main(void) {
  k_domain_t domain = k_new_domain();
  if (domain == NULL) fail("k_new_domain");
  k_node_t rain = new_yes_no_node(domain, "rain");
  k_node_t wet = new_yes_no_node(domain, "wet");
  if (k_node_add_parent(wet, rain) != 0) fail("k_node_add_parent");

  /* P(rain), then P(wet | rain): the table of wet holds rain then wet, with
   * the last node varying fastest. */
  const double p_rain[] = {0.2, 0.8};
  const double p_wet[] = {0.9, 0.1, 0.25, 0.75};
  if (k_table_set_data(k_node_get_table(rain), p_rain, 2, 0, 2) != 0) fail("table of rain");
  k_table_t table = k_node_get_table(wet);
  if (k_table_set_data(table, p_wet, 4, 0, 4) != 0) fail("table of wet");

  /* Print every configuration of the table with its entry. */
  k_node_t *nodes = k_table_get_nodes(table);
  k_size_t size = k_table_get_size(table);
  for (k_size_t i = 0; i < size; ++i) {
    k_size_t config[2];
    if (k_table_get_configuration_from_index(table, config, i) != 0) fail("configuration");
    for (int n = 0; nodes[n] != NULL; ++n)
      printf("%s=%s ", k_node_get_name(nodes[n]), k_node_get_state_label(nodes[n], config[n]));
    printf("%g\n", k_table_get_data_item(table, i));
  }

  /* Compile, observe wet = yes, propagate and read the results. */
  if (k_domain_compile(domain) != 0) fail("k_domain_compile");
  if (k_node_select_state(wet, 0) != 0) fail("k_node_select_state");
  if (k_domain_propagate(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0) fail("k_domain_propagate");
  double belief = k_node_get_belief(rain, 0);
  if (belief < 0) fail("k_node_get_belief");
  printf("P(rain=yes | wet=yes) = %g\n", belief);
  printf("P(wet=yes) = %g\n", k_domain_get_normalization_constant(domain));
  k_domain_delete(domain);
  return 0;
}
