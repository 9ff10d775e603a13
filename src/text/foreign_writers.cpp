// The BIF and XMLBIF writers.  Numbers are written in their shortest exact
// form, so a file read back holds the same doubles.
#include <string>

#include "network/domain.h"
#include "text/foreign_net.h"

namespace kelva {
namespace {

// A name or state as a BIF word: bare when the reader takes it back as one
// word, else quoted.
std::string bif_word(const std::string& text) {
  bool bare =
      !text.empty() && text.find("//") == std::string::npos && text.find("/*") == std::string::npos;
  for (const char c : text)
    if (std::string_view(" \t\r\n\f\v{}()[];,|\"").find(c) != std::string_view::npos) bare = false;
  if (bare) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

void append_values(std::string& out, const double* from, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) out += ", ";
    out += exact_number(from[i]);
  }
}

std::string xml_text(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&apos;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace

std::string write_bif_domain(const Domain& domain) {
  const ForeignNet net = describe_domain(domain);
  std::string out = "network unknown {\n}\n";
  for (const ForeignVariable& v : net.variables) {
    out += "variable " + bif_word(v.name) + " {\n  type discrete [ " +
           std::to_string(v.states.size()) + " ] { ";
    for (std::size_t s = 0; s < v.states.size(); ++s)
      (out += s > 0 ? ", " : "") += bif_word(v.states[s]);
    out += " };\n}\n";
  }
  for (const ForeignTable& t : net.tables) {
    const std::size_t width = net.variables[t.child].states.size();
    out += "probability ( " + bif_word(net.variables[t.child].name);
    for (std::size_t k = 0; k < t.parents.size(); ++k)
      (out += k == 0 ? " | " : ", ") += bif_word(net.variables[t.parents[k]].name);
    out += " ) {\n";
    if (t.parents.empty()) {
      out += "  table ";
      append_values(out, t.values.data(), width);
      out += ";\n";
    } else {
      std::vector<std::size_t> digit(t.parents.size(), 0);
      for (std::size_t row = 0; row * width < t.values.size(); ++row) {
        out += "  (";
        for (std::size_t k = 0; k < t.parents.size(); ++k)
          (out += k > 0 ? ", " : "") += bif_word(net.variables[t.parents[k]].states[digit[k]]);
        out += ") ";
        append_values(out, t.values.data() + row * width, width);
        out += ";\n";
        for (std::size_t k = t.parents.size(); k-- > 0;) {
          if (++digit[k] < net.variables[t.parents[k]].states.size()) break;
          digit[k] = 0;
        }
      }
    }
    out += "}\n";
  }
  return out;
}

// GIVEN elements in parent order; the first varies slowest in the TABLE.
std::string write_xmlbif_domain(const Domain& domain) {
  const ForeignNet net = describe_domain(domain);
  std::string out =
      "<?xml version=\"1.0\"?>\n<BIF VERSION=\"0.3\">\n<NETWORK>\n<NAME>unknown</NAME>\n";
  for (const ForeignVariable& v : net.variables) {
    out += "<VARIABLE TYPE=\"nature\">\n\t<NAME>" + xml_text(v.name) + "</NAME>\n";
    for (const std::string& s : v.states) out += "\t<OUTCOME>" + xml_text(s) + "</OUTCOME>\n";
    out += "</VARIABLE>\n";
  }
  for (const ForeignTable& t : net.tables) {
    out += "<DEFINITION>\n\t<FOR>" + xml_text(net.variables[t.child].name) + "</FOR>\n";
    for (std::size_t k = 0; k < t.parents.size(); ++k)
      out += "\t<GIVEN>" + xml_text(net.variables[t.parents[k]].name) + "</GIVEN>\n";
    out += "\t<TABLE>";
    for (std::size_t i = 0; i < t.values.size(); ++i)
      (out += i > 0 ? " " : "") += exact_number(t.values[i]);
    out += "</TABLE>\n</DEFINITION>\n";
  }
  out += "</NETWORK>\n</BIF>\n";
  return out;
}

}  // namespace kelva
