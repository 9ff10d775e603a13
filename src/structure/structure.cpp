#include "structure/structure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "structure/classes.h"
#include "table/size.h"
#include "table/table.h"

namespace kelva {

namespace {

// Reshaped copies of the tables an edit touches.  Copies are made and
// reshaped first (any of that may throw); commit() swaps them all in and
// cannot fail, so an edit changes every table or none.
class EditBatch {
 public:
  /// A copy of `table` to reshape; swapped into `table` at commit.
  Table& copy_of(Table& table) {
    items_.reserve(items_.size() + 1);
    items_.emplace_back(&table, table.clone());
    return *items_.back().second;
  }
  void commit() noexcept {
    for (auto& [table, copy] : items_) table->swap_contents(*copy);
  }
  bool empty() const noexcept { return items_.empty(); }

 private:
  std::vector<std::pair<Table*, std::unique_ptr<Table>>> items_;
};

bool holds(const Table* table, const Node* node) noexcept {
  return table != nullptr && table->nodes().contains(node);
}

// The tables of `owner` that hold `member`.
std::vector<Table*> tables_holding(Node& owner, const Node& member) {
  std::vector<Table*> result;
  for (Table* t : {owner.table(), owner.experience_table(), owner.fading_table()})
    if (holds(t, &member)) result.push_back(t);
  return result;
}

std::vector<Node*> discrete_parents_newest_first(const Node& node) {
  std::vector<Node*> result;
  for (auto it = node.parents().end(); it != node.parents().begin();) {
    --it;
    if ((*it)->is_discrete()) result.push_back(*it);
  }
  return result;
}

bool is_chance_decision_or_utility(const Node& node) noexcept {
  const k_category_t c = node.category();
  return c == K_CATEGORY_CHANCE || c == K_CATEGORY_DECISION || c == K_CATEGORY_UTILITY;
}

// The scratch of a graph search: the stack and the nodes met, an
// open-addressing table of pointers.  Each thread keeps one and empties it
// after a search, so that a search allocates nothing once the table has
// grown to the graph's size (readers add a link per parent, each with a
// search for a cycle).
class SearchScratch {
 public:
  std::vector<const Node*> stack;

  /// Adds `node`; false when it was met before.
  bool insert(const Node* node) {
    if ((used_.size() + 1) * 2 > slots_.size()) grow();
    std::size_t i = slot_of(node);
    while (slots_[i] != nullptr) {
      if (slots_[i] == node) return false;
      i = (i + 1) & (slots_.size() - 1);
    }
    slots_[i] = node;
    used_.push_back(i);
    return true;
  }

  void clear() noexcept {
    for (const std::size_t i : used_) slots_[i] = nullptr;
    used_.clear();
    stack.clear();
  }

 private:
  std::size_t slot_of(const Node* node) const noexcept {
    const auto bits = reinterpret_cast<std::uintptr_t>(node) >> 4;
    return static_cast<std::size_t>(bits * 0x9E3779B97F4A7C15ULL) & (slots_.size() - 1);
  }

  void grow() {
    std::vector<const Node*> met;
    met.reserve(used_.size() + 1);
    for (const std::size_t i : used_) met.push_back(slots_[i]);
    std::vector<const Node*> slots(std::max<std::size_t>(64, slots_.size() * 2), nullptr);
    used_.reserve(slots.size() / 2);
    slots_.swap(slots);
    used_.clear();
    for (const Node* n : met) insert(n);
  }

  std::vector<const Node*> slots_;
  std::vector<std::size_t> used_;
};

thread_local SearchScratch search_scratch;

// The thread's scratch for one search, emptied when the search ends (by
// return or by throw).  Searches do not nest.
class Search {
 public:
  Search() = default;
  ~Search() { search_scratch.clear(); }
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;

