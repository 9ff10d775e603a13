// KB files: NET text survives a KB file byte for byte, a propagated domain
// loads with the same beliefs and clique tables, and damaged, truncated,
// protected and mistyped files give their error codes.
#include <zlib.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "common/shared_nets.h"
#include "kelva/kelva.h"

namespace {

using kelva::test::DomainHandle;

std::string net_text(k_domain_t d) {
  char* text = k_domain_to_net_string(d);
  std::string s = text != nullptr ? text : "";
  std::free(text);
  return s;
}

std::vector<unsigned char> save(k_domain_t d, const char* password = nullptr) {
  size_t size = 0;
  unsigned char* bytes = k_domain_save_to_memory(d, password, &size);
  EXPECT_NE(bytes, nullptr);
  std::vector<unsigned char> v(bytes, bytes + size);
  std::free(bytes);
  return v;
}

k_domain_t load(const std::vector<unsigned char>& v, const char* password = nullptr) {
  return k_kb_load_domain_from_memory(v.data(), v.size(), password);
}

// Every discrete node's beliefs and the normalization constant, as bits.
std::vector<std::uint64_t> belief_bits(k_domain_t d) {
  std::vector<std::uint64_t> bits;
  auto put = [&bits](double x) {
    std::uint64_t b;
    std::memcpy(&b, &x, 8);
    bits.push_back(b);
  };
  for (k_node_t n : kelva::test::domain_nodes(d)) {
    if (k_node_get_kind(n) != K_KIND_DISCRETE) continue;
    for (k_size_t s = 0; s < k_node_get_number_of_states(n); ++s) put(k_node_get_belief(n, s));
  }
  put(k_domain_get_normalization_constant(d));
  return bits;
}

DomainHandle shared(const char* name) {
  return DomainHandle(kelva::test::parse_net_quietly(kelva::test::shared_dir() / "nets" / name));
}

// Selects `count` random states of non-zero belief, propagating after each.
void enter_evidence(k_domain_t d, std::mt19937_64& random, int count) {
  std::vector<k_node_t> nodes = kelva::test::domain_nodes(d);
  for (int i = 0; i < count; ++i) {
    k_node_t n = nodes[random() % nodes.size()];
    if (k_node_get_kind(n) != K_KIND_DISCRETE || k_node_evidence_is_entered(n) == 1) continue;
    const k_size_t states = k_node_get_number_of_states(n);
    const k_size_t s = random() % states;
    if (k_node_get_belief(n, s) <= 0.0) continue;
    ASSERT_EQ(k_node_select_state(n, s), 0);
    ASSERT_EQ(k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  }
}

TEST(KbFiles, NetTextSurvivesAKbFileForEverySharedNetwork) {
  int checked = 0;
  for (const auto& path : kelva::test::shared_nets_for_sweeps()) {
    DomainHandle d(kelva::test::parse_net_quietly(path));
    if (!d) continue;
    const std::vector<unsigned char> bytes = save(d.get());
    DomainHandle back(load(bytes));
    ASSERT_TRUE(back) << path << ": " << k_error_name(k_error_code());
    EXPECT_EQ(net_text(back.get()), net_text(d.get())) << path;
    ++checked;
  }
  EXPECT_GT(checked, 20);
}

TEST(KbFiles, PropagatedDomainLoadsWithTheSameBeliefsAndCliqueTables) {
  std::mt19937_64 random(7);
  for (const char* name : {"asia.net", "alarm.net", "child.net", "insurance.net"}) {
    SCOPED_TRACE(name);
    DomainHandle d = shared(name);
    ASSERT_TRUE(d);
    ASSERT_EQ(k_domain_compile(d.get()), 0);
    enter_evidence(d.get(), random, 4);
    ASSERT_EQ(k_domain_set_number_of_cases(d.get(), 3), 0);
    k_node_t first = k_domain_get_first_node(d.get());
    ASSERT_EQ(k_node_set_case_state(first, 2, 1), 0);

    const char* password = std::string(name) == "asia.net" ? "s3cret" : nullptr;
    const std::vector<unsigned char> bytes = save(d.get(), password);
    DomainHandle back(load(bytes, password));
    ASSERT_TRUE(back) << k_error_name(k_error_code());
    EXPECT_EQ(k_domain_is_compiled(back.get()), 1);
    EXPECT_EQ(belief_bits(back.get()), belief_bits(d.get()));
    k_node_t first_back = k_domain_get_first_node(back.get());
    EXPECT_EQ(k_domain_get_number_of_cases(back.get()), 3u);
    EXPECT_EQ(k_node_get_case_state(first_back, 2), 1);
    EXPECT_EQ(k_node_evidence_is_entered(first_back), k_node_evidence_is_entered(first));

    // More evidence is absorbed into the restored clique tables exactly as
    // into the original ones.
    std::mt19937_64 same_a(11), same_b(11);
    enter_evidence(d.get(), same_a, 3);
    enter_evidence(back.get(), same_b, 3);
    EXPECT_EQ(belief_bits(back.get()), belief_bits(d.get()));

    if (password != nullptr) {
      EXPECT_NULL_WITH(load(bytes, "wrong"), K_ERROR_BAD_KB_PASSWORD);
      EXPECT_NULL_WITH(load(bytes), K_ERROR_BAD_KB_PASSWORD);
    }
  }
}

TEST(KbFiles, DamagedTruncatedAndMistypedFilesAreRefused) {
  DomainHandle d = shared("asia.net");
  ASSERT_TRUE(d);
  ASSERT_EQ(k_domain_compile(d.get()), 0);
  const std::vector<unsigned char> bytes = save(d.get());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::vector<unsigned char> flipped = bytes;
    flipped[i] ^= 0xFF;
    EXPECT_NULL_WITH(load(flipped), K_ERROR_BAD_KB_FORMAT);
  }
  for (std::size_t n = 0; n < bytes.size(); n += 1 + n / 8)
    EXPECT_NULL_WITH(load(std::vector<unsigned char>(bytes.begin(), bytes.begin() + n)),
                     K_ERROR_BAD_KB_FORMAT);

  // A class collection, and a later layout, with a valid CRC.
  auto patched = [&](std::size_t at, unsigned char value) {
    std::vector<unsigned char> v = bytes;
    v[at] = value;
    const uLong crc = crc32(0L, v.data(), v.size() - 4);
    for (int k = 0; k < 4; ++k) v[v.size() - 4 + k] = static_cast<unsigned char>(crc >> (8 * k));
    return v;
  };
  EXPECT_NULL_WITH(load(patched(10, 2)), K_ERROR_BAD_KB_TYPE);
  EXPECT_NULL_WITH(load(patched(8, 2)), K_ERROR_BAD_KB_VERSION);
  EXPECT_NULL_WITH(k_kb_load_domain("/nonexistent/x.kb", nullptr), K_ERROR_IO);
}

}  // namespace
