// Writes a domain as a KB file: sections packed with zlib, the whole
// optionally encrypted (Argon2id key, XChaCha20-Poly1305), and a CRC-32
// trailer over everything before it.
#include <sodium.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <utility>

#include "compile/junction_forest.h"
#include "network/class.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "table/table.h"
#include "text/kb_file.h"
#include "text/kb_format.h"
#include "text/kb_secret.h"
#include "text/net_writer.h"

namespace kelva {

namespace {

using kb::ByteWriter;
using kb::Section;

constexpr std::uint64_t kNoClique = ~std::uint64_t{0};

/// Writes one table: its discrete data (none while it is all zeros and
/// unallocated) and, per configuration, the means, covariances and
/// coefficients of its continuous members.
void put_table(ByteWriter& out, const Table* table) {
  out.u8(table != nullptr);
  if (table == nullptr) return;
  out.u64(table->size());
  out.u64(table->cg_dimension());
  out.u8(table->has_data());
  if (table->has_data()) out.doubles(table->data(), table->size());
  const std::size_t c = table->cg_dimension();
  for (std::uint64_t config = 0; c > 0 && config < table->size(); ++config)
    for (std::size_t i = 0; i < c; ++i) {
      out.f64(table->mean(config, i));
      out.f64(table->coefficient(config, i));
      for (std::size_t j = 0; j < c; ++j) out.f64(table->covariance(config, i, j));
    }
}

/// The NET text with every number at 17 significant digits, so that it
/// reads back to the same bits.
std::string exact_net_text(Domain& domain) {
  struct Digits {
    Domain& d;
    int saved;
    ~Digits() { d.net_digits = saved; }
  } digits{domain, domain.net_digits};
  domain.net_digits = 17;
  TextSink sink;
  write_net_domain(domain, sink);
  return sink.text();
}

void put_settings(ByteWriter& out, const Domain& d) {
  out.u8(static_cast<std::uint8_t>(d.net_digits));
  out.u64(d.node_width);
  out.u64(d.node_height);
  out.u64(d.grain_size);
  out.u64(d.concurrency_level);
  out.f64(d.log_likelihood_tolerance);
  out.u64(d.max_em_iterations);
}

void put_tables(ByteWriter& out, const std::vector<Node*>& nodes) {
  for (const Node* n : nodes) {
    out.u8(n->needs_generation);
    put_table(out, n->table());
    put_table(out, n->experience_table());
    put_table(out, n->fading_table());
  }
}

void put_cases(ByteWriter& out, const Domain& d, const std::vector<Node*>& nodes) {
  const std::size_t n = d.cases.size();
  out.u64(n);
  out.u8(d.cases.counts_set());
  for (std::size_t c = 0; c < n; ++c) out.f64(d.cases.count(c));
  for (const Node* node : nodes) {
    if (node->is_discrete())
      for (std::size_t c = 0; c < n; ++c) out.u16(static_cast<std::uint16_t>(node->cases.state(c)));
    else if (node->is_continuous())
      for (std::size_t c = 0; c < n; ++c) out.f64(node->cases.value(c));
  }
}

void put_evidence(ByteWriter& out, const std::vector<Node*>& nodes) {
  for (const Node* n : nodes) {
    const Evidence& e = n->evidence;
    out.i64(e.entered_code);
    out.doubles(e.entered_code == Evidence::kVector ? e.entered_vector : std::vector<double>());
    out.i64(e.propagated_code);
    out.doubles(e.propagated_code == Evidence::kVector ? e.propagated_vector
                                                       : std::vector<double>());
    out.u8(e.value_entered);
    out.f64(e.entered_value);
    out.u8(e.entered);
    out.u8(e.propagated);
    out.f64(e.propagated_value);
  }
}

/// Whether the propagation state of the forest is saved: a discrete forest
/// without utilities, uncompressed, whose tables are small enough.
bool saves_state(const Domain& d, const Forest& forest) {
  if (!d.is_compiled() || d.is_compressed() || d.continuous_count() > 0 ||
      d.count(K_CATEGORY_UTILITY) + d.count(K_CATEGORY_DECISION) > 0)
    return false;
  std::uint64_t entries = 0;
  for (const auto& c : forest.cliques) entries = sat_add(entries, c->table->size());
  for (const auto& s : forest.separators) entries = sat_add(entries, s->table->size());
  return entries <= kb::kMaxSavedForestEntries;
}

void put_forest(ByteWriter& out, const Domain& d, const std::vector<Node*>& nodes) {
  const Forest* forest = d.forest();
  out.u8(forest != nullptr);
  if (forest == nullptr) return;
  out.u8(d.is_compiled());
  std::unordered_map<const Node*, std::uint64_t> index;
  for (std::size_t i = 0; i < nodes.size(); ++i) index[nodes[i]] = i;
  out.u64(forest->cliques.size());
  for (const auto& c : forest->cliques) {
    out.u64(c->members.size());
    for (const Node* n : c->members) out.u64(index.at(n));
    out.u64(c->parent != nullptr ? c->parent->number : kNoClique);
  }
  out.u64(forest->elimination_order.size());
  for (const Node* n : forest->elimination_order) out.u64(index.at(n));
  out.f64(forest->triangulation_cost);

  const bool state = saves_state(d, *forest);
  out.u8(state);
  if (!state) return;
  for (const auto& t : forest->trees) {
    out.u8(t->needs_initialisation);
    out.u8(static_cast<std::uint8_t>(t->equilibrium));
    out.u8(static_cast<std::uint8_t>(t->mode));
    out.u8(t->evidence_propagated);
    out.u8(t->likelihood_propagated);
    out.u8(t->cg_evidence_propagated);
    out.u8(t->tables_changed);
    out.u8(t->table_changes_seen == d.table_changes());
    out.u64(t->evidence_to_propagate);
    out.f64(t->normalization_constant);
    out.f64(t->log_normalization_constant);
    out.f64(t->conflict);
    out.u64(t->last_root != nullptr ? t->last_root->number : kNoClique);
  }
  for (const auto& c : forest->cliques) {
    out.f64(c->normalization_factor);
    out.f64(c->conflict_factor);
    put_table(out, c->table.get());
  }
  for (const auto& s : forest->separators) put_table(out, s->table.get());
  for (const NodeSlot& slot : forest->nodes) {
    out.doubles(slot.marginal);
    out.doubles(slot.expected_utility);
    out.f64(slot.mean);
    out.f64(slot.variance);
  }
}

/// Appends a section: tag, packing, raw size, packed size and bytes.
void put_section(ByteWriter& out, Section tag, const std::vector<unsigned char>& raw) {
  std::vector<unsigned char> packed(compressBound(raw.size()));
  uLongf packed_size = packed.size();
  const int z =
      compress2(packed.data(), &packed_size, raw.data(), raw.size(), Z_DEFAULT_COMPRESSION);
  if (z == Z_MEM_ERROR) throw Error(K_ERROR_NO_MEMORY);
  const bool deflated = z == Z_OK && packed_size < raw.size();
  out.u32(static_cast<std::uint32_t>(tag));
  out.u8(deflated ? kb::kDeflated : kb::kStored);
  out.u64(raw.size());
  const unsigned char* bytes = deflated ? packed.data() : raw.data();
  const std::size_t size = deflated ? packed_size : raw.size();
  out.u64(size);
  out.bytes.insert(out.bytes.end(), bytes, bytes + size);
}

}  // namespace

namespace kb {

std::vector<unsigned char> seal(Kind kind, const std::vector<unsigned char>& payload,
                                const char* password) {
  const bool secret = password != nullptr && *password != '\0';
  ByteWriter out;
  out.bytes.assign(kMagic, kMagic + sizeof kMagic);
  out.u16(kVersion);
  out.u8(static_cast<std::uint8_t>(kind));
  out.u8(secret ? kFlagProtected : 0);
  out.u32(0);
  if (!secret) {
    out.bytes.insert(out.bytes.end(), payload.begin(), payload.end());
  } else {
    start_crypto();
    const std::size_t head = out.bytes.size();
    out.bytes.resize(head + kSaltSize + kNonceSize);
    unsigned char* salt = out.bytes.data() + head;
    randombytes_buf(salt, kSaltSize);
    randombytes_buf(salt + kSaltSize, kNonceSize);
    const SecretKey key(password, salt);
    const std::size_t ad_size = out.bytes.size();
    out.bytes.resize(ad_size + payload.size() + kTagSize);
    unsigned long long sealed = 0;
    crypto_aead_xchacha20poly1305_ietf_encrypt(out.bytes.data() + ad_size, &sealed, payload.data(),
                                               payload.size(), out.bytes.data(), ad_size, nullptr,
                                               out.bytes.data() + head + kSaltSize, key.bytes);
    out.bytes.resize(ad_size + sealed);
  }
  out.u32(static_cast<std::uint32_t>(crc32(0L, out.bytes.data(), out.bytes.size())));
  return std::move(out.bytes);
}

}  // namespace kb

std::vector<unsigned char> write_kb_domain(Domain& domain, const char* password) {
  const std::vector<Node*> nodes = nodes_in_creation_order(domain);
  ByteWriter body;
  const std::string net = exact_net_text(domain);
  put_section(body, Section::network, std::vector<unsigned char>(net.begin(), net.end()));
  ByteWriter part;
  put_settings(part, domain);
  put_section(body, Section::settings, part.bytes);
  part.bytes.clear();
  put_tables(part, nodes);
  put_section(body, Section::tables, part.bytes);
  part.bytes.clear();
  put_cases(part, domain, nodes);
  put_section(body, Section::cases, part.bytes);
  part.bytes.clear();
  put_evidence(part, nodes);
  put_section(body, Section::evidence, part.bytes);
  part.bytes.clear();
  put_forest(part, domain, nodes);
  put_section(body, Section::forest, part.bytes);
  body.u32(static_cast<std::uint32_t>(Section::end));
  return kb::seal(kb::Kind::domain, body.bytes, password);
}

namespace {

/// The nodes of a class body by name: the order a class file read back
/// gives the same nodes in, whatever order they were made in.
std::vector<Node*> nodes_by_name(const Domain& body) {
  std::vector<Node*> nodes = nodes_in_creation_order(body);
  std::sort(nodes.begin(), nodes.end(),
            [](const Node* a, const Node* b) { return a->name() < b->name(); });
  return nodes;
}

/// The NET text of a collection with every number at 17 significant digits.
std::string exact_net_text(ClassCollection& collection) {
  std::vector<int> saved;
  for (Class* c : collection.members()) saved.push_back(std::exchange(c->body().net_digits, 17));
  struct Restore {
    ClassCollection& cc;
    std::vector<int>& digits;
    ~Restore() {
      for (std::size_t i = 0; i < digits.size(); ++i)
        cc.members()[i]->body().net_digits = digits[i];
    }
  } restore{collection, saved};
  TextSink sink;
  write_net_classes(collection, sink);  // names every node that has none
  return sink.text();
}

}  // namespace

std::vector<unsigned char> write_kb_classes(ClassCollection& collection, const char* password) {
  const std::string net = exact_net_text(collection);
  ByteWriter body;
  put_section(body, Section::network, std::vector<unsigned char>(net.begin(), net.end()));
  ByteWriter settings;
  ByteWriter tables;
  settings.u64(collection.members().size());
  for (const Class* c : collection.members()) {
    settings.text(c->name());
    put_settings(settings, c->body());
    put_tables(tables, nodes_by_name(c->body()));
  }
  put_section(body, Section::settings, settings.bytes);
  put_section(body, Section::tables, tables.bytes);
  body.u32(static_cast<std::uint32_t>(Section::end));
  return kb::seal(kb::Kind::class_collection, body.bytes, password);
}

}  // namespace kelva
