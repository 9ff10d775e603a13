// Texts of states and numbers shared by the writers, the logs and the
// belief report: quoted strings, printf-formatted numbers, state values and
// the case-file form of a selected state.
#include "network/state_text.h"

#include <cfloat>
#include <cstdio>
#include <cstring>

#include "network/node.h"

namespace kelva {

std::string quote_net_string(const std::string& text) {
  std::string out = "\"";
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    switch (c) {
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      default:
        if (c >= 0x20 && c < 0x7f) {
          out += static_cast<char>(c);
        } else {
          // Three digits when an octal digit follows, so that it stays out
          // of the escape.
          const char next = i + 1 < text.size() ? text[i + 1] : '\0';
          char buffer[8];
          std::snprintf(buffer, sizeof buffer, next >= '0' && next <= '7' ? "\\%03o" : "\\%o",
                        static_cast<unsigned>(c));
          out += buffer;
        }
    }
  }
  out += '"';
  return out;
}

std::string format_number(const char* format, double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, value);
  return buffer;
}

std::string format_number(const char* format, double value, int digits) {
  if (digits == 0) return format_number(format, value);
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.*G", digits, value);
  return buffer;
}

std::string format_state_value(double value, int digits) {
  if (value <= -DBL_MAX) return "-infinity";
  if (value >= DBL_MAX) return "infinity";
  return format_number("%.8G", value, digits);
}

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
