// The SAS table file reader: a header line naming a chance node and its
// parents (and, for a continuous node, the `alpha` and `variance` columns),
// then one line per configuration of the discrete parents.  The values go to
// a copy of the node's table, which replaces the contents only when the
// whole file has been read.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lexer/lexer.h"
#include "network/domain.h"
#include "network/node.h"
#include "structure/structure.h"
#include "table/table.h"
#include "text/line_reader.h"
#include "text/net_reader.h"
#include "text/sas_reader.h"

namespace kelva {
namespace {

bool is_name(int token) noexcept { return token == TOKEN_NAME || token == TOKEN_DOTTED_NAME; }

// header: child parent* [`alpha` parent* `variance`]
// row:    label* (number+ | alpha beta* variance)
class TableFileReader : LineReader {
 public:
  TableFileReader(Lexer& lexer, Domain& domain) : LineReader(lexer), domain_(domain) {}

  void read() {
    int t = first();
    if (t == TOKEN_EOF) return;
    read_header(t);
    const std::uint64_t configurations = copy_->size() / (child_->is_discrete() ? states() : 1);
    seen_.assign(configurations, 0);
    std::uint64_t given = 0;
    for (t = first(); t != TOKEN_EOF; t = first()) {
      read_row(t);
      ++given;
    }
    if (given != configurations)
      fail(net_message("%s of %s parent configurations given", lines_(given),
                       lines_(configurations)));
    api([&] {
      Table& table = node_table(*child_);
      table.assign_contents(*copy_);
      table.notify_changed();
    });
  }

 private:
  void read_header(int t) {
    child_ = &node(t);
    if (child_->category() != K_CATEGORY_CHANCE)
      fail(net_message("`%s' is not a chance node", child_->name().c_str()));
    copy_ = api([&] { return node_table(*child_).clone(); });
    std::vector<Node*> discrete;
    for (Node* p : child_->parents())
      if (p->is_discrete()) discrete.push_back(p);
    for (t = more(); t != 0; t = more()) {
      if (t == ',') t = needed();
      if (child_->is_continuous() && t == TOKEN_NAME && lx_.text() == "alpha") break;
      Node& p = node(t);
      if (!p.is_discrete() || !child_->parents().contains(&p))
        fail(net_message("node `%s' is not a discrete parent of `%s'", p.name().c_str(),
                         child_->name().c_str()));
      take(columns_, p);
    }
    if (columns_.size() < discrete.size()) missing(discrete, columns_, "discrete");
    if (!child_->is_continuous()) return;
    if (t == 0) incomplete();
    std::vector<Node*> continuous;
    for (Node* p : child_->parents())
      if (p->is_continuous()) continuous.push_back(p);
    for (t = needed(); !(t == TOKEN_NAME && lx_.text() == "variance"); t = needed()) {
      if (t == ',') continue;
      Node& p = node(t);
      if (!p.is_continuous() || !child_->parents().contains(&p))
        fail(net_message("node `%s' is not a continuous parent of `%s'", p.name().c_str(),
                         child_->name().c_str()));
      take(betas_, p);
    }
    if (betas_.size() < continuous.size()) missing(continuous, betas_, "continuous");
    if (const int u = more(); u != 0) fail("extra stuff at end-of-line", u);
  }

  void read_row(int t) {
    pending_ = t;
    std::uint64_t config = 0;
    std::uint64_t row = 0;  // in the order of the header's columns
    for (const Node* p : columns_) {
      t = column();
      if (t != TOKEN_NAME && t != TOKEN_STRING) fail("state label expected", t);
      std::size_t s = 0;
      while (s < p->state_count() && lx_.text() != p->state_label(s)) ++s;
      if (s == p->state_count())
        fail(net_message("`%s' is not a state of `%s'", lx_.text().c_str(), p->name().c_str()));
      config += s * stride(*p);
      row = row * p->state_count() + s;
    }
    if (seen_[row] != 0)
      fail(net_message("parent configuration given twice (line %s)", lines_(seen_[row])));
    seen_[row] = line_;
    if (child_->is_discrete()) {
      double* data = api([&] { return copy_->data(); });
      for (std::size_t s = 0; s < states(); ++s) {
        const double v = number();
        if (v < 0.0) fail("probabilities must be nonnegative");
        data[config + s * stride(*child_)] = v;
      }
    } else {
      const std::size_t self = cg_position(*child_);
      copy_->set_mean(config, self, number());
      for (const Node* b : betas_) copy_->set_coefficient(config, cg_position(*b), number());
      const double variance = number();
      if (variance < 0.0) fail("variance must be nonnegative");
      copy_->set_covariance(config, self, self, variance);
    }
    if (const int u = more(); u != 0) fail("extra stuff at end-of-line", u);
  }

  // The token of the next column: the line's first token for the first
  // column, else the next token of the line (a comma may stand before it).
  int column() {
    int t = pending_;
    pending_ = 0;
    if (t == 0) t = needed();
    if (t == ',') t = needed();
    return t;
  }

  double number() {
    const int t = column();
    if (t != TOKEN_NUMBER) fail("number expected", t);
    if (!std::isfinite(lx_.number())) fail("numbers must be finite");
    return lx_.number();
  }

  Node& node(int t) {
    if (!is_name(t)) fail("node name expected", t);
    Node* n = domain_.find(lx_.text());
    if (n == nullptr) fail(net_message("node `%s' not found", lx_.text().c_str()));
    return *n;
  }

  void take(std::vector<Node*>& list, Node& p) {
    for (const Node* q : list)
      if (q == &p) fail(net_message("node `%s' appears twice in the header", p.name().c_str()));
    list.push_back(&p);
  }

  // Reports the first parent of `all` that `given` lacks (`given` holds
  // distinct members of `all` and is shorter), against the header's line.
  [[noreturn]] void missing(const std::vector<Node*>& all, const std::vector<Node*>& given,
                            const char* kind) {
    const Node* lacking = *std::find_if(all.begin(), all.end(), [&](const Node* p) {
      return std::find(given.begin(), given.end(), p) == given.end();
    });
    lx_.set_line(line_);
    fail(net_message("%s parent `%s' of `%s' is missing in the header", kind,
                     lacking->name().c_str(), child_->name().c_str()));
  }

  std::size_t states() const noexcept { return child_->state_count(); }

  // Stride of a discrete node in the table's configuration order.
  std::uint64_t stride(const Node& n) const noexcept {
    std::uint64_t s = 1;
    for (std::size_t j = copy_->nodes().index_of(&n) + 1; j < copy_->discrete_count(); ++j)
      s *= copy_->state_counts()[j];
    return s;
  }

  std::size_t cg_position(const Node& n) const noexcept {
    return copy_->nodes().index_of(&n) - copy_->discrete_count();
  }

  Domain& domain_;
  Node* child_ = nullptr;
  std::unique_ptr<Table> copy_;
  std::vector<Node*> columns_;       // discrete parents, in header order
  std::vector<Node*> betas_;         // continuous parents, in header order
  std::vector<std::uint64_t> seen_;  // by configuration: the line that gave it
  int pending_ = 0;                  // the first token of the row being read
  LineTexts lines_;
};

}  // namespace

void read_sas_table(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler,
                    void* data) {
  Lexer lexer(stream, handler, data);
  TableFileReader reader(lexer, domain);
  run_parse(lexer, [&](Lexer&) { reader.read(); });
}

}  // namespace kelva
