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

/// Prints a reader's message as FILE:LINE: MESSAGE on standard error.
void print_parse_error(std::uint64_t line, const char* message, void* data) {
  std::fprintf(stderr, "%s:%llu: %s\n", static_cast<const char*>(data),
               static_cast<unsigned long long>(line), message);
}

bool ends_with(const std::string& text, const char* suffix) {
  const std::string s(suffix);
  return text.size() >= s.size() && text.compare(text.size() - s.size(), s.size(), s) == 0;
}

/// Deletes a data set when its owner goes away.
struct DataSetDeleter {
  void operator()(k_data_set_t data) const { k_ds_delete(data); }
};

/// Appends the cases of `file` to the domain's stored cases: a data set
/// file (.csv: comma-separated, a header of node names, "*", "?" or an
/// empty field for a missing item, an optional "#" column of counts) row by
/// row, anything else as a multi-case data file.
void read_cases(k_domain_t domain, const std::string& file) {
  char* name = const_cast<char*>(file.c_str());
  if (!ends_with(file, ".csv")) {
    checked(k_domain_parse_cases(domain, file.c_str(), print_parse_error, name));
    return;
  }
  std::unique_ptr<std::remove_pointer_t<k_data_set_t>, DataSetDeleter> data(
      k_parse_data_set(file.c_str(), ',', print_parse_error, name));
  if (!data) throw ApiError(k_error_code());
  const k_size_t columns = checked(k_ds_get_number_of_columns(data.get()));
  for (k_size_t c = 0; c < columns; ++c)
    for (const char* missing : {"*", "?"})
      checked(k_ds_replace_values(data.get(), c, missing, nullptr));
  checked(k_domain_add_cases(domain, data.get(), 0, checked(k_ds_get_number_of_rows(data.get()))));
}

/// Counts the iterations of a learning run.
int count_iteration(std::uint64_t iteration, double, void* data) {
  *static_cast<std::uint64_t*>(data) = iteration;
  return 1;
}

}  // namespace

void run_learn(std::FILE* out, const Options& options) {
  DomainHandle domain = open_network(options.source);
  read_cases(domain.get(), options.data);

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
  checked(k_domain_compile(domain.get()));
  if (!options.log.empty()) checked(k_domain_set_log_file(domain.get(), options.log.c_str(), 0));
  checked(k_domain_set_max_number_of_em_iterations(domain.get(), options.max_iterations));
  if (options.tolerance >= 0.0)
    checked(k_domain_set_log_likelihood_tolerance(domain.get(), options.tolerance));
  std::uint64_t iterations = 0;
  checked(k_domain_set_em_progress(domain.get(), count_iteration, &iterations));

  const auto start = std::chrono::steady_clock::now();
  checked(k_domain_learn_tables(domain.get()));
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double ll = checked(k_domain_get_log_likelihood(domain.get()));
  const double aic = checked(k_domain_get_aic(domain.get()));
  const double bic = checked(k_domain_get_bic(domain.get()));
  const double cases = checked(k_domain_count_cases(domain.get()));

  for (k_table_t t : added) checked(k_table_delete(t));
  checked(k_domain_save_as_net(domain.get(), options.output.c_str()));
  if (!options.log.empty()) checked(k_domain_set_log_file(domain.get(), nullptr, 0));

  std::fprintf(out, "cases\t%.17g\n", cases);
  std::fprintf(out, "iterations\t%llu\n", static_cast<unsigned long long>(iterations));
  std::fprintf(out, "seconds\t%.17g\n", seconds);
  std::fprintf(out, "log_likelihood\t%.17g\n", ll);
  std::fprintf(out, "aic\t%.17g\n", aic);
  std::fprintf(out, "bic\t%.17g\n", bic);
}

}  // namespace kelva::cli
