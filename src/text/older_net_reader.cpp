// The reader of the older network format: a header, then one entry per
// discrete chance node with its parents and its conditional table.  Names may
// be used as parents before their entry; each use gives the number of states,
// so tables are read at once and checked against the later entry.
#include "text/older_net_reader.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "lexer/lexer.h"
#include "network/domain.h"
#include "network/node.h"
#include "structure/structure.h"
#include "table/table.h"
#include "text/net_reader.h"

namespace kelva {
namespace {

// Node entries name at most this many states, so that a short file cannot
// ask for a huge node.
constexpr double kMaxStates = 65535.0;

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// A node this reader made: its state count as first used or defined, the
// line of its first use and, once its entry was read, the entry's line.
struct Made {
  Node* node;
  std::size_t states;
  std::uint64_t used_line;
  std::uint64_t defined_line = 0;  // 0 while it has no entry
};

// One parent of the entry being read.
struct Parent {
  Node* node;
  std::uint64_t line;
};

class OlderReader {
 public:
  OlderReader(Lexer& lexer, Domain& domain) : lx_(lexer), domain_(domain) {
    lx_.set_reader(TokenReader::word);
  }

  // header: name string width height scale
  void read_header() {
    int t = lx_.next_token();
    if (t != TOKEN_NAME) fail("domain name expected", t);
    t = lx_.next_token();
    if (t != TOKEN_STRING) fail("label string expected", t);
    if (!lx_.text().empty()) domain_.attributes().set("label", lx_.text().c_str());
    double header[3];
    for (double& v : header) {
      t = lx_.next_token();
      if (t != TOKEN_NUMBER) fail("node width, node height and scale factor expected", t);
      v = lx_.number();
    }
    if (!(header[0] >= 0.0 && header[1] >= 0.0 && header[2] >= 0.0))
      fail("node width and height, and scale factor must be nonnegative");
    domain_.node_width = layout_size(header[0]);
    domain_.node_height = layout_size(header[1]);
    scale_ = header[2];
  }

  // entries: entry* end-of-file; then every name used without an entry is
  // reported (each one counted).
  void read_entries() {
    for (int t = lx_.next_token(); t != TOKEN_EOF; t = lx_.next_token()) {
      if (t != TOKEN_NAME) fail("node name (or end-of-file) expected", t);
      read_entry();
    }
    for (const Made& m : made_)
      if (m.defined_line == 0)
        lx_.report_error(net_message("node `%s' (used at line %s) has not been defined",
                                     m.node->name().c_str(), lines_(m.used_line))
                             .c_str());
  }

  // Deletes the nodes this reader made, newest first (their links go with
  // them), and gives the domain its creation counter back.
  void undo(std::uint64_t counter) noexcept {
    for (auto it = made_.rbegin(); it != made_.rend(); ++it) {
      try {
        delete_node(*it->node);
      } catch (...) {
        // Removing a made node's links only shrinks its own table, which
        // does not fail.
      }
    }
    made_.clear();
    domain_.rewind_counter(counter);
  }

