// `kelva learn-structure`: learn a network's structure from a data file, its
// tables by EM, and write it.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "cli_error.h"
#include "commands.h"
#include "domain_handle.h"
#include "network_source.h"
#include "progress.h"

namespace kelva::cli {

namespace {

struct DataSetDeleter {
  void operator()(k_data_set_t d) const { k_ds_delete(d); }
};
using DataSetHandle = std::unique_ptr<std::remove_pointer_t<k_data_set_t>, DataSetDeleter>;

// "#INDEX" as the sample command writes a state; -1 for any other text.
long state_index(const char* text) {
  if (text[0] != '#' || text[1] < '0' || text[1] > '9') return -1;
  char* end = nullptr;
  const long v = std::strtol(text + 1, &end, 10);
  return *end == '\0' && v <= 32767 ? v : -1;
}

// Reads DATA (a .csv data set, else the sample command's multi-case format:
// names, a blank line, items separated by spaces) with missing items made
// missing and empty rows dropped.
DataSetHandle read_data(const std::string& file) {
  char* name = const_cast<char*>(file.c_str());
  const bool csv = file.size() >= 4 && file.compare(file.size() - 4, 4, ".csv") == 0;
  take_reader_messages();
  DataSetHandle data(k_parse_data_set(file.c_str(), csv ? ',' : ' ', print_parse_error, name));
  if (!data) throw file_error(file, FileUse::read);
  const k_size_t columns = checked(k_ds_get_number_of_columns(data.get()));
  for (k_size_t c = 0; c < columns; ++c)
    for (const char* missing : {"*", "?"})
      checked(k_ds_replace_values(data.get(), c, missing, nullptr));
  for (k_size_t r = checked(k_ds_get_number_of_rows(data.get())); r-- > 0;) {
    bool empty = true;
    for (k_size_t c = 0; c < columns && empty; ++c)
      empty = k_ds_get_data_item(data.get(), r, c) == nullptr;
    if (empty) checked(k_ds_delete_row(data.get(), r));
  }
  return data;
}

// One discrete chance node per column (but a "#" column of counts): states
// "#0".."#k" when every value is a state index, else one labelled state per
// distinct value, sorted.
void make_nodes(k_domain_t domain, k_data_set_t data, const std::string& file) {
  const k_size_t columns = checked(k_ds_get_number_of_columns(data));
  for (k_size_t c = 0; c < columns; ++c) {
    const std::string name = checked(k_ds_get_column_name(data, c));
    if (name == "#") continue;
    std::vector<std::string> values;
    for (const char* const* v = checked(k_ds_get_distinct_values(data, c)); *v != nullptr; ++v)
      values.emplace_back(*v);
    if (values.size() < 2)
      throw ApiError(K_ERROR_USAGE,
                     file + ": column '" + printable(name) + "' " +
                         (values.empty() ? "has no values"
                                         : "holds one value only ('" + printable(values[0]) +
                                               "'), so nothing can be learned about it"));
    k_node_t node =
        checked(k_domain_new_node(domain, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL));
    if (k_node_set_name(node, name.c_str()) != 0)
      throw ApiError(k_error_code(), file + ": column '" + printable(name) +
                                         "' is not a usable node name (a letter or _, then "
                                         "letters, digits and _, each name once)");
    long highest = -1;
    for (const std::string& v : values) {
      const long index = state_index(v.c_str());
      highest = index < 0 || highest == -2 ? -2 : std::max(highest, index);
    }
    if (highest >= 1) {
      checked(k_node_set_number_of_states(node, static_cast<k_size_t>(highest + 1)));
      continue;
    }
    std::sort(values.begin(), values.end());
    checked(k_node_set_number_of_states(node, values.size()));
    for (std::size_t s = 0; s < values.size(); ++s)
      checked(k_node_set_state_label(node, s, values[s].c_str()));
  }
}

std::size_t count_nodes(k_domain_t domain) {
  std::size_t count = 0;
  for (k_node_t n = checked(k_domain_get_first_node(domain)); n != nullptr;
       n = checked(k_node_get_next(n)))
    ++count;
  return count;
}

// The node of the --target column.
k_node_t target_node(k_domain_t domain, const std::string& name) {
  k_node_t target = k_domain_get_node_by_name(domain, name.c_str());
  if (target == nullptr)
    throw ApiError(K_ERROR_USAGE, "--target: no column is named '" + name + "'");
  return target;
}

// Learns the tables by EM from no prior, on the learned structure.
void learn_tables(k_domain_t domain, const Progress& progress) {
  std::vector<k_table_t> added;
  for (k_node_t n = checked(k_domain_get_first_node(domain)); n != nullptr;
       n = checked(k_node_get_next(n)))
    added.push_back(checked(k_node_get_experience_table(n)));
  compile_network(domain, "the learned network", progress);
  checked(k_domain_set_max_number_of_em_iterations(domain, 100));
  progress.note("learning the tables by EM");
  checked(k_domain_learn_tables(domain));
  for (k_table_t t : added) checked(k_table_delete(t));
}

}  // namespace

void run_learn_structure(std::FILE* out, const Options& options) {
  const Progress progress(options.quiet);
  const std::string& file = options.data;
  DataSetHandle data = read_data(file);
  const k_size_t rows = checked(k_ds_get_number_of_rows(data.get()));
  if (rows < 2)
    throw ApiError(K_ERROR_USAGE, file + ": " + std::to_string(rows) +
                                      (rows == 1 ? " case" : " cases") +
                                      "; structure learning needs at least two");
  DomainHandle domain(checked(k_new_domain()));
  make_nodes(domain.get(), data.get(), file);
  checked(k_domain_add_cases(domain.get(), data.get(), 0, rows));
  data.reset();

  progress.note("learning the structure (%s) from %llu cases", options.structure_method.c_str(),
                static_cast<unsigned long long>(rows));
  const auto start = std::chrono::steady_clock::now();
  const std::string& method = options.structure_method;
  std::size_t regions = 0, latent = 0;
  if (method == "pc") {
    checked(k_domain_set_significance_level(domain.get(), options.significance));
    checked(k_domain_learn_structure(domain.get()));
  } else if (method == "npc") {
    checked(k_domain_set_significance_level(domain.get(), options.significance));
    checked(k_domain_learn_structure_npc(domain.get()));
    for (k_ambiguous_region_t r = checked(k_domain_get_first_ambiguous_region(domain.get()));
         r != nullptr; r = checked(k_ambiguous_region_get_next(r))) {
      ++regions;
      if (k_ambiguous_region_find_minimal_solutions(r) == 0) continue;
      if (k_error_code() != K_ERROR_USAGE) throw ApiError(k_error_code());
      // Too large for the search: each edge in turn is decided absent when
      // some solution allows it, else present.  What stays is a minimal
      // solution (putting back fewer edges only makes statements fail).
      for (k_uncertain_edge_t* e = checked(k_ambiguous_region_get_edges(r)); *e != nullptr; ++e)
        if (k_uncertain_edge_manual_decision(*e, 0) != 0)
          checked(k_uncertain_edge_manual_decision(*e, 1));
    }
  } else if (method == "greedy") {
    checked(k_domain_learn_greedy_structure(domain.get(), options.score, 0, 0, 0));
  } else if (method == "hnb") {
    k_node_t target = target_node(domain.get(), options.target);
    const std::size_t observed = count_nodes(domain.get());
    checked(k_domain_set_significance_level(domain.get(), options.significance));
    checked(k_domain_learn_hnb_structure(domain.get(), target));
    latent = count_nodes(domain.get()) - observed;
  } else {
    // The tree grows from the first column's node; with --target, a classifier.
    k_node_t target = options.target.empty() ? nullptr : target_node(domain.get(), options.target);
    k_node_t root = nullptr;
    for (k_node_t n = checked(k_domain_get_first_node(domain.get())); n != nullptr;
         n = checked(k_node_get_next(n)))
      if (n != target) root = n;  // the chain is newest first: the last is the oldest
    checked(k_domain_learn_tree_structure(domain.get(), root, target));
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::size_t links = 0;
  for (k_node_t n = checked(k_domain_get_first_node(domain.get())); n != nullptr;
       n = checked(k_node_get_next(n)))
    for (k_node_t* p = checked(k_node_get_parents(n)); *p != nullptr; ++p) ++links;
  // Latent nodes have no items, so the structure score cannot be had for hnb:
  // its BIC is that of the tables EM learns.
  double bic =
      method == "hnb" ? 0.0 : checked(k_domain_get_structure_score(domain.get(), K_SCORE_BIC));

  learn_tables(domain.get(), progress);
  if (method == "hnb") bic = checked(k_domain_get_bic(domain.get()));
  checked_file(k_domain_save_as_net(domain.get(), options.output.c_str()), options.output,
               FileUse::write);
  std::fprintf(out, "method\t%s\n", method.c_str());
  std::fprintf(out, "cases\t%llu\n", static_cast<unsigned long long>(rows));
  std::fprintf(out, "links\t%zu\n", links);
  std::fprintf(out, "seconds\t%.17g\n", seconds);
  std::fprintf(out, "bic\t%.17g\n", bic);
  if (method == "npc") std::fprintf(out, "regions\t%zu\n", regions);
  if (method == "hnb") std::fprintf(out, "latent\t%zu\n", latent);
}

}  // namespace kelva::cli
