// Table text of the NET writer: nested rows with configuration comments,
// numbers or conditional-Gaussian items innermost.
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "network/error.h"
#include "network/node.h"
#include "network/state_text.h"
#include "table/size.h"
#include "table/table.h"
#include "text/net_writer.h"

namespace kelva {

namespace {

// The text naming state `s` of `node` in a configuration comment.
std::string state_text(const Node& node, std::size_t s) {
  // The node's own label, or "false"/"true" for an unlabelled boolean state.
  std::string text = node.state_label(s);
  if (text.empty()) {
    switch (node.subtype()) {
      case K_SUBTYPE_NUMBER:
        text = format_state_value(node.state_value(s));
        break;
      case K_SUBTYPE_INTERVAL:
        text = "interval(";
        text += format_state_value(node.state_value(s));
        text += ',';
        text += format_state_value(node.state_value(s + 1));
        text += ')';
        break;
      default:
        text.assign(1, '<');
        text += std::to_string(s);
        text += '>';
    }
  }
  // A comment ends at the line's end: a newline inside a label must not
  // break out of it.
  std::string out;
  for (char c : text) {
    if (c == '\n') out += "\\n";
    else out += c;
  }
  return out;
}

// Where the values of the written order live in the table.
struct Layout {
  std::vector<std::size_t> counts;     // state counts, written order
  std::vector<std::uint64_t> strides;  // stride of each node in the table's data
  std::uint64_t size = 1;
};

Layout layout_of(const NetTableText& table_text) {
  const std::size_t k = table_text.order.size();
  Layout layout;
  layout.counts.resize(k);
  layout.strides.assign(k, 0);
  if (table_text.table == nullptr) {
    for (std::size_t i = 0; i < k; ++i) {
      layout.counts[i] = table_text.order[i]->state_count();
      layout.size = sat_mul(layout.size, layout.counts[i]);
    }
  } else {
    const Table& table = *table_text.table;
    const std::size_t m = table.discrete_count();
    // The written order must be a permutation of the table's discrete nodes.
    require(m == k, K_ERROR_ERROR);
    std::vector<std::uint64_t> own(m);
    std::uint64_t stride = 1;
    for (std::size_t i = m; i-- > 0;) {
      own[i] = stride;
      stride = sat_mul(stride, table.state_counts()[i]);
    }
    for (std::size_t i = 0; i < k; ++i) {
      const std::size_t pos = table.nodes().index_of(table_text.order[i]);
      require(pos < m, K_ERROR_ERROR);
      layout.counts[i] = table.state_counts()[pos];
      layout.strides[i] = own[pos];
    }
    layout.size = table.size();
  }
  if (layout.size == kSizeTooLarge) throw Error(K_ERROR_SIZE_TOO_LARGE);
  return layout;
}

// Position of continuous `node` among the table's continuous members.
std::size_t cg_index(const Table& table, const Node* node) {
  const std::size_t pos = table.nodes().index_of(node);
  require(pos != NodeList::npos && pos >= table.discrete_count(), K_ERROR_ERROR);
  return pos - table.discrete_count();
}

// "normal ( mean, variance )" for discrete configuration `config` of the
// table (its own index).
std::string cg_item(const NetTableText& table_text, std::uint64_t config) {
  const Table* table = table_text.table;
  double mean = 0.0;
  double variance = 0.0;
  std::size_t child = 0;
  if (table != nullptr) {
    child = cg_index(*table, table_text.cg_child);
    mean = table->mean(config, child);
    variance = table->covariance(config, child, child);
  }
  std::string text;
  const int digits = table_text.digits;
  if (mean != 0.0) text = format_number("%.8G", mean, digits);
  for (const Node* parent : table_text.cg_parents) {
    const double c = table == nullptr ? 0.0 : table->coefficient(config, cg_index(*table, parent));
    if (c == 0.0) continue;
    if (text.empty()) text += c < 0.0 ? "-" : "";
    else text += c < 0.0 ? " - " : " + ";
    if (std::fabs(c) != 1.0) {
      text += format_number("%.8G", std::fabs(c), digits);
      text += " * ";
    }
    text += parent->name();
  }
  if (text.empty()) text.push_back('0');
  std::string item = "normal ( ";
  item += text;
  item += ", ";
  item += format_number("%.8G", variance, digits);
  item += " )";
  return item;
}

}  // namespace

void write_net_table(TextSink& sink, const NetTableText& table_text) {
  const Layout layout = layout_of(table_text);
  const std::size_t k = table_text.order.size();
  const bool cg = table_text.cg_child != nullptr;
  const double* data = nullptr;
  if (!cg && table_text.table != nullptr && table_text.table->has_data())
    data = table_text.table->data();

  // One level of parentheses per discrete node (at least one).  A row is one
  // configuration of the nodes its comment names: all of them when the
  // items are CG items (one per row), all but the last otherwise (the row
  // holds the last node's values).
  const std::size_t levels = k == 0 ? 1 : k;
  const std::size_t named = cg ? k : (k == 0 ? 0 : k - 1);
  std::vector<std::size_t> states(k, 0);
  std::size_t reopened_from = 0;  // first node whose state changed since the last row
  bool first = true;
  std::string line;
  for (;;) {
    auto index = [&] {
      std::uint64_t i = 0;
      for (std::size_t n = 0; n < k; ++n) i += states[n] * layout.strides[n];
      return i;
    };
    line.clear();
    // Levels up to the changed node stay open; the inner ones open again.
    const std::size_t open = first ? 0 : reopened_from + 1;
    if (!first) {
      line += table_text.row_indent;
      line.append(open - 1, ' ');
    }
    line.append(levels - open, '(');
    if (cg) {
      line += ' ';
      line += cg_item(table_text, index());
    } else if (k == 0) {
      line += ' ';
      line += format_number("%G", data == nullptr ? 0.0 : data[0], table_text.digits);
    } else {
      for (std::size_t s = 0; s < layout.counts[k - 1]; ++s) {
        states[k - 1] = s;
        line += ' ';
        line += format_number("%G", data == nullptr ? 0.0 : data[index()], table_text.digits);
      }
      states[k - 1] = 0;
    }
    std::string comment;
    if (named > 0) {
      comment = "\t%";
      for (std::size_t n = 0; n < named; ++n) {
        comment += "  ";
        comment += table_text.order[n]->name();
        comment += '=';
        comment += state_text(*table_text.order[n], states[n]);
      }
    }
    // Next row: the odometer over the named nodes, last fastest.
    bool last = true;
    for (std::size_t n = named; n-- > 0;) {
      if (++states[n] < layout.counts[n]) {
        reopened_from = n;
        last = false;
        break;
      }
      states[n] = 0;
    }
    const std::size_t closing = last ? levels : levels - (reopened_from + 1);
    if (closing > 0) {
      line += " )";
      line.append(closing - 1, ')');
    }
    if (last) line += ';';
    line += comment;
    line += '\n';
    sink.write(line);
    if (last) break;
    first = false;
  }
}

}  // namespace kelva
