// `kelva draw`: a picture of a network or of its junction forest as
// Graphviz DOT.  DOT is written here; Graphviz's `dot` turns it into SVG or
// PNG when the output's extension asks for one.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cli_error.h"
#include "commands.h"
#include "domain_handle.h"
#include "evidence_input.h"
#include "network_source.h"

extern char** environ;

namespace kelva::cli {

namespace {

// A DOT string literal: quotes and backslashes escaped, a line break as
// DOT's centred line break.
std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    if (c == '"' || c == '\\') out.push_back('\\');
    out.push_back(c);
  }
  out.push_back('"');
  return out;
}

// Text safe inside an HTML-like label.
std::string html(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out.push_back(c);
    }
  }
  return out;
}

std::string name_of(k_node_t node) { return k_node_get_name(node); }

std::string state_name(k_node_t node, std::size_t state) {
  std::string label = k_node_get_state_label(node, state);
  if (!label.empty()) return label;
  label.push_back('#');
  label.append(std::to_string(state));
  return label;
}

std::vector<k_node_t> nodes_of(k_node_t* list) {
  if (list == nullptr) throw ApiError(k_error_code());
  std::vector<k_node_t> out;
  for (; *list != nullptr; ++list) out.push_back(*list);
  return out;
}

// The shape of a node's category: chance ellipse, decision box, utility
// diamond, function octagon; a continuous chance node has a double border.
std::string shape_of(k_node_t node) {
  switch (k_node_get_category(node)) {
    case K_CATEGORY_DECISION:
      return "box";
    case K_CATEGORY_UTILITY:
      return "diamond";
    case K_CATEGORY_FUNCTION:
      return "octagon";
    default:
      return k_node_get_kind(node) == K_KIND_CONTINUOUS ? "doubleoctagon" : "ellipse";
  }
}

// A node's label with its beliefs as bars: one row per state, the bar's
// length proportional to the belief.
std::string belief_label(k_node_t node) {
  std::string label = "<<TABLE BORDER=\"0\" CELLSPACING=\"0\" CELLPADDING=\"1\">";
  label += "<TR><TD COLSPAN=\"3\"><B>" + html(name_of(node)) + "</B></TD></TR>";
  const std::size_t states = k_node_get_number_of_states(node);
  for (std::size_t s = 0; s < states; ++s) {
    const double belief = k_node_get_belief(node, s);
    if (k_error_code() != K_ERROR_NONE) throw ApiError(k_error_code());
    const int width = static_cast<int>(std::lround(std::clamp(belief, 0.0, 1.0) * 60.0));
    char number[32];
    std::snprintf(number, sizeof number, "%.3f", belief);
    label += "<TR><TD ALIGN=\"LEFT\">" + html(state_name(node, s)) + "</TD>";
    label += "<TD ALIGN=\"LEFT\" WIDTH=\"62\">";
    // The bar and the rest of its 60 points as two fixed cells, so that the
    // bar starts at the left whatever its length.
    char bar[320];
    std::snprintf(bar, sizeof bar,
                  "<TABLE BORDER=\"0\" CELLPADDING=\"0\" CELLSPACING=\"0\"><TR>"
                  "<TD BGCOLOR=\"#4a78b5\" FIXEDSIZE=\"TRUE\" WIDTH=\"%d\" HEIGHT=\"8\"></TD>"
                  "<TD FIXEDSIZE=\"TRUE\" WIDTH=\"%d\" HEIGHT=\"8\"></TD></TR></TABLE>",
                  std::max(width, 1), 61 - std::max(width, 1));
    label += bar;
    label += "</TD><TD ALIGN=\"RIGHT\">" + std::string(number) + "</TD></TR>";
  }
  return label + "</TABLE>>";
}

// The network: nodes shaped by category, evidence shaded, and with
// evidence given, the beliefs of discrete chance nodes as bars.
void write_network(std::FILE* out, k_domain_t domain, bool with_beliefs) {
  std::fprintf(out, "digraph network {\n  node [fontname=\"Helvetica\", fontsize=11];\n");
  for (k_node_t n = k_domain_get_first_node(domain); n != nullptr; n = k_node_get_next(n)) {
    std::string attributes = "shape=" + shape_of(n);
    const bool evidence = k_node_evidence_is_entered(n) == 1;
    if (evidence) attributes += ", style=filled, fillcolor=\"#d9d9d9\"";
    const bool bars = with_beliefs && k_node_get_category(n) == K_CATEGORY_CHANCE &&
                      k_node_get_kind(n) == K_KIND_DISCRETE;
    if (bars) attributes += ", margin=\"0.05\", label=" + belief_label(n);
    std::fprintf(out, "  %s [%s];\n", quoted(name_of(n)).c_str(), attributes.c_str());
  }
  for (k_node_t n = k_domain_get_first_node(domain); n != nullptr; n = k_node_get_next(n))
    for (k_node_t parent : nodes_of(k_node_get_parents(n)))
      std::fprintf(out, "  %s -> %s;\n", quoted(name_of(parent)).c_str(),
                   quoted(name_of(n)).c_str());
  std::fprintf(out, "}\n");
}

// Size of a clique or separator table over `members`: the product of the
// discrete members' state counts.
double table_size(const std::vector<k_node_t>& members) {
  double size = 1.0;
  for (k_node_t m : members)
    if (k_node_get_kind(m) == K_KIND_DISCRETE)
      size *= static_cast<double>(k_node_get_number_of_states(m));
  return size;
}

std::string size_text(double size) {
  char text[32];
  std::snprintf(text, sizeof text, "%.15g", size);
  return text;
}

