#include "network_formats.h"

#include <algorithm>
#include <cctype>

namespace kelva::cli {

const NetworkFormat& network_format(const std::string& file) {
  static const NetworkFormat net_format{"NET", k_net_parse_domain, k_domain_save_as_net};
  static const NetworkFormat bif_format{"BIF", k_bif_parse_domain, k_domain_save_as_bif};
  static const NetworkFormat xmlbif_format{"XMLBIF", k_xmlbif_parse_domain,
                                           k_domain_save_as_xmlbif};
  static const NetworkFormat uai_format{"UAI", k_uai_parse_domain, nullptr};
  const std::size_t dot = file.find_last_of("./");
  std::string ext = dot == std::string::npos || file[dot] == '/' ? "" : file.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (ext == "bif") return bif_format;
  if (ext == "xmlbif" || ext == "xml") return xmlbif_format;
  if (ext == "uai") return uai_format;
  return net_format;
}

}  // namespace kelva::cli
