// The NET writer: a domain as the network block, the node blocks and the
// potential blocks, in the layout that the reader turns back into the same
// domain (and that writes again byte for byte).
#include "text/net_writer.h"

#include <algorithm>
#include <cfloat>
#include <cstdio>
#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

#include "expr/expression.h"
#include "expr/model.h"
#include "network/attributes.h"
#include "network/class.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "network/state_text.h"
#include "platform/locale_guard.h"
#include "structure/structure.h"
#include "table/table.h"

namespace kelva {

std::vector<Node*> nodes_in_creation_order(const Domain& domain) {
  std::vector<Node*> nodes;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next) nodes.push_back(n);
  return {nodes.rbegin(), nodes.rend()};
}

namespace {

// Indentation of one layout (a domain; classes indent one step deeper).
struct Indent {
  const char* outer;       // block openings and closings
  const char* attribute;   // attribute lines
  const char* data;        // rows of table data after the first
  const char* model_open;  // before " = ( " of a model with several expressions
};
constexpr Indent kDomainIndent{"", "    ", "\t", "\n\t   "};
constexpr Indent kClassIndent{"    ", "\t", "\t\t", "\n\t\t   "};

// How a class names a node in potentials and bindings: an output clone as
// `instance.output`, any other node by its name.
std::string reference_name(const Node& node) {
  if (node.master != nullptr) return node.clone_instance->name() + "." + node.master->name();
  return node.name();
}

// Instance nodes in creation order, except that an instance comes after those
// whose clones its bindings name (as far as that order exists), so that a
// reader finds every clone it needs.
std::vector<Node*> instance_order(const std::vector<Node*>& nodes) {
  std::vector<Node*> pending, done;
  for (Node* n : nodes)
    if (n->instance_data != nullptr) pending.push_back(n);
  auto ready = [&](const Node* n) {
    for (const auto& b : n->instance_data->bindings)
      if (b.actual->master != nullptr &&
          std::find(done.begin(), done.end(), b.actual->clone_instance) == done.end())
        return false;
    return true;
  };
  while (!pending.empty()) {
    auto it = std::find_if(pending.begin(), pending.end(), ready);
    if (it == pending.end()) it = pending.begin();  // bindings in a circle
    done.push_back(*it);
    pending.erase(it);
  }
  return done;
}

// The words before a node's name, or null for a node that is not written.
// The reader's defaults decide which kinds need saying: "node" alone is a
// discrete chance node and "decision" a discrete decision node, while
// "function" alone is real-valued and "utility" has no kind.
const char* kind_words(const Node& node) {
  switch (node.category()) {
    case K_CATEGORY_CHANCE:
      return node.is_continuous() ? "continuous node " : "node ";
    case K_CATEGORY_DECISION:
      return "decision ";
    case K_CATEGORY_UTILITY:
      return "utility ";
    case K_CATEGORY_FUNCTION:
      return node.is_discrete() ? "discrete function " : "function ";
    default:
      return nullptr;  // instance nodes belong to classes
  }
}

const char* subtype_word(k_subtype_t subtype) {
  switch (subtype) {
    case K_SUBTYPE_BOOLEAN:
      return "boolean";
    case K_SUBTYPE_NUMBER:
      return "number";
    case K_SUBTYPE_INTERVAL:
      return "interval";
    default:
      return nullptr;  // labelled: the reader's default, not written
  }
}

// Whether a decision has no policy yet or a uniform one.
bool is_uniform_policy(const Table* policy) {
  if (policy == nullptr || !policy->has_data()) return true;
  const double* p = policy->data();
  return std::all_of(p, p + policy->size(), [p](double v) { return v == p[0]; });
}

// Parents as the potential lists them: discrete, then continuous, then
// those of no kind (real-valued function nodes), each group in the order of
// addition.
std::vector<Node*> potential_parents(const Node& node) {
  std::vector<Node*> parents;
  for (k_kind_t kind : {K_KIND_DISCRETE, K_KIND_CONTINUOUS})
    for (Node* p : node.parents())
      if (p->kind() == kind) parents.push_back(p);
  for (Node* p : node.parents())
    if (p->kind() != K_KIND_DISCRETE && p->kind() != K_KIND_CONTINUOUS) parents.push_back(p);
  return parents;
}

// The discrete nodes of `table` in the written order: the listed nodes
// that it holds first, then the others in its own order (a child last).
std::vector<Node*> written_order(const Table& table,
                                 std::initializer_list<const std::vector<Node*>*> lists) {
  std::vector<Node*> order;
  const std::size_t m = table.discrete_count();
  auto held = [&](const Node* n) {
    const std::size_t pos = table.nodes().index_of(n);
    return pos < m;
  };
  auto listed = [&](const Node* n) {
    for (const Node* o : order)
      if (o == n) return true;
    return false;
  };
  for (const auto* list : lists)
    for (Node* n : *list)
      if (held(n) && !listed(n)) order.push_back(n);
  for (std::size_t i = 0; i < m; ++i)
    if (!listed(table.nodes()[i])) order.push_back(table.nodes()[i]);
  return order;
}

// The attributes oldest first: the reader sets them in file order and each
// new key goes to the head of the list, so this order reads back the same.
std::vector<const Attribute*> oldest_first(const AttributeList& list) {
  std::vector<const Attribute*> attributes;
  for (const Attribute* a = list.first(); a != nullptr; a = a->next.get()) attributes.push_back(a);
  return {attributes.rbegin(), attributes.rend()};
}

class NetWriter {
 public:
  NetWriter(TextSink& sink, const Indent& indent, int digits)
      : out_(sink), indent_(indent), digits_(digits) {}

