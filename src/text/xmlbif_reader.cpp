// The XMLBIF reader, over a small XML tokenizer of its own: elements,
// attributes, text with the predefined and numeric entities, comments,
// processing instructions, declarations and CDATA sections.  Elements the
// format does not define are skipped with what they hold.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "network/domain.h"
#include "text/foreign_net.h"
#include "text/foreign_scanner.h"

namespace kelva {
namespace {

struct XmlEvent {
  enum class Kind { start, end, chars, eof } kind = Kind::eof;
  std::string name;  // of an element, upper case
  std::string text;  // of a text run, entities decoded
  std::vector<std::pair<std::string, std::string>> attributes;
  bool empty = false;  // a start tag closed by `/>`
  std::uint64_t line = 0;
};

bool is_name_char(char c) noexcept {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == ':' || c == '.' ||
         c == '-' || (static_cast<unsigned char>(c) >= 0x80);
}

bool is_blank_text(const std::string& text) noexcept {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; });
}

class XmlTokenizer {
 public:
  XmlTokenizer(std::string_view text, const ForeignErrors& errors) : sc_(text), errors_(errors) {}

  std::uint64_t line() const noexcept { return sc_.line(); }

  XmlEvent next() {
    XmlEvent ev;
    ev.line = sc_.line();
    if (sc_.at_end()) return ev;
    if (sc_.peek() != '<') {
      ev.kind = XmlEvent::Kind::chars;
      read_text(ev.text);
      return ev;
    }
    if (sc_.starts_with("<!--")) {
      skip_past("-->", "a comment that does not end");
      return next();
    }
    if (sc_.starts_with("<?")) {
      skip_past("?>", "a processing instruction that does not end");
      return next();
    }
    if (sc_.starts_with("<![CDATA[")) {
      sc_.advance_to(sc_.pos() + 9);
      const char* from = sc_.pos();
      skip_past("]]>", "a CDATA section that does not end");
      ev.kind = XmlEvent::Kind::chars;
      ev.text.assign(from, sc_.pos() - 3);
      if (ev.text.find('\0') != std::string::npos) fail("a NUL character in the text");
      return ev;
    }
    if (sc_.starts_with("<!")) {
      skip_past(">", "a declaration that does not end");
      return next();
    }
    sc_.advance();
    if (sc_.peek() == '/' && !sc_.at_end()) {
      sc_.advance();
      ev.kind = XmlEvent::Kind::end;
      ev.name = name();
      blanks();
      expect('>');
      return ev;
    }
    ev.kind = XmlEvent::Kind::start;
    ev.name = name();
    for (;;) {
      const bool spaced = blanks();
      if (sc_.at_end()) fail("a tag that does not end");
      if (sc_.peek() == '>') {
        sc_.advance();
        return ev;
      }
      if (sc_.starts_with("/>")) {
        sc_.advance_to(sc_.pos() + 2);
        ev.empty = true;
        return ev;
      }
      if (!spaced) fail("a blank expected between attributes");
      std::string key = name();
      blanks();
      expect('=');
      blanks();
      const char quote = sc_.peek();
      if (sc_.at_end() || (quote != '"' && quote != '\''))
        fail("a quoted attribute value expected");
      sc_.advance();
      std::string value;
      read_text(value, quote);
      expect(quote);
      ev.attributes.emplace_back(std::move(key), std::move(value));
    }
  }

  [[noreturn]] void fail(const std::string& message) const { errors_.fail(sc_.line(), message); }

 private:
  bool blanks() {
    const char* from = sc_.pos();
    sc_.skip_blanks(false);
    return sc_.pos() != from;
  }

  void expect(char c) {
    if (sc_.at_end() || sc_.peek() != c) fail(net_message("`%c' expected", c));
    sc_.advance();
  }

  void skip_past(std::string_view end, const char* message) {
    const std::uint64_t line = sc_.line();
    while (!sc_.at_end() && !sc_.starts_with(end)) sc_.advance();
    if (sc_.at_end()) errors_.fail(line, message);
    sc_.advance_to(sc_.pos() + end.size());
  }

  std::string name() {
    const char* from = sc_.pos();
    const char* p = from;
    while (p < sc_.end() && is_name_char(*p)) ++p;
    if (p == from) fail("an element or attribute name expected");
    sc_.advance_to(p);
    std::string upper(from, p);
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return upper;
  }