 private:
  // entry: name string states label* [x y] (name states)* table
  void read_entry() {
    const std::string name = lx_.text();
    const std::uint64_t line = lx_.line();
    std::size_t made = find_made(name);
    if (made != kNone && made_[made].defined_line != 0)
      fail(net_message("node `%s' has already been defined (at line %s)", name.c_str(),
                       lines_(made_[made].defined_line)));
    if (made == kNone && domain_.find(name) != nullptr)
      fail(net_message("node `%s' is already in the domain", name.c_str()));
    int t = lx_.next_token();
    if (t != TOKEN_STRING) fail("label string expected", t);
    std::string label = lx_.text();
    const std::size_t states = read_states(lx_.next_token());
    if (made != kNone && made_[made].states != states)
      fail(net_message("number of states (%s) does not match previous usage (line %s)",
                       lines_(states), lines_(made_[made].used_line)));

    std::vector<std::string> labels;
    for (t = lx_.next_token(); t == TOKEN_STRING; t = lx_.next_token())
      labels.push_back(lx_.text());
    if (!labels.empty() && labels.size() != states)
      fail(net_message("%s state labels given for %s states", lines_(labels.size()),
                       lines_(states)));
    int x = 0, y = 0;
    if (t == TOKEN_NUMBER) {
      x = position(lx_.number());
      t = lx_.next_token();
      if (t != TOKEN_NUMBER) fail("y coordinate expected", t);
      y = position(lx_.number());
      t = lx_.next_token();
    }

    std::vector<Parent> parents;
    std::uint64_t size = states;
    for (; t == TOKEN_NAME; t = lx_.next_token()) {
      Parent p = read_parent(name, made, parents);
      size = sat_mul(size, p.node->state_count());
      parents.push_back(p);
    }
    if (t != '(') fail("parent node name or a left parenthesis expected", t);
    const std::vector<double> values = read_table(name, size);

    if (made == kNone) made = make(name, states, line);
    made_[made].defined_line = line;
    Node& node = *made_[made].node;
    node.label = std::move(label);
    for (std::size_t i = 0; i < labels.size(); ++i) node.set_state_label(i, std::move(labels[i]));
    node.x = x;
    node.y = y;
    for (const Parent& p : parents) api([&] { add_parent(node, *p.node); });
    place(node, parents, values);
  }

  // The number of states of an entry or a use: a whole number from 1 to
  // kMaxStates.
  std::size_t read_states(int t) {
    if (t != TOKEN_NUMBER) fail("number of states expected", t);
    const double n = lx_.number();
    if (!(n >= 1.0 && n <= kMaxStates && n == std::floor(n)))
      fail("number of states must be a whole number from 1 to 65535");
    return static_cast<std::size_t>(n);
  }

  // parent: name states.  A name without an entry yet is made now, with the
  // states of this use.
  Parent read_parent(const std::string& child, std::size_t made,
                     const std::vector<Parent>& parents) {
    const std::string name = lx_.text();
    const std::uint64_t line = lx_.line();
    const std::size_t states = read_states(lx_.next_token());
    if (name == child)
      fail(net_message("adding the link %s --> %s creates a directed cycle", name.c_str(),
                       child.c_str()));
    Node* node = nullptr;
    if (const std::size_t i = find_made(name); i != kNone) {
      const Made& other = made_[i];
      if (other.states != states)
        fail(net_message("number of states (%s) does not match previous usage (line %s)",
                         lines_(states),
                         lines_(other.defined_line != 0 ? other.defined_line : other.used_line)));
      node = other.node;
    } else if (Node* old = domain_.find(name); old != nullptr) {
      if (!old->is_discrete() || old->state_count() != states)
        fail(net_message("node `%s' of the domain is not a discrete node with %s states",
                         name.c_str(), lines_(states)));
      node = old;
    } else {
      node = made_[make(name, states, line)].node;
    }
    for (const Parent& p : parents)
      if (p.node == node)
        fail(net_message("node `%s' appears twice as a parent of `%s'", name.c_str(),
                         child.c_str()));
    // New links all enter the child, so only a path from the child to this
    // parent closes a cycle.
    if (made != kNone && reaches(*made_[made].node, *node))
      fail(net_message("adding the link %s --> %s creates a directed cycle", name.c_str(),
                       child.c_str()));
    return {node, line};
  }

  // table: `(` number* `)`, exactly `size` nonnegative numbers.  They are
  // held aside, so the table is made only when the file has paid for it.
  std::vector<double> read_table(const std::string& child, std::uint64_t size) {
    std::vector<double> values;
    for (int t = lx_.next_token(); t != ')'; t = lx_.next_token()) {
      if (t != TOKEN_NUMBER) fail("number or `)' expected", t);
      const double v = lx_.number();
      if (!(v >= 0.0 && v <= std::numeric_limits<double>::max()))
        fail("table entries must be finite and nonnegative");
      api([&] { values.push_back(v); });
    }
    if (values.size() != size)
      fail(net_message("the table of `%s' needs %s numbers", child.c_str(), lines_(size)));
    return values;
  }

