// KB files: NET text survives a KB file byte for byte, a propagated domain
// loads with the same beliefs and clique tables, a class collection keeps
// its NET text and exact tables, and damaged, truncated, protected and
// mistyped files of both kinds give their error codes.
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
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

// Two classes, one instantiated twice with a bound and an unbound input,
// continuous and numbered nodes, attributes and a node size.
constexpr const char* kClasses =
    "class Leaf { inputs = (u); outputs = (y);\n"
    "  node u { states = (\"a\" \"b\"); } node y { states = (\"a\" \"b\"); }\n"
    "  potential (u) { data = (0.3 0.7); } potential (y | u) { data = ((0.1 0.9) (0.5 0.5)); } }\n"
    "class Mid { node_size = (80 40); team = \"blue\";\n"
    "  node a { label = \"A\"; position = (3 -4); states = (\"lo\" \"hi\"); }\n"
    "  continuous node c {}\n"
    "  node m { states = (\"x\" \"y\"); subtype = number; state_values = (1 2); }\n"
    "  instance L1 : Leaf (u = a; y = Y1) {} instance L2 : Leaf () {}\n"
    "  potential (m | L1.y L2.y a) {}\n"
    "  potential (c | m) { data = ( normal ( 1 , 2 ) normal ( -1.5 , 0.5 ) ); } }\n";

std::string classes_text(k_class_collection_t cc) {
  char* text = k_cc_to_net_string(cc);
  std::string s = text != nullptr ? text : "";
  std::free(text);
  return s;
}

std::vector<unsigned char> save_classes(k_class_collection_t cc, const char* password = nullptr) {
  size_t size = 0;
  unsigned char* bytes = k_cc_save_to_memory(cc, password, &size);
  EXPECT_NE(bytes, nullptr);
  std::vector<unsigned char> v(bytes, bytes + size);
  std::free(bytes);
  return v;
}

k_class_collection_t load_classes(const std::vector<unsigned char>& v,
                                  const char* password = nullptr) {
  return k_kb_load_class_collection_from_memory(v.data(), v.size(), password);
}

// The table of node `node` of class `cls`.
k_table_t class_table(k_class_collection_t cc, const char* cls, const char* node) {
  auto body = reinterpret_cast<k_domain_t>(k_cc_get_class_by_name(cc, cls));
  return k_node_get_table(k_domain_get_node_by_name(body, node));
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

TEST(KbFiles, ClassCollectionKeepsItsNetTextAndExactTables) {
  k_class_collection_t cc = k_new_class_collection();
  ASSERT_EQ(k_net_parse_classes_string(kClasses, cc, nullptr, nullptr, nullptr, nullptr), 0);
  // A number the class's 3 digits do not carry, which the KB file must.
  const double third = 1.0 / 3.0;
  ASSERT_EQ(k_table_set_data_item(class_table(cc, "Leaf", "u"), 0, third), 0);
  ASSERT_EQ(k_domain_set_net_digits(reinterpret_cast<k_domain_t>(k_cc_get_members(cc)[0]), 3), 0);
  const std::string text = classes_text(cc);
  const std::string path = testing::TempDir() + "classes_" + std::to_string(::getpid()) + ".kb";
  for (const char* password : {static_cast<const char*>(nullptr), "p\xC3\xA4ss"}) {
    ASSERT_EQ(k_cc_save_as_kb(cc, path.c_str(), password), 0);
    k_class_collection_t back = k_kb_load_class_collection(path.c_str(), password);
    ASSERT_NE(back, nullptr) << k_error_name(k_error_code());
    EXPECT_EQ(classes_text(back), text);
    EXPECT_EQ(k_table_get_data_item(class_table(back, "Leaf", "u"), 0), third);
    EXPECT_EQ(k_table_get_data_item(class_table(back, "Mid", "m"), 3), 0.0);
    k_cc_delete(back);
  }
  EXPECT_NULL_WITH(k_kb_load_class_collection(path.c_str(), "pass"), K_ERROR_BAD_KB_PASSWORD);
  std::remove(path.c_str());
  EXPECT_FAILS(k_cc_save_as_kb(cc, "/nonexistent/x.kb", nullptr), K_ERROR_IO);
  EXPECT_NULL_WITH(k_kb_load_class_collection_from_memory(nullptr, 1, nullptr), K_ERROR_USAGE);
  k_cc_delete(cc);
}

TEST(KbFiles, DamagedTruncatedAndMistypedFilesAreRefused) {
  DomainHandle d = shared("asia.net");
  ASSERT_TRUE(d);
  ASSERT_EQ(k_domain_compile(d.get()), 0);
  const std::vector<unsigned char> bytes = save(d.get());
  k_class_collection_t cc = k_new_class_collection();
  ASSERT_EQ(k_net_parse_classes_string(kClasses, cc, nullptr, nullptr, nullptr, nullptr), 0);
  const std::vector<unsigned char> class_bytes = save_classes(cc);
  k_cc_delete(cc);
  // Each kind's file, flipped anywhere or cut short, is damaged; either
  // kind read as the other is of the wrong kind.
  using Loader = std::function<bool(const std::vector<unsigned char>&)>;
  const Loader as_domain = [](const std::vector<unsigned char>& v) {
    k_domain_t back = load(v);
    if (back != nullptr) k_domain_delete(back);
    return back != nullptr;
  };
  const Loader as_classes = [](const std::vector<unsigned char>& v) {
    k_class_collection_t back = load_classes(v);
    if (back != nullptr) k_cc_delete(back);
    return back != nullptr;
  };
  const struct {
    const std::vector<unsigned char>& file;
    const Loader& right;
    const Loader& wrong;
  } kinds[] = {{bytes, as_domain, as_classes}, {class_bytes, as_classes, as_domain}};
  for (const auto& kind : kinds) {
    EXPECT_TRUE(kind.right(kind.file));
    for (std::size_t i = 0; i < kind.file.size(); ++i) {
      std::vector<unsigned char> flipped = kind.file;
      flipped[i] ^= 0xFF;
      EXPECT_FALSE(kind.right(flipped));
      EXPECT_EQ(k_error_code(), K_ERROR_BAD_KB_FORMAT) << i;
    }
    for (std::size_t n = 0; n < kind.file.size(); n += 1 + n / 8) {
      EXPECT_FALSE(
          kind.right(std::vector<unsigned char>(kind.file.begin(), kind.file.begin() + n)));
      EXPECT_EQ(k_error_code(), K_ERROR_BAD_KB_FORMAT) << n;
    }
    EXPECT_FALSE(kind.wrong(kind.file));
    EXPECT_EQ(k_error_code(), K_ERROR_BAD_KB_TYPE);
  }

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