  // Text up to `<` (or the quote of an attribute value), entities decoded.
  void read_text(std::string& out, char stop = '<') {
    while (!sc_.at_end() && sc_.peek() != '<' && sc_.peek() != stop) {
      if (sc_.peek() != '&') {
        const char* from = sc_.pos();
        const char* p = from;
        while (p < sc_.end() && *p != '<' && *p != '&' && *p != stop) ++p;
        // XML has no NUL character, and no name or label may hold one.
        if (std::find(from, p, '\0') != p) fail("a NUL character in the text");
        out.append(from, p);
        sc_.advance_to(p);
        continue;
      }
      const char* semi = std::find(sc_.pos(), std::min(sc_.end(), sc_.pos() + 12), ';');
      if (semi == std::min(sc_.end(), sc_.pos() + 12)) fail("an entity without `;'");
      const std::string_view entity(sc_.pos() + 1, static_cast<std::size_t>(semi - sc_.pos() - 1));
      if (entity == "lt") out += '<';
      else if (entity == "gt") out += '>';
      else if (entity == "amp") out += '&';
      else if (entity == "quot") out += '"';
      else if (entity == "apos") out += '\'';
      else if (entity.starts_with('#')) append_code(out, entity);
      else fail(net_message("unknown entity `&%s;'", std::string(entity).c_str()));
      sc_.advance_to(semi + 1);
    }
  }

  // A character reference, written as UTF-8.
  void append_code(std::string& out, std::string_view entity) {
    const bool hex = entity.size() > 1 && (entity[1] == 'x' || entity[1] == 'X');
    unsigned long code = 0;
    const char* from = entity.data() + (hex ? 2 : 1);
    const auto r = std::from_chars(from, entity.data() + entity.size(), code, hex ? 16 : 10);
    if (r.ec != std::errc() || r.ptr != entity.data() + entity.size() || code == 0 ||
        code > 0x10FFFF)
      fail(net_message("bad character reference `&%s;'", std::string(entity).c_str()));
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      out += static_cast<char>(0xE0 | (code >> 12));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (code >> 18));
      out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
  }

  ForeignScanner sc_;
  const ForeignErrors& errors_;
};

std::string trimmed(const std::string& text) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  std::size_t from = 0;
  std::size_t to = text.size();
  while (from < to && blank(text[from])) ++from;
  while (to > from && blank(text[to - 1])) --to;
  return text.substr(from, to - from);
}

class XmlbifReader {
 public:
  XmlbifReader(std::string_view text, const ForeignErrors& errors)
      : xml_(text, errors), errors_(errors) {}

  ForeignNet read() {
    XmlEvent root = next_element();
    if (root.kind != XmlEvent::Kind::start || root.name != "BIF") xml_.fail("`<BIF>' expected");
    bool network = false;
    if (!root.empty) {
      for (;;) {
        XmlEvent ev = next_element();
        if (closes(ev, root)) break;
        if (ev.name == "NETWORK" && !network) {
          network = true;
          read_network(ev);
        } else {
          skip(ev);
        }
      }
    }
    if (!network) xml_.fail("no `<NETWORK>' element");
    if (next_element().kind != XmlEvent::Kind::eof) xml_.fail("text after `</BIF>'");
    return std::move(net_);
  }

 private:
  // The next start tag, end tag or end of file; text between elements must
  // be blank.
  XmlEvent next_element() {
    for (;;) {
      XmlEvent ev = xml_.next();
      if (ev.kind != XmlEvent::Kind::chars) return ev;
      if (!is_blank_text(ev.text)) errors_.fail(ev.line, "text where an element is expected");
    }
  }

  // True for the end tag of `open`; false for a start tag; an error for
  // anything else.
  bool closes(const XmlEvent& ev, const XmlEvent& open) const {
    if (ev.kind == XmlEvent::Kind::start) return false;
    if (ev.kind == XmlEvent::Kind::end && ev.name == open.name) return true;
    if (ev.kind == XmlEvent::Kind::end)
      xml_.fail(net_message("`</%s>' expected, not `</%s>'", open.name.c_str(), ev.name.c_str()));
    xml_.fail(net_message("`</%s>' expected", open.name.c_str()));
  }

  // Skips an element that was started by `open`, with what it holds (a
  // stack of names rather than recursion, however deep the nesting).
  void skip(const XmlEvent& open) {
    if (open.empty) return;
    std::vector<std::string> open_names{open.name};
    while (!open_names.empty()) {
      XmlEvent ev = xml_.next();
      if (ev.kind == XmlEvent::Kind::eof)
        xml_.fail(net_message("`</%s>' expected", open_names.back().c_str()));
      if (ev.kind == XmlEvent::Kind::start && !ev.empty) open_names.push_back(std::move(ev.name));
      if (ev.kind == XmlEvent::Kind::end) {
        if (ev.name != open_names.back())
          xml_.fail(net_message("`</%s>' expected, not `</%s>'", open_names.back().c_str(),
                                ev.name.c_str()));
        open_names.pop_back();
      }
    }
  }

