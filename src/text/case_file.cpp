// Case files: the single-case file (findings of one case, read into and
// written from the domain's evidence) and the multi-case data file (a case
// per line, read into and written from the stored cases).
#include "text/case_file.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>

#include "inference/evidence.h"
#include "lexer/lexer.h"
#include "network/domain.h"
#include "network/node.h"
#include "network/state_text.h"
#include "text/net_reader.h"
#include "text/net_writer.h"

namespace kelva {

namespace {

// What one item of a case file says about its node.
struct Finding {
  enum class Kind { missing, state, value, likelihood };
  Kind kind = Kind::missing;
  std::size_t state = 0;
  double value = 0.0;
  std::vector<double> likelihood;
};

bool is_numeric(const Node& n) noexcept {
  return n.is_discrete() && (n.subtype() == K_SUBTYPE_NUMBER || n.subtype() == K_SUBTYPE_INTERVAL);
}

// The nodes that take findings and case items.
bool takes_findings(const Node& n) noexcept {
  switch (n.category()) {
    case K_CATEGORY_CHANCE:
    case K_CATEGORY_DECISION:
      return n.is_discrete() || n.is_continuous();
    case K_CATEGORY_FUNCTION:
      return n.is_discrete();
    default:
      return false;
  }
}

// The state values of a numeric node name states the way value entry reads
// them: numbers finite and strictly increasing; interval bounds (one more
// than the states) nondecreasing, infinite only at the two ends.
bool values_increase(const Node& n) noexcept {
  const bool interval = n.subtype() == K_SUBTYPE_INTERVAL;
  const std::size_t count = n.state_count() + (interval ? 1 : 0);
  for (std::size_t i = 0; i < count; ++i) {
    const double v = n.state_value(i);
    if (std::isnan(v)) return false;
    if (std::isinf(v) && !(interval && ((i == 0 && v < 0) || (i + 1 == count && v > 0))))
      return false;
    if (i > 0 && (interval ? !(n.state_value(i - 1) <= v) : !(n.state_value(i - 1) < v)))
      return false;
  }
  return true;
}

// The state of a numeric node that holds `value`, or the state count.
std::size_t state_holding(const Node& n, double value) noexcept {
  for (std::size_t i = 0; i < n.state_count(); ++i) {
    if (n.subtype() == K_SUBTYPE_NUMBER ? n.state_value(i) == value
                                        : n.state_value(i) <= value && value < n.state_value(i + 1))
      return i;
  }
  return n.state_count();
}

// The item readers shared by both formats.  `data_file` selects the rules of
// the multi-case file: no likelihoods, `#` and its index on one line, and
// "syntax error" for a token the lexer refused.
class CaseReader {
 public:
  CaseReader(Lexer& lexer, Domain& domain, bool data_file)
      : lx_(lexer), domain_(domain), data_file_(data_file) {}

 protected:
  [[noreturn]] void fail(const std::string& message, int token = 0) {
    net_fail(lx_, message, token);
  }
  // The message for a token that cannot stand where it is.
  [[noreturn]] void unexpected(int token) {
    if (token == TOKEN_EOF) fail("unexpected end-of-file");
    if (token == TOKEN_ERROR && data_file_) fail("syntax error", token);
    fail("illegal token", token);
  }

  // The node named by the last name token: one that takes findings.
  Node& node_named() {
    const char* name = lx_.text().c_str();
    Node* n = domain_.find(name);
    if (n == nullptr) fail(net_message("the domain has no node named `%s'", name));
    if (!takes_findings(*n))
      fail(net_message("node `%s' is not a chance, a decision, or a discrete function node", name));
    return *n;
  }

  // One finding for `n` starting with `token` (already read).
  Finding finding(Node& n, int token) {
    switch (token) {
      case TOKEN_NAME:
      case TOKEN_STRING:
        return by_label(n, token);
      case TOKEN_NUMBER:
        return by_number(n, lx_.number());
      case '#':
        return by_index(n);
      case '(':
        if (!data_file_) return likelihood(n);
        break;
      default:
        break;
    }
    unexpected(token);
  }

  Lexer& lx_;
  Domain& domain_;
  bool data_file_;

 private:
  Finding state(std::size_t s) {
    Finding f;
    f.kind = Finding::Kind::state;
    f.state = s;
    return f;
  }

