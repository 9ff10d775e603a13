#include "network_formats.h"

#include <algorithm>
#include <cctype>

namespace kelva::cli {

const NetworkFormat& network_format(const std::string& file) {
  static const NetworkFormat kNet{"NET", k_net_parse_domain, k_domain_save_as_net};
  static const NetworkFormat kBif{"BIF", k_bif_parse_domain, k_domain_save_as_bif};
  static const NetworkFormat kXmlbif{"XMLBIF", k_xmlbif_parse_domain, k_domain_save_as_xmlbif};
  static const NetworkFormat kUai{"UAI", k_uai_parse_domain, nullptr};
  const std::size_t dot = file.find_last_of("./");
  std::string ext = dot == std::string::npos || file[dot] == '/' ? "" : file.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (ext == "bif") return kBif;
  if (ext == "xmlbif" || ext == "xml") return kXmlbif;
  if (ext == "uai") return kUai;
  return kNet;
}

}  // namespace kelva::cli
