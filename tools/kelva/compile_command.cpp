// `kelva compile`: compile a network and print the size of its junction
// forest.

#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <limits>

#include "cli_error.h"
#include "commands.h"
#include "network_source.h"

namespace kelva::cli {

namespace {

constexpr std::uint64_t kSaturated = std::numeric_limits<std::uint64_t>::max();

std::uint64_t add(std::uint64_t a, std::uint64_t b) {
  return a > kSaturated - b ? kSaturated : a + b;
}

std::uint64_t multiply(std::uint64_t a, std::uint64_t b) {
  return b != 0 && a > kSaturated / b ? kSaturated : a * b;
}

/// What `compile` reports.
struct ForestSummary {
  std::uint64_t nodes = 0;
  std::uint64_t cliques = 0;
  std::uint64_t trees = 0;
  std::uint64_t max_clique_size = 0;    ///< largest discrete clique table
  std::uint64_t total_clique_size = 0;  ///< sum of the discrete clique tables
  double cost = 0.0;                    ///< sum of the clique weights
  double seconds = 0.0;
};

/// Adds one clique: its discrete table size and its weight (the discrete
/// size times (c + 3) c / 2 + 1 for c continuous members).
void add_clique(ForestSummary& summary, k_clique_t clique) {
  std::uint64_t size = 1;
  double weight = 1.0;
  double continuous = 0.0;
  k_node_t* members = checked(k_clique_get_members(clique));
  for (k_node_t* m = members; *m != nullptr; ++m) {
    if (checked(k_node_get_kind(*m)) == K_KIND_DISCRETE) {
      const auto states = static_cast<std::uint64_t>(checked(k_node_get_number_of_states(*m)));
      size = multiply(size, states);
      weight *= static_cast<double>(states);
    } else {
      continuous += 1.0;
    }
  }
  if (continuous > 0.0) weight *= (continuous + 3.0) * continuous / 2.0 + 1.0;
  ++summary.cliques;
  if (size > summary.max_clique_size) summary.max_clique_size = size;
  summary.cost += weight;
}

ForestSummary summarize(k_domain_t domain) {
  ForestSummary summary;
  for (k_node_t n = checked(k_domain_get_first_node(domain)); n != nullptr;
       n = checked(k_node_get_next(n)))
    ++summary.nodes;
  for (k_junction_tree_t jt = checked(k_domain_get_first_junction_tree(domain)); jt != nullptr;
       jt = checked(k_jt_get_next(jt))) {
    ++summary.trees;
    summary.total_clique_size = add(summary.total_clique_size, checked(k_jt_get_total_size(jt)));
    for (k_clique_t* c = checked(k_jt_get_cliques(jt)); *c != nullptr; ++c) add_clique(summary, *c);
  }
  return summary;
}

void write_text(std::FILE* out, const std::string& name, const ForestSummary& s) {
  std::fprintf(out, "network %s: compiled in %.3f s\n", name.c_str(), s.seconds);
  std::fprintf(out, "  nodes: %" PRIu64 "\n", s.nodes);
  std::fprintf(out, "  junction trees: %" PRIu64 "\n", s.trees);
  std::fprintf(out, "  cliques: %" PRIu64 "\n", s.cliques);
  std::fprintf(out, "  largest clique table: %" PRIu64 "\n", s.max_clique_size);
  std::fprintf(out, "  total clique table size: %" PRIu64 "\n", s.total_clique_size);
  std::fprintf(out, "  triangulation cost: %.17g\n", s.cost);
}

void write_tsv(std::FILE* out, const ForestSummary& s) {
  std::fprintf(out, "nodes\t%" PRIu64 "\n", s.nodes);
  std::fprintf(out, "cliques\t%" PRIu64 "\n", s.cliques);
  std::fprintf(out, "junction_trees\t%" PRIu64 "\n", s.trees);
  std::fprintf(out, "max_clique_size\t%" PRIu64 "\n", s.max_clique_size);
  std::fprintf(out, "total_clique_size\t%" PRIu64 "\n", s.total_clique_size);
  std::fprintf(out, "triangulation_cost\t%.17g\n", s.cost);
  std::fprintf(out, "compile_seconds\t%.17g\n", s.seconds);
}

}  // namespace

void run_compile(std::FILE* out, const Options& options) {
  const Progress progress(options.quiet);
  DomainHandle domain = open_network(options.source, progress);
  if (!options.log.empty())
    checked_file(k_domain_set_log_file(domain.get(), options.log.c_str(), 0), options.log,
                 FileUse::write);
  const auto start = std::chrono::steady_clock::now();
  compile_network(domain.get(), source_name(options.source), progress, options.method,
                  options.max_separators);
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  progress.note("compiled in %.3f s", elapsed.count());

  ForestSummary summary = summarize(domain.get());
  summary.seconds = elapsed.count();
  if (options.format == Format::tsv) write_tsv(out, summary);
  else write_text(out, source_name(options.source), summary);
}

}  // namespace kelva::cli
