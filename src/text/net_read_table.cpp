// Table values of NET potentials: the flat and nested forms, numbers and
// conditional-Gaussian items, placed from the written order into the
// table's own order.
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include "lexer/lexer.h"
#include "network/domain.h"
#include "network/node.h"
#include "table/table.h"
#include "text/net_reader.h"

namespace kelva {

namespace {

// Walks the configurations of the written order (last node fastest) and
// keeps the index of the current one in the table's own order.  Its levels
// (one per node of the written order) are kept inline for the usual few
// nodes, so that a table is placed without allocating.
class Placement {
 public:
  Placement(const Table& table, const std::vector<Node*>& order) {
    if (order.size() > kInline) spill_.resize(order.size());
    levels_ = order.size() > kInline ? spill_.data() : inline_.data();
    count_ = order.size();
    for (std::size_t i = 0; i < count_; ++i) {
      const std::size_t pos = table.nodes().index_of(order[i]);
      std::uint64_t stride = 1;
      for (std::size_t k = pos + 1; k < table.discrete_count(); ++k)
        stride *= table.state_counts()[k];
      levels_[i] = Level{table.state_counts()[pos], stride, 0, 0};
    }
  }
  Placement(const Placement&) = delete;
  Placement& operator=(const Placement&) = delete;

  std::uint64_t index() const noexcept { return index_; }

  void advance() noexcept {
    for (std::size_t k = count_; k-- > 0;) {
      Level& l = levels_[k];
      if (++l.state < l.count) {
        index_ += l.stride;
        return;
      }
      index_ -= l.stride * (l.count - 1);
      l.state = 0;
    }
  }

  std::size_t levels() const noexcept { return count_; }
  std::size_t count(std::size_t level) const noexcept { return levels_[level].count; }
  /// The entries of a level that the nested form has finished.
  std::size_t& done(std::size_t level) noexcept { return levels_[level].done; }

 private:
  struct Level {
    std::size_t count;
    std::uint64_t stride;
    std::size_t state;
    std::size_t done;
  };
  static constexpr std::size_t kInline = 12;

  std::array<Level, kInline> inline_{};
  std::vector<Level> spill_;
  Level* levels_ = nullptr;
  std::size_t count_ = 0;
  std::uint64_t index_ = 0;
};

class TableReader {
 public:
  TableReader(Lexer& lexer, const NetTableTarget& target)
      : lx_(lexer), target_(target), table_(*target.table), place_(table_, target.order) {
    if (target.cg_child != nullptr) {
      child_ = cg_position(target.cg_child);
      terms_.resize(table_.cg_dimension());
    }
  }

  // values: number                          (a table without nodes)
  //       | `(` item* `)`                   (flat)
  //       | `(` `(` ... `)` `)`             (nested, one level per discrete node)
  void read() {
    // Allocate first, so that a table too large to hold fails before any
    // value is read.
    net_api(lx_, [&] {
      values_ = table_.data();
      if (target_.cg_child != nullptr) table_.set_mean(0, child_, 0.0);
    });
    const std::size_t nodes = table_.nodes().size();
    if (nodes == 0) {
      const int t = lx_.next_token();
      lx_.push_back(t);
      if (t == '(') read_flat();
      else read_item(true);
      return;
    }
    if (nodes == 1) {
      read_flat();
      return;
    }
    const int open = lx_.next_token();
    if (open != '(') net_fail(lx_, "`(' expected", open);
    const int second = lx_.next_token();
    lx_.push_back(second);
    lx_.push_back(open);
    if (second == '(') read_nested();
    else read_flat();
  }

 private:
  // flat: `(` item{size} `)`
  void read_flat() {
    expect('(');
    for (std::uint64_t i = 0; i < table_.size(); ++i) {
      read_item(true);
      place_.advance();
    }
    expect(')');
  }

  // nested: `(` (nested | item)+ `)` with one level per discrete node, each
  // holding one entry per state of its node.  Walked with an explicit stack
  // so that no input can exhaust the machine stack.
  void read_nested() {
    const std::size_t levels = place_.levels();
    if (levels == 0) {
      read_item(false);
      return;
    }
    expect('(');
    std::size_t k = 0;
    place_.done(0) = 0;
    for (;;) {
      if (k + 1 < levels) {
        expect('(');
        place_.done(++k) = 0;
        continue;
      }
      for (std::size_t s = 0; s < place_.count(k); ++s) {
        read_item(false);
        place_.advance();
      }
      expect(')');
      for (;;) {
        if (k == 0) return;
        --k;
        if (++place_.done(k) < place_.count(k)) break;
        expect(')');
      }
    }
  }

