// What the readers and writers of other tools' formats share: the checks of a
// parsed network and the domain made from it, and a domain described for a
// writer.
#include "text/foreign_net.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>
#include <new>

#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "structure/structure.h"
#include "table/table.h"
#include "text/net_writer.h"

namespace kelva {

void ForeignErrors::fail(std::uint64_t line, const std::string& message) const {
  if (handler_ != nullptr) handler_(line, message.c_str(), data_);
  throw Error(K_ERROR_PARSE);
}

std::size_t add_foreign_variable(ForeignNet& net, ForeignVariable variable,
                                 const ForeignErrors& errors) {
  const std::size_t i = net.variables.size();
  if (!net.index.emplace(variable.name, i).second)
    errors.fail(variable.line, net_message("variable `%s' declared twice", variable.name.c_str()));
  net.variables.push_back(std::move(variable));
  return i;
}

namespace {

// Rows are probability distributions; writers of other tools round to a few
// digits, so a row may miss 1 by a little.
constexpr double kRowTolerance = 1e-4;

// Positions of the table's discrete nodes: stride of each node in the
// table's own order.
std::vector<std::uint64_t> strides_of(const Table& table, const std::vector<Node*>& order) {
  const auto& nodes = table.nodes();
  const auto& counts = table.state_counts();
  std::vector<std::uint64_t> own(counts.size(), 1);
  for (std::size_t k = counts.size(); k-- > 1;) own[k - 1] = own[k] * counts[k];
  std::vector<std::uint64_t> strides;
  for (Node* n : order) {
    std::size_t k = 0;
    while (nodes[k] != n) ++k;
    strides.push_back(own[k]);
  }
  return strides;
}

// Calls f(position in `order` layout, position in the table) for every
// configuration, the last node of `order` fastest.
template <class F>
void for_each_configuration(const Table& table, const std::vector<Node*>& order, F&& f) {
  const std::vector<std::uint64_t> strides = strides_of(table, order);
  std::vector<std::size_t> digit(order.size(), 0);
  std::uint64_t at = 0;
  const std::uint64_t size = table.size();
  for (std::uint64_t i = 0; i < size; ++i) {
    f(i, at);
    for (std::size_t k = order.size(); k-- > 0;) {
      at += strides[k];
      if (++digit[k] < order[k]->state_count()) break;
      at -= strides[k] * digit[k];
      digit[k] = 0;
    }
  }
}

void check_table(const ForeignNet& net, const ForeignTable& t, const ForeignErrors& errors) {
  const ForeignVariable& child = net.variables[t.child];
  const char* name = child.name.c_str();
  // The count the table needs, saturating past what it has.
  const std::uint64_t cap = t.values.size() + 1;
  std::uint64_t expected = child.states.size();
  bool more = false;
  for (std::size_t p : t.parents) {
    if (p == t.child || std::count(t.parents.begin(), t.parents.end(), p) > 1)
      errors.fail(t.line, net_message("variable `%s' appears twice in the table of `%s'",
                                      net.variables[p].name.c_str(), name));
    const std::uint64_t n = net.variables[p].states.size();
    more = more || expected > cap / n;
    expected = more ? cap : expected * n;
  }
  if (t.values.size() != expected)
    errors.fail(t.line,
                net_message("the table of `%s' has %zu values, not the %s it needs", name,
                            t.values.size(), more ? "more" : std::to_string(expected).c_str()));
  const std::size_t width = child.states.size();
  for (std::size_t row = 0; row * width < t.values.size(); ++row) {
    const std::uint64_t line = row < t.row_lines.size() ? t.row_lines[row] : t.line;
    double sum = 0.0;
    for (std::size_t s = 0; s < width; ++s) {
      const double v = t.values[row * width + s];
      if (!(v >= 0.0) || std::isinf(v))
        errors.fail(line, net_message("the table of `%s' holds %s, not a probability", name,
                                      exact_number(v).c_str()));
      sum += v;
    }
    if (std::fabs(sum - 1.0) > kRowTolerance)
      errors.fail(line, net_message("a row of the table of `%s' sums to %s, not 1", name,
                                    exact_number(sum).c_str()));
  }
}

}  // namespace

Domain* build_foreign_domain(const ForeignNet& net, const ForeignErrors& errors,
                             const char* file_name) {
  for (const ForeignVariable& v : net.variables) {
    if (v.states.empty())
      errors.fail(v.line, net_message("variable `%s' has no states", v.name.c_str()));
    // A label is a C string: a NUL byte would cut it short and could make
    // two states one.
    for (const std::string& s : v.states)
      if (s.find('\0') != std::string::npos)
        errors.fail(v.line, net_message("a state of `%s' holds a NUL character", v.name.c_str()));
  }
  std::vector<const ForeignTable*> table_of(net.variables.size(), nullptr);
  for (const ForeignTable& t : net.tables) {
    if (table_of[t.child] != nullptr)
      errors.fail(t.line,
                  net_message("a second table for `%s'", net.variables[t.child].name.c_str()));
    table_of[t.child] = &t;
    check_table(net, t, errors);
  }
  for (std::size_t i = 0; i < net.variables.size(); ++i)
    if (table_of[i] == nullptr)
      errors.fail(net.variables[i].line,
                  net_message("no table for variable `%s'", net.variables[i].name.c_str()));

  auto domain = std::make_unique<Domain>();
  if (file_name != nullptr) domain->file_name = file_name;
  std::vector<Node*> nodes;
  for (const ForeignVariable& v : net.variables) {
    Node* node = domain->new_node(K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
    try {
      domain->rename(*node, v.name.c_str());
    } catch (const Error& e) {
      if (e.code() != K_ERROR_INVALID_NAME) throw;
      errors.fail(v.line, net_message("`%s' is not a valid node name", v.name.c_str()));
    }
    node->resize_states(v.states.size());
    for (std::size_t s = 0; s < v.states.size(); ++s) node->set_state_label(s, v.states[s]);
    nodes.push_back(node);
  }
  for (const ForeignTable& t : net.tables) {
    Node& child = *nodes[t.child];
    for (std::size_t p : t.parents) {
      try {
        add_parent(child, *nodes[p]);
      } catch (const Error& e) {
        if (e.code() != K_ERROR_CYCLIC_NETWORK) throw;
        errors.fail(t.line, net_message("the link %s -> %s closes a directed cycle",
                                        nodes[p]->name().c_str(), child.name().c_str()));
      }
    }
  }
  for (const ForeignTable& t : net.tables) {
    Node& child = *nodes[t.child];
    Table& table = node_table(child);
    std::vector<Node*> order;
    for (std::size_t p : t.parents) order.push_back(nodes[p]);
    order.push_back(&child);
    double* data = table.data();
    for_each_configuration(table, order,
                           [&](std::uint64_t i, std::uint64_t at) { data[at] = t.values[i]; });
  }
  return domain.release();
}

std::string read_whole_file(std::FILE* file) {
  std::string text;
  // The whole size at once when the file can tell it (not a pipe).
  if (std::fseek(file, 0, SEEK_END) == 0) {
    const long size = std::ftell(file);
    if (size > 0) text.reserve(static_cast<std::size_t>(size));
    std::rewind(file);
  }
  char buffer[1 << 16];
  for (;;) {
    const std::size_t n = std::fread(buffer, 1, sizeof buffer, file);
    text.append(buffer, n);
    if (n < sizeof buffer) break;
  }
  if (std::ferror(file)) throw Error(K_ERROR_IO);
  return text;
}

ForeignNet describe_domain(const Domain& domain) {
  if (!domain.chain_components.empty()) throw Error(K_ERROR_USAGE);
  ForeignNet net;
  const std::vector<Node*> nodes = nodes_in_creation_order(domain);
  for (Node* n : nodes) {
    if (n->category() != K_CATEGORY_CHANCE || !n->is_discrete()) throw Error(K_ERROR_USAGE);
    ForeignVariable v;
    v.name = n->name_or_generate();
    for (std::size_t s = 0; s < n->state_count(); ++s) v.states.emplace_back(n->state_label(s));
    net.index.emplace(v.name, net.variables.size());
    net.variables.push_back(std::move(v));
  }
  for (Node* n : nodes) {
    ForeignTable t;
    t.child = net.index.at(n->name());
    std::vector<Node*> order;
    std::uint64_t size = n->state_count();
    for (Node* p : n->parents()) {
      t.parents.push_back(net.index.at(p->name()));
      order.push_back(p);
      size *= p->state_count();
    }
    order.push_back(n);
    if (n->table() == nullptr) {
      // A table not made yet holds zeros, as the NET writer writes it.
      t.values.assign(size, 0.0);
    } else {
      const Table& table = *n->table();
      t.values.resize(table.size());
      const double* data = table.data();
      for_each_configuration(table, order,
                             [&](std::uint64_t i, std::uint64_t at) { t.values[i] = data[at]; });
    }
    net.tables.push_back(std::move(t));
  }
  return net;
}

std::string exact_number(double value) {
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

}  // namespace kelva
