#include "network/peer.h"

#include <atomic>

namespace kelva {

namespace {
std::atomic<PeerDropFn> g_drop{nullptr};
}  // namespace

void install_peer_drop(PeerDropFn fn) noexcept { g_drop.store(fn); }

void drop_peer(PeerContext& context, PeerField field, PeerRef& ref) noexcept {
  if (ref == nullptr) return;
  PeerDropFn fn = g_drop.load();
  if (fn != nullptr && context.env != nullptr) fn(context, &field, ref);
  ref = nullptr;
}

void drop_context(PeerContext& context) noexcept {
  PeerDropFn fn = g_drop.load();
  if (context.node_class != nullptr && fn != nullptr && context.env != nullptr)
    fn(context, nullptr, context.node_class);
  context.node_class = nullptr;
}

}  // namespace kelva
