// `kelva convert`: read a network, write it as a NET file.

#include "cli_error.h"
#include "commands.h"
#include "network_source.h"
#include "progress.h"

namespace kelva::cli {

void run_convert(const Options& options) {
  DomainHandle domain = open_network(options.source, Progress(options.quiet));
  checked_file(k_domain_save_as_net(domain.get(), options.output.c_str()), options.output,
               FileUse::write);
}

}  // namespace kelva::cli
