// `kelva beliefs`: compile a network, enter evidence, propagate and print
// the beliefs of every discrete node.

#include <string>

#include "beliefs_report.h"
#include "cli_error.h"
#include "commands.h"
#include "evidence_input.h"
#include "network_source.h"

namespace kelva::cli {

void run_beliefs(std::FILE* out, const Options& options) {
  const Progress progress(options.quiet);
  DomainHandle domain = open_network(options.source, progress);
  // Evidence entered before compiling is propagated in the first pass from
  // the node tables, so the beliefs are bit for bit those of `kelva predict`
  // for the same evidence.
  enter_evidence(domain.get(), options);
  compile_network(domain.get(), source_name(options.source), progress);
  const k_equilibrium_t equilibrium =
      options.max_equilibrium ? K_EQUILIBRIUM_MAX : K_EQUILIBRIUM_SUM;
  if (k_domain_propagate(domain.get(), equilibrium, K_MODE_NORMAL) != 0)
    throw ApiError(k_error_code());
  BeliefsInfo info = read_beliefs(domain.get());
  info.source = source_name(options.source);
  info.equilibrium = equilibrium;
  if (!options.case_file.empty()) info.findings.push_back("case " + options.case_file);
  info.findings.insert(info.findings.end(), options.findings.begin(), options.findings.end());
  if (options.format == Format::tsv) write_beliefs_tsv(out, info);
  else write_beliefs_text(out, info);
}

}  // namespace kelva::cli
