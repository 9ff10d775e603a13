#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "dataset/data_row.h"
#include "network/object.h"

namespace kelva {

/// A data set: a table of text cells with named columns, used to prepare
/// data for learning.  A cell is missing (no text) or present (a text, which
/// may be empty); a whole row may be absent too.  Cells are kept as text and
/// read as numbers or states only when an operation needs them.  A row's
/// texts share one block (`DataRow`).
class DataSet : public Object {
 public:
  using Row = DataRow;

  DataSet() noexcept : Object(ObjectTag::data_set) {}
  ~DataSet() = default;

  std::size_t column_count() const noexcept { return columns.size(); }
  std::size_t row_count() const noexcept { return rows.size(); }

  /// The text of the cell at (row, column), or null when it (or its row) is
  /// missing.  The caller checked the indexes.
  const char* cell(std::size_t row, std::size_t column) const noexcept {
    const Row& r = rows[row];
    return column < r.size() ? r.cell(column) : nullptr;
  }

  /// Column names, in column order.
  std::vector<std::string> columns;
  /// The memory of the rows that the file reader made (declared before the
  /// rows, so that it outlives them).
  RowArena arena;
  /// Rows, in row order; a present row holds exactly column_count() cells.
  std::vector<Row> rows;

  // Editing.  The callers checked the indexes.  Each operation either
  // completes or (running out of memory) leaves the data set as it was.

  /// Appends a column of missing cells; returns its index.
  std::size_t add_column(std::string name);
  /// Appends an absent row (every cell missing); returns its index.
  std::size_t add_row();
  void erase_column(std::size_t column) noexcept;
  void erase_row(std::size_t row) noexcept;
  /// Sets a cell to a copy of `text`; null makes it missing.  Setting a
  /// cell of an absent row makes the row present.
  void set_cell(std::size_t row, std::size_t column, const char* text);
  /// Sets the cells of `column` in the rows `which` to copies of `texts`
  /// (null: missing), all or (running out of memory) none.  The texts may
  /// point into this data set's cells.
  void set_cells(std::size_t column, const std::vector<std::size_t>& which,
                 const std::vector<const char*>& texts);
  /// Moves a column (a row) to position `to`; those between shift by one.
  void move_column(std::size_t from, std::size_t to) noexcept;
  void move_row(std::size_t from, std::size_t to) noexcept;
  /// Appends a copy of a column (name and cells); returns its index.
  std::size_t copy_column(std::size_t column);
  /// Gives every cell of `column` that equals `from` (null: missing) the
  /// value `to` (null: missing); returns the number of cells changed.
  std::size_t replace_values(std::size_t column, const char* from, const char* to);
  /// Orders the rows by their cells in `column`, stably, rows whose cell is
  /// missing last: by text (bytewise) or, when `numerically`, by number;
  /// Error(invalid_expression) when a present cell is not a number.
  void sort_rows(std::size_t column, bool numerically, bool descending);
  /// The distinct texts of the present cells of `column` in the order of
  /// their first appearance, null-ended.  The pointers are into the cells;
  /// the list lives until the next call or the next change.
  const char* const* distinct_values(std::size_t column);

 private:
  std::vector<const char*> distinct_;
};

/// Reads a cell as a number: a finite decimal number (optional sign, digits
/// with an optional point, optional exponent), white space around it
/// allowed.  No words ("inf", "nan"), no hexadecimal.  Locale-independent.
bool cell_number(const char* text, double& value) noexcept;

}  // namespace kelva
