#pragma once
// Helpers of the data set tests: an owning handle, filling from a grid and a
// snapshot that tells missing cells from empty ones.

#include <optional>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace kelva::test {

/// Owns a data set handle.
struct DataSetHandle {
  k_data_set_t ds = k_new_data_set();
  DataSetHandle() = default;
  DataSetHandle(const DataSetHandle&) = delete;
  DataSetHandle& operator=(const DataSetHandle&) = delete;
  ~DataSetHandle() {
    if (ds != nullptr) k_ds_delete(ds);
  }
  operator k_data_set_t() const { return ds; }
};

using Grid = std::vector<std::vector<std::optional<std::string>>>;

/// Adds the columns `names` and one row per grid line (nullopt: missing).
inline void fill(k_data_set_t ds, const std::vector<std::string>& names, const Grid& grid) {
  for (const auto& name : names) k_ds_new_column(ds, name.c_str());
  for (const auto& line : grid) {
    const k_size_t r = k_ds_new_row(ds);
    for (std::size_t c = 0; c < line.size(); ++c)
      if (line[c]) k_ds_set_data_item(ds, r, c, line[c]->c_str());
  }
}

/// Everything a user can see of a data set: the column names, then the
/// cells row by row, "<missing>" standing apart from every text.
inline std::vector<std::optional<std::string>> snapshot(k_data_set_t ds) {
  std::vector<std::optional<std::string>> out;
  const k_size_t columns = k_ds_get_number_of_columns(ds);
  const k_size_t rows = k_ds_get_number_of_rows(ds);
  for (k_size_t c = 0; c < columns; ++c) out.emplace_back(k_ds_get_column_name(ds, c));
  out.emplace_back("|");
  for (k_size_t r = 0; r < rows; ++r)
    for (k_size_t c = 0; c < columns; ++c) {
      const char* text = k_ds_get_data_item(ds, r, c);
      out.push_back(text ? std::optional<std::string>(text) : std::nullopt);
    }
  return out;
}

/// The cells of one column, top to bottom.
inline std::vector<std::optional<std::string>> column(k_data_set_t ds, k_size_t c) {
  std::vector<std::optional<std::string>> out;
  for (k_size_t r = 0; r < k_ds_get_number_of_rows(ds); ++r) {
    const char* text = k_ds_get_data_item(ds, r, c);
    out.push_back(text ? std::optional<std::string>(text) : std::nullopt);
  }
  return out;
}

}  // namespace kelva::test