  void read_item(bool flat) {
    if (target_.cg_child != nullptr) read_cg_item();
    else read_number(flat);
  }

  void read_number(bool flat) {
    double v = 0.0;
    if (!lx_.take_plain_number(v)) {
      const int t = lx_.next_token();
      if (t != TOKEN_NUMBER) net_fail(lx_, "number expected", t);
      v = finite(lx_.number());
    }
    if (target_.probability && v < 0.0) {
      if (flat) lx_.report_error("<number> must be nonnegative");
      else lx_.report_warning("warning: negative value in probability potential");
    }
    values_[place_.index()] = v;
  }

  // item: `normal` `(` mean `,` variance `)`
  // mean: [`+` | `-`] term ((`+` | `-`) term)*
  // term: number | node | number `*` node
  void read_cg_item() {
    int t = lx_.next_token();
    if (t != TOKEN_NAME || lx_.text() != "normal")
      net_fail(lx_, "the keyword `normal' was expected", t);
    // Signs and products are tokens of the full reader.
    lx_.set_reader(TokenReader::full);
    expect('(');
    for (double& term : terms_) term = 0.0;
    double constant = 0.0;
    double sign = 1.0;
    t = lx_.next_token();
    if (t == '+' || t == '-') {
      sign = t == '-' ? -1.0 : 1.0;
      t = lx_.next_token();
    }
    for (;;) {
      if (t == TOKEN_NUMBER) {
        const double v = sign * finite(lx_.number());
        t = lx_.next_token();
        if (t == '*') {
          t = lx_.next_token();
          if (t != TOKEN_NAME && t != TOKEN_DOTTED_NAME)
            net_fail(lx_, "<number> or <node name> expected in mean value expression", t);
          add_term(v);
          t = lx_.next_token();
        } else {
          constant += v;
        }
      } else if (t == TOKEN_NAME || t == TOKEN_DOTTED_NAME) {
        add_term(sign);
        t = lx_.next_token();
      } else {
        net_fail(lx_, "<number> or <node name> expected in mean value expression", t);
      }
      if (t == ',') break;
      if (t != '+' && t != '-') net_fail(lx_, "expected one of: ,+-", t);
      sign = t == '-' ? -1.0 : 1.0;
      t = lx_.next_token();
    }
    t = lx_.next_token();
    bool negative = false;
    if (t == '-' || t == '+') {
      negative = t == '-';
      t = lx_.next_token();
    }
    if (t != TOKEN_NUMBER) net_fail(lx_, "variance (a nonnegative <number>) expected", t);
    const double variance = finite(negative ? -lx_.number() : lx_.number());
    if (variance < 0.0) lx_.report_error("variance must be nonnegative");
    expect(')');
    lx_.set_reader(TokenReader::basic);

    const std::uint64_t config = place_.index();
    table_.set_mean(config, child_, constant);
    table_.set_covariance(config, child_, child_, variance);
    for (std::size_t i = 0; i < terms_.size(); ++i)
      if (i != child_) table_.set_coefficient(config, i, terms_[i]);
  }

  // A regression term on the node named by the last token.
  void add_term(double coefficient) {
    const Node* node = target_.cg_child->domain().find(lx_.text());
    const std::size_t pos = node == nullptr ? NodeList::npos : table_.nodes().index_of(node);
    if (pos == NodeList::npos || pos < table_.discrete_count() || node == target_.cg_child) {
      lx_.report_error(
          net_message("node `%s' is not part of the table", lx_.text().c_str()).c_str());
      return;
    }
    terms_[pos - table_.discrete_count()] += coefficient;
  }

  // An overflowing number ("1e999") would be written back as text that no
  // reader takes; it is reported (counted) and read as 0.
  double finite(double v) {
    if (std::isfinite(v)) return v;
    lx_.report_error("<number> must be finite");
    return 0.0;
  }

  std::size_t cg_position(const Node* node) const noexcept {
    return table_.nodes().index_of(node) - table_.discrete_count();
  }

  void expect(int c) {
    if (lx_.take_parenthesis(static_cast<char>(c))) return;
    const int t = lx_.next_token();
    if (t != c) net_fail(lx_, net_message("`%c' expected", c), t);
  }

  Lexer& lx_;
  const NetTableTarget& target_;
  Table& table_;
  Placement place_;
  double* values_ = nullptr;  // the table's values, allocated before the first is read
  std::size_t child_ = 0;
  std::vector<double> terms_;  // regression coefficients of one item
};

}  // namespace

void read_net_table(Lexer& lexer, const NetTableTarget& target) {
  TableReader(lexer, target).read();
}

}  // namespace kelva
