// `kelva convert`: read a network, write it as a NET file (numbers in the
// usual short formats, or with --digits N significant digits), or as a KB
// file when the output name ends in ".kb" (protected by --password).

#include "cli_error.h"
#include "commands.h"
#include "network_source.h"
#include "progress.h"

namespace kelva::cli {

void run_convert(const Options& options) {
  DomainHandle domain = open_network(options.source, Progress(options.quiet));
  if (options.digits != 0) checked(k_domain_set_net_digits(domain.get(), options.digits));
  if (is_kb_file(options.output)) {
    checked_file(
        k_domain_save_as_kb(domain.get(), options.output.c_str(), options.source.password.c_str()),
        options.output, FileUse::write);
    return;
  }
  checked_file(k_domain_save_as_net(domain.get(), options.output.c_str()), options.output,
               FileUse::write);
}

}  // namespace kelva::cli
