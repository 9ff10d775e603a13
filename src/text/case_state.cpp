#include "text/case_state.h"

#include <cstring>

#include "model/node.h"
#include "text/net_writer.h"

namespace kelva {

namespace {

/// True when no state of `node` but `state` carries its label.
bool label_is_unique(const Node& node, std::size_t state) {
  const char* label = node.state_label(state);
  for (std::size_t i = 0; i < node.state_count(); ++i)
    if (i != state && std::strcmp(node.state_label(i), label) == 0) return false;
  return true;
}

/// True when the state values of a number node increase strictly, so that a
/// value names one state (what the case reader demands).
bool values_increase(const Node& node) {
  for (std::size_t i = 1; i < node.state_count(); ++i)
    if (!(node.state_value(i - 1) < node.state_value(i))) return false;
  return true;
}

}  // namespace

std::string case_state_text(const Node& node, std::size_t state) {
  switch (node.subtype()) {
    case K_SUBTYPE_LABEL:
      if (node.state_label(state)[0] != '\0' && label_is_unique(node, state))
        return quote_net_string(node.state_label(state));
      break;
    case K_SUBTYPE_BOOLEAN:
      return state == 0 ? "false" : "true";
    case K_SUBTYPE_NUMBER:
      if (values_increase(node)) return format_number("%G", node.state_value(state));
      break;
    default:
      break;
  }
  std::string text = "#";
  text += std::to_string(state);
  return text;
}

}  // namespace kelva
