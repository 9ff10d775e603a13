// The BIF reader: `network`, `variable` and `probability` blocks, with
// tables as one list (`table`), as rows labelled by the parents' states, or
// as a `default` row for the rows not given.
#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "network/domain.h"
#include "network/error.h"
#include "text/foreign_net.h"
#include "text/foreign_scanner.h"

namespace kelva {
namespace {

bool is_punctuation(char c) noexcept {
  switch (c) {
    case '{':
    case '}':
    case '(':
    case ')':
    case '[':
    case ']':
    case ';':
    case ',':
    case '|':
    case '"':
      return true;
    default:
      return false;
  }
}

bool is_blank(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

// Whether `a` and `b` hold the same characters; compared in place, as
// state names are short and a call of memcmp costs more than the loop.
bool same_text(const std::string& a, std::string_view b) noexcept {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < b.size(); ++i)
    if (a[i] != b[i]) return false;
  return true;
}

// The index of state `s` among `states`, or states.size() when it is none.
// The search starts at `hint`, the state found last time, and moves it:
// rows usually come in order, so a parent's state is the one of the row
// before or the next.  States are distinct, so the order of the search does
// not change the answer.
std::size_t find_state(const std::vector<std::string>& states, std::string_view s,
                       std::size_t& hint) noexcept {
  const std::size_t n = states.size();
  for (std::size_t tried = 0, i = hint < n ? hint : 0; tried < n; ++tried) {
    if (same_text(states[i], s)) {
      hint = i;
      return i;
    }
    if (++i == n) i = 0;
  }
  return n;
}

class BifReader {
 public:
  BifReader(std::string_view text, const ForeignErrors& errors) : sc_(text), errors_(errors) {}

  // file: (network-block | variable-block | probability-block)*
  ForeignNet read() {
    for (;;) {
      blanks();
      if (sc_.at_end()) return std::move(net_);
      const std::uint64_t line = sc_.line();
      const std::string_view w = word("`network', `variable' or `probability'");
      if (w == "network") read_network();
      else if (w == "variable") read_variable(line);
      else if (w == "probability") read_probability(line);
      else
        fail(net_message("`network', `variable' or `probability' expected, not `%s'",
                         std::string(w).c_str()));
    }
  }

 private:
  [[noreturn]] void fail(const std::string& message) const { errors_.fail(sc_.line(), message); }

  void blanks() {
    if (!sc_.skip_blanks(true)) fail("a comment that does not end");
  }

  // What stands at the cursor, for messages.
  std::string found() const {
    if (sc_.at_end()) return "the end of the file";
    const char* p = sc_.pos();
    const char* e = p + 1;
    while (e < sc_.end() && !is_blank(*e) && !is_punctuation(*e) && !is_punctuation(*p) &&
           e - p < 40)
      ++e;
    std::string text(1, '`');
    text.append(p, e);
    text += '\'';
    return text;
  }

  [[noreturn]] void expected(const char* what) const {
    errors_.fail(sc_.line(), net_message("%s expected, found %s", what, found().c_str()));
  }

  void expect(char c) {
    blanks();
    if (sc_.peek() != c || sc_.at_end()) {
      const char text[] = {'`', c, '\'', '\0'};
      expected(text);
    }
    sc_.advance();
  }

  bool accept(char c) {
    blanks();
    if (sc_.at_end() || sc_.peek() != c) return false;
    sc_.advance();
    return true;
  }

  // A bare word (a run of characters other than blanks and punctuation) or a
  // string in double quotes, with `\"` and `\\` escapes.  The view stays
  // valid until the next word.
  std::string_view word(const char* what) {
    blanks();
    if (sc_.at_end()) expected(what);
    if (sc_.peek() == '"') {
      const std::uint64_t line = sc_.line();
      sc_.advance();
      scratch_.clear();
      for (;;) {
        if (sc_.at_end()) errors_.fail(line, "a string that does not end");
        char c = sc_.peek();
        sc_.advance();
        if (c == '"') break;
        if (c == '\\' && !sc_.at_end() && (sc_.peek() == '"' || sc_.peek() == '\\')) {
          c = sc_.peek();
          sc_.advance();
        }
        scratch_ += c;
      }
      return scratch_;
    }
    const char* from = sc_.pos();
    const char* p = from;
    while (p < sc_.end() && !is_blank(*p) && !is_punctuation(*p)) ++p;
    if (p == from) expected(what);
    sc_.advance_to(p);
    return {from, static_cast<std::size_t>(p - from)};
  }

