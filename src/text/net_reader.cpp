// The NET reader of domains: the top-level blocks, node blocks, potentials
// and their attributes.  Table values are read in net_read_table.cpp.
#include "text/net_reader.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "expr/expression.h"
#include "expr/model.h"
#include "expr/parser.h"
#include "lexer/lexer.h"
#include "network/class.h"
#include "network/domain.h"
#include "network/node.h"
#include "structure/classes.h"
#include "structure/structure.h"
#include "structure/temporal.h"
#include "table/table.h"
#include "text/older_net_reader.h"

namespace kelva {

std::string net_message(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  return text;
}

void net_fail(Lexer& lexer, const std::string& message, int token) {
  lexer.report_error(message.c_str());
  // A lexical failure has recorded its own code (parse, io or no_memory); a
  // silent one has recorded none.
  const k_error_t code = token == TOKEN_ERROR ? lexer.failure() : K_ERROR_NONE;
  throw Error(code == K_ERROR_NONE ? K_ERROR_PARSE : code);
}

void reader_fail(Lexer& lexer, const std::string& message, int token) {
  if (token == TOKEN_ERROR && lexer.error_count() > 0) {
    const k_error_t code = lexer.failure();
    throw Error(code == K_ERROR_NONE ? K_ERROR_PARSE : code);
  }
  net_fail(lexer, message, token);
}

void net_api_fail(Lexer& lexer, k_error_t code) {
  lexer.report_error(net_message("API error: %s", error_description(code)).c_str());
  throw Error(code);
}

namespace {

constexpr double kLargest = std::numeric_limits<double>::max();

bool is_name(int token) noexcept { return token == TOKEN_NAME || token == TOKEN_DOTTED_NAME; }

bool is_real_function(const Node& n) noexcept {
  return n.category() == K_CATEGORY_FUNCTION && n.kind() == K_KIND_OTHER;
}

// What one potential block has said so far.
struct Potential {
  std::vector<Node*> children;
  std::vector<Node*> parents;
  ChainComponent* chain = nullptr;  // a chain potential's component
  Model* model = nullptr;
  bool data = false;
  bool model_data = false;
  bool experience = false;
  bool fading = false;

  Node& child() const noexcept { return *children.front(); }
};

class NetReader {
 public:
  NetReader(Lexer& lexer, Domain& domain) : lx_(lexer), domain_(domain) {}

  // domain: (net-block | block)*
  void read() {
    for (;;) {
      const int t = next();
      if (t == TOKEN_EOF) return;
      if (t != TOKEN_NAME) fail("unexpected token", t);
      const std::string word = lx_.text();
      if (word == "net") read_net_block();
      else if (!read_block(word)) fail(net_message("unknown object type: %s", word.c_str()));
    }
  }

  // class-body: (block | instance-block | name `=` value `;`)* `}`, then
  // the interface lists are resolved.
  void read_class_body() {
    for (;;) {
      const int t = next();
      if (t == '}') break;
      if (t != TOKEN_NAME) fail("unexpected token", t);
      const std::string word = lx_.text();
      if (word == "class") fail("nested classes are not permitted");
      if (word == "instance") read_instance();
      else if (word == "temporal") read_temporal();
      else if (!read_block(word)) read_class_attribute(word);
    }
    resolve_interface();
  }

 private:
  // block: node-block | potential-block, opened by `word`; false when
  // `word` opens neither.
  bool read_block(const std::string& word) {
    if (word == "node") {
      read_node_block(K_CATEGORY_CHANCE, K_KIND_DISCRETE);
    } else if (word == "discrete") {
      const int u = next();
      const std::string what = u == TOKEN_NAME ? lx_.text() : std::string();
      if (what == "node") read_node_block(K_CATEGORY_CHANCE, K_KIND_DISCRETE);
      else if (what == "decision") read_node_block(K_CATEGORY_DECISION, K_KIND_DISCRETE);
      else if (what == "function") read_node_block(K_CATEGORY_FUNCTION, K_KIND_DISCRETE);
      else fail("keyword `node', `decision', or `function' expected", u);
    } else if (word == "continuous") {
      const int u = next();
      if (u != TOKEN_NAME || lx_.text() != "node") fail("keyword `node' expected", u);
      read_node_block(K_CATEGORY_CHANCE, K_KIND_CONTINUOUS);
    } else if (word == "decision") {
      read_node_block(K_CATEGORY_DECISION, K_KIND_DISCRETE);
    } else if (word == "utility") {
      read_node_block(K_CATEGORY_UTILITY, K_KIND_OTHER);
    } else if (word == "function") {
      read_node_block(K_CATEGORY_FUNCTION, K_KIND_OTHER);
    } else if (word == "potential") {
      read_potential();
    } else {
      return false;
    }
    return true;
  }

