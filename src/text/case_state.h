#pragma once

#include <cstddef>
#include <string>

namespace kelva {

class Node;

/// State `state` of discrete `node` as case files write a selected state:
/// the quoted label of a label node when it is non-empty and no other state
/// has it, "false"/"true" for a boolean node, the state value ("%G") of a
/// number node whose values increase, and "#" with the index otherwise.
/// The caller holds the "C" locale.
std::string case_state_text(const Node& node, std::size_t state);

}  // namespace kelva
