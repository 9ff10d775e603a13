// Writes the seed corpus of the kb fuzzer: for each NET file given, the
// domain compiled, with two cases and evidence, propagated and saved as a
// KB file ("<name>_file", first byte 0) and as its sections stored unpacked
// ("<name>_sections", first byte 1), which the fuzzer seals itself so that
// mutations reach the section readers.  A class file (first word `class')
// is saved as a class collection, with first bytes 2 and 3.
//
//   kb_seeds OUT_DIR NET...
#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "kelva/kelva.h"
#include "text/kb_format.h"

namespace {

using Bytes = std::vector<unsigned char>;
using kelva::kb::ByteReader;

void write(const std::string& path, char first, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .put(first)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

// The payload of an unprotected KB file with every section stored.
Bytes stored_sections(const Bytes& file) {
  using namespace kelva::kb;
  ByteReader in(file.data() + kHeaderSize, file.size() - kHeaderSize - kCrcSize);
  ByteWriter out;
  for (std::uint32_t tag = in.u32(); out.u32(tag), tag != 0; tag = in.u32()) {
    const std::uint8_t packing = in.u8();
    uLongf size = in.u64();
    const std::size_t packed_size = in.count(1);
    const unsigned char* packed = in.bytes(packed_size);
    Bytes raw(packed, packed + packed_size);
    if (packing == kDeflated) {
      raw.resize(size);
      if (uncompress(raw.data(), &size, packed, packed_size) != Z_OK) std::abort();
    }
    out.u8(kStored);
    out.u64(raw.size());
    out.u64(raw.size());
    out.bytes.insert(out.bytes.end(), raw.begin(), raw.end());
  }
  return out.bytes;
}

}  // namespace

// The KB bytes of `path` read as a class file; false when it is none.
bool class_file_bytes(const char* path, Bytes& out) {
  std::ifstream in(path);
  std::string word;
  if (!(in >> word) || word != "class") return false;
  k_class_collection_t cc = k_new_class_collection();
  if (k_net_parse_classes(path, cc, nullptr, nullptr, nullptr, nullptr) != 0) std::abort();
  std::size_t size = 0;
  unsigned char* saved = k_cc_save_to_memory(cc, nullptr, &size);
  if (saved == nullptr) std::abort();
  out.assign(saved, saved + size);
  std::free(saved);
  k_cc_delete(cc);
  return true;
}

int main(int argc, char** argv) {
  for (int i = 2; i < argc; ++i) {
    const auto base = std::filesystem::path(argv[1]) / std::filesystem::path(argv[i]).stem();
    Bytes classes;
    if (class_file_bytes(argv[i], classes)) {
      write(base.string() + "_file", 2, classes);
      write(base.string() + "_sections", 3, stored_sections(classes));
      continue;
    }
    k_domain_t d = k_net_parse_domain(argv[i], nullptr, nullptr);
    if (d == nullptr) return 1;
    // Two cases (every discrete chance node's first state, then its last;
    // 0.5 for continuous ones) and the first one's last state as evidence.
    // A network that does not compile, or whose evidence is impossible, is
    // saved as far as it got: that is a seed too.
    if (k_domain_compile(d) == 0) {
      k_domain_set_number_of_cases(d, 2);
      bool evidence = false;
      for (k_node_t n = k_domain_get_first_node(d); n != nullptr; n = k_node_get_next(n)) {
        if (k_node_get_category(n) != K_CATEGORY_CHANCE) continue;
        if (k_node_get_kind(n) == K_KIND_CONTINUOUS) {
          k_node_set_case_value(n, 0, 0.5);
          continue;
        }
        const k_size_t last = k_node_get_number_of_states(n) - 1;
        k_node_set_case_state(n, 0, 0);
        k_node_set_case_state(n, 1, last);
        if (!evidence) evidence = k_node_select_state(n, last) == 0;
      }
      k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
    }
    std::size_t size = 0;
    unsigned char* saved = k_domain_save_to_memory(d, nullptr, &size);
    if (saved == nullptr) std::abort();
    const Bytes file(saved, saved + size);
    std::free(saved);
    k_domain_delete(d);
    write(base.string() + "_file", 0, file);
    write(base.string() + "_sections", 1, stored_sections(file));
  }
  return argc < 3 ? 2 : 0;
}
