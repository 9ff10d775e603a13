// `kelva convert`: read a network, write it in the format the output's
// extension names (NET numbers in the usual short formats, or with --digits
// N significant digits; BIF and XMLBIF numbers exact; a KB file, protected by
// --password, when the name ends in ".kb").

#include "class_source.h"
#include "cli_error.h"
#include "commands.h"
#include "network_formats.h"
#include "network_source.h"
#include "progress.h"

namespace kelva::cli {

void run_convert(const Options& options) {
  // A class file without --class is written back as a class file.
  if (!options.source.file.empty() && options.source.class_name.empty() &&
      holds_classes(options.source.file)) {
    ClassCollectionHandle cc = read_classes(options.source.file);
    checked_file(k_cc_save_as_net(cc.get(), options.output.c_str()), options.output,
                 FileUse::write);
    return;
  }
  DomainHandle domain = open_network(options.source, Progress(options.quiet));
  if (options.digits != 0) checked(k_domain_set_net_digits(domain.get(), options.digits));
  if (is_kb_file(options.output)) {
    checked_file(
        k_domain_save_as_kb(domain.get(), options.output.c_str(), options.source.password.c_str()),
        options.output, FileUse::write);
    return;
  }
  const NetworkFormat& format = network_format(options.output);
  if (format.save == nullptr)
    throw UsageError(std::string("cannot write ") + format.name + " files: " + options.output);
  checked_file(format.save(domain.get(), options.output.c_str()), options.output, FileUse::write);
}

}  // namespace kelva::cli