  // Puts the values, written with the parents in their order (first
  // slowest) and the child fastest, into the child's table.
  void place(Node& node, const std::vector<Parent>& parents, const std::vector<double>& values) {
    Table& table = api([&]() -> Table& { return node_table(node); });
    double* data = api([&] { return table.data(); });
    std::vector<Node*> order;
    for (const Parent& p : parents) order.push_back(p.node);
    order.push_back(&node);
    // Strides in the table's own order, listed in the written order.
    std::vector<std::uint64_t> strides(order.size());
    for (std::size_t k = 0; k < order.size(); ++k) {
      const std::size_t pos = table.nodes().index_of(order[k]);
      std::uint64_t stride = 1;
      for (std::size_t j = pos + 1; j < table.discrete_count(); ++j)
        stride *= table.state_counts()[j];
      strides[k] = stride;
    }
    std::vector<std::size_t> state(order.size(), 0);
    std::uint64_t index = 0;
    for (double v : values) {
      data[index] = v;
      for (std::size_t k = order.size(); k-- > 0;) {
        if (++state[k] < order[k]->state_count()) {
          index += strides[k];
          break;
        }
        index -= strides[k] * (order[k]->state_count() - 1);
        state[k] = 0;
      }
    }
  }

  // A new discrete chance node of `states` labelled states; its index in
  // made_.
  std::size_t make(const std::string& name, std::size_t states, std::uint64_t line) {
    api([&] { made_.reserve(made_.size() + 1); });
    Node* node =
        api([&] { return domain_.new_node(K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL); });
    made_.push_back({node, states, line});
    api([&] {
      index_.emplace(name, made_.size() - 1);
      domain_.rename(*node, name.c_str());
      set_number_of_states(*node, states);
    });
    return made_.size() - 1;
  }

  // The index in made_ of the node this reader made under `name`, or kNone.
  std::size_t find_made(const std::string& name) const {
    const auto it = index_.find(name);
    return it == index_.end() ? kNone : it->second;
  }

  // A node size: rounded to the nearest whole number, saturating.
  static std::uint64_t layout_size(double v) noexcept {
    const double rounded = std::trunc(v + 0.5);
    if (rounded >= 18446744073709551616.0) return std::numeric_limits<std::uint64_t>::max();
    return static_cast<std::uint64_t>(rounded);
  }

  // A coordinate times the scale factor, rounded; it must fit an int.
  int position(double v) {
    const double scaled = std::round(v * scale_);
    if (!(scaled >= std::numeric_limits<int>::min() && scaled <= std::numeric_limits<int>::max()))
      fail("position out of range");
    return static_cast<int>(scaled);
  }

  static std::uint64_t sat_mul(std::uint64_t a, std::uint64_t b) noexcept {
    std::uint64_t r;
    return __builtin_mul_overflow(a, b, &r) ? std::numeric_limits<std::uint64_t>::max() : r;
  }

  // Reports `message` and stops; a lexical error has been reported by the
  // lexer already and stops the parse without a second message.
  [[noreturn]] void fail(const std::string& message, int token = 0) {
    reader_fail(lx_, message, token);
  }

  template <class F>
  auto api(F&& body) -> decltype(body()) {
    return net_api(lx_, std::forward<F>(body));
  }

  Lexer& lx_;
  Domain& domain_;
  double scale_ = 1.0;
  std::vector<Made> made_;  // in creation order
  std::unordered_map<std::string, std::size_t> index_;
  LineTexts lines_;
};

}  // namespace

void read_older_net(Lexer& lexer, Domain& domain) {
  OlderReader reader(lexer, domain);
  reader.read_header();
  reader.read_entries();
}

void read_older_nodes(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler,
                      void* data) {
  const std::uint64_t counter = domain.counter();
  Lexer lexer(stream, handler, data);
  OlderReader reader(lexer, domain);
  try {
    run_parse(lexer, [&](Lexer&) { reader.read_entries(); });
  } catch (...) {
    reader.undo(counter);
    throw;
  }
}

}  // namespace kelva
