// `kelva learn`: learn a network's tables from a data file by EM, write the
// learned network and print its scores.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "cli_error.h"
#include "commands.h"
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

/// Appends the cases of `file` to the domain's stored cases: a data set
/// file (.csv: comma-separated, a header of node names, "*", "?" or an
/// empty field for a missing item, an optional "#" column of counts) row by
/// row, anything else as a multi-case data file.
void read_cases(k_domain_t domain, const std::string& file, bool strict_columns) {
  char* name = const_cast<char*>(file.c_str());
  take_reader_messages();
  if (!ends_with(file, ".csv")) {
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
  check_columns(domain, data.get(), file, strict_columns);
  const k_size_t rows = checked(k_ds_get_number_of_rows(data.get()));
  if (k_domain_add_cases(domain, data.get(), 0, rows) != 0)
    report_bad_cell(domain, data.get(), file, k_error_code());
}

/// Counts the iterations of a learning run and notes each with its
/// log-likelihood.
struct Iterations {
  const Progress& progress;
  std::uint64_t count = 0;
};

int note_iteration(std::uint64_t iteration, double log_likelihood, void* data) {
  auto* iterations = static_cast<Iterations*>(data);
  iterations->count = iteration;
  iterations->progress.note("EM iteration %llu: log-likelihood %.10g",
                            static_cast<unsigned long long>(iteration), log_likelihood);
  return 1;
}

}  // namespace

void run_learn(std::FILE* out, const Options& options) {
  const Progress progress(options.quiet);
  DomainHandle domain = open_network(options.source, progress);
  read_cases(domain.get(), options.data, options.strict_columns);
  // Without cases there is nothing to learn; the reader may have said so.
  if (checked(k_domain_count_cases(domain.get())) <= 0.0) {
    if (take_reader_messages() > 0) throw ApiError::already_reported(K_ERROR_USAGE);
    throw ApiError(K_ERROR_USAGE, options.data + ": file contains no cases");
  }

  // Every discrete chance node is learned; an experience table of zeros
  // means no prior counts.  Those added here are removed before saving.
  std::vector<k_table_t> added;
  for (k_node_t n = checked(k_domain_get_first_node(domain.get())); n != nullptr;
       n = checked(k_node_get_next(n))) {
    if (checked(k_node_get_category(n)) != K_CATEGORY_CHANCE ||
        checked(k_node_get_kind(n)) != K_KIND_DISCRETE ||
        checked(k_node_has_experience_table(n)) == 1)
      continue;
    added.push_back(checked(k_node_get_experience_table(n)));
  }
  compile_network(domain.get(), source_name(options.source), progress);
  if (!options.log.empty())
    checked_file(k_domain_set_log_file(domain.get(), options.log.c_str(), 0), options.log,
                 FileUse::write);
  checked(k_domain_set_max_number_of_em_iterations(domain.get(), options.max_iterations));
  if (options.tolerance >= 0.0)
    checked(k_domain_set_log_likelihood_tolerance(domain.get(), options.tolerance));
  Iterations iterations{progress};
  checked(k_domain_set_em_progress(domain.get(), note_iteration, &iterations));
  progress.note("learning from %.17g cases", checked(k_domain_count_cases(domain.get())));

  const auto start = std::chrono::steady_clock::now();
  checked(k_domain_learn_tables(domain.get()));
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double ll = checked(k_domain_get_log_likelihood(domain.get()));
  const double aic = checked(k_domain_get_aic(domain.get()));
  const double bic = checked(k_domain_get_bic(domain.get()));
  const double cases = checked(k_domain_count_cases(domain.get()));

  for (k_table_t t : added) checked(k_table_delete(t));
  checked_file(k_domain_save_as_net(domain.get(), options.output.c_str()), options.output,
               FileUse::write);
  if (!options.log.empty()) checked(k_domain_set_log_file(domain.get(), nullptr, 0));

  std::fprintf(out, "cases\t%.17g\n", cases);
  std::fprintf(out, "iterations\t%llu\n", static_cast<unsigned long long>(iterations.count));
  std::fprintf(out, "seconds\t%.17g\n", seconds);
  std::fprintf(out, "log_likelihood\t%.17g\n", ll);
  std::fprintf(out, "aic\t%.17g\n", aic);
  std::fprintf(out, "bic\t%.17g\n", bic);
}

}  // namespace kelva::cli
