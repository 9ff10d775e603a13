#pragma once

#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "kelva/kelva.h"
#include "network/error.h"

namespace kelva {

class ClassCollection;
class Domain;
class Lexer;
class Node;
class Table;

/// Reads a domain from NET text in an open stream (messages carry line
/// numbers).  Returns the new domain, or throws Error (the "parse" code when
/// the text broke the grammar) with nothing left behind.  `file_name`, when
/// given, is kept with the domain.
Domain* read_net_domain(std::FILE* stream, const char* file_name, k_parse_error_handler_t handler,
                        void* data);

/// The class-loading call-back of a class file reader.
struct ClassLoader {
  k_insert_class_t insert = nullptr;
  void* data = nullptr;
};

/// Reads the classes of a class file into `cc`.  On failure (Error, "parse"
/// when the text broke the grammar) the collection is as it was.
void read_net_classes(std::FILE* stream, ClassCollection& cc, const ClassLoader& loader,
                      k_parse_error_handler_t handler, void* data);
/// The same from text in memory (positions are characters consumed).
void read_net_classes(const char* text, ClassCollection& cc, const ClassLoader& loader,
                      k_parse_error_handler_t handler, void* data);

/// Reads a domain from NET text in memory (messages carry the count of
/// characters consumed).
Domain* read_net_domain(const char* text, k_parse_error_handler_t handler, void* data);

// Pieces shared by the files of the NET reader.

/// printf-style formatting of a message.
std::string net_message(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Reports `message` as an error and stops the parse: throws Error with the
/// code of the lexer's last failure when `token` is TOKEN_ERROR (io,
/// no_memory), "parse" otherwise.
[[noreturn]] void net_fail(Lexer& lexer, const std::string& message, int token = 0);

/// As net_fail, for readers whose lexer reports its own errors: a lexical
/// error already reported (TOKEN_ERROR) stops the parse without a second
/// message; a silent one (a number that does not convert) gets `message`.
[[noreturn]] void reader_fail(Lexer& lexer, const std::string& message, int token = 0);

/// Reports "API error: %s" with the description of `code` and stops the
/// parse with that code.
[[noreturn]] void net_api_fail(Lexer& lexer, k_error_t code);

/// Runs `body`, turning a failure of an engine operation into "API error".
template <class F>
auto net_api(Lexer& lexer, F&& body) -> decltype(body()) {
  try {
    return body();
  } catch (const Error& e) {
    net_api_fail(lexer, e.code());
  } catch (const std::bad_alloc&) {
    net_api_fail(lexer, K_ERROR_NO_MEMORY);
  }
}

/// Where the values of a `data`, `experience` or `fading` attribute go.
struct NetTableTarget {
  Table* table = nullptr;
  /// The table's discrete nodes in the order the text gives them (first
  /// slowest); the values are placed into the table's own order.
  std::vector<Node*> order;
  /// The continuous child whose items `normal ( mean , variance )` stand in
  /// place of numbers; null for a table of numbers.
  Node* cg_child = nullptr;
  /// Negative numbers are errors in the flat form and warnings in the
  /// nested form.
  bool probability = false;
};

/// Reads the table values that follow `=` (flat or nested form, chosen by
/// the number of nodes of the table and the look-ahead) into the target.
/// Errors go through the lexer; a structural one stops the parse (throws
/// Error after reporting).
void read_net_table(Lexer& lexer, const NetTableTarget& target);

}  // namespace kelva
