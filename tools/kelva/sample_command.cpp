// `kelva sample`: draw cases from a network by forward sampling, or from
// its posterior given evidence through the library's simulation, and write
// them as a multi-case data file, for `kelva learn` and its measurements.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "cli_error.h"
#include "commands.h"
#include "evidence_input.h"
#include "network_source.h"

namespace kelva::cli {

namespace {

/// A chance node with what sampling it needs: its table's data (a
/// continuous node: per configuration of its discrete parents alpha, gamma
/// and the betas) and the position in `nodes` of each discrete table member
/// (and continuous parent), so that a configuration is found without asking
/// the library per case.
struct Sampled {
  k_node_t node;
  std::string name;
  std::size_t states;  ///< 0 for a continuous node
  std::vector<double> data;
  std::vector<std::size_t> members;             ///< positions in the sampling order
  std::vector<std::size_t> counts;              ///< state counts of the members
  std::size_t self = 0;                         ///< the node's position among its members
  std::vector<std::size_t> continuous_parents;  ///< positions in the sampling order
};

bool is_chance(k_node_t n) {
  return checked(k_node_get_category(n)) == K_CATEGORY_CHANCE &&
         checked(k_node_get_kind(n)) != K_KIND_OTHER;
}

/// The chance nodes of `domain`, parents before children.  Other nodes are
/// left out of the file.
std::vector<Sampled> sampling_order(k_domain_t domain) {
  std::vector<k_node_t> pending;
  for (k_node_t n = checked(k_domain_get_first_node(domain)); n != nullptr;
       n = checked(k_node_get_next(n)))
    if (is_chance(n)) pending.push_back(n);
  std::reverse(pending.begin(), pending.end());  // creation order reads best
  std::vector<k_node_t> order;
  auto placed = [&order](k_node_t n) {
    return std::find(order.begin(), order.end(), n) != order.end();
  };
  while (!pending.empty()) {
    const std::size_t before = order.size();
    for (auto it = pending.begin(); it != pending.end();) {
      bool ready = true;
      for (k_node_t* p = checked(k_node_get_parents(*it)); *p != nullptr && ready; ++p)
        if (is_chance(*p) && !placed(*p)) ready = false;
      if (ready) {
        order.push_back(*it);
        it = pending.erase(it);
      } else {
        ++it;
      }
    }
    if (order.size() == before) throw UsageError("the network's chance nodes form a cycle");
  }
  std::vector<Sampled> result;
  for (k_node_t n : order) {
    const bool continuous = checked(k_node_get_kind(n)) == K_KIND_CONTINUOUS;
    Sampled s{n,
              checked(k_node_get_name(n)),
              continuous ? 0 : static_cast<std::size_t>(checked(k_node_get_number_of_states(n))),
              {},
              {},
              {},
              0,
              {}};
    k_table_t table = checked(k_node_get_table(n));
    const k_size_t size = checked(k_table_get_size(table));
    std::vector<k_node_t> continuous_parents;
    for (k_node_t* m = checked(k_table_get_nodes(table)); *m != nullptr; ++m) {
      const auto at = std::find(order.begin(), order.end(), *m);
      if (at == order.end())
        throw UsageError(std::string("node ") + s.name +
                         " has a parent that is not a chance node; sample cannot draw it");
      const auto position = static_cast<std::size_t>(at - order.begin());
      if (checked(k_node_get_kind(*m)) == K_KIND_CONTINUOUS) {
        if (*m == n) continue;
        continuous_parents.push_back(*m);
        s.continuous_parents.push_back(position);
        continue;
      }
      if (*m == n) s.self = s.members.size();
      s.members.push_back(position);
      s.counts.push_back(static_cast<std::size_t>(checked(k_node_get_number_of_states(*m))));
    }
    if (!continuous) {
      s.data.resize(size);
      checked(k_table_get_data(table, s.data.data(), size, 0, size));
    }
    for (k_size_t c = 0; c < size && continuous; ++c) {
      s.data.push_back(checked(k_node_get_alpha(n, c)));
      s.data.push_back(checked(k_node_get_gamma(n, c)));
      for (k_node_t p : continuous_parents) s.data.push_back(checked(k_node_get_beta(n, p, c)));
    }
    result.push_back(std::move(s));
  }
  return result;
}

/// Draws the state of `s` given the states drawn so far: the row of its
/// table for the parents' states, normalized by its sum (a row summing to
/// 0 draws uniformly).
std::size_t draw(const Sampled& s, const std::vector<std::size_t>& state, std::mt19937_64& rng) {
  std::size_t base = 0;
  std::size_t stride = 0;
  for (std::size_t i = 0; i < s.members.size(); ++i) {
    base *= s.counts[i];
    stride *= s.counts[i];
    if (i == s.self) stride = 1;
    else base += state[s.members[i]];
  }
  double sum = 0.0;
  for (std::size_t k = 0; k < s.states; ++k) sum += s.data[base + k * stride];
  std::uniform_real_distribution<double> u(0.0, 1.0);
  if (!(sum > 0.0)) return std::uniform_int_distribution<std::size_t>(0, s.states - 1)(rng);
  double r = u(rng) * sum;
  for (std::size_t k = 0; k + 1 < s.states; ++k) {
    r -= s.data[base + k * stride];
    if (r < 0.0) return k;
  }
  return s.states - 1;
}

/// Draws the value of continuous `s` given the states and values drawn so
/// far: alpha + beta . parents plus normal noise of variance gamma.
double draw_value(const Sampled& s, const std::vector<std::size_t>& state,
                  const std::vector<double>& value, std::mt19937_64& rng) {
  std::size_t c = 0;
  for (std::size_t i = 0; i < s.members.size(); ++i) c = c * s.counts[i] + state[s.members[i]];
  const double* p = &s.data[c * (2 + s.continuous_parents.size())];
  double mean = p[0];
  for (std::size_t j = 0; j < s.continuous_parents.size(); ++j)
    mean += p[2 + j] * value[s.continuous_parents[j]];
  return mean + std::sqrt(p[1]) * std::normal_distribution<double>()(rng);
}

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

}  // namespace

void run_sample(const Options& options) {
  const Progress progress(options.quiet);
  DomainHandle domain = open_network(options.source, progress);
  const std::vector<Sampled> nodes = sampling_order(domain.get());
  std::unique_ptr<std::FILE, FileCloser> out(std::fopen(options.output.c_str(), "w"));
  if (!out) throw io_error(options.output, FileUse::write);
  progress.note("drawing %ld cases into %s", options.cases, options.output.c_str());
  std::mt19937_64 rng(options.seed);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  // Header: the names, then a blank line; items are state indexes (#k), a
  // hidden item is "*".
  for (std::size_t i = 0; i < nodes.size(); ++i)
    std::fprintf(out.get(), "%s%s", i == 0 ? "" : " ", nodes[i].name.c_str());
  std::fputs("\n\n", out.get());
  // With evidence, the library draws each case from the posterior.
  const bool posterior = !options.findings.empty() || !options.case_file.empty();
  if (posterior) {
    compile_network(domain.get(), source_name(options.source), progress);
    enter_evidence(domain.get(), options);
    if (k_domain_propagate(domain.get(), K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0)
      throw ApiError(k_error_code());
    checked(k_domain_seed_random(domain.get(), options.seed));
  }
  std::vector<std::size_t> state(nodes.size());
  std::vector<double> value(nodes.size());
  std::string line;
  char number[32];
  for (long c = 0; c < options.cases; ++c) {
    line.clear();
    if (posterior && k_domain_simulate(domain.get()) != 0) throw ApiError(k_error_code());
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      const bool continuous = nodes[i].states == 0;
      if (continuous)
        value[i] = posterior ? checked(k_node_get_sampled_value(nodes[i].node))
                             : draw_value(nodes[i], state, value, rng);
      else
        state[i] = posterior
                       ? static_cast<std::size_t>(checked(k_node_get_sampled_state(nodes[i].node)))
                       : draw(nodes[i], state, rng);
      if (i != 0) line += ' ';
      if (u(rng) < options.hide) {
        line += '*';
      } else if (continuous) {
        std::snprintf(number, sizeof number, "%.17g", value[i]);
        line += number;
      } else {
        line += '#';
        line += std::to_string(state[i]);
      }
    }
    line += '\n';
    std::fputs(line.c_str(), out.get());
  }
  if (std::ferror(out.get()) || std::fclose(out.release()) != 0)
    throw io_error(options.output, FileUse::write);
}

}  // namespace kelva::cli
