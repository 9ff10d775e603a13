#include "propagation_traffic.h"

#include <algorithm>
#include <map>
#include <vector>

#include "cli_error.h"

namespace kelva::cli {

namespace {

/// A clique as a sorted set of its discrete members and its table size.
struct CliqueShape {
  std::vector<k_node_t> members;
  double size = 1.0;
};

/// The discrete nodes of `list` (null-ended), sorted.
std::vector<k_node_t> discrete_nodes(k_node_t* list) {
  std::vector<k_node_t> nodes;
  for (; *list != nullptr; ++list)
    if (checked(k_node_get_kind(*list)) == K_KIND_DISCRETE) nodes.push_back(*list);
  std::sort(nodes.begin(), nodes.end());
  return nodes;
}

/// The product of the state counts of `nodes`.
double size_of(const std::vector<k_node_t>& nodes) {
  double size = 1.0;
  for (k_node_t n : nodes) size *= static_cast<double>(checked(k_node_get_number_of_states(n)));
  return size;
}

}  // namespace

ForestShape read_forest_shape(k_domain_t domain) {
  ForestShape shape;
  std::vector<CliqueShape> all;
  double traffic = 0.0;  // in entries
  for (k_junction_tree_t jt = checked(k_domain_get_first_junction_tree(domain)); jt != nullptr;
       jt = checked(k_jt_get_next(jt))) {
    std::map<k_clique_t, std::size_t> index;
    std::vector<k_clique_t> cliques;
    for (k_clique_t* c = checked(k_jt_get_cliques(jt)); *c != nullptr; ++c) {
      index[*c] = all.size();
      cliques.push_back(*c);
      CliqueShape s;
      s.members = discrete_nodes(checked(k_clique_get_members(*c)));
      s.size = size_of(s.members);
      traffic += 3.0 * s.size;  // written by the collect, read and written by the distribute
      all.push_back(std::move(s));
    }
    for (k_clique_t c : cliques) {
      const CliqueShape& a = all[index.at(c)];
      for (k_clique_t* n = checked(k_clique_get_neighbors(c)); *n != nullptr; ++n) {
        if (index.at(*n) < index.at(c)) continue;  // each link once
        const CliqueShape& b = all[index.at(*n)];
        std::vector<k_node_t> separator;
        std::set_intersection(a.members.begin(), a.members.end(), b.members.begin(),
                              b.members.end(), std::back_inserter(separator));
        traffic += 5.0 * size_of(separator);
      }
    }
    traffic += all[index.at(checked(k_jt_get_root(jt)))].size;
  }
  for (const CliqueShape& c : all) shape.total_clique_size += c.size;
  shape.cliques = all.size();

  for (k_node_t node = checked(k_domain_get_first_node(domain)); node != nullptr;
       node = checked(k_node_get_next(node))) {
    const k_kind_t kind = checked(k_node_get_kind(node));
    const k_category_t category = checked(k_node_get_category(node));
    if (kind == K_KIND_DISCRETE)
      traffic += static_cast<double>(checked(k_node_get_number_of_states(node)));
    const bool has_table = category == K_CATEGORY_CHANCE || category == K_CATEGORY_UTILITY ||
                           (category == K_CATEGORY_FUNCTION && kind == K_KIND_DISCRETE);
    if (!has_table || kind == K_KIND_CONTINUOUS) continue;
    k_table_t table = checked(k_node_get_table(node));
    const std::vector<k_node_t> family = discrete_nodes(checked(k_table_get_nodes(table)));
    traffic += size_of(family);
  }
  shape.bytes_per_propagation = 8.0 * traffic;
  return shape;
}

}  // namespace kelva::cli