  Finding by_label(Node& n, int token) {
    const char* text = lx_.text().c_str();
    if (n.is_discrete() && n.subtype() == K_SUBTYPE_BOOLEAN && token == TOKEN_NAME) {
      if (std::strcmp(text, "false") == 0) return state(0);
      if (std::strcmp(text, "true") == 0) return state(1);
      fail("state of boolean node should be `false' or `true'");
    }
    if (!n.is_discrete() || n.subtype() != K_SUBTYPE_LABEL)
      fail("state labels are only allowed for labeled nodes");
    std::size_t found = n.state_count();
    std::size_t matches = 0;
    for (std::size_t i = 0; i < n.state_count(); ++i) {
      if (std::strcmp(n.state_label(i), text) == 0) {
        found = i;
        ++matches;
      }
    }
    if (matches != 1)
      fail(net_message("\"%s\" is not a (unique) state label of `%s'", text, n.name().c_str()));
    return state(found);
  }

  Finding by_number(Node& n, double v) {
    if (n.is_continuous()) {
      if (!std::isfinite(v))
        fail(net_message("the value of `%s' must be finite", n.name().c_str()));
      Finding f;
      f.kind = Finding::Kind::value;
      f.value = v;
      return f;
    }
    if (!is_numeric(n))
      fail(net_message(
          "node %s: numeric findings are only allowed for CG, numbered, and interval nodes",
          n.name().c_str()));
    if (!values_increase(n))
      fail(net_message("the state values of `%s' do not form an increasing sequence",
                       n.name().c_str()));
    const std::size_t s = state_holding(n, v);
    if (s == n.state_count())
      fail(net_message("no state of `%s' corresponds to the value %G", n.name().c_str(), v));
    return state(s);
  }

  Finding by_index(Node& n) {
    if (!n.is_discrete()) fail("state index can only be specified for discrete nodes");
    const std::uint64_t line = lx_.line();
    const int t = lx_.next_token();
    const double v = lx_.number();
    if (t != TOKEN_NUMBER || (data_file_ && lx_.line() != line) || !(v >= 0.0) ||
        v != std::floor(v) || v >= static_cast<double>(n.state_count())) {
      if (data_file_) lx_.set_line(line);  // the record's line, not the next one
      fail("`#' must be followed by a valid state index", t);
    }
    return state(static_cast<std::size_t>(v));
  }

  Finding likelihood(Node& n) {
    if (!n.is_discrete()) fail("likelihood can only be specified for discrete nodes");
    Finding f;
    f.kind = Finding::Kind::likelihood;
    for (std::size_t i = 0; i < n.state_count(); ++i) {
      const int t = lx_.next_token();
      if (t == ')') fail("likelihood vector too short");
      if (t == TOKEN_EOF) fail("unexpected end-of-file");
      if (t != TOKEN_NUMBER) fail("number expected", t);
      const double v = lx_.number();
      if (!(v >= 0.0)) fail("likelihood values must be nonnegative");
      // Evidence entry takes finding values below the largest double.
      if (!(v < DBL_MAX)) fail("likelihood value too large");
      f.likelihood.push_back(v);
    }
    const int t = lx_.next_token();
    if (t == TOKEN_NUMBER) fail("likelihood vector too long");
    if (t != ')') fail(t == TOKEN_EOF ? "unexpected end-of-file" : "')' expected", t);
    return f;
  }
};

// file: (NODE `:` FINDING)*
class SingleCaseReader : CaseReader {
 public:
  SingleCaseReader(Lexer& lexer, Domain& domain) : CaseReader(lexer, domain, false) {}

  void read() {
    std::vector<std::pair<Node*, Finding>> findings;
    std::unordered_set<const Node*> seen;
    for (;;) {
      int t = lx_.next_token();
      if (t == TOKEN_EOF) break;
      if (t != TOKEN_NAME && t != TOKEN_DOTTED_NAME) unexpected(t);
      Node& n = node_named();
      t = lx_.next_token();
      if (t != ':') t == TOKEN_EOF ? unexpected(t) : fail("`:' expected", t);
      Finding f = finding(n, lx_.next_token());
      if (!seen.insert(&n).second) {
        lx_.report_error(
            net_message("findings specified twice for `%s'", n.name().c_str()).c_str());
        continue;
      }
      findings.emplace_back(&n, std::move(f));
    }
    if (lx_.error_count() == 0) enter(findings);
  }

