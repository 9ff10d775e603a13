// `kelva nodes`: what a network holds.

#include "commands.h"
#include "network_report.h"
#include "network_source.h"
#include "progress.h"
#include "report_writers.h"

namespace kelva::cli {

void run_nodes(std::FILE* out, const Options& options) {
  DomainHandle domain = open_network(options.source, Progress(options.quiet));
  NetworkInfo network = read_network(domain.get(), source_name(options.source));
  if (options.format == Format::tsv) write_tsv_report(out, network);
  else write_text_report(out, network);
}

}  // namespace kelva::cli
