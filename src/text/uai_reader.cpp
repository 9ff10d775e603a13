// The UAI reader: a preamble (BAYES or MARKOV, variables and their
// cardinalities, the scope of each function) and then the function tables,
// last scope variable fastest.  In a Bayesian network the last variable of a
// scope is the child and the others its parents.  A Markov network is read
// only when its factors are exactly such conditional tables.
#include <cctype>
#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "network/domain.h"
#include "text/foreign_net.h"
#include "text/foreign_scanner.h"

namespace kelva {
namespace {

class UaiReader {
 public:
  UaiReader(std::string_view text, const ForeignErrors& errors) : sc_(text), errors_(errors) {}

  ForeignNet read() {
    sc_.skip_blanks(false);
    const char* from = sc_.pos();
    while (!sc_.at_end() && std::isalpha(static_cast<unsigned char>(sc_.peek()))) sc_.advance();
    const std::string_view kind(from, static_cast<std::size_t>(sc_.pos() - from));
    if (kind != "BAYES" && kind != "MARKOV") fail("`BAYES' or `MARKOV' expected");
    const bool markov = kind == "MARKOV";

    const std::uint64_t count = integer("the number of variables");
    for (std::uint64_t i = 0; i < count; ++i) {
      ForeignVariable v;
      v.line = sc_.line();
      v.name = "X";
      v.name += std::to_string(i);
      const std::uint64_t states = integer("a cardinality");
      if (states == 0) fail("a variable with no states");
      if (states > (1u << 20)) fail("a variable with too many states");
      for (std::uint64_t s = 0; s < states; ++s) {
        std::string label = "s";
        label += std::to_string(s);
        v.states.push_back(std::move(label));
      }
      add_foreign_variable(net_, std::move(v), errors_);
    }
    const std::uint64_t functions = integer("the number of functions");
    for (std::uint64_t f = 0; f < functions; ++f) {
      ForeignTable t;
      t.line = sc_.line();
      const std::uint64_t size = integer("the size of a scope");
      if (size == 0) fail("an empty scope");
      for (std::uint64_t k = 0; k < size; ++k) {
        const std::uint64_t v = integer("a variable index");
        if (v >= count)
          fail(net_message("variable %llu does not exist", static_cast<unsigned long long>(v)));
        t.parents.push_back(v);
      }
      t.child = t.parents.back();
      t.parents.pop_back();
      net_.tables.push_back(std::move(t));
    }
    for (ForeignTable& t : net_.tables) {
      t.line = sc_.line();
      const std::uint64_t entries = integer("the number of table entries");
      for (std::uint64_t i = 0; i < entries; ++i) {
        sc_.skip_blanks(false);
        double v;
        if (!sc_.number(v)) fail("a number expected");
        t.values.push_back(v);
      }
      // A line that ends the table may hold only its values.
      t.line = sc_.line();
    }
    sc_.skip_blanks(false);
    if (!sc_.at_end()) fail("text after the last table");
    if (markov) check_conditional();
    return std::move(net_);
  }

 private:
  [[noreturn]] void fail(const std::string& message) const { errors_.fail(sc_.line(), message); }

  std::uint64_t integer(const char* what) {
    sc_.skip_blanks(false);
    double v;
    if (!sc_.number(v) || v < 0 || v != std::floor(v) || v > 9e15)
      fail(net_message("%s expected", what));
    return static_cast<std::uint64_t>(v);
  }

  // A Markov network is read as the Bayesian network it must be: one factor
  // per variable, each last over a different variable and each normalised
  // over it (the domain's own checks then find cycles).
  void check_conditional() {
    std::vector<bool> child(net_.variables.size(), false);
    bool conditional = net_.tables.size() == net_.variables.size();
    for (const ForeignTable& t : net_.tables) {
      if (!conditional) break;
      if (child[t.child]) conditional = false;
      child[t.child] = true;
      const std::size_t width = net_.variables[t.child].states.size();
      for (std::size_t r = 0; conditional && r * width < t.values.size(); ++r) {
        double sum = 0;
        for (std::size_t s = 0; s < width && r * width + s < t.values.size(); ++s)
          sum += t.values[r * width + s];
        if (std::fabs(sum - 1.0) > 1e-4) conditional = false;
      }
    }
    if (!conditional)
      errors_.fail(1,
                   "this Markov network's factors are not the conditional tables of a "
                   "Bayesian network, so it cannot be read");
  }

  ForeignScanner sc_;
  const ForeignErrors& errors_;
  ForeignNet net_;
};

}  // namespace

Domain* read_uai_domain(std::string_view text, const char* file_name,
                        k_parse_error_handler_t handler, void* data) {
  const ForeignErrors errors(handler, data);
  const ForeignNet net = UaiReader(text, errors).read();
  return build_foreign_domain(net, errors, file_name);
}

}  // namespace kelva
