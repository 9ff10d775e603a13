// `kelva adapt`: adapt a network's tables to the cases of a data file, one
// case after another, and write the adapted network with its experience.

#include <chrono>
#include <cstdio>
#include <string>

#include "case_source.h"
#include "cli_error.h"
#include "commands.h"
#include "network_source.h"

namespace kelva::cli {

void run_adapt(std::FILE* out, const Options& options) {
  const Progress progress(options.quiet);
  DomainHandle domain = open_network(options.source, progress);
  read_cases(domain.get(), options);
  const k_size_t cases = checked(k_domain_get_number_of_cases(domain.get()));
  if (cases == 0) {
    if (take_reader_messages() > 0) throw ApiError::already_reported(K_ERROR_USAGE);
    throw ApiError(K_ERROR_USAGE, options.data + ": file contains no cases");
  }
  // Every discrete chance node adapts: one without an experience table
  // gets one of --experience counts (the weight of its current table).
  for (k_node_t n = checked(k_domain_get_first_node(domain.get())); n != nullptr;
       n = checked(k_node_get_next(n))) {
    if (checked(k_node_get_category(n)) != K_CATEGORY_CHANCE ||
        checked(k_node_get_kind(n)) != K_KIND_DISCRETE)
      continue;
    if (checked(k_node_has_experience_table(n)) == 0)
      checked(
          k_table_set_all_data_items(checked(k_node_get_experience_table(n)), options.experience));
    if (options.fading != 1.0)
      checked(k_table_set_all_data_items(checked(k_node_get_fading_table(n)), options.fading));
  }
  compile_network(domain.get(), source_name(options.source), progress);
  progress.note("adapting to %llu cases", static_cast<unsigned long long>(cases));

  // A case that is impossible under the tables adapted so far is skipped.
  const auto start = std::chrono::steady_clock::now();
  k_size_t skipped = 0;
  for (k_size_t c = 0; c < cases; ++c) {
    checked(k_domain_enter_case(domain.get(), c));
    if (k_domain_propagate(domain.get(), K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0) {
      const k_error_t code = k_error_code();
      if (code != K_ERROR_INCONSISTENCY_OR_UNDERFLOW) throw ApiError(code);
      ++skipped;
      continue;
    }
    checked(k_domain_adapt(domain.get()));
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  checked(k_domain_retract_findings(domain.get()));
  checked_file(k_domain_save_as_net(domain.get(), options.output.c_str()), options.output,
               FileUse::write);

  std::fprintf(out, "cases\t%llu\n", static_cast<unsigned long long>(cases - skipped));
  std::fprintf(out, "skipped\t%llu\n", static_cast<unsigned long long>(skipped));
  std::fprintf(out, "seconds\t%.17g\n", seconds);
}

}  // namespace kelva::cli