  void domain(const Domain& domain) {
    // Names are made before anything is written: generating one may fail.
    const std::vector<Node*> nodes = nodes_in_creation_order(domain);
    for (Node* n : nodes) n->name_or_generate();

    if (const Class* cls = domain.owner_class) {
      write_all("class ", cls->name(), "\n{\n");
      interface_line("inputs", cls->inputs);
      interface_line("outputs", cls->outputs);
    } else {
      write("net\n{\n");
    }
    attribute_line("node_size = (", std::to_string(domain.node_width), " ",
                   std::to_string(domain.node_height), ");\n");
    user_attributes(domain.attributes());
    if (!domain.is_class()) write("}\n");
    for (Node* n : nodes)
      if (kind_words(*n) != nullptr && n->master == nullptr) node_block(*n);
    for (Node* n : instance_order(nodes)) instance_block(*n);
    // Members of chain components get their values from the component's
    // potential only.
    std::unordered_set<const Node*> members;
    for (const auto& component : domain.chain_components)
      members.insert(component->members.begin(), component->members.end());
    for (Node* n : nodes)
      if (kind_words(*n) != nullptr && n->master == nullptr && !members.contains(n))
        potential_block(*n);
    for (const auto& component : domain.chain_components) chain_block(*component);
    if (const Class* cls = domain.owner_class) write_all("} % class ", cls->name(), "\n");
  }

 private:
  void write(const char* text) { out_.write(text); }
  void write(const std::string& text) { out_.write(text); }

  // Writes each piece in turn (no temporary concatenations).
  template <class... Pieces>
  void write_all(const Pieces&... pieces) {
    (write(pieces), ...);
  }

  template <class... Pieces>
  void attribute_line(const Pieces&... pieces) {
    write_all(indent_.attribute, pieces...);
  }

  void user_attributes(const AttributeList& list) {
    for (const Attribute* a : oldest_first(list))
      attribute_line(a->key, " = ", quote_net_string(a->value), ";\n");
  }

  void interface_line(const char* word, const NodeList& list) {
    if (list.empty()) return;
    std::string text = std::string(word) + " = (";
    for (std::size_t i = 0; i < list.size(); ++i) {
      if (i > 0) text += ' ';
      text += list[i]->name();
    }
    attribute_line(text, ");\n");
  }

  void instance_block(Node& node) {
    const InstanceData& data = *node.instance_data;
    write_all("\n", indent_.outer, "instance ", node.name(), " : ", data.of->name(), " (");
    for (std::size_t i = 0; i < data.bindings.size(); ++i)
      write_all(i > 0 ? ", " : "", data.bindings[i].input->name(), " = ",
                reference_name(*data.bindings[i].actual));
    for (std::size_t i = 0; i < data.clones.size(); ++i)
      write_all(i > 0 ? ", " : "; ", data.clones[i].output->name(), " = ",
                data.clones[i].clone->name_or_generate());
    write_all(")\n", indent_.outer, "{\n");
    attribute_line("label = ", quote_net_string(node.label.value_or("")), ";\n");
    attribute_line("position = (", std::to_string(node.x), " ", std::to_string(node.y), ");\n");
    user_attributes(node.attributes());
    write_all(indent_.outer, "}\n");
  }

