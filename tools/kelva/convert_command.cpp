// `kelva convert`: read a network, write it in the format the output's
// extension names (NET numbers in the usual short formats, or with --digits
// N significant digits; BIF and XMLBIF numbers exact; a KB file, protected by
// --password, when the name ends in ".kb").  A class collection (a class file
// or a KB file of classes, without --class) is written as one, to a class
// file or a KB file.

#include "class_source.h"
#include "cli_error.h"
#include "commands.h"
#include "network_formats.h"
#include "network_source.h"
#include "progress.h"

namespace kelva::cli {

namespace {

// The class collection of the input, or null for a network: a class file,
// or a KB file that holds classes (a domain's KB file is read as a domain).
ClassCollectionHandle class_input(const Options& options) {
  const std::string& file = options.source.file;
  if (file.empty() || !options.source.class_name.empty()) return nullptr;
  if (holds_classes(file)) return read_classes(file);
  if (!is_kb_file(file)) return nullptr;
  ClassCollectionHandle cc(
      k_kb_load_class_collection(file.c_str(), options.source.password.c_str()));
  if (cc == nullptr && k_error_code() != K_ERROR_BAD_KB_TYPE) throw file_error(file, FileUse::read);
  return cc;
}

}  // namespace

void run_convert(const Options& options) {
  if (ClassCollectionHandle cc = class_input(options)) {
    const char* out = options.output.c_str();
    checked_file(is_kb_file(options.output)
                     ? k_cc_save_as_kb(cc.get(), out, options.source.password.c_str())
                     : k_cc_save_as_net(cc.get(), out),
                 options.output, FileUse::write);
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