 private:
  // Replaces the evidence of each node by its finding.  Everything that can
  // fail is done before the first change.
  static void enter(std::vector<std::pair<Node*, Finding>>& findings) {
    for (auto& [n, f] : findings) {
      Evidence& e = n->evidence;
      // A vector is meaningful only under code -2, and then has this size.
      if (f.kind == Finding::Kind::likelihood && e.entered_vector.size() != n->state_count())
        e.entered_vector.assign(n->state_count(), 1.0);
    }
    for (auto& [n, f] : findings) {
      retract_findings(*n);
      switch (f.kind) {
        case Finding::Kind::state:
          select_state(*n, f.state);
          break;
        case Finding::Kind::value:
          enter_value(*n, f.value);
          break;
        case Finding::Kind::likelihood:
          for (std::size_t i = 0; i < f.likelihood.size(); ++i)
            enter_finding(*n, i, f.likelihood[i]);
          break;
        case Finding::Kind::missing:
          break;
      }
    }
  }
};

// file: header NEWLINE case-line*
// header: [`#` [`,`]] NAME ([`,`] NAME)*
// case-line: [COUNT [`,`]] ITEM ([`,`] ITEM)*   (one ITEM per column)
class DataFileReader : CaseReader {
 public:
  DataFileReader(Lexer& lexer, Domain& domain) : CaseReader(lexer, domain, true) {}

  void read() {
    int t = header();
    if (t == TOKEN_EOF) {
      lx_.report_warning("warning: file contains no cases");
      return;
    }
    while (t != TOKEN_EOF) t = case_line(t);
  }

 private:
  // Reads the header; returns the first token after it.
  int header() {
    int t = lx_.next_token();
    if (t == TOKEN_EOF) return t;
    const std::uint64_t line = lx_.line();
    if (t == '#') {
      counts_ = true;
      t = lx_.next_token();
      if (t == ',' && lx_.line() == line) t = lx_.next_token();
    }
    std::unordered_set<const Node*> listed;
    for (; t != TOKEN_EOF && lx_.line() == line; t = lx_.next_token()) {
      if (t == ',') continue;
      if (t != TOKEN_NAME && t != TOKEN_DOTTED_NAME) unexpected(t);
      Node& n = node_named();
      if (!listed.insert(&n).second) fail(net_message("node `%s' listed twice", n.name().c_str()));
      columns_.push_back(&n);
      limits_.push_back(index_limit(n));
    }
    return t;
  }

  // Reads the case line that starts with `t`; returns the first token after
  // it.
  int case_line(int t) {
    const std::uint64_t line = lx_.line();
    const std::size_t c = domain_.cases.add();
    bool comma = false;      // the last token read was a separating comma
    std::int64_t taken = 0;  // the item the fast path took (kTaken)
    // Reads on to the item of column `next`: a missing item or a state
    // index the lexer takes whole, or the next token.
    auto after_item = [&](std::size_t next) {
      if (next < columns_.size() && lx_.take_case_item(limits_[next], taken)) {
        t = kTaken;
        comma = false;
        return;
      }
      t = next < columns_.size() ? lx_.next_token() : next_line_token();
      comma = t == ',' && lx_.line() == line;
      if (comma) t = lx_.next_token();
    };
    if (counts_) {
      if (t == TOKEN_ERROR) unexpected(t);
      if (t != TOKEN_NUMBER) fail("case count expected", t);
      const double count = lx_.number();
      if (!(count >= 0.0)) fail("case counts must be nonnegative");
      if (std::isinf(count)) fail("case counts must be finite");
      domain_.cases.set_count(c, count);
      after_item(0);
    }
    for (std::size_t k = 0; k < columns_.size(); ++k) {
      Node* n = columns_[k];
      if (t == kTaken) {
        if (taken >= 0) n->cases.set_state(c, static_cast<std::int32_t>(taken));
        after_item(k + 1);
        continue;
      }
      if (lx_.line() != line) {
        // The line ended early: the report names it, not the next one.
        lx_.set_line(line);
        fail(comma && columns_.size() > 1 ? "the case has too few data items"
                                          : "line is incomplete");
      }
      if (t == ',') {  // an empty place
        comma = true;
        t = lx_.next_token();
        continue;
      }
      if (t != '*' && t != '?') store(*n, c, finding(*n, t));
      after_item(k + 1);
    }
    if (t != TOKEN_EOF && lx_.line() == line) fail("the case has extra stuff at the end");
    return t;
  }

  // After the last item of a line: when blanks alone end it, takes the
  // simple lines after it whole (simple_line()); returns the next token.
  int next_line_token() {
    const char* p = nullptr;
    const char* newline = nullptr;
    if (!counts_ && !columns_.empty() && lx_.buffered_line(p, newline)) {
      while (is_blank(*p)) ++p;
      if (p == newline) {
        lx_.take_line(newline);
        while (simple_line()) {
        }
        store_taken();
      }
    }
    return lx_.next_token();
  }

  static bool is_blank(char c) noexcept { return c == ' ' || c == '\t' || c == '\r'; }

