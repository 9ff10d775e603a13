#include "compile/potential_assignment.h"

#include <algorithm>
#include <cinttypes>
#include <string>
#include <vector>

#include "compile/compile_log.h"
#include "compile/junction_forest.h"
#include "network/domain.h"
#include "network/error.h"
#include "structure/structure.h"

namespace kelva {

namespace {

bool in_component(const Domain& domain, const Node& node) {
  for (const auto& c : domain.chain_components)
    if (c->members.contains(&node)) return true;
  return false;
}

std::string joined_names(const NodeList& nodes) {
  std::string text;
  for (Node* n : nodes) {
    if (!text.empty()) text += ", ";
    text += n->name_or_generate();
  }
  return text;
}

// Strictly better as the clique of a table: smaller discrete size, then
// fewer CG entries.
bool better(const Clique& a, const Clique& b) noexcept {
  if (a.discrete_size != b.discrete_size) return a.discrete_size < b.discrete_size;
  return a.cg_entries < b.cg_entries;
}

class Assignment {
 public:
  explicit Assignment(Forest& forest)
      : forest_(forest), members_(forest.cliques.size()), cliques_of_(forest.nodes.size()) {
    all_.reserve(forest.cliques.size());
    for (const auto& c : forest.cliques) {
      all_.push_back(c.get());
      std::vector<std::size_t>& m = members_[c->number];
      for (Node* n : c->members) {
        m.push_back(n->forest_slot);
        cliques_of_[n->forest_slot].push_back(c.get());
      }
      std::sort(m.begin(), m.end());
    }
  }

  void run(const CompileLog& log) {
    for (NodeSlot& slot : forest_.nodes) place(slot);
    log.write("\n\nAssignment of potentials to cliques:\n\n");
    for (const NodeSlot& slot : forest_.nodes)
      if (slot.assigned != nullptr)
        log.write("    Node %s assigned to clique %" PRIu64 "\n",
                  slot.node->name_or_generate().c_str(), slot.assigned->number);
    for (const NodeSlot& slot : forest_.nodes)
      if (slot.tree != nullptr) slot.tree->nodes.push_back(slot.node);
    forest_.components.reserve(forest_.domain->chain_components.size());
    for (const auto& component : forest_.domain->chain_components) place(*component, log);
  }

 private:
  bool holds(const Clique& clique, const Table& table) const {
    const std::vector<std::size_t>& m = members_[clique.number];
    for (const Node* n : table.nodes())
      if (n->forest_slot >= forest_.nodes.size() ||
          !std::binary_search(m.begin(), m.end(), n->forest_slot))
        return false;
    return true;
  }

  Clique* best_holding(const std::vector<Clique*>& cliques, const Table& table) const {
    Clique* best = nullptr;
    for (Clique* c : cliques)
      if (holds(*c, table) && (best == nullptr || better(*c, *best))) best = c;
    return best;
  }

  // The clique holding the table whose parent does not hold it: the one
  // nearest the root, where CG propagation needs a continuous node's table.
  Clique* nearest_root_holding(const std::vector<Clique*>& cliques, const Table& table) const {
    for (Clique* c : cliques)
      if (holds(*c, table) && (c->parent == nullptr || !holds(*c->parent, table))) return c;
    return nullptr;
  }

  void place(NodeSlot& slot) {
    Node& node = *slot.node;
    const std::vector<Clique*>& mine = cliques_of_[node.forest_slot];
    if (const Table* table = node.table()) {
      Clique* c = node.is_discrete()     ? best_holding(mine, *table)
                  : node.is_continuous() ? nearest_root_holding(mine, *table)
                                         : best_holding(all_, *table);
      require(c != nullptr, K_ERROR_ERROR);
      slot.assigned = c;
      slot.assigned_plan = IndexPlan::between(*c->table, *table);
      slot.tree = c->tree;
    }
    if (node.kind() == K_KIND_OTHER) return;
    Clique* home = nullptr;
    for (Clique* c : mine)
      if (home == nullptr || c->discrete_size < home->discrete_size) home = c;
    require(home != nullptr, K_ERROR_ERROR);
    slot.home = home;
    const std::vector<std::size_t>& counts = home->table->state_counts();
    if (node.is_discrete()) {
      const std::size_t position = home->members.index_of(&node);
      slot.home_plan = IndexPlan(counts, std::span<const std::size_t>(&position, 1));
    } else {
      slot.home_plan = IndexPlan(counts, {});
    }
    slot.marginal.assign(node.state_count(), 0.0);
    if (slot.tree == nullptr) slot.tree = home->tree;
  }

  void place(const ChainComponent& component, const CompileLog& log) {
    const Table& table = *component.table;
    Clique* c = best_holding(all_, table);
    require(c != nullptr, K_ERROR_ERROR);
    forest_.components.push_back(
        ComponentSlot{&component, c, IndexPlan::between(*c->table, table)});
    log.write("    Chain graph component (%s):\n\tParents assigned to clique %" PRIu64 "\n",
              joined_names(component.members).c_str(), c->number);
    log.write("    Potential (%s) assigned to clique %" PRIu64 "\n",
              joined_names(table.nodes()).c_str(), c->number);
  }

  Forest& forest_;
  std::vector<Clique*> all_;                       // every clique in number order
  std::vector<std::vector<std::size_t>> members_;  // per clique, its members' slots, sorted
  std::vector<std::vector<Clique*>> cliques_of_;   // per slot, the cliques holding the node
};

}  // namespace

void give_default_tables(Domain& domain, const CompileLog& log) {
  bool head = false;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next) {
    if (n->table() != nullptr || !can_have_table(*n) || in_component(domain, *n)) continue;
    if (!head) log.write("\n\nChecking tables for all nodes:\n\n");
    head = true;
    log.write("    Warning: Node `%s' has no table\n", n->name_or_generate().c_str());
    node_table(*n);
  }
}

void assign_potentials(Forest& forest, const CompileLog& log) { Assignment(forest).run(log); }

}  // namespace kelva
