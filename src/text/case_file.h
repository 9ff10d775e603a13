#pragma once

#include <cstddef>
#include <cstdio>
#include <vector>

#include "kelva/kelva.h"

namespace kelva {

class Domain;
class Node;
class TextSink;

/// Reads a single-case file (NODE `:` FINDING items) from `stream` and
/// enters its findings: each named node's evidence is replaced by the
/// file's finding, other nodes keep theirs.  The findings are entered only
/// when the whole file reads without errors, so a failed read leaves the
/// evidence as it was.  Messages carry line numbers; throws Error ("parse"
/// after any message, "usage" for a domain that takes no evidence).
void read_case(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler, void* data);

/// Writes the entered evidence of the domain's chance, decision and
/// discrete function nodes (in the domain's node order) as a single-case
/// file, under the "C" locale.  Throws Error (io, locale, no_memory).
void write_case(Domain& domain, TextSink& sink);

/// Reads a multi-case data file from `stream` and appends its cases to the
/// domain's stored cases.  On any failure the stored cases are exactly as
/// before.  Throws Error as read_case.
void read_cases(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler, void* data);
/// The same from a NUL-terminated string, read by the same rules as a file
/// (message positions are line numbers).
void read_cases(Domain& domain, const char* text, k_parse_error_handler_t handler, void* data);

/// What write_cases writes: the columns, the cases (every case when
/// `all_cases`), whether counts are written, the separator and the text of
/// a missing item.  The caller has checked them (verify_case_selection).
struct CaseSelection {
  std::vector<Node*> nodes;
  std::vector<std::size_t> cases;
  bool all_cases = true;
  bool counts = false;
  const char* separator = nullptr;
  const char* missing = nullptr;
};

/// Error(usage) unless `selection` can be written for `domain`: at least one
/// node, every node of the domain, able to hold case items and listed once;
/// separator and missing texts given; every case index in range; and
/// without counts, every selected case's count a finite whole number (a
/// line is written that many times).
void verify_case_selection(const Domain& domain, const CaseSelection& selection);

/// Writes stored cases as a multi-case data file under the "C" locale.
/// Throws Error (io, locale, no_memory).
void write_cases(Domain& domain, const CaseSelection& selection, TextSink& sink);

}  // namespace kelva
