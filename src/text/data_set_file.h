#pragma once

#include <cstdio>
#include <memory>

#include "kelva/kelva.h"

namespace kelva {

class DataSet;
class TextSink;

/// Whether `separator` may separate the fields of a data set file: a byte
/// 1..255 that is neither the double quote nor a line-breaking white-space
/// character (newline, carriage return, vertical tab, form feed).  Tab and
/// space are allowed.
bool is_data_set_separator(int separator) noexcept;

/// Reads a data set from delimited text in an open stream: a header line of
/// column names, then one row per line.  Messages go to `handler` (may be
/// null) with line numbers; the first error stops the read.  Throws Error:
/// "usage" for a bad separator (before anything is read), "parse" after a
/// reported error, "io" when the stream fails, "locale", "no_memory".
std::unique_ptr<DataSet> read_data_set(std::FILE* stream, int separator,
                                       k_parse_error_handler_t handler, void* data);

/// Reads a data set from NUL-terminated text in memory; positions given to
/// `handler` are counts of characters consumed.
std::unique_ptr<DataSet> read_data_set(const char* text, int separator,
                                       k_parse_error_handler_t handler, void* data);

/// Writes `data_set` as delimited text: the header, then one line per row.
/// Cells that the reader would not give back as they stand (empty, white
/// space at an end, a double quote or the separator inside) are quoted with
/// inner quotes doubled; missing cells are written as nothing.  Throws
/// Error: "usage" for a bad separator (before anything is written), "io"
/// from a file sink, "locale"; std::bad_alloc from a memory sink.
void write_data_set(const DataSet& data_set, int separator, TextSink& sink);

}  // namespace kelva
