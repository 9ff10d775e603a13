#include "network/domain.h"

#include <cstdio>

#include "network/class.h"
#include "network/dbn_layout.h"
#include "network/error.h"
#include "network/names.h"
#include "network/node.h"
#include "platform/file.h"

namespace kelva {

namespace {

// Index of a category in the per-category counters.
int category_slot(k_category_t category) noexcept {
  switch (category) {
    case K_CATEGORY_FUNCTION:
      return 0;
    case K_CATEGORY_INSTANCE:
      return 1;
    case K_CATEGORY_CHANCE:
      return 2;
    case K_CATEGORY_DECISION:
      return 3;
    case K_CATEGORY_UTILITY:
      return 4;
    default:
      return -1;
  }
}

}  // namespace

Domain::Domain() : Object(ObjectTag::domain) { peers_.domain = this; }

Domain::~Domain() {
  // Tables that refer to nodes go first, while the Java context still stands.
  uncompile();
  chain_components.clear();
  for (Table* t : free_tables_) Destroy<Table>{}(t);
  free_tables_.clear();
  if (unfolded_from != nullptr) unfolded_from->remove_unfolded(*this);
  while (first_ != nullptr) destroy_node(first_);
  drop_context(peers_);
  if (log_ != nullptr) std::fclose(log_);
}

void Domain::install_forest(ForestPtr forest) noexcept {
  forest_ = std::move(forest);
  ++forest_serial_;
  compiled_ = false;
  compressed_ = false;
}

void Domain::uncompile() noexcept {
  compiled_ = false;
  compressed_ = false;
  if (forest_ == nullptr) return;
  forest_.reset();  // the forest clears the nodes' slots
  // What was propagated went with the forest; entered evidence stays.
  for (Node* n = first_; n != nullptr; n = n->next) n->evidence.forget_propagated();
}

std::uint64_t Domain::count(k_category_t category) const noexcept {
  const int slot = category_slot(category);
  return slot < 0 ? 0 : by_category_[slot];
}

Node* Domain::new_node(k_category_t category, k_kind_t kind, k_subtype_t subtype) {
  // Which combinations are nodes at all.
  require(category_slot(category) >= 0);
  switch (category) {
    case K_CATEGORY_CHANCE:
      require(kind == K_KIND_DISCRETE || kind == K_KIND_CONTINUOUS);
      break;
    case K_CATEGORY_DECISION:
      require(kind == K_KIND_DISCRETE);
      break;
    case K_CATEGORY_UTILITY:
    case K_CATEGORY_INSTANCE:
      require(kind == K_KIND_OTHER);
      break;
    case K_CATEGORY_FUNCTION:
      require(kind == K_KIND_DISCRETE || kind == K_KIND_OTHER);
      break;
    default:
      break;
  }
  if (kind == K_KIND_DISCRETE) require(subtype >= K_SUBTYPE_LABEL && subtype <= K_SUBTYPE_INTERVAL);
  // Instance nodes stand only in classes.
  require(category != K_CATEGORY_INSTANCE || is_class());

  const bool has_limid = count(K_CATEGORY_DECISION) + count(K_CATEGORY_UTILITY) > 0;
  const bool continuous = kind == K_KIND_CONTINUOUS || continuous_ > 0;
  if (category == K_CATEGORY_CHANCE) {
    if (has_limid && continuous) throw Error(K_ERROR_CG_LIMIDS_NOT_SUPPORTED);
  } else if (category != K_CATEGORY_FUNCTION && category != K_CATEGORY_INSTANCE) {
    if (continuous) throw Error(K_ERROR_CG_LIMIDS_NOT_SUPPORTED);
  }
  // A new decision or utility node has no links yet, so it cannot close a
  // cycle of function-node dependencies: the test always passes here.

  auto node = std::make_unique<Node>(*this, category, kind, subtype, counter_ + 1);
  ++counter_;
  ++by_category_[category_slot(category)];
  if (kind == K_KIND_DISCRETE) ++discrete_;
  if (kind == K_KIND_CONTINUOUS) ++continuous_;
  // Neither the junction forest nor the initial triangulation covers the
  // new node.
  uncompile();
  initial_triangulation.clear();
  Node* raw = node.release();
  insert_at_head(raw);
  return raw;
}

void Domain::insert_at_head(Node* node) noexcept {
  node->next = first_;
  node->prev = nullptr;
  if (first_ != nullptr) first_->prev = node;
  first_ = node;
}

void Domain::destroy_node(Node* node) noexcept {
  if (owner_class != nullptr) owner_class->collection().forget_sources();
  if (node->prev != nullptr) node->prev->next = node->next;
  else first_ = node->next;
  if (node->next != nullptr) node->next->prev = node->prev;
  if (node->has_name()) names_.erase(node->name());
  initial_triangulation.clear();
  std::erase(ijt_nodes, node);
  dbn.reset();
  --by_category_[category_slot(node->category())];
  if (node->is_discrete()) --discrete_;
  if (node->is_continuous()) --continuous_;
  drop_peer(peers_, PeerField::node, node->peer);
  delete node;
}

Node* Domain::find(const std::string& name) const noexcept {
  auto it = names_.find(name);
  return it == names_.end() ? nullptr : it->second;
}

void Domain::rename(Node& node, const char* name) {
  require(name != nullptr);
  if (node.has_name() && node.name() == name) return;
  if (find(name) != nullptr) throw Error(K_ERROR_TWICE);
  if (!is_valid_name(name, !is_class())) throw Error(K_ERROR_INVALID_NAME);
  std::string copy(name);
  names_.emplace(copy, &node);  // may throw: nothing changed yet
  if (node.has_name()) names_.erase(node.name());
  node.name_ = std::move(copy);
}

void Domain::set_log_file(const char* file_name, bool append) {
  if (file_name == nullptr) {
    std::FILE* old = log_;
    log_ = nullptr;
    if (old != nullptr && std::fclose(old) != 0) throw Error(K_ERROR_IO);
    return;
  }
  std::FILE* f = platform::open_file(file_name, append ? "a" : "w");
  if (f == nullptr) throw Error(K_ERROR_IO);
  // A null buffer lets stdio allocate the 512 bytes and free them at fclose.
  if (std::setvbuf(f, nullptr, _IOLBF, 512) != 0) {
    std::fclose(f);
    throw Error(K_ERROR_IO);
  }
  std::FILE* old = log_;
  log_ = f;
  if (old != nullptr && std::fclose(old) != 0) throw Error(K_ERROR_IO);
}

void Domain::adopt_free_table(Table* table) { free_tables_.insert(table); }

void Domain::release_free_table(Table* table) noexcept { free_tables_.erase(table); }

}  // namespace kelva

namespace kelva {

void Domain::set_number_of_cases(std::size_t n) {
  cases.resize(n);
  for (Node* node = first_; node; node = node->next) node->cases.truncate(n);
}

void Domain::erase_case(std::size_t c) noexcept {
  if (c >= cases.size()) return;
  cases.erase(c);
  for (Node* node = first_; node; node = node->next) node->cases.erase(c);
}

}  // namespace kelva