  // Takes the next line whole when it holds one item per column, each `*`,
  // `?` or `#` and a state index below the column's limit, between blanks,
  // and nothing else; its states wait in taken_ for store_taken().  False,
  // having consumed nothing, for any other line: the tokens then read it,
  // with their messages.
  bool simple_line() {
    const char* first = nullptr;
    const char* newline = nullptr;
    if (!lx_.buffered_line(first, newline)) return false;
    const char* p = first;  // in a register, not through the call's reference
    if (taken_.empty()) taken_.resize(kTakenLines * columns_.size());
    std::int16_t* states = taken_.data() + taken_lines_ * columns_.size();
    // Every loop below stops at the newline, which ends no item early.
    const std::size_t last = columns_.size() - 1;
    while (is_blank(*p)) ++p;
    for (std::size_t k = 0;; ++k) {
      if (*p == '*' || *p == '?') {
        states[k] = static_cast<std::int16_t>(CaseColumn::kUnset);
        ++p;
      } else if (*p == '#') {
        // At most nine digits: a longer index is never below a limit.
        const char* const digits = ++p;
        std::size_t state = 0;
        for (unsigned digit = 0;
             (digit = static_cast<unsigned char>(*p) - 0x30u) < 10 && p - digits < 9; ++p)
          state = 10 * state + digit;
        if (p == digits || state >= limits_[k]) return false;
        states[k] = static_cast<std::int16_t>(state);
      } else {
        return false;
      }
      if (k == last) break;
      // Blanks, then the next item.
      if (!is_blank(*p)) return false;
      do ++p;
      while (is_blank(*p));
    }
    while (is_blank(*p)) ++p;
    if (p != newline) return false;
    lx_.take_line(newline);
    if (++taken_lines_ == kTakenLines) store_taken();
    return true;
  }

  // Adds the cases of the lines simple_line() took.  Each column is given
  // its last state first, so that it grows once.
  void store_taken() {
    const std::size_t width = columns_.size();
    const std::size_t rows = taken_lines_;
    if (rows == 0) return;
    const std::size_t first = domain_.cases.size();
    for (std::size_t r = 0; r < rows; ++r) domain_.cases.add();
    for (std::size_t k = 0; k < width; ++k) {
      CaseColumn& column = columns_[k]->cases;
      std::size_t r = rows;
      while (r > 0 && taken_[(r - 1) * width + k] < 0) --r;
      for (; r > 0; --r) {
        const std::int16_t state = taken_[(r - 1) * width + k];
        if (state >= 0) column.set_state(first + r - 1, state);
      }
    }
    taken_lines_ = 0;
  }

  void store(Node& n, std::size_t c, const Finding& f) {
    if (f.kind == Finding::Kind::value) {
      n.cases.set_value(c, f.value);
    } else {
      if (f.state > static_cast<std::size_t>(CaseColumn::kMaxState))
        net_api_fail(lx_, K_ERROR_CASE_STATE_TOO_LARGE);
      n.cases.set_state(c, static_cast<std::int32_t>(f.state));
    }
  }

  // Not a token: the lexer's fast path took the item.
  static constexpr int kTaken = 0x10000;

  // The state indexes the fast path may take for `n`: none unless it is
  // discrete, and none a case column cannot hold.
  static std::size_t index_limit(const Node& n) noexcept {
    if (!n.is_discrete()) return 0;
    return std::min<std::size_t>(n.state_count(), CaseColumn::kMaxState + std::size_t{1});
  }

  // Taken lines held back at most.
  static constexpr std::size_t kTakenLines = 512;

