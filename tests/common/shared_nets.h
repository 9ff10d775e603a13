#pragma once
// The real networks of the shared folder, for tests that run over all of them.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "kelva/kelva.h"

// KELVA_TEST_SANITIZED: built under AddressSanitizer, where the slowest
// sweeps over the shared networks are cut down (GCC defines the first
// macro, clang answers the second).
#if defined(__SANITIZE_ADDRESS__)
#define KELVA_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KELVA_TEST_SANITIZED 1
#endif
#endif

namespace kelva::test {

/// The shared folder: $KELVA_SHARED_DIR, else the default compiled in.
inline std::filesystem::path shared_dir() {
  const char* env = std::getenv("KELVA_SHARED_DIR");
#ifdef KELVA_DEFAULT_SHARED_DIR
  return env && *env ? env : KELVA_DEFAULT_SHARED_DIR;
#else
  return env && *env ? env : "/work/shared";
#endif
}

/// The *.net files of the shared nets folder in name order (empty when absent).
inline std::vector<std::filesystem::path> shared_nets() {
  std::vector<std::filesystem::path> nets;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(shared_dir() / "nets", ec))
    if (entry.path().extension() == ".net") nets.push_back(entry.path());
  std::sort(nets.begin(), nets.end());
  return nets;
}

/// The shared networks for the slow sweeps (every triangulation method, the
/// bounded optimal search, writer and KB round trips): all of them in the
/// release build; under the sanitizers, where these sweeps took most of the
/// suite's time, without the four whose junction forests are largest.
inline std::vector<std::filesystem::path> shared_nets_for_sweeps() {
  std::vector<std::filesystem::path> nets = shared_nets();
#if defined(KELVA_TEST_SANITIZED)
  std::erase_if(nets, [](const std::filesystem::path& p) {
    const std::string name = p.filename().string();
    return name == "link.net" || name.starts_with("munin");
  });
#endif
  return nets;
}

/// Owns a domain handle.
struct DomainHandle {
  k_domain_t domain = nullptr;
  DomainHandle() = default;
  explicit DomainHandle(k_domain_t d) : domain(d) {}
  DomainHandle(const DomainHandle&) = delete;
  DomainHandle& operator=(const DomainHandle&) = delete;
  ~DomainHandle() {
    if (domain) k_domain_delete(domain);
  }
  k_domain_t get() const { return domain; }
  explicit operator bool() const { return domain != nullptr; }
};

/// Reads a NET file quietly; null when the reader refuses it.
inline k_domain_t parse_net_quietly(const std::filesystem::path& file) {
  return k_net_parse_domain(
      file.string().c_str(), [](uint64_t, const char*, void*) {}, nullptr);
}

/// The nodes of a null-ended list.
inline std::vector<k_node_t> node_list(k_node_t* list) {
  std::vector<k_node_t> nodes;
  for (; list && *list; ++list) nodes.push_back(*list);
  return nodes;
}

/// The domain's nodes in chain order (newest first).
inline std::vector<k_node_t> domain_nodes(k_domain_t domain) {
  std::vector<k_node_t> nodes;
  for (k_node_t n = k_domain_get_first_node(domain); n; n = k_node_get_next(n)) nodes.push_back(n);
  return nodes;
}

}  // namespace kelva::test