  SearchScratch* operator->() noexcept { return &search_scratch; }
};

// Walks from `start` along links in one direction, through function nodes
// only, and tells whether a node satisfying `goal` is met (start included).
template <class Goal>
bool reaches_through_functions(const Node& start, bool downwards, Goal goal) {
  // Most starts have no function node next to them: their neighbours are
  // all the search would look at.
  if (goal(start)) return true;
  bool deeper = false;
  for (const Node* next : downwards ? start.children() : start.parents()) {
    if (goal(*next)) return true;
    if (next->category() == K_CATEGORY_FUNCTION) deeper = true;
  }
  if (!deeper) return false;
  Search search;
  search->stack.push_back(&start);
  search->insert(&start);
  while (!search->stack.empty()) {
    const Node* n = search->stack.back();
    search->stack.pop_back();
    if (goal(*n)) return true;
    if (n != &start && n->category() != K_CATEGORY_FUNCTION) continue;
    for (Node* next : downwards ? n->children() : n->parents())
      if (search->insert(next)) search->stack.push_back(next);
  }
  return false;
}

// Whether `node` is a member of a chain-graph component.  Its distribution is
// then the component's table: it has no table of its own, and its links are
// fixed by the component.
bool in_chain_component(const Node& node) {
  for (const auto& c : node.domain().chain_components)
    if (c->members.contains(&node)) return true;
  return false;
}

// The tables of chain-graph components that hold `node`.
std::vector<Table*> component_tables_holding(const Node& node) {
  std::vector<Table*> result;
  for (const auto& c : node.domain().chain_components)
    if (holds(c->table.get(), &node)) result.push_back(c->table.get());
  return result;
}

void refuse_parent_sort(const Node& child, const Node& parent) {
  require(child.category() != K_CATEGORY_INSTANCE && parent.category() != K_CATEGORY_INSTANCE);
  if (is_chance_decision_or_utility(child)) {
    require(parent.category() != K_CATEGORY_UTILITY);
    require(!(child.is_discrete() && parent.is_continuous()));
  }
}

}  // namespace

void flag_for_generation(Node& node, bool with_children) noexcept {
  node.needs_generation = true;
  if (with_children)
    for (Node* c : node.children()) c->needs_generation = true;
}

bool can_have_table(const Node& node) noexcept {
  switch (node.category()) {
    case K_CATEGORY_CHANCE:
    case K_CATEGORY_DECISION:
    case K_CATEGORY_UTILITY:
      return true;
    case K_CATEGORY_FUNCTION:
      return node.is_discrete();
    default:
      return false;
  }
}

Table& node_table(Node& node) {
  require(can_have_table(node) && (node.table() != nullptr || !in_chain_component(node)));
  if (node.table() != nullptr) return *node.table();
  // The discrete parents newest first, the node, the continuous parents.
  std::vector<Node*> members;
  members.reserve(node.parents().size() + 1);
  if (node.category() != K_CATEGORY_FUNCTION)
    for (auto it = node.parents().end(); it != node.parents().begin();)
      if ((*--it)->is_discrete()) members.push_back(*it);
  if (node.kind() != K_KIND_OTHER) members.push_back(&node);
  if (node.category() != K_CATEGORY_FUNCTION)
    for (Node* p : node.parents())
      if (p->is_continuous()) members.push_back(p);
  node.table_slot().reset(new Table(node.domain(), members, TableRole::conditional, &node));
  // A decision's table is its policy; until one is found or entered, every
  // option is equally likely.
  if (node.category() == K_CATEGORY_DECISION) {
    double* data = node.table()->data();
    std::fill(data, data + node.table()->size(), 1.0 / static_cast<double>(node.state_count()));
  }
  return *node.table();
}

Table& experience_table(Node& node) {
  require(node.category() == K_CATEGORY_CHANCE);
  if (node.experience_table() == nullptr)
    node.experience_slot().reset(new Table(node.domain(), discrete_parents_newest_first(node),
                                           TableRole::experience, &node));
  return *node.experience_table();
}

Table& fading_table(Node& node) {
  require(node.category() == K_CATEGORY_CHANCE && node.is_discrete());
  if (node.fading_table() == nullptr) {
    TablePtr table(
        new Table(node.domain(), discrete_parents_newest_first(node), TableRole::fading, &node));
    double* data = table->data();
    std::fill(data, data + table->size(), 1.0);
    node.fading_slot() = std::move(table);
  }
  return *node.fading_table();
}

bool reaches(const Node& ancestor, const Node& node) {
  // Readers add a node's parents before its children exist: no search then.
  if (&ancestor == &node) return true;
  if (ancestor.children().empty()) return false;
  Search search;
  search->stack.push_back(&ancestor);
  search->insert(&ancestor);
  while (!search->stack.empty()) {
    const Node* n = search->stack.back();
    search->stack.pop_back();
    if (n == &node) return true;
    for (Node* c : n->children())
      if (search->insert(c)) search->stack.push_back(c);
  }
  return false;
}

bool functional_dependency_ok(const Node& child, const Node& parent) {
  // A utility node's value is known only once the policies are, and those
  // depend on every chance and decision node.  So no chance or decision node
  // may depend on a utility node through a chain of function nodes.
  const bool from_utility = reaches_through_functions(
      parent, false, [](const Node& n) { return n.category() == K_CATEGORY_UTILITY; });
  if (!from_utility) return true;
  const bool to_model = reaches_through_functions(child, true, [](const Node& n) {
    return n.category() == K_CATEGORY_CHANCE || n.category() == K_CATEGORY_DECISION;
  });
  return !to_model;
}

void add_parent(Node& child, Node& parent) {
  Domain& domain = child.domain();
  require(&parent.domain() == &domain);
  require(!child.parents().contains(&parent));
  refuse_parent_sort(child, parent);
  require(!in_chain_component(child));
  require(takes_parents(child));
  if (reaches(child, parent)) throw Error(K_ERROR_CYCLIC_NETWORK);
  if (!functional_dependency_ok(child, parent)) throw Error(K_ERROR_CYCLIC_FUNCTIONAL_DEPENDENCY);

  child.parents_mut().reserve_more(1);
  parent.children_mut().reserve_more(1);

  if (child.category() != K_CATEGORY_FUNCTION && parent.kind() != K_KIND_OTHER) {
    EditBatch batch;
    auto extend = [&](Table* table) {
      if (table == nullptr) return;
      Table& copy = batch.copy_of(*table);
      if (parent.is_discrete()) copy.insert_discrete_front(&parent);
      else copy.append_continuous(&parent);
    };
    extend(child.table());
    if (parent.is_discrete()) extend(child.experience_table());
    extend(child.fading_table());
    batch.commit();
    domain.uncompile();
  }
  domain.forget_graph_queries();
  child.parents_mut().push_back(&parent);
  parent.children_mut().push_back(&child);
  flag_for_generation(child, false);
}

void remove_parent(Node& child, Node& parent) {
  require(&parent.domain() == &child.domain());
  require(child.parents().contains(&parent));
  require(!in_chain_component(child));
  EditBatch batch;
  for (Table* t : tables_holding(child, parent)) batch.copy_of(*t).remove_node(&parent);
  batch.commit();
  child.parents_mut().remove(&parent);
  parent.children_mut().remove(&child);
  flag_for_generation(child, false);
  child.domain().uncompile();
  child.domain().forget_graph_queries();
}

void switch_parent(Node& child, Node& old_parent, Node& new_parent) {
  Domain& domain = child.domain();
  require(&old_parent.domain() == &domain && &new_parent.domain() == &domain);
  const std::size_t pos = child.parents().index_of(&old_parent);
  require(pos != NodeList::npos);
  require(!in_chain_component(child));
  require(!child.parents().contains(&new_parent));
  require(new_parent.kind() == old_parent.kind());
  require(!new_parent.is_discrete() || new_parent.state_count() == old_parent.state_count());
  refuse_parent_sort(child, new_parent);
  if (reaches(child, new_parent)) throw Error(K_ERROR_CYCLIC_NETWORK);
  if (!functional_dependency_ok(child, new_parent))
    throw Error(K_ERROR_CYCLIC_FUNCTIONAL_DEPENDENCY);

  new_parent.children_mut().reserve_more(1);
  for (Table* t : tables_holding(child, old_parent)) t->replace_node(&old_parent, &new_parent);
  child.parents_mut().replace(pos, &new_parent);
  old_parent.children_mut().remove(&child);
  new_parent.children_mut().push_back(&child);
  flag_for_generation(child, false);
  domain.uncompile();
  domain.forget_graph_queries();
}

namespace {

// Positional strides of a table's discrete nodes within a configuration of a
// larger node set: table index = sum of state * stride.
std::vector<std::uint64_t> strides_in(const Table& table, const std::vector<Node*>& all) {
  std::vector<std::uint64_t> strides(all.size(), 0);
  std::uint64_t stride = 1;
  for (std::size_t k = table.discrete_count(); k-- > 0;) {
    const Node* n = table.nodes()[k];
    for (std::size_t i = 0; i < all.size(); ++i)
      if (all[i] == n) strides[i] = stride;
    stride *= n->state_count();
  }
  return strides;
}

// Calls f(indexes...) for every configuration of `all` (last node fastest),
// with each table's index for that configuration.
template <std::size_t N, class F>
void for_each_configuration(const std::vector<Node*>& all,
                            const std::array<std::vector<std::uint64_t>, N>& strides, F f) {
  std::vector<std::size_t> state(all.size(), 0);
  std::array<std::uint64_t, N> index{};
  for (;;) {
    f(index);
    std::size_t k = all.size();
    for (;;) {
      if (k == 0) return;
      --k;
      if (++state[k] < all[k]->state_count()) {
        for (std::size_t t = 0; t < N; ++t) index[t] += strides[t][k];
        break;
      }
      for (std::size_t t = 0; t < N; ++t) index[t] -= strides[t][k] * (state[k] - 1);
      state[k] = 0;
    }
  }
}

// Gives `node` the contents of `table`: swapped into the table it has (which
// keeps its handle and Java peer), or the table itself when it has none.
void install_table(Node& node, std::unique_ptr<Table> table) noexcept {
  if (node.table() != nullptr) node.table()->swap_contents(*table);
  else node.table_slot().reset(table.release());
}

}  // namespace

void reverse_edge(Node& from, Node& to) {
  Domain& domain = from.domain();
  require(&to.domain() == &domain);
  require(to.parents().contains(&from));
  require(from.category() == K_CATEGORY_CHANCE && from.is_discrete());
  require(to.category() == K_CATEGORY_CHANCE && to.is_discrete());
  require(!in_chain_component(from) && !in_chain_component(to));
  // Another path from -> ... -> to would become a cycle.
  for (Node* c : from.children())
    if (c != &to && reaches(*c, to)) throw Error(K_ERROR_CYCLIC_NETWORK);

  // New parents: each node gets the other's parents as well; `to` becomes a
  // parent of `from`.
  std::vector<Node*> add_to_from;
  for (Node* p : to.parents())
    if (p != &from && !from.parents().contains(p)) add_to_from.push_back(p);
  std::vector<Node*> add_to_to;
  for (Node* p : from.parents())
    if (!to.parents().contains(p)) add_to_to.push_back(p);

  std::vector<Node*> new_from_parents(from.parents().begin(), from.parents().end());
  new_from_parents.insert(new_from_parents.end(), add_to_from.begin(), add_to_from.end());
  new_from_parents.push_back(&to);
  std::vector<Node*> new_to_parents;
  for (Node* p : to.parents())
    if (p != &from) new_to_parents.push_back(p);
  new_to_parents.insert(new_to_parents.end(), add_to_to.begin(), add_to_to.end());

  // Table node orders: discrete parents newest first, then the node.
  std::vector<Node*> to_members(new_to_parents.rbegin(), new_to_parents.rend());
  to_members.push_back(&to);
  std::vector<Node*> from_members(new_from_parents.rbegin(), new_from_parents.rend());
  from_members.push_back(&from);

  // Missing tables count as all 0; the new ones are installed at the end.
  const Table* old_from = from.table();
  const Table* old_to = to.table();
  auto new_to_table = std::make_unique<Table>(domain, to_members, TableRole::conditional, &to);
  auto new_from_table =
      std::make_unique<Table>(domain, from_members, TableRole::conditional, &from);
  require(new_from_table->size() != kSizeTooLarge, K_ERROR_SIZE_TOO_LARGE);

  // Joint over (from's new members) = P(from | pa) P(to | pa', from).
  const std::vector<Node*>& all = from_members;
  const std::vector<std::uint64_t> no_strides(all.size(), 0);
  std::array<std::vector<std::uint64_t>, 4> strides{
      old_from != nullptr ? strides_in(*old_from, all) : no_strides,
      old_to != nullptr ? strides_in(*old_to, all) : no_strides, strides_in(*new_to_table, all),
      strides_in(*new_from_table, all)};
  const double* pf = old_from != nullptr ? old_from->data() : nullptr;
  const double* pt = old_to != nullptr ? old_to->data() : nullptr;
  double* nt = new_to_table->data();
  double* nf = new_from_table->data();
  for_each_configuration<4>(all, strides, [&](const std::array<std::uint64_t, 4>& i) {
    const double joint = pf != nullptr && pt != nullptr ? pf[i[0]] * pt[i[1]] : 0.0;
    nf[i[3]] = joint;
    nt[i[2]] += joint;
  });
  const double uniform = 1.0 / static_cast<double>(from.state_count());
  for_each_configuration<4>(all, strides, [&](const std::array<std::uint64_t, 4>& i) {
    nf[i[3]] = nt[i[2]] > 0.0 ? nf[i[3]] / nt[i[2]] : uniform;
  });

  // Experience and fading tables do not survive a change of parents this
  // large; they are dropped with the old tables.
  from.parents_mut().reserve_more(add_to_from.size() + 1);
  to.parents_mut().reserve_more(add_to_to.size());
  to.children_mut().reserve_more(1);
  for (Node* p : add_to_from) p->children_mut().reserve_more(1);
  for (Node* p : add_to_to) p->children_mut().reserve_more(1);

  install_table(from, std::move(new_from_table));
  install_table(to, std::move(new_to_table));
  from.experience_slot().reset();
  from.fading_slot().reset();
  to.experience_slot().reset();
  to.fading_slot().reset();
  to.parents_mut().remove(&from);
  from.children_mut().remove(&to);
  for (Node* p : add_to_to) {
    to.parents_mut().push_back(p);
    p->children_mut().push_back(&to);
  }
  for (Node* p : add_to_from) {
    from.parents_mut().push_back(p);
    p->children_mut().push_back(&from);
  }
  from.parents_mut().push_back(&to);
  to.children_mut().push_back(&from);
  flag_for_generation(from, false);
  flag_for_generation(to, false);
  domain.uncompile();
  domain.forget_graph_queries();
}

void set_number_of_states(Node& node, std::size_t count) {
  require(!states_tied_by_classes(node));
  require(node.is_discrete() && count >= 1 && node.subtype() != K_SUBTYPE_BOOLEAN);
  const std::size_t old = node.state_count();
  if (count == old) return;
  EditBatch batch;
  for (Table* t : tables_holding(node, node))
    batch.copy_of(*t).change_state_count(&node, old, count);
  for (Node* c : node.children())
    for (Table* t : tables_holding(*c, node))
      batch.copy_of(*t).change_state_count(&node, old, count);
  for (Table* t : node.domain().free_tables())
    if (holds(t, &node)) batch.copy_of(*t).change_state_count(&node, old, count);
  for (Table* t : component_tables_holding(node))
    batch.copy_of(*t).change_state_count(&node, old, count);
  node.resize_states(count);
  batch.commit();
  flag_for_generation(node, true);
  node.domain().uncompile();
}

std::vector<std::size_t> state_order(const Node& node, const std::vector<const char*>& order) {
  require(node.is_discrete());
  const std::size_t n = node.state_count();
  require(order.size() == n);
  std::vector<std::size_t> new_to_old(n);
  std::vector<bool> used(n, false);
  for (std::size_t i = 0; i < n; ++i) {
    require(order[i] != nullptr);
    std::size_t found = n;
    for (std::size_t s = 0; s < n; ++s) {
      if (std::string_view(node.state_label(s)) != order[i]) continue;
      require(found == n);  // the label must name one state only
      found = s;
    }
    require(found < n && !used[found]);
    used[found] = true;
    new_to_old[i] = found;
  }
  return new_to_old;
}

void reorder_states(Node& node, const std::vector<const char*>& order) {
  const std::vector<std::size_t> new_to_old = state_order(node, order);
  EditBatch batch;
  for (Table* t : tables_holding(node, node)) batch.copy_of(*t).permute_states(&node, new_to_old);
  for (Node* c : node.children())
    for (Table* t : tables_holding(*c, node)) batch.copy_of(*t).permute_states(&node, new_to_old);
  for (Table* t : node.domain().free_tables())
    if (holds(t, &node)) batch.copy_of(*t).permute_states(&node, new_to_old);
  for (Table* t : component_tables_holding(node))
    batch.copy_of(*t).permute_states(&node, new_to_old);
  node.permute_states(new_to_old);
  batch.commit();
  flag_for_generation(node, true);
  node.domain().uncompile();
}

void set_discrete_type(Node& node, k_subtype_t subtype) {
  require(node.is_discrete());
  require(subtype >= K_SUBTYPE_LABEL && subtype <= K_SUBTYPE_INTERVAL);
  require(subtype != K_SUBTYPE_BOOLEAN || node.state_count() == 2);
  node.set_subtype(subtype);
  flag_for_generation(node, true);
}

void delete_node(Node& node) {
  Domain& domain = node.domain();
  release_class_ties(node);
  EditBatch batch;
  for (Node* c : node.children())
    for (Table* t : tables_holding(*c, node)) batch.copy_of(*t).remove_node(&node);
  for (Table* t : domain.free_tables())
    if (holds(t, &node)) batch.copy_of(*t).remove_node(&node);
  batch.commit();
  flag_for_generation(node, true);
  // A chain-graph component that holds the node cannot stand without it.
  std::erase_if(domain.chain_components, [&](const std::unique_ptr<ChainComponent>& c) {
    return c->members.contains(&node) || c->parents.contains(&node);
  });
  for (Node* c : node.children()) c->parents_mut().remove(&node);
  for (Node* p : node.parents()) p->children_mut().remove(&node);
  domain.uncompile();
  domain.forget_graph_queries();
  domain.destroy_node(&node);
}

namespace {

// How the states of an interval node are regrouped: new state i takes the
// sum over (old state, weight) of weight times the old state's entries.
using StateMix = std::vector<std::vector<std::pair<std::size_t, double>>>;

// The copy `copy` of `original`, its axis of `node` already resized, filled
// from the original's data through `mix`.
void remix_axis(Table& copy, const Table& original, const Node& node, const StateMix& mix) {
  if (!original.has_data()) return;
  const auto& counts = original.state_counts();
  std::size_t axis = 0;
  while (original.nodes()[axis] != &node) ++axis;
  std::uint64_t inner = 1;
  for (std::size_t i = axis + 1; i < original.discrete_count(); ++i) inner *= counts[i];
  const std::uint64_t old_block = counts[axis] * inner, new_block = mix.size() * inner;
  const std::uint64_t outer = original.size() / old_block;
  const double* from = original.data();
  double* to = copy.data();
  for (std::uint64_t o = 0; o < outer; ++o)
    for (std::size_t s = 0; s < mix.size(); ++s)
      for (std::uint64_t i = 0; i < inner; ++i) {
        double v = 0.0;
        for (const auto& [old, weight] : mix[s])
          v += weight * from[o * old_block + old * inner + i];
        to[o * new_block + s * inner + i] = v;
      }
}

// Regroups the states of interval node `node` into new_values.size() - 1
// states, through `own` in its own table, `rows` in the tables of children
// and free tables, `counts` in children's experience tables and `factors`
// in their fading tables.
void regroup_intervals(Node& node, const std::vector<double>& new_values, const StateMix& own,
                       const StateMix& rows, const StateMix& counts, const StateMix& factors) {
  const std::size_t old = node.state_count(), count = new_values.size() - 1;
  EditBatch batch;
  auto edit = [&](Table* t, const StateMix& mix) {
    Table& copy = batch.copy_of(*t);
    copy.change_state_count(&node, old, count);
    remix_axis(copy, *t, node, mix);
  };
  for (Table* t : tables_holding(node, node)) edit(t, own);
  for (Node* c : node.children()) {
    if (holds(c->table(), &node)) edit(c->table(), rows);
    if (holds(c->experience_table(), &node)) edit(c->experience_table(), counts);
    if (holds(c->fading_table(), &node)) edit(c->fading_table(), factors);
  }
  for (Table* t : node.domain().free_tables())
    if (holds(t, &node)) edit(t, rows);
  for (Table* t : component_tables_holding(node)) edit(t, rows);
  node.resize_states(0);
  node.resize_states(count);
  for (std::size_t i = 0; i <= count; ++i) node.set_state_value(i, new_values[i]);
  batch.commit();
  flag_for_generation(node, true);
  node.domain().uncompile();
}

// The checks common to doubling and halving.
void require_interval_node(const Node& node) {
  if (!node.is_discrete() || node.subtype() != K_SUBTYPE_INTERVAL)
    throw Error(K_ERROR_USAGE, "not an interval node");
  for (const Node* c : node.children())
    if (c->is_continuous()) throw Error(K_ERROR_USAGE, "an interval node with a continuous child");
}

}  // namespace

// A bound at or beyond the largest double: NET text writes "infinity" for it.
bool unbounded(double x) noexcept { return !(std::fabs(x) < std::numeric_limits<double>::max()); }

void double_number_of_intervals(Node& node) {
  require(!states_tied_by_classes(node));
  require_interval_node(node);
  const std::size_t n = node.state_count();
  std::vector<double> v(n + 1);
  for (std::size_t i = 0; i <= n; ++i) v[i] = node.state_value(i);
  for (std::size_t i = 0; i < n; ++i)
    if (!(v[i] < v[i + 1]))
      throw Error(K_ERROR_INVALID_STATE_VALUES, "the interval bounds do not increase");
  // The width of the finite interval next to interval i, or 1.
  auto neighbour_width = [&](std::size_t i, bool below) {
    if (below && i + 2 <= n && !unbounded(v[i + 1]) && !unbounded(v[i + 2]))
      return v[i + 2] - v[i + 1];
    if (!below && i >= 1 && !unbounded(v[i - 1]) && !unbounded(v[i])) return v[i] - v[i - 1];
    return 1.0;
  };
  std::vector<double> values;
  values.reserve(2 * n + 1);
  StateMix own, rows, counts;
  for (std::size_t i = 0; i < n; ++i) {
    const double lo = v[i], hi = v[i + 1];
    double mid = 0.0;
    if (unbounded(lo) && unbounded(hi)) mid = 0.0;
    else if (unbounded(lo)) mid = hi - neighbour_width(i, true);
    else if (unbounded(hi)) mid = lo + neighbour_width(i, false);
    else mid = lo + (hi - lo) / 2.0;
    if (!(lo < mid && mid < hi))
      throw Error(K_ERROR_INVALID_STATE_VALUES, "an interval too narrow to split");
    values.push_back(lo);
    values.push_back(mid);
    for (int half = 0; half < 2; ++half) {
      own.push_back({{i, 0.5}});
      rows.push_back({{i, 1.0}});
    }
  }
  values.push_back(v[n]);
  counts = own;
  regroup_intervals(node, values, own, rows, counts, rows);
}

void halve_number_of_intervals(Node& node) {
  require(!states_tied_by_classes(node));
  require_interval_node(node);
  const std::size_t n = node.state_count();
  if (n % 2 != 0) throw Error(K_ERROR_USAGE, "an odd number of intervals");
  std::vector<double> values;
  StateMix own, rows;
  for (std::size_t i = 0; i < n; i += 2) {
    values.push_back(node.state_value(i));
    own.push_back({{i, 1.0}, {i + 1, 1.0}});
    rows.push_back({{i, 0.5}, {i + 1, 0.5}});
  }
  values.push_back(node.state_value(n));
  regroup_intervals(node, values, own, rows, own, rows);
}

}  // namespace kelva
