#include "compile/junction_forest.h"

#include <algorithm>

#include "compile/clique_order.h"
#include "compile/compile_log.h"
#include "compile/forest_log.h"
#include "compile/potential_assignment.h"
#include "network/error.h"
#include "platform/memory.h"
#include "table/size.h"

namespace kelva {

namespace {

// A record for every discrete, continuous and utility node, in node-list
// order; Node::forest_slot points at it.
void make_node_slots(Forest& forest) {
  std::size_t count = 0;
  for (Node* n = forest.domain->first_node(); n != nullptr; n = n->next)
    if (n->kind() != K_KIND_OTHER || n->category() == K_CATEGORY_UTILITY) ++count;
  forest.nodes.reserve(count);
  for (Node* n = forest.domain->first_node(); n != nullptr; n = n->next) {
    if (n->kind() == K_KIND_OTHER && n->category() != K_CATEGORY_UTILITY) continue;
    forest.nodes.push_back(NodeSlot{});
    forest.nodes.back().node = n;
    forest.nodes.back().one_state = n->is_discrete() && n->state_count() == 1;
    n->forest_slot = forest.nodes.size() - 1;
  }
}

// Per clique of the triangulation, the forest slots of its members, sorted.
std::vector<std::vector<std::size_t>> member_slots(const Forest& forest,
                                                   const Triangulation& triangulation) {
  std::vector<std::vector<std::size_t>> result(triangulation.cliques.size());
  for (std::size_t c = 0; c < result.size(); ++c) {
    for (const Node* n : triangulation.cliques[c]) {
      require(n->forest_slot < forest.nodes.size() && n->kind() != K_KIND_OTHER, K_ERROR_ERROR);
      result[c].push_back(n->forest_slot);
    }
    std::sort(result[c].begin(), result[c].end());
  }
  return result;
}

// Every participating node lies in a clique, and so does every link of the
// triangulated graph; anything else is a fault of triangulation.
void verify_cover(const Forest& forest, const Triangulation& triangulation,
                  const std::vector<std::vector<std::size_t>>& members) {
  std::vector<std::vector<std::size_t>> cliques_of(forest.nodes.size());
  for (std::size_t c = 0; c < members.size(); ++c)
    for (std::size_t s : members[c]) cliques_of[s].push_back(c);
  for (const NodeSlot& slot : forest.nodes)
    if (slot.node->kind() != K_KIND_OTHER)
      require(!cliques_of[slot.node->forest_slot].empty(), K_ERROR_ERROR);
  for (const auto& link : triangulation.links) {
    const Node* a = link.first;
    const std::size_t b_slot = link.second->forest_slot;
    require(a->forest_slot < forest.nodes.size() && b_slot < forest.nodes.size(), K_ERROR_ERROR);
    const auto& of_a = cliques_of[a->forest_slot];
    require(std::any_of(of_a.begin(), of_a.end(),
                        [&](std::size_t c) {
                          return std::binary_search(members[c].begin(), members[c].end(), b_slot);
                        }),
            K_ERROR_ERROR);
  }
}

// The clique records in the order of the search, numbered from 0.  Member
// order (the order of the clique table): the members shared with the parent
// in the parent's order, then the others in triangulation order; discrete
// members before continuous ones throughout.  With the separator's nodes
// outermost and in the same order in both tables, the plans between a clique
// and its parent separator are one outer run over the separator and one
// contiguous inner block, which is what collect and distribute walk most.
void make_cliques(Forest& forest, const Triangulation& triangulation, const CliqueOrder& order,
                  const std::vector<std::vector<std::size_t>>& members) {
  const std::size_t count = order.picked.size();
  forest.cliques.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::vector<Node*>& raw = triangulation.cliques[order.picked[i]];
    const std::vector<std::size_t>& held = members[order.picked[i]];
    auto holds = [&held](const Node* n) {
      return std::binary_search(held.begin(), held.end(), n->forest_slot);
    };
    std::vector<Node*> shared_discrete, shared_continuous, other_discrete, other_continuous;
    if (order.candidate[i] != CliqueOrder::kRoot)
      for (Node* n : forest.cliques[order.candidate[i]]->members)
        if (holds(n)) (n->is_discrete() ? shared_discrete : shared_continuous).push_back(n);
    for (Node* n : raw) {
      const auto& shared = n->is_discrete() ? shared_discrete : shared_continuous;
      if (std::find(shared.begin(), shared.end(), n) == shared.end())
        (n->is_discrete() ? other_discrete : other_continuous).push_back(n);
    }
    std::vector<Node*> list = std::move(shared_discrete);
    list.insert(list.end(), other_discrete.begin(), other_discrete.end());
    const std::size_t discrete = list.size();
    list.insert(list.end(), shared_continuous.begin(), shared_continuous.end());
    list.insert(list.end(), other_continuous.begin(), other_continuous.end());

    auto clique = std::make_unique<Clique>();
    clique->number = i;
    clique->members.reserve_more(list.size());
    for (Node* n : list) clique->members.push_back(n);
    clique->discrete_members = discrete;
    clique->continuous_members = list.size() - discrete;
    for (std::size_t k = 0; k < discrete; ++k)
      clique->discrete_size = sat_mul(clique->discrete_size, list[k]->state_count());
    clique->cg_entries = cg_entries_for(clique->continuous_members);
    clique->table.reset(new Table(*forest.domain, list, TableRole::potential, nullptr));
    forest.cliques.push_back(std::move(clique));
  }
}

// Links every clique to its candidate (or makes it the root of a new tree),
// in clique order, writing "The junction forest" section.
void connect_cliques(Forest& forest, const CliqueOrder& order, const CompileLog& log) {
  write_forest_head(log);
  for (std::size_t i = 0; i < forest.cliques.size(); ++i) {
    Clique& clique = *forest.cliques[i];
    if (order.candidate[i] == CliqueOrder::kRoot) {
      forest.trees.push_back(std::make_unique<JunctionTree>(*forest.domain));
      JunctionTree& tree = *forest.trees.back();
      tree.root = &clique;
      tree.cliques.push_back(&clique);
      clique.tree = &tree;
      write_root(log, clique);
      continue;
    }
    Clique& parent = *forest.cliques[order.candidate[i]];
    auto separator = std::make_unique<Separator>();
    separator->parent = &parent;
    separator->child = &clique;
    std::vector<Node*> shared;
    for (Node* n : parent.members)
      if (clique.members.contains(n)) shared.push_back(n);
    separator->members.reserve_more(shared.size());
    for (Node* n : shared) separator->members.push_back(n);
    separator->table.reset(new Table(*forest.domain, shared, TableRole::potential, nullptr));
    Separator* sep = separator.get();
    forest.separators.push_back(std::move(separator));

    parent.links.push_back({&clique, sep});
    parent.neighbours.push_back(&clique);
    clique.links.push_back({&parent, sep});
    clique.neighbours.push_back(&parent);
    clique.parent = &parent;
    clique.tree = parent.tree;
    clique.tree->cliques.push_back(&clique);
    write_link(log, *sep);
  }
}

// Entries (doubles) that a table holds once allocated, with its CG part.
std::uint64_t table_entries(const Table& table) {
  const std::uint64_t d = table.cg_dimension();
  if (d == 0) return table.size();
  // means and coefficients (d each) and the covariance matrix (d * d)
  return sat_mul(table.size(), sat_add(1, sat_add(sat_mul(2, d), sat_mul(d, d))));
}

// Checks that every clique and separator table together can exist at all,
// and makes the plans and scratch space.  The table data are allocated by
// the first propagation (compilation), not here: triangulating alone stays
// cheap, and after compilation propagation never allocates.
void plan_tables(Forest& forest) {
  std::uint64_t entries = 0;
  for (const auto& c : forest.cliques) entries = sat_add(entries, table_entries(*c->table));
  for (const auto& s : forest.separators)
    entries = sat_add(entries, sat_add(table_entries(*s->table), s->table->size()));
  require(platform::allocation_possible(sat_mul(entries, sizeof(double))), K_ERROR_NO_MEMORY);

  for (const auto& s : forest.separators) {
    s->parent_plan = IndexPlan::between(*s->parent->table, *s->table);
    s->child_plan = IndexPlan::between(*s->child->table, *s->table);
    s->scratch = DoubleBuffer::zeros(s->table->size());
  }
}

}  // namespace

ForestPtr build_junction_forest(Domain& domain, const Triangulation& triangulation,
                                CompileLog& log) {
  ForestPtr forest(new Forest(domain));
  make_node_slots(*forest);
  const auto members = member_slots(*forest, triangulation);
  verify_cover(*forest, triangulation, members);
  const CliqueOrder order = order_cliques(triangulation.cliques);
  make_cliques(*forest, triangulation, order, members);
  write_cliques(log, *forest);
  connect_cliques(*forest, order, log);
  plan_tables(*forest);
  give_default_tables(domain, log);
  assign_potentials(*forest, log);

  forest->elimination_order.reserve_more(triangulation.elimination_order.size());
  for (Node* n : triangulation.elimination_order) forest->elimination_order.push_back(n);
  forest->triangulation_cost = triangulation.cost;
  return forest;
}

}  // namespace kelva
