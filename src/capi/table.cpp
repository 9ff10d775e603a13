// The table functions of the C API.
//
// Tables with continuous members: multiplication, division and marginals
// work on the discrete data (the weights of the discrete configurations)
// and leave the CG part alone.  So the other table of k_table_multiply and
// k_table_divide must have no continuous nodes, and k_table_get_marginal
// accepts discrete nodes only ("usage" otherwise): products and marginals of
// two CG parts have no meaning as plain tables.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "capi/boundary.h"
#include "table/size.h"
#include "table/table_ops.h"

using kelva::Domain;
using kelva::Error;
using kelva::Node;
using kelva::require;
using kelva::Table;
using kelva::TableRole;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

namespace kelva::capi {

std::vector<Node*> node_list(const k_node_t* list) {
  require(list != nullptr);
  std::vector<Node*> nodes;
  for (const k_node_t* p = list; *p != nullptr; ++p) nodes.push_back(&get(*p));
  return nodes;
}

}  // namespace kelva::capi

namespace {

// Error(usage) unless `nodes` are distinct discrete or continuous nodes of
// `domain`, the discrete ones first.
void check_members(const Domain& domain, const std::vector<Node*>& nodes) {
  bool continuous_seen = false;
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    const Node* n = nodes[i];
    require(&n->domain() == &domain);
    require(n->is_discrete() || n->is_continuous());
    require(!(continuous_seen && n->is_discrete()));
    continuous_seen = continuous_seen || n->is_continuous();
    require(std::find(nodes.begin(), nodes.begin() + static_cast<std::ptrdiff_t>(i), n) ==
            nodes.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

// The position of `node` among the table's continuous members, or
// Error(usage).
std::size_t continuous_position(const Table& table, k_node_t node) {
  const std::size_t pos = table.nodes().index_of(&get(node));
  require(pos != kelva::NodeList::npos && pos >= table.discrete_count());
  return pos - table.discrete_count();
}

// The checks of the data copies: [start, start+count) within the table and
// count within the array.
void check_range(const Table& t, const void* array, k_size_t array_length, k_size_t start,
                 k_size_t count) {
  require(array != nullptr && start < t.size() && count <= t.size() - start &&
          count <= array_length);
}

// The other operand of multiply and divide: discrete only, its nodes among
// the table's.
const Table& discrete_subset(const Table& t, k_table_t other) {
  const Table& o = get(other);
  require(o.cg_dimension() == 0);
  for (Node* n : o.nodes()) require(t.nodes().contains(n));
  return o;
}

}  // namespace

extern "C" {

k_table_t k_domain_new_table(k_domain_t domain, const k_node_t* nodes) {
  return guard<k_table_t>(nullptr, [&] {
    Domain& d = get(domain);
    const std::vector<Node*> members = kelva::capi::node_list(nodes);
    check_members(d, members);
    auto t = std::make_unique<Table>(d, members, TableRole::free, nullptr);
    d.adopt_free_table(t.get());
    return handle(t.release());
  });
}

k_node_t* k_table_get_nodes(k_table_t table) {
  return guard<k_node_t*>(nullptr, [&] { return handle(get(table).nodes().data()); });
}

k_size_t k_table_get_size(k_table_t table) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    const k_size_t size = get(table).size();
    if (size == kelva::kSizeTooLarge) throw Error(K_ERROR_SIZE_TOO_LARGE);
    return size;
  });
}

k_size_t k_table_get_cg_size(k_table_t table) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    const Table& t = get(table);
    const k_size_t size = kelva::sat_mul(t.size(), t.cg_dimension());
    if (size == kelva::kSizeTooLarge) throw Error(K_ERROR_SIZE_TOO_LARGE);
    return size;
  });
}

int64_t k_table_get_index_from_configuration(k_table_t table, const k_size_t* config) {
  return guard<int64_t>(-1, [&] {
    const Table& t = get(table);
    // Only the discrete nodes (listed first) have configurations; without
    // any, nothing is read and the index is 0.
    const std::vector<std::size_t>& counts = t.state_counts();
    require((config != nullptr || counts.empty()) &&
            t.size() <= static_cast<std::uint64_t>(INT64_MAX));
    std::uint64_t index = 0;
    for (std::size_t k = 0; k < counts.size(); ++k) {
      require(config[k] < counts[k]);
      index = index * counts[k] + config[k];
    }
    return static_cast<int64_t>(index);
  });
}

k_status_t k_table_get_configuration_from_index(k_table_t table, k_size_t* config, k_size_t index) {
  return guard_status([&] {
    const Table& t = get(table);
    const std::vector<std::size_t>& counts = t.state_counts();
    require((config != nullptr || counts.empty()) && t.size() != kelva::kSizeTooLarge &&
            index < t.size());
    for (std::size_t k = counts.size(); k-- > 0;) {
      config[k] = index % counts[k];
      index /= counts[k];
    }
  });
}

