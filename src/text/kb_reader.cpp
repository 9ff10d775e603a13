// Reads a KB file: checks the envelope (magic, CRC, version, kind,
// password), unpacks the sections and rebuilds the domain and its junction
// forest from them.  Every count is checked against the bytes left before
// anything is allocated for it.
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <unordered_map>

#include "compile/compile_log.h"
#include "compile/junction_forest.h"
#include "inference/propagate.h"
#include "network/class.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "table/table.h"
#include "text/kb_file.h"
#include "text/kb_format.h"
#include "text/kb_secret.h"
#include "text/net_reader.h"
#include "text/net_writer.h"

namespace kelva {

namespace kb {

std::vector<unsigned char> open(const unsigned char* data, std::size_t size, Kind kind,
                                const char* password) {
  if (data == nullptr || size < kHeaderSize + kCrcSize ||
      std::memcmp(data, kMagic, sizeof kMagic) != 0)
    damaged();
  const std::size_t body_end = size - kCrcSize;
  ByteReader trailer(data + body_end, kCrcSize);
  if (trailer.u32() != static_cast<std::uint32_t>(crc32(0L, data, body_end))) damaged();
  ByteReader head(data + sizeof kMagic, kHeaderSize - sizeof kMagic);
  if (head.u16() != kVersion) throw Error(K_ERROR_BAD_KB_VERSION);
  const std::uint8_t file_kind = head.u8();
  const std::uint8_t flags = head.u8();
  if ((file_kind != 1 && file_kind != 2) || (flags & ~kFlagProtected) != 0 || head.u32() != 0)
    damaged();
  if (file_kind != static_cast<std::uint8_t>(kind)) throw Error(K_ERROR_BAD_KB_TYPE);
  if ((flags & kFlagProtected) == 0) return {data + kHeaderSize, data + body_end};

  const std::size_t ad_size = kHeaderSize + kSaltSize + kNonceSize;
  if (body_end < ad_size + kTagSize) damaged();
  if (password == nullptr || *password == '\0') throw Error(K_ERROR_BAD_KB_PASSWORD);
  const SecretKey key(password, data + kHeaderSize);
  std::vector<unsigned char> payload(body_end - ad_size - kTagSize);
  unsigned long long opened = 0;
  if (crypto_aead_xchacha20poly1305_ietf_decrypt(payload.data(), &opened, nullptr, data + ad_size,
                                                 body_end - ad_size, data, ad_size,
                                                 data + kHeaderSize + kSaltSize, key.bytes) != 0)
    throw Error(K_ERROR_BAD_KB_PASSWORD);  // the CRC held, so the bytes are as written
  payload.resize(opened);
  return payload;
}

}  // namespace kb

namespace {

using kb::ByteReader;
using kb::damaged;
using kb::Section;

constexpr std::uint64_t kNoClique = ~std::uint64_t{0};

/// The unpacked bytes of the next section, which must be `tag`.
std::vector<unsigned char> take_section(ByteReader& in, Section tag) {
  if (in.u32() != static_cast<std::uint32_t>(tag)) damaged();
  const std::uint8_t packing = in.u8();
  const std::uint64_t raw_size = in.u64();
  const std::size_t packed_size = in.count(1);
  const unsigned char* packed = in.bytes(packed_size);
  if (packing == kb::kStored) {
    if (raw_size != packed_size) damaged();
    return {packed, packed + packed_size};
  }
  if (packing != kb::kDeflated || raw_size > packed_size * kb::kMaxInflateRatio + 64) damaged();
  std::vector<unsigned char> raw(raw_size);
  uLongf size = raw_size;
  const int z = uncompress(raw.data(), &size, packed, packed_size);
  if (z == Z_MEM_ERROR) throw Error(K_ERROR_NO_MEMORY);
  if (z != Z_OK || size != raw_size) damaged();
  return raw;
}

/// The next number, which must be finite.
double finite_number(ByteReader& in) {
  const double x = in.f64();
  if (!std::isfinite(x)) damaged();
  return x;
}

/// Reads what put_table wrote into `table` (which must exist exactly when
/// the file says so, with the same size and number of continuous nodes).
/// The numbers of a `flat_probability` table must not be negative.
/// With `absent_ok` a table the file says was absent may exist: a class
/// node without a table is written with a potential of zeros, which the
/// reader turns into a table.
void get_table(ByteReader& in, Table* table, bool flat_probability = false,
               bool absent_ok = false) {
  const bool present = in.flag();
  if (!present && absent_ok) return;
  if (present != (table != nullptr)) damaged();
  if (table == nullptr) return;
  const std::uint64_t size = in.u64();
  const std::uint64_t c = in.u64();
  if (size != table->size() || c != table->cg_dimension()) damaged();
  if (in.flag()) {
    if (size > (in.left() - std::min<std::size_t>(in.left(), 8)) / 8) damaged();
    in.doubles_into(table->data(), size);
    // Only numbers a NET file can hold: the domain must save again.
    for (std::uint64_t k = 0; k < size; ++k)
      if (!std::isfinite(table->data()[k]) || (flat_probability && table->data()[k] < 0.0))
        damaged();
  }
  if (c == 0) return;
  if (size > in.left() / ((c + 2) * c * 8)) damaged();
  for (std::uint64_t config = 0; config < size; ++config)
    for (std::size_t i = 0; i < c; ++i) {
      table->set_mean(config, i, finite_number(in));
      table->set_coefficient(config, i, finite_number(in));
      for (std::size_t j = 0; j < c; ++j) {
        const double x = finite_number(in);
        // A variance is never negative, as the NET reader requires.
        if (i == j && x < 0.0) damaged();
        table->set_covariance(config, i, j, x);
      }
    }
}

void get_settings(ByteReader& in, Domain& d) {
  const int digits = in.u8();
  if (digits > 17) damaged();
  d.net_digits = digits;
  d.node_width = in.u64();
  d.node_height = in.u64();
  d.grain_size = in.u64();
  d.concurrency_level = in.u64();
  if (d.grain_size == 0 || d.concurrency_level == 0) damaged();
  d.log_likelihood_tolerance = in.f64();
  if (!(d.log_likelihood_tolerance > 0.0) || std::isinf(d.log_likelihood_tolerance)) damaged();
  d.max_em_iterations = in.u64();
}

void get_tables(ByteReader& in, const std::vector<Node*>& nodes, bool absent_ok = false) {
  for (Node* n : nodes) {
    n->needs_generation = in.flag();
    // The NET text refuses a negative probability only in a flat table, the
    // form it takes for a node without parents.
    Table* table = n->table();
    get_table(in, table,
              n->category() == K_CATEGORY_CHANCE && n->is_discrete() && table != nullptr &&
                  table->nodes().size() <= 1,
              absent_ok);
    get_table(in, n->experience_table(), false, absent_ok);
    get_table(in, n->fading_table(), false, absent_ok);
  }
}

void get_cases(ByteReader& in, Domain& d, const std::vector<Node*>& nodes) {
  const std::size_t n = in.count(8);
  const bool counts_set = in.flag();
  std::vector<double> counts(n);
  for (double& c : counts) {
    c = in.f64();
    if (!(c >= 0.0) || std::isinf(c)) damaged();
  }
  d.set_number_of_cases(n);
  for (std::size_t c = 0; c < n; ++c)
    if (counts_set) d.cases.set_count(c, counts[c]);
  d.cases.set_counts_set(counts_set && n > 0);
  for (Node* node : nodes) {
    if (node->is_discrete()) {
      if (n > in.left() / 2) damaged();
      for (std::size_t c = 0; c < n; ++c) {
        const auto s = static_cast<std::int16_t>(in.u16());
        if (s < -1 || (s >= 0 && static_cast<std::size_t>(s) >= node->state_count())) damaged();
        if (s >= 0) node->cases.set_state(c, s);
      }
    } else if (node->is_continuous()) {
      if (n > in.left() / 8) damaged();
      for (std::size_t c = 0; c < n; ++c) {
        const double v = in.f64();
        if (!std::isnan(v)) node->cases.set_value(c, v);
      }
    }
  }
}

/// An evidence code of `node`, with its vector when the code says so.
std::int64_t get_code(ByteReader& in, const Node& node, std::vector<double>& vector) {
  const std::int64_t code = in.i64();
  std::vector<double> values = in.doubles();
  const auto states = static_cast<std::int64_t>(node.state_count());
  if (code < Evidence::kVector || (!node.is_discrete() && code != Evidence::kNone) ||
      code >= states)
    damaged();
  if ((code == Evidence::kVector) != (values.size() == node.state_count() && !values.empty()))
    damaged();
  if (!values.empty()) vector = std::move(values);
  return code;
}

void get_evidence(ByteReader& in, const std::vector<Node*>& nodes) {
  for (Node* n : nodes) {
    Evidence& e = n->evidence;
    e.entered_code = get_code(in, *n, e.entered_vector);
    e.propagated_code = get_code(in, *n, e.propagated_vector);
    e.value_entered = in.flag();
    e.entered_value = in.f64();
    e.entered = in.flag();
    e.propagated = in.flag();
    e.propagated_value = in.f64();
    if (!n->is_continuous() && (e.entered || e.propagated)) damaged();
  }
}

/// A list of distinct participating nodes given by their indexes.
std::vector<Node*> get_members(ByteReader& in, const std::vector<Node*>& nodes,
                               std::vector<std::uint64_t>& stamp, std::uint64_t mark) {
  std::vector<Node*> members(in.count(8));
  for (Node*& m : members) {
    const std::uint64_t i = in.u64();
    if (i >= nodes.size() || stamp[i] == mark || nodes[i]->kind() == K_KIND_OTHER) damaged();
    stamp[i] = mark;
    m = nodes[i];
  }
  return members;
}

/// Rebuilds the forest from the saved cliques (the build orders and links
/// them as it did when the file was written; anything else is damage) and
/// restores its propagation state when the file has it.
void get_forest(ByteReader& in, Domain& d, const std::vector<Node*>& nodes) {
  if (!in.flag()) {
    for (Node* n : nodes) n->evidence.forget_propagated();
    return;
  }
  const bool compiled = in.flag();
  std::vector<std::uint64_t> stamp(nodes.size(), 0);
  std::vector<bool> seen(nodes.size(), false);
  Triangulation t;
  std::vector<std::uint64_t> parents;
  t.cliques.resize(in.count(16));
  for (std::size_t c = 0; c < t.cliques.size(); ++c) {
    t.cliques[c] = get_members(in, nodes, stamp, c + 1);
    const std::uint64_t parent = in.u64();
    if (t.cliques[c].empty() || (parent != kNoClique && parent >= c)) damaged();
    parents.push_back(parent);
  }
  // Running intersection: a node met in an earlier clique is in the parent.
  std::unordered_map<const Node*, std::size_t> index;
  for (std::size_t i = 0; i < nodes.size(); ++i) index[nodes[i]] = i;
  for (std::size_t c = 0; c < t.cliques.size(); ++c) {
    for (Node* n : t.cliques[c]) {
      const std::size_t i = index[n];
      if (seen[i]) {
        if (parents[c] == kNoClique) damaged();
        const auto& p = t.cliques[parents[c]];
        if (std::find(p.begin(), p.end(), n) == p.end()) damaged();
      }
    }
    for (Node* n : t.cliques[c]) seen[index[n]] = true;
  }
  t.elimination_order = get_members(in, nodes, stamp, t.cliques.size() + 1);
  if (t.elimination_order.size() != d.discrete_count() + d.continuous_count()) damaged();
  t.cost = in.f64();

  CompileLog log(nullptr);
  ForestPtr built = build_junction_forest(d, t, log);
  Forest& forest = *built;
  if (forest.cliques.size() != t.cliques.size()) damaged();
  for (std::size_t c = 0; c < t.cliques.size(); ++c) {
    const Clique& clique = *forest.cliques[c];
    const std::vector<Node*> members(clique.members.data(),
                                     clique.members.data() + clique.members.size());
    if (members != t.cliques[c]) damaged();
    if ((clique.parent != nullptr ? clique.parent->number : kNoClique) != parents[c]) damaged();
  }
  d.install_forest(std::move(built));
  d.set_compiled(compiled);

  if (!in.flag()) {
    if (compiled) initialise_domain(d);
    else
      for (Node* n : nodes) n->evidence.forget_propagated();
    return;
  }
  if (!compiled) damaged();
  for (const auto& tree : forest.trees) {
    JunctionTree& t2 = *tree;
    t2.needs_initialisation = in.flag();
    const std::uint8_t equilibrium = in.u8();
    const std::uint8_t mode = in.u8();
    if (equilibrium < K_EQUILIBRIUM_NONE || equilibrium > K_EQUILIBRIUM_MAX ||
        (mode != K_MODE_NORMAL && mode != K_MODE_FAST_RETRACTION))
      damaged();
    t2.equilibrium = static_cast<k_equilibrium_t>(equilibrium);
    t2.mode = static_cast<k_evidence_mode_t>(mode);
    t2.evidence_propagated = in.flag();
    t2.likelihood_propagated = in.flag();
    t2.cg_evidence_propagated = in.flag();
    t2.tables_changed = in.flag();
    t2.table_changes_seen = in.flag() ? d.table_changes() : d.table_changes() + 1;
    t2.evidence_to_propagate = in.u64();
    if (t2.evidence_to_propagate > nodes.size()) damaged();
    t2.normalization_constant = in.f64();
    t2.log_normalization_constant = in.f64();
    t2.conflict = in.f64();
    const std::uint64_t root = in.u64();
    if (root != kNoClique && (root >= forest.cliques.size() || forest.cliques[root]->tree != &t2))
      damaged();
    t2.last_root = root != kNoClique ? forest.cliques[root].get() : nullptr;
  }
  for (const auto& c : forest.cliques) {
    c->normalization_factor = in.f64();
    c->conflict_factor = in.f64();
    get_table(in, c->table.get());
  }
  for (const auto& s : forest.separators) get_table(in, s->table.get());
  for (NodeSlot& slot : forest.nodes) {
    slot.marginal = in.doubles();
    slot.expected_utility = in.doubles();
    slot.mean = in.f64();
    slot.variance = in.f64();
    const std::size_t states = slot.node->is_discrete() ? slot.node->state_count() : 0;
    if ((!slot.marginal.empty() && slot.marginal.size() != states) ||
        !slot.expected_utility.empty())
      damaged();
  }
}

std::unique_ptr<Domain> read_sections(const std::vector<unsigned char>& payload) {
  ByteReader in(payload.data(), payload.size());
  const std::vector<unsigned char> net = take_section(in, Section::network);
  const std::string text(net.begin(), net.end());
  if (text.find('\0') != std::string::npos) damaged();
  std::unique_ptr<Domain> d(read_net_domain(text.c_str(), nullptr, nullptr));
  const std::vector<Node*> nodes = nodes_in_creation_order(*d);
  auto section = [&](Section tag, auto&& read) {
    const std::vector<unsigned char> bytes = take_section(in, tag);
    ByteReader part(bytes.data(), bytes.size());
    read(part);
    if (!part.at_end()) damaged();
  };
  section(Section::settings, [&](ByteReader& r) { get_settings(r, *d); });
  section(Section::tables, [&](ByteReader& r) { get_tables(r, nodes); });
  section(Section::cases, [&](ByteReader& r) { get_cases(r, *d, nodes); });
  section(Section::evidence, [&](ByteReader& r) { get_evidence(r, nodes); });
  section(Section::forest, [&](ByteReader& r) { get_forest(r, *d, nodes); });
  if (in.u32() != static_cast<std::uint32_t>(Section::end) || !in.at_end()) damaged();
  return d;
}

}  // namespace

Domain* read_kb_domain(const unsigned char* data, std::size_t size, const char* password) {
  const std::vector<unsigned char> payload = kb::open(data, size, kb::Kind::domain, password);
  try {
    return read_sections(payload).release();
  } catch (const Error& e) {
    // Sections that pass the CRC but do not make a domain were not written
    // by this writer: the file is not a valid KB file.
    if (e.code() == K_ERROR_NO_MEMORY || e.code() == K_ERROR_BAD_KB_FORMAT) throw;
    throw Error(K_ERROR_BAD_KB_FORMAT);
  }
}

namespace {

/// The nodes of a class body by name, as the writer put their tables.
std::vector<Node*> nodes_by_name(const Domain& body) {
  std::vector<Node*> nodes = nodes_in_creation_order(body);
  std::sort(nodes.begin(), nodes.end(),
            [](const Node* a, const Node* b) { return a->name() < b->name(); });
  return nodes;
}

std::unique_ptr<ClassCollection> read_class_sections(const std::vector<unsigned char>& payload) {
  ByteReader in(payload.data(), payload.size());
  const std::vector<unsigned char> net = take_section(in, Section::network);
  const std::string text(net.begin(), net.end());
  if (text.find('\0') != std::string::npos) damaged();
  auto cc = std::make_unique<ClassCollection>();
  read_net_classes(text.c_str(), *cc, ClassLoader{}, nullptr, nullptr);
  const std::vector<unsigned char> settings_bytes = take_section(in, Section::settings);
  const std::vector<unsigned char> tables_bytes = take_section(in, Section::tables);
  ByteReader settings(settings_bytes.data(), settings_bytes.size());
  ByteReader tables(tables_bytes.data(), tables_bytes.size());
  if (settings.u64() != cc->members().size()) damaged();
  for (std::size_t i = 0; i < cc->members().size(); ++i) {
    Class* c = cc->find(settings.text());
    if (c == nullptr) damaged();
    get_settings(settings, c->body());
    get_tables(tables, nodes_by_name(c->body()), true);
  }
  if (!settings.at_end() || !tables.at_end()) damaged();
  if (in.u32() != static_cast<std::uint32_t>(Section::end) || !in.at_end()) damaged();
  return cc;
}

}  // namespace

ClassCollection* read_kb_classes(const unsigned char* data, std::size_t size,
                                 const char* password) {
  const std::vector<unsigned char> payload =
      kb::open(data, size, kb::Kind::class_collection, password);
  try {
    return read_class_sections(payload).release();
  } catch (const Error& e) {
    // As for a domain: sections that pass the CRC but make no collection.
    if (e.code() == K_ERROR_NO_MEMORY || e.code() == K_ERROR_BAD_KB_FORMAT) throw;
    throw Error(K_ERROR_BAD_KB_FORMAT);
  }
}

}  // namespace kelva