  Class& the_class() const noexcept { return *domain_.owner_class; }

  // class-attribute: name `=` value `;` (node_size, inputs, outputs, user)
  void read_class_attribute(const std::string& key) {
    expect('=');
    if (key == "node_size") {
      const auto [w, h] = read_pair();
      domain_.node_width = layout_size(w);
      domain_.node_height = layout_size(h);
    } else if (key == "inputs" || key == "outputs") {
      auto& list = key == "inputs" ? inputs_ : outputs_;
      if (list) fail(net_message("attribute `%s' defined twice", key.c_str()));
      list.emplace();
      expect('(');
      for (;;) {
        const int t = next();
        if (t == ')') break;
        if (!is_name(t)) fail("node name or `)' expected", t);
        list->push_back(lx_.text());
      }
    } else {
      read_user_attribute(domain_.attributes(), key);
    }
    expect(';');
  }

  // The `inputs` and `outputs` lists, checked and put in place.
  void resolve_interface() {
    std::unordered_set<Node*> in, out;
    auto resolve = [&](const std::optional<std::vector<std::string>>& names, bool input) {
      if (!names) return;
      for (const std::string& name : *names) {
        Node* n = domain_.find(name);
        const char* what = input ? "input" : "output";
        if (n == nullptr || n->instance_data != nullptr || n->master != nullptr ||
            (input && (!n->parents().empty() || (n->category() != K_CATEGORY_CHANCE &&
                                                 n->category() != K_CATEGORY_DECISION)))) {
          error(net_message("node `%s' is not a valid %s node", name.c_str(), what));
        } else if (!(input ? in : out).insert(n).second) {
          error(net_message("node `%s' specified as %s twice", name.c_str(), what));
        } else if (!input && in.contains(n)) {
          error(net_message("node `%s' is specified both as input and as output", name.c_str()));
        } else {
          api([&] { input ? add_to_inputs(*n) : add_to_outputs(*n); });
        }
      }
    };
    resolve(inputs_, true);
    resolve(outputs_, false);
  }

  // The class `name` of the collection, loaded through the call-back when
  // missing.
  Class& instance_class(const std::string& name) {
    ClassCollection& cc = the_class().collection();
    Class* cls = cc.find(name);
    if (cls == nullptr && loader_ != nullptr && loader_->insert != nullptr) {
      const int failed =
          loader_->insert(name.c_str(), reinterpret_cast<k_class_collection_t>(&cc), loader_->data);
      if (failed == 0) cls = cc.find(name);
    }
    if (cls == nullptr) fail(net_message("loading class `%s' failed", name.c_str()));
    return *cls;
  }

  // instance-block: `instance` name `:` class `(` bindings [`;` outputs] `)`
  //   `{` attributes `}`
  void read_instance() {
    int t = next();
    if (t != TOKEN_NAME) fail("name expected", t);
    const std::string name = lx_.text();
    if (domain_.find(name) != nullptr)
      fail(net_message("a node named `%s' already exists", name.c_str()));
    expect(':');
    t = next();
    if (t != TOKEN_NAME) fail("name expected", t);
    Class& of = instance_class(lx_.text());
    if (instantiates(of, the_class()))
      fail(net_message("adding class instance `%s' creates a cycle in the instance hierarchy",
                       name.c_str()));
    Node& instance = api([&]() -> Node& {
      Node& n = new_instance(the_class(), of);
      domain_.rename(n, name.c_str());
      return n;
    });
    auto formal = [&](const std::string& node) -> Node* {
      Node* n = of.body().find(node);
      if (n == nullptr)
        error(net_message("class `%s' does not have a node named `%s'", of.name().c_str(),
                          node.c_str()));
      return n;
    };
    expect('(');
    t = next();
    bool outputs = false;
    while (t != ')' && !outputs) {
      if (t == ';') {
        outputs = true;
        break;
      }
      if (t != TOKEN_NAME) fail("name, `;', or `)' expected", t);
      const std::string input = lx_.text();
      expect('=');
      const int a = next();
      if (!is_name(a)) fail("name expected", a);
      Node& actual = named_node();
      if (Node* in = formal(input)) bind(instance, of, *in, actual);
      t = next();
      if (t != ',' && t != ';' && t != ')') fail("`,', `;', or `)' expected", t);
      if (t == ',') t = next();
    }
    if (outputs) {
      for (t = next(); t != ')';) {
        if (t != TOKEN_NAME) fail("name or `)' expected", t);
        Node* out = formal(lx_.text());
        if (out != nullptr && !of.outputs.contains(out))
          error(net_message("node `%s' is not an output node in class `%s'", lx_.text().c_str(),
                            of.name().c_str()));
        t = next();
        if (t == '=') {
          const int c = next();
          if (c != TOKEN_NAME) fail("name expected", c);
          Node* clone = out == nullptr ? nullptr : instance.instance_data->clone_of(out);
          if (domain_.find(lx_.text()) != nullptr)
            fail(net_message("a node named `%s' already exists", lx_.text().c_str()));
          if (clone != nullptr) api([&] { domain_.rename(*clone, lx_.text().c_str()); });
          t = next();
        }
        if (t != ',' && t != ')') fail("`,' or `)' expected", t);
        if (t == ',') t = next();
      }
    }
    read_label_position_block(instance);
  }