  // The text of an element holding only text.
  std::string text_of(const XmlEvent& open) {
    std::string text;
    if (open.empty) return text;
    for (;;) {
      XmlEvent ev = xml_.next();
      if (ev.kind == XmlEvent::Kind::chars) {
        text += ev.text;
        continue;
      }
      if (ev.kind != XmlEvent::Kind::end || ev.name != open.name)
        xml_.fail(net_message("`</%s>' expected", open.name.c_str()));
      return text;
    }
  }

  void read_network(const XmlEvent& open) {
    if (open.empty) return;
    for (;;) {
      XmlEvent ev = next_element();
      if (closes(ev, open)) return;
      if (ev.name == "VARIABLE") read_variable(ev);
      else if (ev.name == "DEFINITION" || ev.name == "PROBABILITY") read_definition(ev);
      else skip(ev);
    }
  }

  void read_variable(const XmlEvent& open) {
    for (const auto& [key, value] : open.attributes)
      if (key == "TYPE" && value != "nature")
        errors_.fail(open.line, net_message("only variables of type `nature' can be read, "
                                            "not `%s'",
                                            value.c_str()));
    ForeignVariable v;
    v.line = open.line;
    bool named = false;
    for (;;) {
      if (open.empty) break;
      XmlEvent ev = next_element();
      if (closes(ev, open)) break;
      if (ev.name == "NAME") {
        v.name = trimmed(text_of(ev));
        named = true;
      } else if (ev.name == "OUTCOME" || ev.name == "VALUE") {
        std::string s = trimmed(text_of(ev));
        if (std::find(v.states.begin(), v.states.end(), s) != v.states.end())
          errors_.fail(ev.line, net_message("outcome `%s' given twice", s.c_str()));
        v.states.push_back(std::move(s));
      } else {
        skip(ev);
      }
    }
    if (!named) errors_.fail(open.line, "a variable without a `<NAME>'");
    add_foreign_variable(net_, std::move(v), errors_);
  }

  std::size_t variable(const std::string& name, std::uint64_t line) {
    const auto it = net_.index.find(name);
    if (it == net_.index.end())
      errors_.fail(line, net_message("unknown variable `%s'", name.c_str()));
    return it->second;
  }

  // The parents are the GIVEN variables in the order written; in the TABLE
  // the first varies slowest and the FOR variable fastest.
  void read_definition(const XmlEvent& open) {
    ForeignTable t;
    t.line = open.line;
    bool has_for = false;
    bool has_table = false;
    std::vector<std::size_t> given;
    for (;;) {
      if (open.empty) break;
      XmlEvent ev = next_element();
      if (closes(ev, open)) break;
      if (ev.name == "FOR") {
        if (has_for) errors_.fail(ev.line, "two `<FOR>' elements");
        has_for = true;
        t.child = variable(trimmed(text_of(ev)), ev.line);
      } else if (ev.name == "GIVEN") {
        given.push_back(variable(trimmed(text_of(ev)), ev.line));
      } else if (ev.name == "TABLE") {
        if (has_table) errors_.fail(ev.line, "two `<TABLE>' elements");
        has_table = true;
        read_numbers(text_of(ev), ev.line, t.values);
      } else {
        skip(ev);
      }
    }
    if (!has_for) errors_.fail(open.line, "a definition without a `<FOR>'");
    if (!has_table) errors_.fail(open.line, "a definition without a `<TABLE>'");
    t.parents = std::move(given);
    net_.tables.push_back(std::move(t));
  }

  void read_numbers(const std::string& text, std::uint64_t line, std::vector<double>& out) {
    ForeignScanner sc(text);
    for (;;) {
      sc.skip_blanks(false);
      if (sc.at_end()) return;
      double v;
      if (!sc.number(v)) errors_.fail(line + sc.line() - 1, "a number expected in `<TABLE>'");
      out.push_back(v);
    }
  }

  XmlTokenizer xml_;
  const ForeignErrors& errors_;
  ForeignNet net_;
};

}  // namespace

Domain* read_xmlbif_domain(std::string_view text, const char* file_name,
                           k_parse_error_handler_t handler, void* data) {
  const ForeignErrors errors(handler, data);
  const ForeignNet net = XmlbifReader(text, errors).read();
  return build_foreign_domain(net, errors, file_name);
}

}  // namespace kelva
