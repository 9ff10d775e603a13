// Reads the input as a SAS table file (first byte `t`), node file (other
// even first bytes) or link file (odd), from memory through a stream.  Link
// and table files go into a fixed network read from a node file first,
// whose tables hold known numbers.  A failed parse
// must leave the domain exactly as it was: no new node, no new link, the
// same table contents.  A node file that parses is written as NET text,
// which must read back with the same nodes.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_check.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "text/sas_reader.h"

namespace {

const char kNodes[] =
    "A, L, a0\nA, L, a1\nB, B\nC, N, 1\nC, N, 2\nC, N, 3\n"
    "I, I, 0\nI, I, 1\nI, I, 2\nX, C\nY, C\nF, F\n";

const char kLinks[] = "A B\nC A B\nX A C Y\nF A X\n";

// Runs a reader over `text` in memory; true when it succeeded.
template <class Read>
bool parse(k_domain_t domain, const std::string& text, Read read) {
  // An empty buffer is no stream for fmemopen.
  std::FILE* stream = text.empty() ? std::fopen("/dev/null", "r")
                                   : fmemopen(const_cast<char*>(text.data()), text.size(), "r");
  CHECK(stream != nullptr);
  bool ok = true;
  try {
    read(*reinterpret_cast<kelva::Domain*>(domain), stream, ignore, nullptr);
  } catch (...) {
    ok = false;
  }
  std::fclose(stream);
  return ok;
}

std::size_t node_count(k_domain_t domain) {
  std::size_t n = 0;
  for (k_node_t p = k_domain_get_first_node(domain); p != nullptr; p = k_node_get_next(p)) ++n;
  return n;
}

// Every node's parents (names) and table contents.
std::string snapshot(k_domain_t domain) {
  std::string out;
  for (k_node_t n = k_domain_get_first_node(domain); n != nullptr; n = k_node_get_next(n)) {
    out += k_node_get_name(n);
    out += ":";
    k_node_t* parents = k_node_get_parents(n);
    for (k_node_t* p = parents; p != nullptr && *p != nullptr; ++p) {
      out += k_node_get_name(*p);
      out += ",";
    }
    k_table_t table = k_node_get_table(n);
    if (table != nullptr) {
      const k_size_t size = k_table_get_size(table);
      std::vector<double> data(size);
      CHECK(k_table_get_data(table, data.data(), size, 0, size) == 0);
      for (double v : data) {
        char exact[64];
        std::snprintf(exact, sizeof exact, "%a ", v);
        out += exact;
      }
    }
    out += "\n";
  }
  k_error_set(K_ERROR_NONE);
  return out;
}

void fuzz_nodes(const std::string& text) {
  k_domain_t d = k_new_domain();
  if (!parse(d, text, kelva::read_sas_nodes)) {
    CHECK(node_count(d) == 0);
  } else {
    char* written = k_domain_to_net_string(d);
    CHECK(written != nullptr);
    k_domain_t again = k_net_parse_domain_string(written, ignore, nullptr);
    if (again == nullptr) std::fprintf(stderr, "written text does not parse:\n%s\n", written);
    CHECK(again != nullptr);
    CHECK(node_count(again) == node_count(d));
    std::free(written);
    k_domain_delete(again);
  }
  k_domain_delete(d);
}

void fuzz_links(const std::string& text) {
  k_domain_t d = k_new_domain();
  CHECK(parse(d, kNodes, kelva::read_sas_nodes));
  // Tables with numbers that averaging over a parent's states could change.
  double value = 0.1;
  for (k_node_t n = k_domain_get_first_node(d); n != nullptr; n = k_node_get_next(n)) {
    k_table_t table = k_node_get_table(n);
    if (table == nullptr) continue;
    const k_size_t size = k_table_get_size(table);
    for (k_size_t i = 0; i < size; ++i, value += 0.7) k_table_set_data_item(table, i, value);
  }
  const std::string before = snapshot(d);
  if (!parse(d, text, kelva::read_sas_links)) CHECK(snapshot(d) == before);
  CHECK(node_count(d) == 7);
  k_domain_delete(d);
}

// A table file read into the fixed network with links: a failure leaves
// every table as it was.
void fuzz_table(const std::string& text) {
  k_domain_t d = k_new_domain();
  CHECK(parse(d, kNodes, kelva::read_sas_nodes));
  CHECK(parse(d, kLinks, kelva::read_sas_links));
  const std::string before = snapshot(d);
  if (!parse(d, text, kelva::read_sas_table)) CHECK(snapshot(d) == before);
  k_domain_delete(d);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (data[0] == 't') fuzz_table(text);
  else if (data[0] % 2 == 0) fuzz_nodes(text);
  else fuzz_links(text);
  return 0;
}