  // Skips to the end of a `property` entry, strings included.
  void skip_property() {
    for (;;) {
      blanks();
      if (sc_.at_end()) expected("`;'");
      if (sc_.peek() == ';') break;
      if (sc_.peek() == '"') word("a string");
      else sc_.advance();
    }
    sc_.advance();
  }

  // network-block: `network` name `{` property* `}`
  void read_network() {
    word("a network name");
    expect('{');
    for (;;) {
      if (accept('}')) return;
      const std::string_view w = word("`property' or `}'");
      if (w != "property") fail("`property' or `}' expected");
      skip_property();
    }
  }

  // variable-block: `variable` name `{` (type | property)* `}`
  // type: `type` `discrete` `[` count `]` `{` state (`,` state)* `}` `;`
  void read_variable(std::uint64_t line) {
    ForeignVariable v;
    v.line = line;
    v.name = word("a variable name");
    expect('{');
    bool typed = false;
    for (;;) {
      if (accept('}')) break;
      const std::string_view w = word("`type', `property' or `}'");
      if (w == "property") {
        skip_property();
        continue;
      }
      if (w != "type") fail("`type', `property' or `}' expected");
      if (typed) fail(net_message("variable `%s' has two types", v.name.c_str()));
      typed = true;
      if (word("`discrete'") != "discrete")
        fail(net_message("variable `%s' is not discrete", v.name.c_str()));
      expect('[');
      blanks();
      double count = 0;
      // Bounded before the conversion: a huge count is no count of states.
      if (!sc_.number(count) || !(count >= 1 && count <= 2147483647.0) ||
          count != std::floor(count))
        expected("a number of states");
      expect(']');
      expect('{');
      for (;;) {
        const std::string_view s = word("a state name");
        for (const std::string& other : v.states)
          if (other == s)
            fail(net_message("state `%s' of `%s' given twice", other.c_str(), v.name.c_str()));
        v.states.emplace_back(s);
        if (accept('}')) break;
        expect(',');
      }
      expect(';');
      if (static_cast<double>(v.states.size()) != count)
        fail(net_message("variable `%s' has %zu states, not the %.0f it declares", v.name.c_str(),
                         v.states.size(), count));
    }
    if (!typed) errors_.fail(line, net_message("variable `%s' has no type", v.name.c_str()));
    add_foreign_variable(net_, std::move(v), errors_);
  }

  std::size_t variable(std::string_view name) {
    const auto it = net_.index.find(std::string(name));
    if (it == net_.index.end())
      fail(net_message("unknown variable `%s'", std::string(name).c_str()));
    return it->second;
  }

  // Numbers up to `;`, commas between them optional.
  void read_values(std::vector<double>& out) {
    for (;;) {
      blanks();
      if (sc_.peek() == ';' && !sc_.at_end()) break;
      double v;
      if (!sc_.number(v)) expected("a number or `;'");
      out.push_back(v);
      blanks();
      if (sc_.peek() == ',') sc_.advance();
    }
    sc_.advance();
  }

