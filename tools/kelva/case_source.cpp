// Reading the cases of a data file or a data set file into a domain, for
// the commands that learn from cases.

#include "case_source.h"

#include <cmath>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "cli_error.h"
#include "network_source.h"

namespace kelva::cli {

namespace {

bool ends_with(const std::string& text, const char* suffix) {
  const std::string s(suffix);
  return text.size() >= s.size() && text.compare(text.size() - s.size(), s.size(), s) == 0;
}

/// Deletes a data set when its owner goes away.
struct DataSetDeleter {
  void operator()(k_data_set_t data) const { k_ds_delete(data); }
};
using DataSetHandle = std::unique_ptr<std::remove_pointer_t<k_data_set_t>, DataSetDeleter>;

/// Warns about the columns of `data` that name no node (their cells are
/// not used), or with `strict` refuses them.
void check_columns(k_domain_t domain, k_data_set_t data, const std::string& file, bool strict) {
  const k_size_t columns = checked(k_ds_get_number_of_columns(data));
  for (k_size_t c = 0; c < columns; ++c) {
    const std::string name = checked(k_ds_get_column_name(data, c));
    if (name == "#" || k_domain_get_node_by_name(domain, name.c_str()) != nullptr) continue;
    const std::string what =
        file + ": column '" + printable(name) + "' names no node of the network";
    if (strict) throw ApiError(K_ERROR_USAGE, what);
    std::fprintf(stderr, "kelva: warning: %s; its cells are not used\n", what.c_str());
  }
}

/// After k_domain_add_cases refused `data`: finds the first row that is
/// refused alone, then the cell of that row that is refused alone (each
/// tried as a one-cell data set), and names them.  Rows tried before it are
/// added to the domain, which is given up anyway.
[[noreturn]] void report_bad_cell(k_domain_t domain, k_data_set_t data, const std::string& file,
                                  k_error_t code) {
  const k_size_t rows = checked(k_ds_get_number_of_rows(data));
  const k_size_t columns = checked(k_ds_get_number_of_columns(data));
  DataSetHandle probe(checked(k_new_data_set()));
  checked(k_ds_new_column(probe.get(), "probe"));
  checked(k_ds_new_row(probe.get()));
  for (k_size_t r = 0; r < rows; ++r) {
    if (k_domain_add_cases(domain, data, r, 1) == 0) continue;
    for (k_size_t c = 0; c < columns; ++c) {
      const char* cell = k_ds_get_data_item(data, r, c);
      if (cell == nullptr) continue;
      const std::string name = checked(k_ds_get_column_name(data, c));
      checked(k_ds_set_column_name(probe.get(), 0, name.c_str()));
      checked(k_ds_set_data_item(probe.get(), 0, 0, cell));
      if (k_domain_add_cases(domain, probe.get(), 0, 1) == 0) continue;
      const k_error_t cell_code = k_error_code();
      std::string what = file + ": row " + std::to_string(r + 1) + ", column '" + printable(name) +
                         "': '" + printable(cell) + "' ";
      k_node_t node = name == "#" ? nullptr : k_domain_get_node_by_name(domain, name.c_str());
      if (name == "#") what += "is not a case count (a number, at least 0)";
      else if (node != nullptr && checked(k_node_get_kind(node)) == K_KIND_DISCRETE)
        what += "names no state of node `" + name + "' (states: " + state_list(node) + ")";
      else what += "is not a number";
      throw ApiError(cell_code, what);
    }
    break;
  }
  throw ApiError(code);
}

/// Gives each interval chance node named by a column of numbers the
/// interval bounds that `binning` finds in the column: as many intervals as
/// the node has states, the outer ones unbounded.  The column's cells
/// become interval texts.  A column whose values allow fewer intervals is
/// refused.
void discretize_columns(k_domain_t domain, k_data_set_t data, const std::string& file,
                        k_discretization_t binning) {
  const k_size_t columns = checked(k_ds_get_number_of_columns(data));
  for (k_size_t c = 0; c < columns; ++c) {
    const std::string name = checked(k_ds_get_column_name(data, c));
    k_node_t node = name == "#" ? nullptr : k_domain_get_node_by_name(domain, name.c_str());
    if (node == nullptr || checked(k_node_get_category(node)) != K_CATEGORY_CHANCE ||
        checked(k_node_get_kind(node)) != K_KIND_DISCRETE ||
        checked(k_node_get_subtype(node)) != K_SUBTYPE_INTERVAL ||
        checked(k_ds_column_data_are_numbers(data, c)) != 1 ||
        checked(k_ds_count_data(data, c)) == 0)
      continue;
    const k_size_t states = checked(k_node_get_number_of_states(node));
    std::vector<double> cuts(states - 1);
    const k_size_t found =
        checked(k_ds_discretize_column(data, c, binning, states, cuts.data(), cuts.size()));
    if (found + 1 != states)
      throw ApiError(K_ERROR_USAGE, file + ": column '" + printable(name) + "' allows only " +
                                        std::to_string(found + 1) + " intervals, node `" + name +
                                        "' has " + std::to_string(states) + " states");
    checked(k_node_set_state_value(node, 0, -HUGE_VAL));
    for (k_size_t i = 0; i < found; ++i) checked(k_node_set_state_value(node, i + 1, cuts[i]));
    checked(k_node_set_state_value(node, states, HUGE_VAL));
  }
}

}  // namespace

void read_cases(k_domain_t domain, const Options& options) {
  const std::string& file = options.data;
  char* name = const_cast<char*>(file.c_str());
  take_reader_messages();
  if (!ends_with(file, ".csv")) {
    if (options.discretize)
      throw UsageError("--discretize needs a .csv data set file, not '" + file + "'");
    checked_file(k_domain_parse_cases(domain, file.c_str(), print_parse_error, name), file,
                 FileUse::read);
    return;
  }
  DataSetHandle data(k_parse_data_set(file.c_str(), ',', print_parse_error, name));
  if (!data) throw file_error(file, FileUse::read);
  const k_size_t columns = checked(k_ds_get_number_of_columns(data.get()));
  for (k_size_t c = 0; c < columns; ++c)
    for (const char* missing : {"*", "?"})
      checked(k_ds_replace_values(data.get(), c, missing, nullptr));
  check_columns(domain, data.get(), file, options.strict_columns);
  if (options.discretize) discretize_columns(domain, data.get(), file, *options.discretize);
  const k_size_t rows = checked(k_ds_get_number_of_rows(data.get()));
  if (k_domain_add_cases(domain, data.get(), 0, rows) != 0)
    report_bad_cell(domain, data.get(), file, k_error_code());
}

}  // namespace kelva::cli
