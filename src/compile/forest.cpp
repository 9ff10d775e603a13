#include "compile/junction_forest.h"

namespace kelva {

Forest::Forest(Domain& owner) : domain(&owner) {
  Destroy<Forest>::registered = [](Forest* forest) noexcept { delete forest; };
}

Forest::~Forest() {
  for (NodeSlot& slot : nodes)
    if (slot.node != nullptr) slot.node->forest_slot = Node::kNoSlot;
  PeerContext& peers = domain->peers();
  for (auto& clique : cliques) drop_peer(peers, PeerField::clique, clique->peer);
  for (auto& tree : trees) drop_peer(peers, PeerField::jt, tree->peer);
  // Separators and cliques hold tables over nodes; they go before the trees.
  separators.clear();
  cliques.clear();
  trees.clear();
}

JunctionTree* Forest::next(const JunctionTree* tree) const noexcept {
  for (std::size_t i = 0; i + 1 < trees.size(); ++i)
    if (trees[i].get() == tree) return trees[i + 1].get();
  return nullptr;
}

}  // namespace kelva