  // probability-block: `probability` `(` child [`|` parent (`,` parent)*] `)` `{` entry* `}`
  // entry: `table` values | `default` values | `(` state (`,` state)* `)` values | property
  void read_probability(std::uint64_t line) {
    ForeignTable t;
    t.line = line;
    expect('(');
    t.child = variable(word("a variable name"));
    if (accept('|')) {
      for (;;) {
        t.parents.push_back(variable(word("a variable name")));
        if (accept(')')) break;
        accept(',');
      }
    } else {
      expect(')');
    }
    const ForeignVariable& child = net_.variables[t.child];
    const std::size_t width = child.states.size();
    std::uint64_t rows = 1;
    for (std::size_t p : t.parents) {
      const std::size_t n = net_.variables[p].states.size();
      rows = rows > (std::uint64_t{1} << 40) / n ? (std::uint64_t{1} << 40) : rows * n;
    }
    std::vector<double> table;  // the `table` entry's values
    std::vector<double> fallback;
    std::vector<double> row_values;
    std::vector<bool> given;
    std::vector<std::size_t> hints(t.parents.size(), 0);
    bool has_table = false;
    bool has_rows = false;
    expect('{');
    for (;;) {
      if (accept('}')) break;
      const std::uint64_t entry_line = sc_.line();
      if (accept('(')) {
        if (has_table) fail(net_message("the table of `%s' given twice", child.name.c_str()));
        has_rows = true;
        std::uint64_t row = 0;
        for (std::size_t k = 0; k < t.parents.size(); ++k) {
          if (k > 0) expect(',');
          const ForeignVariable& p = net_.variables[t.parents[k]];
          const std::string_view s = word("a state name");
          const std::size_t i = find_state(p.states, s, hints[k]);
          if (i == p.states.size())
            fail(
                net_message("`%s' is not a state of `%s'", std::string(s).c_str(), p.name.c_str()));
          row = row * p.states.size() + i;
        }
        expect(')');
        if (t.values.empty()) {
          if (rows * width > (std::uint64_t{1} << 32))
            fail(net_message("the table of `%s' is too large", child.name.c_str()));
          t.values.assign(rows * width, 0.0);
          t.row_lines.assign(rows, line);
          given.assign(rows, false);
        }
        if (given[row]) fail(net_message("a row of `%s' given twice", child.name.c_str()));
        given[row] = true;
        row_values.clear();
        read_values(row_values);
        if (row_values.size() != width)
          errors_.fail(entry_line, net_message("a row of `%s' has %zu values, not %zu",
                                               child.name.c_str(), row_values.size(), width));
        std::copy(row_values.begin(), row_values.end(), t.values.begin() + row * width);
        t.row_lines[row] = entry_line;
        continue;
      }
      const std::string_view w = word("`table', `default', `(', `property' or `}'");
      if (w == "property") {
        skip_property();
      } else if (w == "table") {
        if (has_table || has_rows)
          fail(net_message("the table of `%s' given twice", child.name.c_str()));
        has_table = true;
        read_values(table);
      } else if (w == "default") {
        if (!fallback.empty()) fail(net_message("two defaults for `%s'", child.name.c_str()));
        read_values(fallback);
        if (fallback.size() != width)
          errors_.fail(entry_line, net_message("a row of `%s' has %zu values, not %zu",
                                               child.name.c_str(), fallback.size(), width));
      } else {
        fail(net_message("`table', `default', `(', `property' or `}' expected, not `%s'",
                         std::string(w).c_str()));
      }
    }
    if (has_table) {
      t.values = std::move(table);
    } else if (has_rows || !fallback.empty()) {
      if (!has_rows) {
        if (rows * width > (std::uint64_t{1} << 32))
          fail(net_message("the table of `%s' is too large", child.name.c_str()));
        t.values.assign(rows * width, 0.0);
        given.assign(rows, false);
      }
      for (std::uint64_t r = 0; r < rows; ++r) {
        if (given[r]) continue;
        if (fallback.empty())
          errors_.fail(line, net_message("the table of `%s' lacks a row", child.name.c_str()));
        std::copy(fallback.begin(), fallback.end(), t.values.begin() + r * width);
      }
    } else {
      errors_.fail(line, net_message("no values for `%s'", child.name.c_str()));
    }
    net_.tables.push_back(std::move(t));
  }

  ForeignScanner sc_;
  const ForeignErrors& errors_;
  ForeignNet net_;
  std::string scratch_;
};

}  // namespace

Domain* read_bif_domain(std::string_view text, const char* file_name,
                        k_parse_error_handler_t handler, void* data) {
  const ForeignErrors errors(handler, data);
  const ForeignNet net = BifReader(text, errors).read();
  return build_foreign_domain(net, errors, file_name);
}

}  // namespace kelva