  void node_block(Node& node) {
    if (node.temporal_master != nullptr) {
      // States come from the master.
      write_all("\n", indent_.outer, "temporal ", node.name(), " : ", node.temporal_master->name(),
                "\n", indent_.outer, "{\n");
      attribute_line("label = ", quote_net_string(node.label.value_or("")), ";\n");
      attribute_line("position = (", std::to_string(node.x), " ", std::to_string(node.y), ");\n");
      user_attributes(node.attributes());
      write_all(indent_.outer, "}\n");
      return;
    }
    write_all("\n", indent_.outer, kind_words(node), node.name(), "\n", indent_.outer, "{\n");
    attribute_line("label = ", quote_net_string(node.label.value_or("")), ";\n");
    attribute_line("position = (", std::to_string(node.x), " ", std::to_string(node.y), ");\n");
    if (node.is_discrete()) {
      std::string states = "states = (";
      for (std::size_t s = 0; s < node.state_count(); ++s) {
        if (s > 0) states += ' ';
        states += quote_net_string(node.state_label(s));
      }
      attribute_line(states, ");\n");
      if (const char* word = subtype_word(node.subtype()))
        attribute_line("subtype = ", word, ";\n");
      if (node.subtype() == K_SUBTYPE_NUMBER || node.subtype() == K_SUBTYPE_INTERVAL) {
        // An interval node has one value more: the upper bound of the last state.
        const std::size_t count = node.state_count() + (node.subtype() == K_SUBTYPE_INTERVAL);
        std::string values = "state_values = (";
        for (std::size_t s = 0; s < count; ++s) {
          if (s > 0) values += ' ';
          values += format_state_value(node.state_value(s), digits_);
        }
        attribute_line(values, ");\n");
      }
    }
    user_attributes(node.attributes());
    write_all(indent_.outer, "}\n");
  }

  void potential_head(const std::vector<Node*>& children, const std::vector<Node*>& parents) {
    write_all("\n", indent_.outer, "potential (");
    for (std::size_t i = 0; i < children.size(); ++i) {
      if (i > 0) write(" ");
      write(children[i]->name());
    }
    if (!parents.empty()) {
      write(" |");
      for (const Node* p : parents) write_all(" ", reference_name(*p));
    }
    write(")");
  }

  void potential_block(Node& node) {
    const std::vector<Node*> parents = potential_parents(node);
    potential_head({&node}, parents);
    const Model* model = node.model();
    // A decision's table is its policy, written so that a solved diagram
    // reads back solved; a uniform one is the reader's default and is left
    // out, so that a diagram never solved reads and writes as it was.
    const bool data = can_have_table(node) &&
                      (node.category() != K_CATEGORY_DECISION || !is_uniform_policy(node.table()));
    if (model == nullptr && !data && node.experience_table() == nullptr &&
        node.fading_table() == nullptr) {
      write(" {}\n");
      return;
    }
    write_all("\n", indent_.outer, "{\n");
    if (model != nullptr) model_lines(*model);
    if (data) data_lines(node, parents);
    if (const Table* t = node.experience_table()) table_line("experience = ", *t, parents);
    if (const Table* t = node.fading_table()) table_line("fading = ", *t, parents);
    write_all(indent_.outer, "}\n");
  }

  void model_lines(const Model& model) {
    std::string nodes = "model_nodes = (";
    for (std::size_t i = 0; i < model.nodes().size(); ++i) {
      if (i > 0) nodes += ' ';
      nodes += model.nodes()[i]->name();
    }
    attribute_line(nodes, ");\n");
    // Only a setting that differs from the default is written.
    if (model.samples_per_interval != 25)
      attribute_line("samples_per_interval = ", std::to_string(model.samples_per_interval), ";\n");
    // A model whose expressions were never set has no model_data: reading
    // it back keeps it that way.
    if (!model.has_slots()) return;
    std::string text = "model_data";
    if (model.size() > 1) text += indent_.model_open;
    text += " = ( ";
    for (std::uint64_t i = 0; i < model.size(); ++i) {
      if (i > 0) {
        text += ",\n";
        text += indent_.data;
      }
      text += expression_to_string(model.expression(i), digits_);
    }
    attribute_line(text, " );\n");
  }

