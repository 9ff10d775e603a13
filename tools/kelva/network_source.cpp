#include "network_source.h"

#include <algorithm>
#include <vector>

#include "class_source.h"
#include "cli_error.h"
#include "example_network.h"
#include "network_formats.h"

namespace kelva::cli {

namespace {

/// True when every entry of `table` is 0, read in blocks.
bool all_zero(k_table_t table) {
  const k_size_t size = checked(k_table_get_size(table));
  std::vector<double> block(std::min<k_size_t>(size, 1 << 16));
  for (k_size_t start = 0; start < size; start += block.size()) {
    const k_size_t count = std::min<k_size_t>(block.size(), size - start);
    checked(k_table_get_data(table, block.data(), block.size(), start, count));
    for (k_size_t i = 0; i < count; ++i)
      if (block[i] != 0.0) return false;
  }
  return true;
}

}  // namespace

bool is_kb_file(const std::string& file) { return file.ends_with(".kb"); }

DomainHandle open_network(const NetworkSource& source, const Progress& progress) {
  if (is_kb_file(source.file)) {
    progress.note("loading %s", source.file.c_str());
    DomainHandle domain(k_kb_load_domain(source.file.c_str(), source.password.c_str()));
    if (!domain) throw file_error(source.file, FileUse::read);
    return domain;
  }
  if (!source.file.empty() && (!source.class_name.empty() || holds_classes(source.file))) {
    progress.note("reading the classes of %s", source.file.c_str());
    return unfold_class(source.file, source.class_name);
  }
  if (!source.file.empty()) {
    progress.note("reading %s", source.file.c_str());
    take_reader_messages();
    DomainHandle domain(
        network_format(source.file)
            .parse(source.file.c_str(), print_parse_error, const_cast<char*>(source.file.c_str())));
    if (!domain) throw file_error(source.file, FileUse::read);
    return domain;
  }
  const ExampleNetwork* example = find_example_network(source.example);
  if (example == nullptr) {
    std::string known;
    for (const ExampleNetwork& e : example_networks()) {
      if (!known.empty()) known += ", ";
      known += e.name;
    }
    throw UsageError("unknown example '" + source.example + "' (known: " + known + ")");
  }
  return build_example_network(*example);
}

void check_compilable(k_domain_t domain, const std::string& name) {
  k_node_t first = checked(k_domain_get_first_node(domain));
  if (first == nullptr) throw ApiError(K_ERROR_USAGE, "the network " + name + " has no nodes");
  for (k_node_t n = first; n != nullptr; n = checked(k_node_get_next(n))) {
    if (checked(k_node_get_category(n)) != K_CATEGORY_CHANCE ||
        checked(k_node_get_kind(n)) != K_KIND_DISCRETE || !all_zero(checked(k_node_get_table(n))))
      continue;
    throw ApiError(K_ERROR_INCONSISTENCY_OR_UNDERFLOW,
                   std::string("node `") + checked(k_node_get_name(n)) +
                       "' has no table (every entry is 0, so nothing is possible)");
  }
}

void compile_network(k_domain_t domain, const std::string& name, const Progress& progress,
                     k_triangulation_method_t method, long max_separators) {
  check_compilable(domain, name);
  // A domain loaded from a KB file may come compiled: it is used as it is.
  if (checked(k_domain_is_compiled(domain)) == 1) return;
  progress.note("compiling %s (triangulation, junction forest, first propagation)", name.c_str());
  if (method == K_TM_TOTAL_WEIGHT && max_separators > 0) {
    checked(k_domain_triangulate(domain, K_TM_BEST_GREEDY));
    std::vector<k_node_t> order;
    for (k_node_t* n = checked(k_domain_get_elimination_order(domain)); *n != nullptr; ++n)
      order.push_back(*n);
    order.push_back(nullptr);
    checked(k_domain_uncompile(domain));
    checked(k_domain_set_triangulation_parameters(domain, order.data(), max_separators, 0));
  }
  if (method != K_TM_BEST_GREEDY) checked(k_domain_triangulate(domain, method));
  checked(k_domain_compile(domain));
}

std::string state_list(k_node_t node) {
  std::string states;
  const k_size_t count = checked(k_node_get_number_of_states(node));
  for (k_size_t s = 0; s < count; ++s) {
    if (s != 0) states += ", ";
    const char* label = checked(k_node_get_state_label(node, s));
    if (label != nullptr && *label != '\0') {
      states += label;
    } else {
      states += '#';
      states += std::to_string(s);
    }
  }
  return states;
}

std::string source_name(const NetworkSource& source) {
  return source.file.empty() ? source.example : source.file;
}

}  // namespace kelva::cli
