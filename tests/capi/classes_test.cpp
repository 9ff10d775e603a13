// Classes through the C API: unfolding against the network written flat, refusals, and
// random edit sequences that must keep every instance consistent with its class.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "kelva/kelva.h"
#include "network/class.h"

namespace {

k_domain_t as_domain(k_class_t c) { return reinterpret_cast<k_domain_t>(c); }

k_node_t chance(k_domain_t d, const std::string& name, k_size_t states) {
  k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  EXPECT_EQ(k_node_set_name(n, name.c_str()), 0);
  EXPECT_EQ(k_node_set_number_of_states(n, states), 0);
  return n;
}

// Gives `n` its parents in order and a table drawn from `key`, so that a
// class node and its flat counterparts get the same numbers.
void define(k_node_t n, const std::vector<k_node_t>& parents, const std::string& key) {
  for (k_node_t p : parents) ASSERT_EQ(k_node_add_parent(n, p), 0);
  k_table_t t = k_node_get_table(n);
  const k_size_t size = k_table_get_size(t), states = k_node_get_number_of_states(n);
  std::mt19937_64 rng(std::hash<std::string>{}(key));
  std::vector<double> v(size);
  for (k_size_t i = 0; i < size; i += states) {
    double total = 0;
    for (k_size_t s = 0; s < states; ++s) total += v[i + s] = 0.05 + (rng() % 1000) / 1000.0;
    for (k_size_t s = 0; s < states; ++s) v[i + s] /= total;
  }
  ASSERT_EQ(k_table_set_data(t, v.data(), size, 0, size), 0);
}

k_node_t instance(k_class_t home, k_class_t of, const char* name) {
  k_node_t n = k_class_new_instance(home, of);
  EXPECT_EQ(k_node_set_name(n, name), 0);
  return n;
}

// Leaf(u; y): u -> x -> y, u -> y.  Mid(a; m): two Leafs (one bound to a),
// m over their outputs, w over a.  Top: r, three Mids (bound to r, unbound,
// bound to the first one's output), z over outputs and r.
struct Hierarchy {
  k_class_collection_t cc = k_new_class_collection();
  k_class_t leaf = k_cc_new_class(cc, "Leaf"), mid = k_cc_new_class(cc, "Mid"),
            top = k_cc_new_class(cc, "Top");
  Hierarchy() {
    k_domain_t l = as_domain(leaf), m = as_domain(mid), t = as_domain(top);
    k_node_t u = chance(l, "u", 2), x = chance(l, "x", 2), y = chance(l, "y", 3);
    define(u, {}, "Leaf.u");
    define(x, {u}, "Leaf.x");
    define(y, {x, u}, "Leaf.y");
    EXPECT_EQ(k_node_add_to_inputs(u), 0);
    EXPECT_EQ(k_node_add_to_outputs(y), 0);

    k_node_t a = chance(m, "a", 2);
    define(a, {}, "Mid.a");
    EXPECT_EQ(k_node_add_to_inputs(a), 0);
    k_node_t l1 = instance(mid, leaf, "L1"), l2 = instance(mid, leaf, "L2");
    EXPECT_EQ(k_node_set_input(l1, u, a), 0);
    k_node_t mm = chance(m, "m", 2), w = chance(m, "w", 2);
    define(mm, {k_node_get_output(l1, y), k_node_get_output(l2, y)}, "Mid.m");
    define(w, {a}, "Mid.w");
    EXPECT_EQ(k_node_add_to_outputs(mm), 0);

    k_node_t r = chance(t, "r", 2);
    define(r, {}, "Top.r");
    k_node_t m1 = instance(top, mid, "M1"), m2 = instance(top, mid, "M2"),
             m3 = instance(top, mid, "M3");
    EXPECT_EQ(k_node_set_input(m1, a, r), 0);
    EXPECT_EQ(k_node_set_input(m3, a, k_node_get_output(m1, mm)), 0);
    define(chance(t, "z", 2), {k_node_get_output(m1, mm), k_node_get_output(m2, mm), r}, "Top.z");
  }
  ~Hierarchy() { k_cc_delete(cc); }
};

k_node_t flat_leaf(k_domain_t d, const std::string& p, k_node_t u) {
  if (u == nullptr) define(u = chance(d, p + "u", 2), {}, "Leaf.u");
  k_node_t x = chance(d, p + "x", 2), y = chance(d, p + "y", 3);
  define(x, {u}, "Leaf.x");
  define(y, {x, u}, "Leaf.y");
  return y;
}

k_node_t flat_mid(k_domain_t d, const std::string& p, k_node_t a) {
  if (a == nullptr) define(a = chance(d, p + "a", 2), {}, "Mid.a");
  k_node_t y1 = flat_leaf(d, p + "L1.", a), y2 = flat_leaf(d, p + "L2.", nullptr);
  k_node_t m = chance(d, p + "m", 2);
  define(m, {y1, y2}, "Mid.m");
  define(chance(d, p + "w", 2), {a}, "Mid.w");
  return m;
}

void expect_same_beliefs(k_domain_t flat, k_domain_t unfolded) {
  ASSERT_EQ(k_domain_propagate(flat, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  ASSERT_EQ(k_domain_propagate(unfolded, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  for (k_node_t n = k_domain_get_first_node(flat); n != nullptr; n = k_node_get_next(n)) {
    k_node_t u = k_domain_get_node_by_name(unfolded, k_node_get_name(n));
    ASSERT_NE(u, nullptr) << k_node_get_name(n);
    for (k_size_t s = 0; s < k_node_get_number_of_states(n); ++s)
      EXPECT_NEAR(k_node_get_belief(n, s), k_node_get_belief(u, s), 1e-12) << k_node_get_name(n);
  }
}

TEST(Classes, UnfoldedHierarchyMatchesTheFlatNetworkWithAndWithoutEvidence) {
  Hierarchy h;
  k_domain_t unfolded = k_class_create_domain(h.top), copy = k_domain_clone(unfolded);
  k_domain_t flat = k_new_domain();
  k_node_t r = chance(flat, "r", 2);
  define(r, {}, "Top.r");
  k_node_t m1 = flat_mid(flat, "M1.", r), m2 = flat_mid(flat, "M2.", nullptr);
  flat_mid(flat, "M3.", m1);
  define(chance(flat, "z", 2), {m1, m2, r}, "Top.z");

  // Bound inputs (M1.a, M3.a, M*.L1.u) are not copied: 24 nodes either way.
  for (k_domain_t d : {flat, unfolded}) EXPECT_EQ(k_domain_get_number_of_chance_nodes(d), 24u);
  ASSERT_EQ(k_domain_compile(flat), 0);
  ASSERT_EQ(k_domain_compile(unfolded), 0);
  ASSERT_EQ(k_domain_compile(copy), 0);
  expect_same_beliefs(flat, unfolded);
  for (k_domain_t d : {flat, unfolded, copy}) {
    for (auto [name, state] : {std::pair{"M2.L2.x", 1}, {"z", 0}, {"M3.L1.y", 2}})
      ASSERT_EQ(k_node_select_state(k_domain_get_node_by_name(d, name), state), 0);
  }
  expect_same_beliefs(flat, unfolded);
  expect_same_beliefs(flat, copy);
  k_domain_delete(flat);
  k_domain_delete(unfolded);
  k_domain_delete(copy);
}

std::vector<std::string> source(k_domain_t d, const char* name) {
  std::vector<std::string> names;
  for (k_node_t* s = k_node_get_source(k_domain_get_node_by_name(d, name)); *s; ++s)
    names.emplace_back(k_node_get_name(*s));
  return names;
}

// Source lists (emptied when a class node goes, safe when the collection goes first), node
// clones, classes added from a domain or a collection, back pointers of homes, trees, cliques.
TEST(Classes, SourcesNodeClonesAndAddedClasses) {
  auto* h = new Hierarchy;
  k_domain_t unfolded = k_class_create_domain(h->top), extra = k_class_create_domain(h->leaf);
  EXPECT_EQ(source(unfolded, "M3.L2.x"), (std::vector<std::string>{"M3", "L2", "x"}));
  k_node_t z = k_domain_get_node_by_name(unfolded, "z"), twin = k_node_clone(z);
  EXPECT_EQ(k_node_get_parents(z)[2], k_node_get_parents(twin)[2]);
  EXPECT_EQ(k_table_get_data_item(k_node_get_table(twin), 5),
            k_table_get_data_item(k_node_get_table(z), 5));
  ASSERT_EQ(k_domain_compile(unfolded), 0);
  int tag[3] = {};
  k_junction_tree_t jt = k_domain_get_first_junction_tree(unfolded);
  ASSERT_EQ(k_jt_set_backpointer(jt, tag) | k_clique_set_backpointer(k_jt_get_root(jt), tag + 1) |
                k_class_set_backpointer(h->leaf, tag + 2),
            0);
  EXPECT_TRUE(k_jt_get_backpointer(jt) == tag &&
              k_clique_get_backpointer(k_jt_get_root(jt)) == tag + 1);
  EXPECT_EQ(k_node_get_home_backpointer(k_domain_get_first_node(as_domain(h->leaf))), tag + 2);
  k_node_t m1 = k_domain_get_node_by_name(as_domain(h->top), "M1");
  EXPECT_NULL_WITH(k_node_clone(k_node_get_outputs(m1)[0]), K_ERROR_USAGE);
  EXPECT_NULL_WITH(k_domain_clone(as_domain(h->top)), K_ERROR_USAGE);
  EXPECT_NULL_WITH(k_cc_add_domain(h->cc, extra, "Leaf"), K_ERROR_TWICE);
  EXPECT_NULL_WITH(k_cc_add_domain(h->cc, unfolded, "Flat"), K_ERROR_USAGE);  // dotted names
  ASSERT_EQ(k_cc_add_domain(h->cc, extra, "Extra"), reinterpret_cast<k_class_t>(extra));
  k_class_collection_t other = k_new_class_collection();
  k_class_t moved = k_cc_new_class(other, "Leaf");
  EXPECT_FAILS(k_cc_add_classes(h->cc, other), K_ERROR_TWICE);
  ASSERT_EQ(k_class_set_name(moved, "Other") | k_cc_add_classes(h->cc, other), 0);
  EXPECT_TRUE(k_class_get_class_collection(moved) == h->cc && !k_cc_get_members(other)[0]);
  k_cc_delete(other);
  ASSERT_EQ(k_node_delete(k_domain_get_node_by_name(as_domain(h->top), "z")), 0);
  EXPECT_TRUE(source(unfolded, "M3.L2.x").empty());
  k_domain_t last = k_class_create_domain(h->top);
  delete h;
  EXPECT_TRUE(source(last, "M1.w").empty());
  for (k_domain_t d : {unfolded, last}) k_domain_delete(d);
}

// Bindings can close what no class body holds: a directed cycle (an input bound to its own
// output), and one node bound to two inputs of one child.
TEST(Classes, UnfoldingRefusesWhatOnlyBindingsClose) {
  k_class_collection_t cc = k_new_class_collection();
  k_class_t leaf = k_cc_new_class(cc, "Leaf"), top = k_cc_new_class(cc, "Top");
  k_domain_t l = as_domain(leaf), t = as_domain(top);
  k_node_t u = chance(l, "u", 2), v = chance(l, "v", 2), y = chance(l, "y", 2);
  define(y, {u, v}, "y");
  for (k_node_t input : {u, v}) ASSERT_EQ(k_node_add_to_inputs(input), 0);
  ASSERT_EQ(k_node_add_to_outputs(y), 0);
  k_node_t i = instance(top, leaf, "I");
  ASSERT_EQ(k_node_set_input(i, u, k_node_get_output(i, y)), 0);
  EXPECT_NULL_WITH(k_class_create_domain(top), K_ERROR_CYCLIC_NETWORK);

  k_node_t d = chance(t, "d", 2);
  ASSERT_EQ(k_node_set_input(i, u, d) | k_node_set_input(i, v, d), 0);
  EXPECT_NULL_WITH(k_class_create_domain(top), K_ERROR_USAGE);
  k_cc_delete(cc);
}

TEST(Classes, HierarchyAndNameRefusalsLeaveTheCollectionAsItWas) {
  Hierarchy h;
  EXPECT_NULL_WITH(k_class_new_instance(h.top, h.top), K_ERROR_CYCLIC_INSTANCE_HIERARCHY);
  EXPECT_NULL_WITH(k_class_new_instance(h.leaf, h.top), K_ERROR_CYCLIC_INSTANCE_HIERARCHY);
  k_node_t m1 = k_domain_get_node_by_name(as_domain(h.top), "M1");
  EXPECT_FAILS(k_node_substitute_class(m1, h.top), K_ERROR_CYCLIC_INSTANCE_HIERARCHY);
  EXPECT_EQ(k_node_get_instance_class(m1), h.mid);
  EXPECT_NULL_WITH(k_cc_new_class(h.cc, "a.b"), K_ERROR_INVALID_NAME);
  EXPECT_FAILS(k_class_set_name(h.mid, "a.b"), K_ERROR_INVALID_NAME);
  EXPECT_FAILS(k_class_set_name(h.mid, "Leaf"), K_ERROR_TWICE);
  EXPECT_FAILS(k_class_set_name(h.mid, nullptr), K_ERROR_USAGE);
  EXPECT_EQ(k_class_set_name(h.mid, "Middle"), 0);
  EXPECT_EQ(k_cc_get_class_by_name(h.cc, "Middle"), h.mid);
  k_node_t a = k_domain_get_node_by_name(as_domain(h.mid), "a");
  EXPECT_EQ(k_node_get_input(m1, a), k_domain_get_node_by_name(as_domain(h.top), "r"));
  EXPECT_EQ(k_node_get_master(k_node_get_outputs(m1)[0]),
            k_domain_get_node_by_name(as_domain(h.mid), "m"));
  EXPECT_FAILS(k_node_set_name(m1, "p.q"), K_ERROR_INVALID_NAME);
  // Tied states: an output with instances, a clone, a bound actual node.
  k_node_t y = k_domain_get_node_by_name(as_domain(h.leaf), "y");
  EXPECT_FAILS(k_node_set_number_of_states(y, 4), K_ERROR_USAGE);
  EXPECT_FAILS(k_node_set_number_of_states(k_node_get_outputs(m1)[0], 4), K_ERROR_USAGE);
  EXPECT_FAILS(k_node_set_number_of_states(k_domain_get_node_by_name(as_domain(h.top), "r"), 3),
               K_ERROR_USAGE);
  EXPECT_FAILS(k_node_delete(k_node_get_outputs(m1)[0]), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_delete(as_domain(h.top)), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_compile(as_domain(h.top)), K_ERROR_USAGE);
}

// Every instance agrees with its class: the class lists it, it has one
// clone per output (same domain, pointing back) and bindings of inputs to
// compatible nodes of its own class; lists name only live nodes of the class.
void check_invariants(const kelva::ClassCollection& cc) {
  for (kelva::Class* c : cc.members()) {
    std::vector<const kelva::Node*> nodes;
    for (kelva::Node* n = c->body().first_node(); n; n = n->next) nodes.push_back(n);
    auto in_body = [&](const kelva::Node* n) {
      return std::find(nodes.begin(), nodes.end(), n) != nodes.end();
    };
    for (kelva::Node* n : c->inputs) ASSERT_TRUE(in_body(n) && !c->outputs.contains(n));
    for (kelva::Node* n : c->outputs) ASSERT_TRUE(in_body(n));
    for (kelva::Node* i : c->instances) {
      ASSERT_TRUE(i->is(kelva::ObjectTag::node) && i->instance_data->of == c);
      ASSERT_TRUE(cc.members().contains(i->domain().owner_class));
    }
    for (kelva::Node* n = c->body().first_node(); n; n = n->next) {
      if (n->master != nullptr) {
        ASSERT_TRUE(in_body(n->clone_instance));
        ASSERT_EQ(n->clone_instance->instance_data->clone_of(n->master), n);
      }
      if (n->instance_data == nullptr) continue;
      const kelva::InstanceData& data = *n->instance_data;
      ASSERT_TRUE(data.of->instances.contains(n));
      ASSERT_EQ(data.clones.size(), data.of->outputs.size());
      for (const auto& k : data.clones) {
        ASSERT_TRUE(data.of->outputs.contains(k.output) && in_body(k.clone));
        ASSERT_TRUE(k.clone->master == k.output && k.clone->clone_instance == n);
      }
      for (const auto& b : data.bindings) {
        ASSERT_TRUE(data.of->inputs.contains(b.input) && in_body(b.actual));
        ASSERT_EQ(b.input->state_count(), b.actual->state_count());
      }
    }
  }
}

std::vector<k_node_t> nodes_of(k_class_t c) {
  std::vector<k_node_t> out;
  for (k_node_t n = k_domain_get_first_node(as_domain(c)); n; n = k_node_get_next(n))
    out.push_back(n);
  return out;
}

TEST(Classes, RandomEditSequencesKeepInstancesConsistent) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    std::mt19937 rng(seed);
    auto pick = [&](auto size) { return static_cast<std::size_t>(rng() % size); };
    k_class_collection_t cc = k_new_class_collection();
    int named = 0;
    for (int step = 0; step < 300; ++step) {
      k_class_t* members = k_cc_get_members(cc);
      std::size_t count = 0;
      while (members[count]) ++count;
      if (count == 0 || pick(12) == 0) {
        k_cc_new_class(cc, (std::string("C").append(std::to_string(named++))).c_str());
        continue;
      }
      k_class_t c = members[pick(count)], other = members[pick(count)];
      std::vector<k_node_t> nodes = nodes_of(c), io = nodes_of(other);
      if (nodes.empty() || io.empty()) {
        chance(as_domain(nodes.empty() ? c : other), "first", 2);
        continue;
      }
      k_node_t n = nodes[pick(nodes.size())], m = nodes[pick(nodes.size())],
               formal = io[pick(io.size())];
      k_domain_t d = nullptr;
      const std::function<void()> edits[] = {
          [&] { chance(as_domain(c), std::string("n").append(std::to_string(step)), 2 + pick(2)); },
          [&] { k_node_add_parent(n, m); },
          [&] { k_node_add_to_inputs(n); },
          [&] { k_node_add_to_outputs(n); },
          [&] { k_node_remove_from_inputs(n); },
          [&] { k_node_remove_from_outputs(n); },
          [&] { k_class_new_instance(c, other); },
          [&] { k_node_delete(n); },
          [&] { k_node_set_input(n, formal, m); },
          [&] { k_node_unset_input(n, formal); },
          [&] { k_node_substitute_class(n, other); },
          [&] { k_class_delete(pick(4) == 0 ? c : nullptr); },  // mostly refused
          [&] { ASSERT_NE(d = k_class_create_domain(c), nullptr) << k_error_code(); },
      };
      edits[pick(std::size(edits))]();
      if (d != nullptr) k_domain_delete(d);
      check_invariants(*reinterpret_cast<kelva::ClassCollection*>(cc));
      if (testing::Test::HasFatalFailure()) return;
    }
    k_cc_delete(cc);
  }
}

}  // namespace

// A clone of a chain-graph domain has the components: the same NET text,
// and the same beliefs with and without evidence.
TEST(Classes, DomainCloneCarriesChainGraphComponents) {
  const char* text =
      "net {}\nnode P { states = (\"p0\" \"p1\"); }\nnode A { states = (\"a0\" \"a1\"); }\n"
      "node B { states = (\"b0\" \"b1\"); }\nnode C { states = (\"c0\" \"c1\"); }\n"
      "potential (P) { data = (0.3 0.7); }\npotential (C | B) { data = ((0.9 0.1) (0.4 0.6)); }\n"
      "potential (A B | P) { data = (((1 2) (3 4)) ((5 1) (2 7))); }\n";
  k_domain_t d = k_net_parse_domain_string(text, nullptr, nullptr);
  ASSERT_NE(d, nullptr);
  k_domain_t copy = k_domain_clone(d);
  ASSERT_NE(copy, nullptr) << k_error_name(k_error_code());
  char* original_text = k_domain_to_net_string(d);
  char* copy_text = k_domain_to_net_string(copy);
  EXPECT_STREQ(copy_text, original_text);
  std::free(original_text);
  std::free(copy_text);
  ASSERT_EQ(k_domain_compile(d) | k_domain_compile(copy), 0);
  expect_same_beliefs(d, copy);
  for (k_domain_t x : {d, copy})
    ASSERT_EQ(k_node_select_state(k_domain_get_node_by_name(x, "C"), 1), 0);
  expect_same_beliefs(d, copy);
  k_domain_delete(copy);
  k_domain_delete(d);
}
