#pragma once

namespace kelva::platform {

/// The calling thread's error slot: a pointer to an entry of the error table,
/// null until the thread first reads or sets its code.
const void*& error_slot() noexcept;

}  // namespace kelva::platform
