#pragma once

namespace kelva {

class Domain;

/// The Java field that holds an engine object's handle in its peer.
enum class PeerField { node = 0, table = 1, clique = 2, jt = 3, model = 4 };
inline constexpr int kPeerFieldCount = 5;

/// The Java bookkeeping a domain keeps for the native layer, which reaches
/// it through capi/peers.h.  `env` is the JNIEnv of the native call in
/// progress (null between calls: no peer can be dropped then), the others
/// are cached JNI identifiers; the engine reads only `env` and hands
/// `node_class` back when the domain dies.
struct PeerContext {
  void* env = nullptr;
  void* field_ids[kPeerFieldCount] = {};
  void* node_class = nullptr;  // global reference to the Java node class
  /// The domain that keeps the context (null for a class collection's), so
  /// that a call on a class body can give its JNIEnv to the whole collection.
  Domain* domain = nullptr;
};

/// A JNI global reference to an object's Java peer, or null.
using PeerRef = void*;

/// How the native layer drops a peer: zero its handle field (when `field`
/// names one) and delete the global reference.  `field` may be null for
/// references that have no handle field (the cached node class).
using PeerDropFn = void (*)(PeerContext& context, const PeerField* field, PeerRef ref);

/// Installed by the native layer when the library is loaded into a JVM.
void install_peer_drop(PeerDropFn fn) noexcept;

/// Drops `ref` (if any) through the installed function and sets it to null.
/// Without a JNIEnv in `context` or without a native layer it only forgets
/// the reference.
void drop_peer(PeerContext& context, PeerField field, PeerRef& ref) noexcept;

/// Drops the context's cached references (used when a domain dies).
void drop_context(PeerContext& context) noexcept;

}  // namespace kelva
