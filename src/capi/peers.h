#pragma once

// The peer interface: what the native layer needs of the engine to keep the
// Java peers of engine objects, in terms of C handles.  It is the only
// header of the engine side that src/jni/ sees besides kelva/kelva.h.
//
// The engine's own peer types (PeerContext, PeerField, network/peer.h) stay
// behind it: the context is an opaque struct reached through its slots, and
// a handle field is a plain int that peers.cpp converts (and checks against
// the engine's numbering), so no type is defined on both sides.

#include "kelva/kelva.h"

namespace kelva {

/// A domain's Java bookkeeping; opaque here (see the slot functions below).
struct PeerContext;

}  // namespace kelva

namespace kelva::peers {

/// The handle fields of the Java peer classes ("nodePeer", "tablePeer",
/// "cliquePeer", "jtPeer", "modelPeer"), which also index a context's
/// cached field identifiers.
inline constexpr int kNodeField = 0;
inline constexpr int kTableField = 1;
inline constexpr int kCliqueField = 2;
inline constexpr int kJunctionTreeField = 3;
inline constexpr int kModelField = 4;
inline constexpr int kFieldCount = 5;
/// The field passed for a reference without a handle field (the cached
/// node class, dropped when its domain dies).
inline constexpr int kNoField = -1;

/// The context of the domain behind a handle, or null when the handle is
/// not a live object of its sort.
PeerContext* context_of(k_domain_t domain) noexcept;
PeerContext* context_of(k_class_t cls) noexcept;
PeerContext* context_of(k_node_t node) noexcept;
PeerContext* context_of(k_table_t table) noexcept;
PeerContext* context_of(k_model_t model) noexcept;
PeerContext* context_of(k_junction_tree_t tree) noexcept;
PeerContext* context_of(k_clique_t clique) noexcept;
PeerContext* context_of(k_ambiguous_region_t region) noexcept;
PeerContext* context_of(k_uncertain_edge_t edge) noexcept;

/// The class collection whose classes share a call's JNIEnv with `context`:
/// the collection of the class whose body keeps `context`, or null for an
/// ordinary domain's (or a collection's own) context.
k_class_collection_t collection_of(PeerContext& context) noexcept;

/// Stores `env` in the context of a live collection and of every class body
/// in it, and returns what the collection's context held before (the
/// previous JNIEnv, to put back the same way).  Nothing for a dead handle.
void* set_collection_env(k_class_collection_t cc, void* env) noexcept;

/// The slots of a context: the JNIEnv of the native call in progress (null
/// between calls), the cached identifier of each handle field, and the
/// global reference to the Java node class.
void*& env_slot(PeerContext& context) noexcept;
void*& field_id_slot(PeerContext& context, int field) noexcept;
void*& node_class_slot(PeerContext& context) noexcept;

/// The peer slot of a live object (one context_of accepts): the global
/// reference to its Java peer, or null.
void*& peer_slot(k_node_t node) noexcept;
void*& peer_slot(k_table_t table) noexcept;
void*& peer_slot(k_model_t model) noexcept;
void*& peer_slot(k_junction_tree_t tree) noexcept;
void*& peer_slot(k_clique_t clique) noexcept;

/// How a peer is dropped when its object dies inside an engine call: zero
/// the handle `field` of `ref`'s object (unless kNoField) and delete the
/// global reference `ref`.  Called only while the context holds a JNIEnv.
using DropFn = void (*)(PeerContext& context, int field, void* ref);

/// Installs the drop function (null: peers are only forgotten).
void install_drop(DropFn fn) noexcept;

/// Drops the peer in `ref` (a slot of an object of the context's domain,
/// whose handle field is `field`) as if its object died, and nulls the slot.
void drop(PeerContext& context, int field, void*& ref) noexcept;

/// Exchanges the domain's EM progress call-back and its data with
/// `callback` and `data`, leaving the error code alone.  The domain must be
/// live (context_of is not null).
void exchange_em_progress(k_domain_t domain, k_em_progress_t& callback, void*& data) noexcept;

}  // namespace kelva::peers