  // temporal-block: `temporal` name `:` master `{` attributes `}`
  void read_temporal() {
    int t = next();
    if (t != TOKEN_NAME) fail("name expected", t);
    const std::string name = lx_.text();
    expect(':');
    t = next();
    if (t != TOKEN_NAME) fail("name expected", t);
    Node* master = domain_.find(lx_.text());
    if (master == nullptr)
      fail(net_message("class `%s' does not have a node named `%s'", the_class().name().c_str(),
                       lx_.text().c_str()));
    if (!master->is_discrete() || master->category() != K_CATEGORY_CHANCE ||
        master->master != nullptr || master->temporal_master != nullptr ||
        master->temporal_clone != nullptr)
      fail(net_message("invalid creation of a temporal clone of `%s'", lx_.text().c_str()));
    if (domain_.find(name) != nullptr)
      fail(net_message("a node with name `%s' already exists", name.c_str()));
    Node& clone = api([&]() -> Node& {
      Node& n = create_temporal_clone(*master);
      domain_.rename(n, name.c_str());
      return n;
    });
    read_label_position_block(clone);
  }

  void bind(Node& instance, const Class& of, Node& input, Node& actual) {
    if (!of.inputs.contains(&input)) {
      error(net_message("node `%s' is not an input parameter of class `%s'", input.name().c_str(),
                        of.name().c_str()));
    } else if (instance.instance_data->actual_of(&input) != nullptr) {
      error(net_message("input for node `%s' has been specified twice", input.name().c_str()));
    } else if (actual.kind() != input.kind() || actual.instance_data != nullptr ||
               actual.category() == K_CATEGORY_UTILITY ||
               (input.is_discrete() && input.state_count() != actual.state_count())) {
      error(net_message("nodes `%s' and `%s' are not compatible", input.name().c_str(),
                        actual.name().c_str()));
    } else {
      api([&] { set_input(instance, input, actual); });
    }
  }

  // label = string, or position = `(` x y `)`: the value after the `=`.
  void read_label_or_position(Node& node, const std::string& key) {
    if (key == "label") {
      const int s = next();
      if (s != TOKEN_STRING) fail("string expected", s);
      node.label = lx_.text();
      return;
    }
    const auto [x, y] = read_pair();
    node.x = coordinate(x);
    node.y = coordinate(y);
  }

  // `{` (label | position | user attribute)* `}`
  void read_label_position_block(Node& node) {
    expect('{');
    for (;;) {
      const int a = next();
      if (a == '}') return;
      if (a != TOKEN_NAME) fail("`}' or an attribute name expected", a);
      const std::string key = lx_.text();
      expect('=');
      if (key == "label" || key == "position") {
        read_label_or_position(node, key);
      } else {
        read_user_attribute(node.attributes(), key);
      }
      expect(';');
    }
  }

  int next() { return lx_.next_token(); }

  [[noreturn]] void fail(const std::string& message, int token = 0) {
    net_fail(lx_, message, token);
  }

  void error(const std::string& message) { lx_.report_error(message.c_str()); }

  void expect(int c) {
    const int t = next();
    if (t != c) fail(net_message("`%c' expected", c), t);
  }

  template <class F>
  auto api(F&& body) -> decltype(body()) {
    return net_api(lx_, std::forward<F>(body));
  }

  // The node named by the last token, which must be declared already.
  Node& named_node() {
    const std::string& text = lx_.text();
    if (!domain_.is_class()) {
      Node* node = domain_.find(text);
      if (node == nullptr) fail(net_message("node `%s' not found", text.c_str()));
      return *node;
    }
    // In a class, `I.O` names the clone of output O of instance node I.
    const std::size_t dot = text.find('.');
    const std::string head = text.substr(0, dot);
    Node* node = domain_.find(head);
    if (node == nullptr)
      fail(net_message("class `%s' has no node named `%s'", the_class().name().c_str(),
                       head.c_str()));
    if (dot == std::string::npos) return *node;
    if (node->instance_data == nullptr)
      fail(net_message("node `%s' is not an instance node in class `%s'", head.c_str(),
                       the_class().name().c_str()));
    const Class& of = *node->instance_data->of;
    const std::string rest = text.substr(dot + 1);
    Node* output = of.body().find(rest);
    if (output == nullptr || !of.outputs.contains(output))
      fail(net_message("node `%s' is not an output node in class `%s'", rest.c_str(),
                       of.name().c_str()));
    return *node->instance_data->clone_of(output);
  }

