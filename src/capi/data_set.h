#pragma once

#include "dataset/data_set.h"
#include "kelva/kelva.h"

namespace kelva::capi {

/// The data set behind `data_set`, when `column` is below its column count;
/// otherwise Error(usage).
DataSet& with_column(k_data_set_t data_set, k_size_t column);

}  // namespace kelva::capi