  std::vector<Node*> columns_;
  std::vector<std::size_t> limits_;  // index_limit() of each column
  bool counts_ = false;
  std::vector<std::int16_t> taken_;  // per taken line, a state per column
  std::size_t taken_lines_ = 0;
};

std::string likelihood_text(const Node& n) {
  std::string text = "(";
  const std::vector<double>& v = n.evidence.entered_vector;
  for (std::size_t i = 0; i < v.size(); ++i) {
    if (i > 0) text += ' ';
    text += format_number("%G", v[i]);
  }
  text += ')';
  return text;
}

bool has_evidence(const Node& n) noexcept {
  return n.is_continuous() ? n.evidence.entered : n.evidence.entered_code != Evidence::kNone;
}

}  // namespace

void read_case(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler, void* data) {
  require(accepts_evidence(domain));
  Lexer lexer(stream, handler, data);
  run_parse(lexer, [&](Lexer& lx) { SingleCaseReader(lx, domain).read(); });
}

namespace {

// Reads a data file from `lexer` and appends its cases; on failure the
// stored cases are as before.
void read_cases_from(Domain& domain, Lexer& lexer) {
  const std::size_t before = domain.cases.size();
  const bool counts_set = domain.cases.counts_set();
  try {
    run_parse(lexer, [&](Lexer& lx) { DataFileReader(lx, domain).read(); });
  } catch (...) {
    domain.set_number_of_cases(before);
    domain.cases.set_counts_set(counts_set);
    throw;
  }
  domain.cached_log_likelihood.reset();
}

}  // namespace

void read_cases(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler, void* data) {
  Lexer lexer(stream, handler, data);
  read_cases_from(domain, lexer);
}

void read_cases(Domain& domain, const char* text, k_parse_error_handler_t handler, void* data) {
  require(text != nullptr);
  // A stream over the text, so that numbers are read by the file's rules
  // ("%lg" takes a dangling exponent and hexadecimal; strtod does not) and
  // messages give lines: a piece of a file read from memory gives exactly
  // what the file gives.
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(
      fmemopen(const_cast<char*>(text), std::strlen(text), "r"), &std::fclose);
  if (stream == nullptr) throw Error(K_ERROR_NO_MEMORY);
  read_cases(domain, stream.get(), handler, data);
}

void write_case(Domain& domain, TextSink& sink) {
  platform::CLocaleGuard locale;
  if (!locale.ok()) throw Error(K_ERROR_LOCALE);
  std::vector<Node*> nodes;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    if (takes_findings(*n) && has_evidence(*n)) nodes.push_back(n);
  for (Node* n : nodes) n->name_or_generate();
  for (Node* n : nodes) {
    std::string line = n->name();
    line += ": ";
    if (n->is_continuous()) line += format_number("%G", n->evidence.entered_value);
    else if (n->evidence.entered_code == Evidence::kVector) line += likelihood_text(*n);
    else line += case_state_text(*n, static_cast<std::size_t>(n->evidence.entered_code));
    if (n->label && !n->label->empty()) {
      line += "\t% ";
      line += quote_net_string(*n->label);
    }
    line += '\n';
    sink.write(line);
  }
}

void verify_case_selection(const Domain& domain, const CaseSelection& selection) {
  require(!selection.nodes.empty() && selection.separator != nullptr &&
          selection.missing != nullptr);
  std::unordered_set<const Node*> listed;
  for (const Node* n : selection.nodes)
    require(&n->domain() == &domain && takes_findings(*n) && listed.insert(n).second);
  auto count_ok = [&](std::size_t c) {
    const double count = domain.cases.count(c);
    return selection.counts || (std::isfinite(count) && count == std::floor(count));
  };
  if (selection.all_cases) {
    for (std::size_t c = 0; c < domain.cases.size(); ++c) require(count_ok(c));
  } else {
    for (std::size_t c : selection.cases) require(c < domain.cases.size() && count_ok(c));
  }
}

void write_cases(Domain& domain, const CaseSelection& selection, TextSink& sink) {
  platform::CLocaleGuard locale;
  if (!locale.ok()) throw Error(K_ERROR_LOCALE);
  for (Node* n : selection.nodes) n->name_or_generate();
  const std::string separator = selection.separator;

  std::string header = selection.counts ? "#" + separator : std::string();
  for (std::size_t i = 0; i < selection.nodes.size(); ++i) {
    if (i > 0) header += separator;
    header += selection.nodes[i]->name();
  }
  header += "\n\n";
  sink.write(header);

  auto write_case_line = [&](std::size_t c) {
    std::string line;
    for (std::size_t i = 0; i < selection.nodes.size(); ++i) {
      const Node& n = *selection.nodes[i];
      if (i > 0) line += separator;
      if (!n.cases.is_set(c)) line += selection.missing;
      else if (n.is_continuous()) line += format_number("%G", n.cases.value(c));
      else line += case_state_text(n, static_cast<std::size_t>(n.cases.state(c)));
    }
    line += '\n';
    const double count = domain.cases.count(c);
    if (selection.counts) {
      sink.write(format_number("%G", count) + separator);
      sink.write(line);
    } else {
      // A case of count k is written as k equal lines.
      const auto times = count < 0x1p64 ? static_cast<std::uint64_t>(count) : UINT64_MAX;
      for (std::uint64_t k = 0; k < times; ++k) sink.write(line);
    }
  };
  if (selection.all_cases) {
    for (std::size_t c = 0; c < domain.cases.size(); ++c) write_case_line(c);
  } else {
    for (std::size_t c : selection.cases) write_case_line(c);
  }
}

}  // namespace kelva
