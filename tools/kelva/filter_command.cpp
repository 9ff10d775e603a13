// `kelva filter`: a time series through a dynamic network.  Row t of the
// data file is the evidence of time t; a window of --window slices of the
// class moves one slice whenever it is full, and every step prints the
// filtered beliefs of the slice's nodes, then --predict steps of
// predictions.

#include <cstdio>
#include <string>
#include <vector>

#include "case_source.h"
#include "class_source.h"
#include "cli_error.h"
#include "commands.h"
#include "report_writers.h"

namespace kelva::cli {
namespace {

/// A node of the slice: its name, kind and state labels.
struct SliceNode {
  std::string name;
  bool continuous = false;
  std::vector<std::string> states;
  k_node_t cases = nullptr;  // its column in the domain holding the data
};

k_node_t window_node(k_domain_t window, std::size_t slice, const std::string& name) {
  std::string full = std::to_string(slice + 1);
  full.insert(full.begin(), 'T');
  full.append(1, '.').append(name);
  return checked(k_domain_get_node_by_name(window, full.c_str()));
}

void print_line(std::FILE* out, const Options& options, k_size_t t, const SliceNode& node,
                const std::string& state, double value) {
  if (options.format == Format::tsv)
    std::fprintf(out, "%llu\t%s\t%s\t%.17g\n", static_cast<unsigned long long>(t),
                 tsv_field(node.name).c_str(), tsv_field(state).c_str(), value);
  else
    std::fprintf(out, "%6llu  %-16s %-16s %.6f\n", static_cast<unsigned long long>(t),
                 node.name.c_str(), state.c_str(), value);
}

/// The beliefs (mean and variance) of the slice's nodes at time t, read by
/// `read(node, state index)` (state 0 and 1 of a continuous node: mean and
/// variance).
template <class Read>
void print_slice(std::FILE* out, const Options& options, k_size_t t,
                 const std::vector<SliceNode>& slice, Read&& read) {
  for (const SliceNode& node : slice) {
    if (node.continuous) {
      print_line(out, options, t, node, "mean", read(node, 0));
      print_line(out, options, t, node, "variance", read(node, 1));
    } else {
      for (std::size_t s = 0; s < node.states.size(); ++s)
        print_line(out, options, t, node, node.states[s], read(node, s));
    }
  }
}

}  // namespace

void run_filter(std::FILE* out, const Options& options) {
  const std::string& path = options.source.file;
  if (!holds_classes(path)) throw UsageError("filter needs a NET file of classes");
  ClassCollectionHandle cc = read_classes(path);
  k_class_t cls = choose_class(cc.get(), path, options.source.class_name);
  DomainHandle window(checked(k_class_create_dbn_domain(cls, options.window)));
  checked(options.bk ? k_domain_triangulate_dbn_for_bk(window.get(), K_TM_BEST_GREEDY)
                     : k_domain_triangulate_dbn(window.get(), K_TM_BEST_GREEDY));
  checked(k_domain_compile(window.get()));
  // The data are read into one unfolded slice, whose nodes are named as
  // the class's.
  DomainHandle data(checked(k_class_create_domain(cls)));
  read_cases(data.get(), options);
  std::vector<SliceNode> slice;
  for (k_node_t n = checked(k_domain_get_first_node(data.get())); n != nullptr;
       n = checked(k_node_get_next(n))) {
    SliceNode node;
    node.name = checked(k_node_get_name(n));
    k_node_t original =
        checked(k_domain_get_node_by_name(reinterpret_cast<k_domain_t>(cls), node.name.c_str()));
    if (original == nullptr || checked(k_node_get_temporal_master(original)) != nullptr ||
        checked(k_node_get_category(n)) != K_CATEGORY_CHANCE)
      continue;  // a node of an instance, a temporal clone, or no chance node
    node.continuous = checked(k_node_get_kind(n)) == K_KIND_CONTINUOUS;
    for (k_size_t s = 0; !node.continuous && s < checked(k_node_get_number_of_states(n)); ++s) {
      std::string label = checked(k_node_get_state_label(n, s));
      if (label.empty()) label.append(1, '#').append(std::to_string(s));
      node.states.push_back(label);
    }
    node.cases = n;
    slice.insert(slice.begin(), node);  // oldest first
  }
  const k_size_t steps = checked(k_domain_get_number_of_cases(data.get()));
  std::size_t offset = 0;
  auto belief = [&](std::size_t at) {
    return [&, at](const SliceNode& node, std::size_t s) {
      k_node_t n = window_node(window.get(), at, node.name);
      return node.continuous ? checked(s == 0 ? k_node_get_mean(n) : k_node_get_variance(n))
                             : checked(k_node_get_belief(n, s));
    };
  };
  for (k_size_t t = 0; t < steps; ++t) {
    if (t - offset == options.window) {
      checked(k_domain_move_dbn_window(window.get(), 1));
      ++offset;
    }
    for (const SliceNode& node : slice) {
      if (checked(k_node_case_is_set(node.cases, t)) != 1) continue;
      k_node_t n = window_node(window.get(), t - offset, node.name);
      if (node.continuous) checked(k_node_enter_value(n, k_node_get_case_value(node.cases, t)));
      else checked(k_node_select_state(n, k_node_get_case_state(node.cases, t)));
    }
    checked(k_domain_propagate(window.get(), K_EQUILIBRIUM_SUM, K_MODE_NORMAL));
    print_slice(out, options, t, slice, belief(t - offset));
  }
  // Times still in the window are read there, later ones predicted.
  const k_size_t end = offset + options.window;
  const k_size_t last = steps + options.predict_steps;
  if (last > end) checked(k_domain_compute_dbn_predictions(window.get(), last - end));
  for (k_size_t t = steps; t < last; ++t) {
    if (t < end) {
      print_slice(out, options, t, slice, belief(t - offset));
      continue;
    }
    print_slice(out, options, t, slice, [&](const SliceNode& node, std::size_t s) {
      k_node_t n = window_node(window.get(), 0, node.name);
      if (!node.continuous) return checked(k_node_get_predicted_belief(n, s, t - end));
      return checked(s == 0 ? k_node_get_predicted_mean(n, t - end)
                            : k_node_get_predicted_variance(n, t - end));
    });
  }
}

}  // namespace kelva::cli
