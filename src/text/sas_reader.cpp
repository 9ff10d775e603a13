// The SAS node and link file readers.  Both are line oriented: a record is
// one line, and a token that the lexer finds on a later line ends it.  Both
// stop at the first error and undo what they did to the domain.
#include "text/sas_reader.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "lexer/lexer.h"
#include "network/domain.h"
#include "network/node.h"
#include "structure/structure.h"
#include "table/table.h"
#include "text/line_reader.h"
#include "text/net_reader.h"

namespace kelva {
namespace {

constexpr double kLargest = std::numeric_limits<double>::max();

bool is_name(int token) noexcept { return token == TOKEN_NAME || token == TOKEN_DOTTED_NAME; }

// The kinds of node a type letter makes.
struct NodeType {
  char letter;
  k_category_t category;
  k_kind_t kind;
  k_subtype_t subtype;  // discrete nodes only
  // Lines that give states: a labelled or numbered node needs one, an
  // interval node two (its first two bounds make one state).
  std::size_t needed;
};

constexpr NodeType kTypes[] = {
    {'L', K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL, 1},
    {'B', K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_BOOLEAN, 0},
    {'N', K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_NUMBER, 1},
    {'I', K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_INTERVAL, 2},
    {'C', K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL, 0},
    {'F', K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL, 0},
};

bool matches(const Node& node, const NodeType& type) noexcept {
  return node.category() == type.category && node.kind() == type.kind &&
         (!node.is_discrete() || node.subtype() == type.subtype);
}

// node-line: name [`,`] letter [[`,`] state]
class NodeReader : LineReader {
 public:
  NodeReader(Lexer& lexer, Domain& domain) : LineReader(lexer), domain_(domain) {}

  void read() {
    for (int t = first(); t != TOKEN_EOF; t = first()) read_line(t);
    for (const Made& m : made_) {
      if (m.lines >= m.type->needed) continue;
      lx_.report_error(
          net_message("incomplete specification of node %s", m.node->name().c_str()).c_str());
      throw Error(K_ERROR_PARSE);
    }
  }

  // Deletes the nodes this reader created, newest first, and gives the
  // domain its creation counter back.
  void undo(std::uint64_t counter) noexcept {
    for (auto it = made_.rbegin(); it != made_.rend(); ++it) {
      try {
        delete_node(*it->node);
      } catch (...) {
        // A node just created holds no link and is in no table: deleting
        // it has nothing to reshape and does not fail.
      }
    }
    made_.clear();
    domain_.rewind_counter(counter);
  }

 private:
  // A node this reader created, its type and the lines that gave states.
  struct Made {
    Node* node;
    const NodeType* type;
    std::size_t lines;
  };

  void read_line(int t) {
    if (!is_name(t)) fail("node name expected", t);
    const std::string name = lx_.text();
    t = needed();
    if (t == ',') t = needed();
    const NodeType* type = nullptr;
    if (t == TOKEN_NAME && lx_.text().size() == 1)
      for (const NodeType& k : kTypes)
        if (k.letter == lx_.text()[0]) type = &k;
    if (type == nullptr) fail("invalid type specifier (must be L, B, N, I, C, or F)", t);

    Made* made = nullptr;
    if (Node* node = domain_.find(name); node == nullptr) {
      made = &create(name, *type);
    } else {
      if (!matches(*node, *type)) fail("type specifier doesn't match previous specification");
      const auto it =
          std::find_if(made_.begin(), made_.end(), [&](const Made& m) { return m.node == node; });
      if (it == made_.end())
        fail(net_message("attempt to change existing node %s in the network", name.c_str()));
      made = &*it;
    }
    if (type->needed > 0) read_state(*made);
    t = more();
    if (t != 0) fail("extra stuff at end-of-line", t);
  }

  Made& create(const std::string& name, const NodeType& type) {
    api([&] { made_.reserve(made_.size() + 1); });
    Node* node = api([&] { return domain_.new_node(type.category, type.kind, type.subtype); });
    made_.push_back({node, &type, 0});
    api([&] { domain_.rename(*node, name.c_str()); });
    return made_.back();
  }

  // state: a label for L; a value for N and I: [`+` | `-`] (number | `infinity`)
  void read_state(Made& made) {
    Node& node = *made.node;
    const char letter = made.type->letter;
    if (letter == 'L') {
      int t = needed();
      if (t == ',') t = needed();
      if (t != TOKEN_NAME && t != TOKEN_STRING) fail("state label expected", t);
      std::string label = lx_.text();
      const std::size_t state = grow(made);
      api([&] { node.set_state_label(state, std::move(label)); });
      return;
    }
    // Signs are tokens of their own in the full reader, so `- 3` and
    // `-infinity` read alike and a sign cannot reach across a line.
    lx_.set_reader(TokenReader::full);
    int t = needed();
    if (t == ',') t = needed();
    double sign = 1.0;
    if (t == '+' || t == '-') {
      sign = t == '-' ? -1.0 : 1.0;
      t = needed();
    }
    double value;
    // A value beyond the largest double (1e999) means what `infinity` means.
    if (t == TOKEN_NUMBER) value = sign * std::min(lx_.number(), kLargest);
    else if (t == TOKEN_NAME && lx_.text() == "infinity") value = sign * kLargest;
    else fail("state value expected", t);
    lx_.set_reader(TokenReader::basic);
    // Values go to the states of a numbered node and to the bounds of an
    // interval node (one more bound than states).
    std::size_t index;
    if (letter == 'I') {
      index = made.lines;
      if (index >= 2) api([&] { set_number_of_states(node, index); });
      ++made.lines;
    } else {
      index = grow(made);
    }
    node.set_state_value(index, value);
  }

