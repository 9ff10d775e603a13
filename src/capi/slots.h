#pragma once

#include "compile/junction_forest.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva::capi {

/// The forest record of a node of a compiled domain whose tree holds an
/// equilibrium; not_compiled or no_equilibrium otherwise.
inline const NodeSlot& propagated_slot(Node& n) {
  require(n.domain().is_compiled(), K_ERROR_NOT_COMPILED);
  const NodeSlot* slot = n.domain().forest()->slot(n);
  require(slot != nullptr && slot->tree != nullptr, K_ERROR_NOT_COMPILED);
  require(slot->tree->equilibrium != K_EQUILIBRIUM_NONE, K_ERROR_NO_EQUILIBRIUM);
  return *slot;
}

}  // namespace kelva::capi
