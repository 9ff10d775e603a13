#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "model/object.h"

namespace kelva {

/// A data set: a table of text cells with named columns, used to prepare
/// data for learning.  A cell is missing (no text) or present (a text, which
/// may be empty); a whole row may be absent too.  Cells are kept as text and
/// read as numbers or states only when an operation needs them.
class DataSet : public Object {
 public:
  using Cell = std::optional<std::string>;
  /// A row: one cell per column.  An absent row is std::nullopt.
  using Row = std::optional<std::vector<Cell>>;

  DataSet() noexcept : Object(ObjectTag::data_set) {}
  ~DataSet() = default;

  std::size_t column_count() const noexcept { return columns.size(); }
  std::size_t row_count() const noexcept { return rows.size(); }

  /// The cell at (row, column), or null when it (or its row) is missing.
  /// The caller checked the indexes.
  const std::string* cell(std::size_t row, std::size_t column) const noexcept {
    const Row& r = rows[row];
    if (!r || column >= r->size() || !(*r)[column]) return nullptr;
    return &*(*r)[column];
  }

  /// Column names, in column order.
  std::vector<std::string> columns;
  /// Rows, in row order; a present row holds exactly column_count() cells.
  std::vector<Row> rows;
};

}  // namespace kelva
