#include "capi/peers.h"

#include <atomic>
#include <utility>

#include "compile/junction_forest.h"
#include "expr/model.h"
#include "learning/npc.h"
#include "network/class.h"
#include "network/domain.h"
#include "network/node.h"
#include "network/peer.h"
#include "table/table.h"

namespace kelva::peers {

// The fields keep the engine's numbering, so converting is a cast.
static_assert(static_cast<int>(PeerField::node) == kNodeField);
static_assert(static_cast<int>(PeerField::table) == kTableField);
static_assert(static_cast<int>(PeerField::clique) == kCliqueField);
static_assert(static_cast<int>(PeerField::jt) == kJunctionTreeField);
static_assert(static_cast<int>(PeerField::model) == kModelField);
static_assert(kPeerFieldCount == kFieldCount);

namespace {

std::atomic<DropFn> g_drop{nullptr};

// The engine's drop function: hands over to the native layer's.
void drop_through(PeerContext& context, const PeerField* field, PeerRef ref) {
  DropFn fn = g_drop.load();
  if (fn != nullptr) fn(context, field != nullptr ? static_cast<int>(*field) : kNoField, ref);
}

template <class T, class H>
T* live(H handle, ObjectTag tag) noexcept {
  auto* p = reinterpret_cast<T*>(handle);
  return p != nullptr && p->is(tag) ? p : nullptr;
}

}  // namespace

PeerContext* context_of(k_domain_t domain) noexcept {
  Domain* d = live<Domain>(domain, ObjectTag::domain);
  return d != nullptr ? &d->peers() : nullptr;
}

PeerContext* context_of(k_class_t cls) noexcept {
  Domain* d = live<Domain>(cls, ObjectTag::domain);
  return d != nullptr && d->owner_class != nullptr ? &d->peers() : nullptr;
}

PeerContext* context_of(k_node_t node) noexcept {
  Node* n = live<Node>(node, ObjectTag::node);
  return n != nullptr ? &n->domain().peers() : nullptr;
}

PeerContext* context_of(k_table_t table) noexcept {
  Table* t = live<Table>(table, ObjectTag::table);
  return t != nullptr ? &t->domain().peers() : nullptr;
}

PeerContext* context_of(k_model_t model) noexcept {
  Model* m = live<Model>(model, ObjectTag::model);
  return m != nullptr ? &m->owner().domain().peers() : nullptr;
}

PeerContext* context_of(k_junction_tree_t tree) noexcept {
  JunctionTree* t = live<JunctionTree>(tree, ObjectTag::junction_tree);
  return t != nullptr ? &t->domain->peers() : nullptr;
}

PeerContext* context_of(k_clique_t clique) noexcept {
  Clique* c = live<Clique>(clique, ObjectTag::clique);
  return c != nullptr ? &c->tree->domain->peers() : nullptr;
}

PeerContext* context_of(k_ambiguous_region_t region) noexcept {
  AmbiguousRegion* r = live<AmbiguousRegion>(region, ObjectTag::ambiguous_region);
  return r != nullptr ? &r->state->domain->peers() : nullptr;
}

PeerContext* context_of(k_uncertain_edge_t edge) noexcept {
  UncertainEdge* e = live<UncertainEdge>(edge, ObjectTag::uncertain_edge);
  return e != nullptr ? &e->state->domain->peers() : nullptr;
}

k_class_collection_t collection_of(PeerContext& context) noexcept {
  if (context.domain == nullptr || context.domain->owner_class == nullptr) return nullptr;
  return reinterpret_cast<k_class_collection_t>(&context.domain->owner_class->collection());
}

void* set_collection_env(k_class_collection_t cc, void* env) noexcept {
  ClassCollection* c = live<ClassCollection>(cc, ObjectTag::class_collection);
  if (c == nullptr) return nullptr;
  void* previous = std::exchange(c->peers().env, env);
  for (Domain* body : c->bodies()) body->peers().env = env;
  return previous;
}

void*& env_slot(PeerContext& context) noexcept { return context.env; }

void*& field_id_slot(PeerContext& context, int field) noexcept { return context.field_ids[field]; }

void*& node_class_slot(PeerContext& context) noexcept { return context.node_class; }

void*& peer_slot(k_node_t node) noexcept { return reinterpret_cast<Node*>(node)->peer; }

void*& peer_slot(k_table_t table) noexcept { return reinterpret_cast<Table*>(table)->peer; }

void*& peer_slot(k_model_t model) noexcept { return reinterpret_cast<Model*>(model)->peer; }

void*& peer_slot(k_junction_tree_t tree) noexcept {
  return reinterpret_cast<JunctionTree*>(tree)->peer;
}

void*& peer_slot(k_clique_t clique) noexcept { return reinterpret_cast<Clique*>(clique)->peer; }

void install_drop(DropFn fn) noexcept {
  g_drop.store(fn);
  install_peer_drop(fn != nullptr ? &drop_through : nullptr);
}

void drop(PeerContext& context, int field, void*& ref) noexcept {
  drop_peer(context, static_cast<PeerField>(field), ref);
}

void exchange_em_progress(k_domain_t domain, k_em_progress_t& callback, void*& data) noexcept {
  Domain& d = *reinterpret_cast<Domain*>(domain);
  std::swap(d.em_progress, callback);
  std::swap(d.em_progress_data, data);
}

}  // namespace kelva::peers