k_status_t k_table_get_data(k_table_t table, double* array, k_size_t array_length, k_size_t start,
                            k_size_t count) {
  return guard_status([&] {
    const Table& t = get(table);
    check_range(t, array, array_length, start, count);
    if (count == 0) return;
    std::memcpy(array, t.data() + start, count * sizeof(double));
  });
}

k_status_t k_table_set_data(k_table_t table, const double* array, k_size_t array_length,
                            k_size_t start, k_size_t count) {
  return guard_status([&] {
    Table& t = get(table);
    check_range(t, array, array_length, start, count);
    if (count != 0) std::memcpy(t.data() + start, array, count * sizeof(double));
    t.notify_changed();
  });
}

double k_table_get_data_item(k_table_t table, k_size_t index) {
  return guard<double>(-1.0, [&] {
    const Table& t = get(table);
    require(index < t.size());
    return t.data()[index];
  });
}

k_status_t k_table_set_data_item(k_table_t table, k_size_t index, double value) {
  return guard_status([&] {
    Table& t = get(table);
    require(index < t.size());
    t.data()[index] = value;
    t.notify_changed();
  });
}

k_status_t k_table_set_all_data_items(k_table_t table, double value) {
  return guard_status([&] {
    Table& t = get(table);
    double* data = t.data();
    std::fill(data, data + t.size(), value);
    t.notify_changed();
  });
}

double k_table_get_mean(k_table_t table, k_size_t index, k_node_t node) {
  return guard<double>(-1.0, [&] {
    const Table& t = get(table);
    const std::size_t i = continuous_position(t, node);
    require(index < t.size());
    return t.mean(index, i);
  });
}

double k_table_get_variance(k_table_t table, k_size_t index, k_node_t node) {
  return guard<double>(-1.0, [&] {
    const Table& t = get(table);
    const std::size_t i = continuous_position(t, node);
    require(index < t.size());
    return t.covariance(index, i, i);
  });
}

double k_table_get_covariance(k_table_t table, k_size_t index, k_node_t node1, k_node_t node2) {
  return guard<double>(-1.0, [&] {
    const Table& t = get(table);
    const std::size_t i = continuous_position(t, node1);
    const std::size_t j = continuous_position(t, node2);
    require(index < t.size());
    return t.covariance(index, i, j);
  });
}

k_status_t k_table_multiply(k_table_t table, k_table_t other) {
  return guard_status([&] {
    Table& t = get(table);
    kelva::multiply(t, discrete_subset(t, other));
    t.notify_changed();
  });
}

k_status_t k_table_divide(k_table_t table, k_table_t other) {
  return guard_status([&] {
    Table& t = get(table);
    kelva::divide(t, discrete_subset(t, other));
    t.notify_changed();
  });
}

k_table_t k_table_get_marginal(k_table_t table, const k_node_t* nodes, k_equilibrium_t code) {
  return guard<k_table_t>(nullptr, [&] {
    const Table& t = get(table);
    const std::vector<Node*> members = kelva::capi::node_list(nodes);
    for (Node* n : members) require(&n->domain() == &t.domain() && t.nodes().contains(n));
    require(code == K_EQUILIBRIUM_SUM || code == K_EQUILIBRIUM_MAX);
    check_members(t.domain(), members);
    for (Node* n : members) require(n->is_discrete());
    auto m = std::make_unique<Table>(t.domain(), members, TableRole::free, nullptr);
    kelva::marginalize(t, *m, code == K_EQUILIBRIUM_SUM ? kelva::Reduce::sum : kelva::Reduce::max);
    t.domain().adopt_free_table(m.get());
    return handle(m.release());
  });
}

k_status_t k_table_reorder_nodes(k_table_t table, const k_node_t* nodes) {
  return guard_status([&] {
    Table& t = get(table);
    t.reorder(kelva::capi::node_list(nodes));
    t.notify_changed();
  });
}

k_status_t k_table_update(k_table_t table, k_table_t other) {
  return guard_status([&] {
    Table& t = get(table);
    const Table& o = get(other);
    require(o.size() == t.size() && o.cg_dimension() == t.cg_dimension());
    t.assign_contents(o);
    t.notify_changed();
  });
}

k_status_t k_table_delete(k_table_t table) {
  return guard_status([&] {
    Table& t = get(table);
    Node* owner = t.owner();
    switch (t.role()) {
      case TableRole::free:
        t.domain().release_free_table(&t);
        delete &t;
        return;
      case TableRole::experience:
        // The node forgets the table, then it is freed (once).
        if (owner != nullptr && owner->experience_table() == &t)
          delete owner->experience_slot().release();
        return;
      case TableRole::fading:
        if (owner != nullptr && owner->fading_table() == &t) delete owner->fading_slot().release();
        return;
      default:
        // A node's table or a potential: its owner keeps it.
        return;
    }
  });
}

k_status_t k_table_set_backpointer(k_table_t table, void* data) {
  return guard_status([&] { get(table).backpointer = data; });
}

void* k_table_get_backpointer(k_table_t table) {
  return guard<void*>(nullptr, [&] { return get(table).backpointer; });
}

}  // extern "C"