  // value: string
  void read_user_attribute(AttributeList& attributes, const std::string& key) {
    const int t = next();
    if (t != TOKEN_STRING) fail("value of a user-defined attribute must be a string", t);
    api([&] { attributes.set(key, lx_.text().c_str()); });
  }

  // pair: `(` number number `)`
  std::pair<double, double> read_pair() {
    expect('(');
    double v[2];
    for (double& x : v) {
      const int t = next();
      if (t != TOKEN_NUMBER) fail("number expected", t);
      x = lx_.number();
    }
    expect(')');
    return {v[0], v[1]};
  }

  // net-block: `net` `{` (name `=` value `;`)* `}`
  void read_net_block() {
    expect('{');
    for (;;) {
      const int t = next();
      if (t == '}') return;
      if (t != TOKEN_NAME) fail("`}' or an attribute name expected", t);
      const std::string key = lx_.text();
      expect('=');
      if (key == "node_size") {
        const auto [w, h] = read_pair();
        domain_.node_width = layout_size(w);
        domain_.node_height = layout_size(h);
      } else {
        read_user_attribute(domain_.attributes(), key);
      }
      expect(';');
    }
  }

  // A node-size number: nonnegative, rounded to the nearest whole number.
  std::uint64_t layout_size(double v) {
    if (!(v >= 0.0)) {
      error("<number> must be nonnegative");
      return 0;
    }
    const double rounded = std::trunc(v + 0.5);
    if (rounded >= 18446744073709551616.0) return std::numeric_limits<std::uint64_t>::max();
    return static_cast<std::uint64_t>(rounded);
  }

