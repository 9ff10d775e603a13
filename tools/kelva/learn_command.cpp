// `kelva learn`: learn a network's tables from a data file by EM, write the
// learned network and print its scores.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "case_source.h"
#include "cli_error.h"
#include "commands.h"
#include "network_source.h"

namespace kelva::cli {

namespace {

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
  read_cases(domain.get(), options);
  // Without cases there is nothing to learn; the reader may have said so.
  if (checked(k_domain_count_cases(domain.get())) <= 0.0) {
    if (take_reader_messages() > 0) throw ApiError::already_reported(K_ERROR_USAGE);
    throw ApiError(K_ERROR_USAGE, options.data + ": file contains no cases");
  }

  // Every chance node is learned (a continuous one its CG table); an
  // experience table of zeros means no prior counts.  Those added here are removed before saving.
  std::vector<k_table_t> added;
  for (k_node_t n = checked(k_domain_get_first_node(domain.get())); n != nullptr;
       n = checked(k_node_get_next(n))) {
    if (checked(k_node_get_category(n)) != K_CATEGORY_CHANCE ||
        checked(k_node_get_kind(n)) == K_KIND_OTHER || checked(k_node_has_experience_table(n)) == 1)
      continue;
    added.push_back(checked(k_node_get_experience_table(n)));
  }
  if (options.scaled) checked(k_domain_set_scaled_propagation(domain.get(), 1));
  checked(k_domain_set_concurrency_level(domain.get(), static_cast<k_size_t>(options.threads)));
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