std::string member_list(const std::vector<k_node_t>& members) {
  std::string text;
  for (k_node_t m : members) {
    if (!text.empty()) text.push_back(' ');
    text += name_of(m);
  }
  return text;
}

// The junction forest: a box per clique with its members and table size,
// an edge per separator labelled with its members and size.
void write_forest(std::FILE* out, k_domain_t domain) {
  std::fprintf(out,
               "graph junction_forest {\n  node [shape=box, style=rounded, fontname=\"Helvetica\", "
               "fontsize=11];\n  edge [fontname=\"Helvetica\", fontsize=9];\n");
  std::size_t tree_index = 0;
  for (k_junction_tree_t jt = k_domain_get_first_junction_tree(domain); jt != nullptr;
       jt = k_jt_get_next(jt), ++tree_index) {
    k_clique_t* list = k_jt_get_cliques(jt);
    if (list == nullptr) throw ApiError(k_error_code());
    std::vector<k_clique_t> cliques;
    for (; *list != nullptr; ++list) cliques.push_back(*list);
    auto id = [&](std::size_t c) {
      char text[48];
      std::snprintf(text, sizeof text, "t%zuc%zu", tree_index, c);
      return std::string(text);
    };
    for (std::size_t c = 0; c < cliques.size(); ++c) {
      const std::vector<k_node_t> members = nodes_of(k_clique_get_members(cliques[c]));
      char head[64];
      std::snprintf(head, sizeof head, "clique %zu (%s)\n", c,
                    size_text(table_size(members)).c_str());
      const std::string label = head + member_list(members);
      std::fprintf(out, "  %s [label=%s%s];\n", id(c).c_str(), quoted(label).c_str(),
                   cliques[c] == k_jt_get_root(jt) ? ", penwidth=2" : "");
    }
    for (std::size_t c = 0; c < cliques.size(); ++c) {
      const std::vector<k_node_t> members = nodes_of(k_clique_get_members(cliques[c]));
      k_clique_t* neighbours = k_clique_get_neighbors(cliques[c]);
      if (neighbours == nullptr) throw ApiError(k_error_code());
      for (; *neighbours != nullptr; ++neighbours) {
        const auto at = std::find(cliques.begin(), cliques.end(), *neighbours);
        const auto d = static_cast<std::size_t>(at - cliques.begin());
        if (d <= c) continue;  // each separator once
        const std::vector<k_node_t> other = nodes_of(k_clique_get_members(*neighbours));
        std::vector<k_node_t> separator;
        for (k_node_t m : members)
          if (std::find(other.begin(), other.end(), m) != other.end()) separator.push_back(m);
        const std::string label =
            member_list(separator) + " (" + size_text(table_size(separator)) + ")";
        std::fprintf(out, "  %s -- %s [label=%s];\n", id(c).c_str(), id(d).c_str(),
                     quoted(label).c_str());
      }
    }
  }
  std::fprintf(out, "}\n");
}

std::string extension_of(const std::string& file) {
  const std::size_t dot = file.find_last_of("./");
  if (dot == std::string::npos || file[dot] == '/') return "";
  return file.substr(dot + 1);
}

// Runs `dot -TFORMAT -o OUT DOTFILE`; its messages go to standard error.
void run_graphviz(const std::string& format, const std::string& dot_file,
                  const std::string& output) {
  std::string type = "-T" + format;
  std::vector<char*> argv = {const_cast<char*>("dot"),
                             type.data(),
                             const_cast<char*>("-o"),
                             const_cast<char*>(output.c_str()),
                             const_cast<char*>(dot_file.c_str()),
                             nullptr};
  pid_t pid = 0;
  const int status = posix_spawnp(&pid, "dot", nullptr, nullptr, argv.data(), environ);
  if (status != 0)
    throw UsageError("cannot run Graphviz's dot for ." + format + " output (" +
                     std::strerror(status) + "); install graphviz or write a .dot file");
  int result = 0;
  while (waitpid(pid, &result, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(result) || WEXITSTATUS(result) != 0)
    throw UsageError("Graphviz's dot failed to write " + output);
}

}  // namespace

void run_draw(const Options& options) {
  const std::string format = extension_of(options.output);
  if (format != "dot" && format != "svg" && format != "png")
    throw UsageError("draw writes .dot, .svg or .png files, not '" + options.output + "'");
  const Progress progress(options.quiet);
  DomainHandle domain = open_network(options.source, progress);
  const bool evidence = !options.findings.empty() || !options.case_file.empty();
  if (options.junction_tree || evidence) {
    compile_network(domain.get(), source_name(options.source), progress);
    enter_evidence(domain.get(), options);
    if (evidence && k_domain_propagate(domain.get(), K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0)
      throw ApiError(k_error_code());
  }

  std::string dot_file = options.output;
  if (format != "dot") {
    char name[] = "/tmp/kelva-draw-XXXXXX";
    const int fd = mkstemp(name);
    if (fd < 0) throw io_error(name, FileUse::write);
    close(fd);
    dot_file = name;
  }
  std::FILE* out = std::fopen(dot_file.c_str(), "w");
  if (out == nullptr) throw io_error(dot_file, FileUse::write);
  try {
    if (options.junction_tree) write_forest(out, domain.get());
    else write_network(out, domain.get(), evidence);
  } catch (...) {
    std::fclose(out);
    if (format != "dot") std::remove(dot_file.c_str());
    throw;
  }
  const bool written = std::ferror(out) == 0;
  if (std::fclose(out) != 0 || !written) throw io_error(dot_file, FileUse::write);
  if (format == "dot") return;
  try {
    run_graphviz(format, dot_file, options.output);
  } catch (...) {
    std::remove(dot_file.c_str());
    throw;
  }
  std::remove(dot_file.c_str());
}

}  // namespace kelva::cli