  void data_lines(const Node& node, const std::vector<Node*>& parents) {
    NetTableText table_text;
    table_text.table = node.table();
    table_text.row_indent = indent_.data;
    table_text.digits = digits_;
    std::vector<Node*> discrete_parents;
    for (Node* p : parents)
      if (p->is_discrete()) discrete_parents.push_back(p);
    if (table_text.table != nullptr) {
      table_text.order = written_order(*table_text.table, {&discrete_parents});
    } else {
      // Not made yet: the zeros of the table the node would get, over its
      // discrete parents and itself (a function node's is over itself).
      if (node.category() != K_CATEGORY_FUNCTION) table_text.order = discrete_parents;
      if (node.is_discrete()) table_text.order.push_back(const_cast<Node*>(&node));
    }
    if (node.is_continuous()) {
      table_text.cg_child = const_cast<Node*>(&node);
      for (Node* p : parents)
        if (p->is_continuous()) table_text.cg_parents.push_back(p);
    }
    // More than one node or a continuous part: "data" stands alone.
    if (indent_.outer[0] == '\0' &&
        (table_text.order.size() > 1 || table_text.cg_child != nullptr)) {
      attribute_line("data\n");
      attribute_line(" = ");
    } else {
      attribute_line("data = ");
    }
    write_net_table(out_, table_text);
  }

  void table_line(const char* words, const Table& table, const std::vector<Node*>& parents) {
    NetTableText table_text;
    table_text.table = &table;
    table_text.order = written_order(table, {&parents});
    table_text.row_indent = indent_.data;
    table_text.digits = digits_;
    attribute_line(words);
    write_net_table(out_, table_text);
  }

  void chain_block(const ChainComponent& component) {
    const std::vector<Node*> members(component.members.begin(), component.members.end());
    const std::vector<Node*> parents(component.parents.begin(), component.parents.end());
    potential_head(members, parents);
    write_all("\n", indent_.outer, "{\n");
    NetTableText table_text;
    table_text.table = component.table.get();
    if (table_text.table != nullptr) {
      table_text.order = written_order(*table_text.table, {&parents, &members});
    } else {
      for (const auto* list : {&parents, &members})
        for (Node* n : *list)
          if (n->is_discrete()) table_text.order.push_back(n);
    }
    table_text.row_indent = indent_.data;
    table_text.digits = digits_;
    attribute_line("data = ");
    write_net_table(out_, table_text);
    write_all(indent_.outer, "}\n");
  }

  TextSink& out_;
  const Indent& indent_;
  int digits_;
};

}  // namespace

void write_net_domain(const Domain& domain, TextSink& sink) {
  platform::CLocaleGuard locale;
  if (!locale.ok()) throw Error(K_ERROR_LOCALE);
  NetWriter(sink, domain.is_class() ? kClassIndent : kDomainIndent, domain.net_digits)
      .domain(domain);
}

void write_net_classes(const ClassCollection& collection, TextSink& sink) {
  platform::CLocaleGuard locale;
  if (!locale.ok()) throw Error(K_ERROR_LOCALE);
  // Oldest first, except that a class comes after the classes it
  // instantiates, so that a reader meets every class before its instances.
  std::vector<const Class*> order;
  std::function<void(const Class&)> visit = [&](const Class& cls) {
    if (std::find(order.begin(), order.end(), &cls) != order.end()) return;
    for (Node* n : nodes_in_creation_order(cls.body()))
      if (n->instance_data != nullptr) visit(*n->instance_data->of);
    order.push_back(&cls);
  };
  for (const Class* cls : collection.members()) visit(*cls);
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (i > 0) sink.write("\n");
    NetWriter(sink, kClassIndent, order[i]->body().net_digits).domain(order[i]->body());
  }
}

}  // namespace kelva
