// The result of every operation of the library: a signed 32-bit code, 0 for success and
// negative for the library's own failures. A status of the application's allocator or
// communicator passes through unchanged, whatever its sign. The numbers are fixed: see
// docs/compatibility.md.

#pragma once

#include "pavex/runtime/export.h"

#include <cstdint>

using PavexStatus = std::int32_t;

// A short constant English text for a code, NUL-terminated; never null, also for unknown codes.
// Local; the text lives as long as the program.
PAVEX_API char const* PavexStatusStr(PavexStatus status) noexcept;

namespace Pavex {

using ::PavexStatus;
using ::PavexStatusStr;

// Success.
constexpr PavexStatus STATUS_OK = 0;
// A store type, a leading dimension or a communicator operation that is not handled.
constexpr PavexStatus STATUS_NOT_SUPPORTED = -2;
// The default MemoryPool could not get the memory.
constexpr PavexStatus STATUS_OUT_OF_MEMORY = -3;
// An argument or an enumeration value is outside its range.
constexpr PavexStatus STATUS_INVALID_VALUE = -7;
// A matrix handed to a later phase differs from the one seen in the gather phase.
constexpr PavexStatus STATUS_MISMATCH = -9;
// An operation was called before the phase that it needs.
constexpr PavexStatus STATUS_WRONG_ORDER = -11;
// Processes or arrays disagree.
constexpr PavexStatus STATUS_INCONSISTENT = -16;
// LocalComm or MpiComm could not carry out a communicator operation.
constexpr PavexStatus STATUS_COMM_FAILED = -20;

}  // namespace Pavex