  static int coordinate(double v) noexcept {
    if (std::isnan(v)) return 0;
    if (v <= std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
    if (v >= std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
    return static_cast<int>(v);
  }

  // node-block: kind-words name `{` node-attribute* `}`
  void read_node_block(k_category_t category, k_kind_t kind) {
    const int t = next();
    if (!is_name(t) || (domain_.is_class() && t != TOKEN_NAME)) fail("name expected", t);
    const std::string name = lx_.text();
    if (domain_.find(name) != nullptr)
      fail(net_message("a node with name `%s' already exists", name.c_str()));
    Node& node = api([&]() -> Node& {
      Node* n = domain_.new_node(category, kind, K_SUBTYPE_LABEL);
      domain_.rename(*n, name.c_str());
      return *n;
    });
    expect('{');
    bool states = false;
    bool values = false;
    for (;;) {
      const int a = next();
      if (a == '}') break;
      if (a != TOKEN_NAME) fail("`}' or an attribute name expected", a);
      const std::string key = lx_.text();
      expect('=');
      if (key == "label" || key == "position") {
        read_label_or_position(node, key);
      } else if (key == "states") {
        if (!node.is_discrete()) fail("only discrete nodes can have states");
        if (states) fail("states specified twice (or more)");
        read_states(node);
        states = true;
      } else if (key == "subtype") {
        read_subtype(node);
      } else if (key == "state_values") {
        if (!node.is_discrete()) fail("only discrete nodes can have state values");
        if (node.subtype() != K_SUBTYPE_NUMBER && node.subtype() != K_SUBTYPE_INTERVAL)
          fail("only numeric nodes can have state values");
        if (!states) fail("states must be specified before state values");
        if (values) fail("state values have already been specified");
        read_state_values(node);
        values = true;
      } else {
        read_user_attribute(node.attributes(), key);
      }
      expect(';');
    }
    if (node.is_discrete() && node.subtype() == K_SUBTYPE_BOOLEAN && node.state_count() != 2)
      error("a boolean node must have exactly two states");
  }

  // states: `(` string+ `)`
  void read_states(Node& node) {
    expect('(');
    // One list of labels serves every node.
    std::vector<std::string>& labels = labels_;
    std::size_t count = 0;
    for (;; ++count) {
      const int t = next();
      if (t == ')') break;
      if (t != TOKEN_STRING) fail("state or `)' expected", t);
      if (count == labels.size()) labels.emplace_back();
      labels[count] = lx_.text();
    }
    labels.resize(count);
    if (labels.empty()) fail("empty list of states");
    // The node is still being declared: nothing refers to it yet, so its
    // states are set directly (whatever its subtype; a boolean node with a
    // wrong count is reported at the end of the block).
    api([&] { node.resize_states(labels.size()); });
    for (std::size_t i = 0; i < labels.size(); ++i) node.set_state_label(i, labels[i]);
  }

  // subtype: `label` | `boolean` | `number` | `interval`
  void read_subtype(Node& node) {
    if (!node.is_discrete()) error("subtype designations only make sense for discrete nodes");
    const int t = next();
    const std::string word = t == TOKEN_NAME ? lx_.text() : std::string();
    k_subtype_t subtype;
    if (word == "label") subtype = K_SUBTYPE_LABEL;
    else if (word == "boolean") subtype = K_SUBTYPE_BOOLEAN;
    else if (word == "number") subtype = K_SUBTYPE_NUMBER;
    else if (word == "interval") subtype = K_SUBTYPE_INTERVAL;
    else fail("`label', `boolean', `number', or `interval' expected", t);
    if (node.is_discrete()) node.set_subtype(subtype);
  }

  // state-values: `(` value* `)`
  // value: [`+` | `-`] (number | `infinity`)
  void read_state_values(Node& node) {
    expect('(');
    lx_.set_reader(TokenReader::full);
    std::vector<double> values;
    for (;;) {
      int t = next();
      if (t == ')') break;
      double sign = 1.0;
      if (t == '+' || t == '-') {
        sign = t == '-' ? -1.0 : 1.0;
        t = next();
      }
      // A value beyond the largest double (1e999) means what `infinity` means.
      if (t == TOKEN_NUMBER) values.push_back(sign * std::min(lx_.number(), kLargest));
      else if (t == TOKEN_NAME && lx_.text() == "infinity") values.push_back(sign * kLargest);
      else fail("state value expected", t);
    }
    lx_.set_reader(TokenReader::basic);
    const std::size_t wanted = node.state_count() + (node.subtype() == K_SUBTYPE_INTERVAL ? 1 : 0);
    if (values.size() != wanted) {
      error("incorrect number of state values");
      return;
    }
    for (std::size_t i = 0; i < values.size(); ++i) node.set_state_value(i, values[i]);
  }

  // potential-block: `potential` `(` name+ [`|` name*] `)` (`;` | `{` potential-attribute* `}`)
  void read_potential() {
    Potential p;
    p.children.reserve(1);
    p.parents.reserve(8);
    expect('(');
    bool in_parents = false;
    for (;;) {
      const int t = next();
      if (t == ')') break;
      if (t == '|' && !in_parents) {
        in_parents = true;
        continue;
      }
      if (!is_name(t))
        fail(in_parents ? "`)' or a node name expected" : "`|', `)', or a node name expected", t);
      Node& n = named_node();
      if (n.master != nullptr && (t == TOKEN_NAME || !in_parents))
        fail(net_message("output clone `%s' found in potential specification", n.name().c_str()));
      (in_parents ? p.parents : p.children).push_back(&n);
    }
    if (p.children.empty()) fail("empty child node list");
    if (p.children.size() > 1 && domain_.is_class())
      fail("undirected links are not allowed in classes");
    verify_potential_nodes(p);
    verify_links(p);
    add_links(p);
    for (Node* c : p.children)
      if (!has_potential_.insert(c).second)
        fail(net_message("potential specified twice for node `%s'", c->name().c_str()));
    if (p.children.size() > 1) {
      p.chain = make_chain_component(p);
    } else if (can_have_table(p.child())) {
      api([&] { node_table(p.child()); });
    }

    const int t = next();
    if (t == ';') return;
    if (t != '{') fail("`{' expected", t);
    bool any = false;
    for (;;) {
      const int a = next();
      if (a == '}') break;
      if (a != TOKEN_NAME) fail("`}' or an attribute name expected", a);
      any = true;
      const std::string key = lx_.text();
      expect('=');
      read_potential_attribute(p, key);
      expect(';');
    }
    if (!any) lx_.report_warning("warning: no potential data specified");
  }

  // The checks of the node lists of a potential, in their fixed order.
  void verify_potential_nodes(const Potential& p) {
    if (p.children.size() > 1) {
      for (const auto* list : {&p.children, &p.parents})
        for (Node* n : *list)
          if (is_real_function(*n))
            fail("real-valued function nodes are not allowed in chain potentials");
      for (Node* c : p.children)
        if (c->category() != K_CATEGORY_CHANCE || !c->is_discrete())
          fail("undirected links can only be specified for discrete chance nodes");
    }
    for (Node* n : p.parents)
      if (n->category() == K_CATEGORY_UTILITY)
        fail(net_message("utility node `%s' specified as parent", n->name().c_str()));
    // The head in written order, children first: the first node met before
    // is named twice.  Heads are short: a pairwise check needs no set.
    const std::size_t head = p.children.size() + p.parents.size();
    auto at = [&p](std::size_t i) {
      return i < p.children.size() ? p.children[i] : p.parents[i - p.children.size()];
    };
    for (std::size_t i = 1; i < head; ++i)
      for (std::size_t j = 0; j < i; ++j)
        if (at(j) == at(i))
          fail(net_message("node `%s' appears twice in potential specification",
                           at(i)->name().c_str()));
    // Function nodes are evaluated from their parents, whatever their kind,
    // so they may have continuous parents (as links allow).
    for (Node* c : p.children)
      if (c->is_discrete() && c->category() != K_CATEGORY_FUNCTION)
        for (Node* n : p.parents)
          if (n->is_continuous())
            fail(net_message("continuous node `%s' is not allowed as parent of discrete node `%s'",
                             n->name().c_str(), c->name().c_str()));
    bool continuous = false;
    for (Node* n : p.parents) {
      if (is_real_function(*n)) continue;
      if (n->is_continuous()) continuous = true;
      else if (n->is_discrete() && continuous) fail("discrete parents must appear first");
    }
    bool function = false;
    for (Node* n : p.parents) {
      if (is_real_function(*n)) function = true;
      else if (function) fail("real-valued function parents must appear last");
    }
    for (const auto* list : {&p.children, &p.parents})
      for (Node* n : *list)
        if (n->category() == K_CATEGORY_INSTANCE)
          fail(net_message("class instance node `%s' found in potential specification",
                           n->name().c_str()));
  }

  // Links already there: none may be repeated, none left out.
  void verify_links(const Potential& p) {
    for (Node* c : p.children)
      for (Node* n : p.parents)
        if (c->parents().contains(n))
          fail(net_message("links specified twice for %s", c->name().c_str()));
    for (Node* c : p.children) {
      bool missing = false;
      for (Node* n : c->parents()) {
        if (std::find(p.parents.begin(), p.parents.end(), n) != p.parents.end()) continue;
        error(
            net_message("the directed link %s --> %s should have been included in the "
                        "potential for %s",
                        n->name().c_str(), c->name().c_str(), c->name().c_str()));
        missing = true;
      }
      if (missing)
        fail(net_message("potential for node %s must include all parents", c->name().c_str()));
    }
  }

  // A directed link from each parent to each child, parents in the order
  // written (which is the order of the children's parent lists).
  void add_links(const Potential& p) {
    // The members of a chain have no parents before this (the checks above
    // saw to that), so no directed path joins two of them: a cycle can only
    // close through a parent, and add_parent finds it.
    const bool chain = p.children.size() > 1;
    for (Node* n : p.parents) {
      for (Node* c : p.children) {
        try {
          add_parent(*c, *n);
        } catch (const Error& e) {
          const char* what = e.code() == K_ERROR_CYCLIC_NETWORK ? "directed cycle"
                             : e.code() == K_ERROR_CYCLIC_FUNCTIONAL_DEPENDENCY
                                 ? "cyclic functional dependency"
                                 : nullptr;
          if (what == nullptr) net_api_fail(lx_, e.code());
          if (chain) fail(net_message("adding chain potential creates a %s", what));
          fail(net_message("adding the link %s --> %s creates a %s", n->name().c_str(),
                           c->name().c_str(), what));
        } catch (const std::bad_alloc&) {
          net_api_fail(lx_, K_ERROR_NO_MEMORY);
        }
      }
    }
  }

  // A chain potential becomes a chain component: its members (the children,
  // joined by undirected links), its parents (each linked to every member by
  // a directed link), and one table over the parents and then the members,
  // both in the order written.  That is the order of the values in the text,
  // so the table holds them as they stand.  The members get no tables of
  // their own.
  ChainComponent* make_chain_component(const Potential& p) {
    return api([&] {
      auto component = std::make_unique<ChainComponent>();
      std::vector<Node*> all = p.parents;
      for (Node* c : p.children) {
        component->members.push_back(c);
        all.push_back(c);
      }
      for (Node* n : p.parents) component->parents.push_back(n);
      component->table.reset(new Table(domain_, all, TableRole::conditional, nullptr));
      domain_.chain_components.push_back(std::move(component));
      return domain_.chain_components.back().get();
    });
  }

  // potential-attribute: name `=` value `;` (the `;` is read by the caller)
  void read_potential_attribute(Potential& p, const std::string& key) {
    Node& child = p.child();
    if (key == "data") {
      if (p.data) fail("`data' attribute specified twice");
      if (is_real_function(child))
        fail("`data' attribute is not allowed for real-valued function nodes");
      p.data = true;
      read_data(p);
    } else if (key == "model_nodes") {
      if (p.model != nullptr) fail("`model_nodes' attribute specified twice");
      if (p.chain != nullptr) fail("models cannot be specified for chain graph potentials");
      if (child.is_continuous()) fail("models cannot be specified for CG nodes");
      read_model_nodes(p);
    } else if (key == "model_data") {
      if (p.model == nullptr) fail("`model_nodes' attribute has not been specified");
      if (p.model_data) fail("`model_data' attribute specified twice");
      p.model_data = true;
      read_model_data(*p.model);
    } else if (key == "samples_per_interval") {
      if (p.model == nullptr) fail("`model_nodes' attribute has not been specified");
      const int t = next();
      const double v = lx_.number();
      if (t != TOKEN_NUMBER || !(v >= 1.0) || v != std::floor(v) || v >= 18446744073709551616.0)
        fail("`samples_per_interval' must be a positive integer", t);
      api([&] { set_samples_per_interval(*p.model, static_cast<std::uint64_t>(v)); });
    } else if (key == "experience") {
      if (child.category() != K_CATEGORY_CHANCE)
        fail("experience data can only be specified for chance nodes");
      if (p.chain != nullptr)
        fail("experience data cannot be specified for chain graph potentials");
      if (p.experience) fail("`experience' attribute specified twice");
      p.experience = true;
      read_parent_table(p, api([&]() -> Table& { return experience_table(child); }));
    } else if (key == "fading") {
      if (child.category() != K_CATEGORY_CHANCE || !child.is_discrete())
        fail("fading data can only be specified for discrete chance nodes");
      if (p.chain != nullptr) fail("fading data cannot be specified for chain graph potentials");
      if (p.fading) fail("`fading' attribute specified twice");
      p.fading = true;
      read_parent_table(p, api([&]() -> Table& { return fading_table(child); }));
    } else {
      fail(net_message("unknown field: `%s'", key.c_str()));
    }
  }

  // The written order of a table's discrete nodes: as the potential head
  // lists them, parents first, then the children.
  static std::vector<Node*> written_order(const Potential& p, const Table& table) {
    std::vector<Node*> order;
    order.reserve(table.nodes().size());
    for (const auto* list : {&p.parents, &p.children})
      for (Node* n : *list)
        if (n->is_discrete() && table.nodes().contains(n)) order.push_back(n);
    return order;
  }

  void read_data(const Potential& p) {
    NetTableTarget target;
    if (p.chain != nullptr) {
      target.table = p.chain->table.get();
      target.probability = true;
    } else {
      Node& child = p.child();
      target.table = &api([&]() -> Table& { return node_table(child); });
      target.probability = child.category() == K_CATEGORY_CHANCE && child.is_discrete();
      if (child.is_continuous()) target.cg_child = &child;
    }
    target.order = written_order(p, *target.table);
    read_net_table(lx_, target);
  }

  void read_parent_table(const Potential& p, Table& table) {
    NetTableTarget target;
    target.table = &table;
    target.order = written_order(p, table);
    read_net_table(lx_, target);
  }

  // model-nodes: `(` name* `)`
  void read_model_nodes(Potential& p) {
    Node& child = p.child();
    expect('(');
    std::vector<Node*> nodes;
    for (;;) {
      const int t = next();
      if (t == ')') break;
      if (!is_name(t)) fail("node name or `)' expected", t);
      Node& n = named_node();
      if (!child.parents().contains(&n))
        fail(net_message("node `%s' is not a parent of node `%s'", n.name().c_str(),
                         child.name().c_str()));
      if (std::find(nodes.begin(), nodes.end(), &n) != nodes.end())
        fail(net_message("node `%s' appears twice in `model_nodes' attribute", n.name().c_str()));
      if (!n.is_discrete()) fail("the `model_nodes' attribute must contain discrete nodes only");
      nodes.push_back(&n);
    }
    p.model = &api([&]() -> Model& { return new_model(child, nodes); });
  }

  // model-data: `(` [expression] (`,` [expression])* `)`, one place per
  // configuration of the model nodes; an empty place leaves its slot unset.
  void read_model_data(Model& model) {
    expect('(');
    lx_.set_reader(TokenReader::full);
    const std::uint64_t size = model.size();
    for (std::uint64_t i = 0; i < size; ++i) {
      int t = next();
      if (t != ',' && t != ')') {
        lx_.push_back(t);
        Expression* e = parse_expression(lx_, domain_);
        api([&] {
          try {
            set_model_expression(model, i, e);
          } catch (...) {
            ExpressionFactory::release(e);
            throw;
          }
        });
        t = next();
      }
      if (i + 1 < size && t != ',') fail("`,' expected", t);
      if (i + 1 == size && t != ')') fail("`)' expected", t);
    }
    lx_.set_reader(TokenReader::basic);
  }

  Lexer& lx_;
  Domain& domain_;
  std::unordered_set<Node*> has_potential_;
  std::vector<std::string> labels_;  // read_states' scratch
  const ClassLoader* loader_ = nullptr;
  std::optional<std::vector<std::string>> inputs_;
  std::optional<std::vector<std::string>> outputs_;

 public:
  NetReader(Lexer& lexer, Domain& body, const ClassLoader* loader)
      : lx_(lexer), domain_(body), loader_(loader) {}
};

// class-file: (`class` name `{` class-body)*
void read_classes(Lexer& lx, ClassCollection& cc, const ClassLoader& loader) {
  for (;;) {
    int t = lx.next_token();
    if (t == TOKEN_EOF) return;
    if (t != TOKEN_NAME || lx.text() != "class") net_fail(lx, "expected `class' keyword", t);
    t = lx.next_token();
    if (t != TOKEN_NAME) net_fail(lx, "class name expected", t);
    const std::string name = lx.text();
    if (cc.find(name) != nullptr)
      net_fail(lx, net_message("a class with name `%s' already exists", name.c_str()));
    Class& cls = net_api(lx, [&]() -> Class& { return new_class(cc, name.c_str()); });
    t = lx.next_token();
    if (t != '{') net_fail(lx, "`{' expected", t);
    NetReader(lx, cls.body(), &loader).read_class_body();
  }
}

// The older network format starts with a header of a name, a label string
// and three numbers.  Its first five tokens are read with the word reader on
// a lexer of their own, whose messages nobody sees; the stream is then put
// back where it was.
bool older_format(std::FILE* stream) {
  const long start = std::ftell(stream);
  if (start < 0) throw Error(K_ERROR_IO);
  bool older = true;
  {
    Lexer look(stream, nullptr, nullptr);
    look.set_reader(TokenReader::word);
    for (int expected : {TOKEN_NAME, TOKEN_STRING, TOKEN_NUMBER, TOKEN_NUMBER, TOKEN_NUMBER}) {
      if (look.next_token() != expected) {
        older = false;
        break;
      }
    }
    // A look-ahead that broke the grammar is forgotten; other failures are
    // not.
    const k_error_t code = look.failure();
    if (code != K_ERROR_NONE && code != K_ERROR_PARSE) throw Error(code);
  }
  if (std::fseek(stream, start, SEEK_SET) != 0) throw Error(K_ERROR_IO);
  return older;
}

}  // namespace

Domain* read_net_domain(std::FILE* stream, const char* file_name, k_parse_error_handler_t handler,
                        void* data) {
  auto domain = std::make_unique<Domain>();
  if (file_name != nullptr) domain->file_name = file_name;
  Lexer lexer(stream, handler, data);
  run_parse(lexer, [&](Lexer& lx) {
    if (older_format(stream)) {
      read_older_net(lx, *domain);
      return;
    }
    NetReader(lx, *domain).read();
  });
  return domain.release();
}

namespace {

// A failed parse removes every class it added (those the call-back added
// too), newest first.
void read_classes_or_undo(Lexer& lexer, ClassCollection& cc, const ClassLoader& loader) {
  const std::size_t before = cc.members().size();
  try {
    run_parse(lexer, [&](Lexer& lx) { read_classes(lx, cc, loader); });
  } catch (...) {
    while (cc.members().size() > before) delete_class(*cc.members()[cc.members().size() - 1]);
    throw;
  }
}

}  // namespace

void read_net_classes(std::FILE* stream, ClassCollection& cc, const ClassLoader& loader,
                      k_parse_error_handler_t handler, void* data) {
  Lexer lexer(stream, handler, data);
  read_classes_or_undo(lexer, cc, loader);
}

void read_net_classes(const char* text, ClassCollection& cc, const ClassLoader& loader,
                      k_parse_error_handler_t handler, void* data) {
  Lexer lexer(text, handler, data);
  read_classes_or_undo(lexer, cc, loader);
}

Domain* read_net_domain(const char* text, k_parse_error_handler_t handler, void* data) {
  auto domain = std::make_unique<Domain>();
  Lexer lexer(text, handler, data);
  run_parse(lexer, [&](Lexer& lx) { NetReader(lx, *domain).read(); });
  return domain.release();
}

}  // namespace kelva