  // The index of the state a line adds: the node was created with one
  // state, which the first line fills; every later line adds one.
  std::size_t grow(Made& made) {
    const std::size_t state = made.lines;
    if (state > 0) api([&] { set_number_of_states(*made.node, state + 1); });
    ++made.lines;
    return state;
  }

  Domain& domain_;
  std::vector<Made> made_;  // in creation order
};

// link-line: child ([`,`] parent)*
class LinkReader : LineReader {
 public:
  LinkReader(Lexer& lexer, Domain& domain) : LineReader(lexer), domain_(domain) {}

  void read() {
    for (int t = first(); t != TOKEN_EOF; t = first()) {
      Node& child = node(t);
      for (t = more(); t != 0; t = more()) {
        if (t == ',') t = needed();
        add(child, node(t));
      }
    }
  }

  // Removes the links this reader added, newest first, then gives the
  // children's tables back the contents they had before (removing a parent
  // averages over its states, which need not give back the very numbers).
  void undo() noexcept {
    for (auto it = added_.rbegin(); it != added_.rend(); ++it) {
      try {
        remove_parent(*it->first, *it->second);
      } catch (...) {
        // Out of memory while reshaping: the link stays.
      }
    }
    for (Saved& s : saved_) {
      Node& c = *s.child;
      restore(c.table(), s.table.get());
      restore(c.experience_table(), s.experience.get());
      restore(c.fading_table(), s.fading.get());
      c.needs_generation = s.needs_generation;
    }
    added_.clear();
    saved_.clear();
  }

 private:
  // A child's tables and generation mark before its first new link.
  struct Saved {
    Node* child;
    std::unique_ptr<Table> table, experience, fading;
    bool needs_generation;
  };

  Node& node(int t) {
    if (!is_name(t)) fail("node name expected", t);
    Node* n = domain_.find(lx_.text());
    if (n == nullptr) fail(net_message("node `%s' not found", lx_.text().c_str()));
    return *n;
  }

  void add(Node& child, Node& parent) {
    api([&] {
      added_.reserve(added_.size() + 1);
      save(child);
    });
    try {
      add_parent(child, parent);
    } catch (const Error& e) {
      if (e.code() == K_ERROR_NO_MEMORY) net_api_fail(lx_, e.code());
      fail(net_message("adding link from `%s' to `%s' failed", parent.name().c_str(),
                       child.name().c_str()));
    } catch (const std::bad_alloc&) {
      net_api_fail(lx_, K_ERROR_NO_MEMORY);
    }
    added_.emplace_back(&child, &parent);
  }

  void save(Node& child) {
    for (const Saved& s : saved_)
      if (s.child == &child) return;
    auto copy = [](const Table* t) { return t != nullptr ? t->clone() : nullptr; };
    Saved s{&child, copy(child.table()), copy(child.experience_table()), copy(child.fading_table()),
            child.needs_generation};
    saved_.push_back(std::move(s));
  }

  static void restore(Table* table, const Table* saved) noexcept {
    if (table == nullptr || saved == nullptr) return;
    try {
      table->assign_contents(*saved);
    } catch (...) {
      // A link that could not be removed left another shape: keep it.
    }
  }

  Domain& domain_;
  std::vector<std::pair<Node*, Node*>> added_;  // child, parent; in order
  std::vector<Saved> saved_;
};

// Runs a reader over the stream under the parse frame; on failure the
// reader's undo puts the domain back.
template <class Reader, class Undo>
void run(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler, void* data,
         Undo undo) {
  Lexer lexer(stream, handler, data);
  Reader reader(lexer, domain);
  try {
    run_parse(lexer, [&](Lexer&) { reader.read(); });
  } catch (...) {
    undo(reader);
    throw;
  }
}

}  // namespace

void read_sas_nodes(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler,
                    void* data) {
  const std::uint64_t counter = domain.counter();
  run<NodeReader>(domain, stream, handler, data, [&](NodeReader& r) { r.undo(counter); });
}

void read_sas_links(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler,
                    void* data) {
  run<LinkReader>(domain, stream, handler, data, [](LinkReader& r) { r.undo(); });
}

}  // namespace kelva
