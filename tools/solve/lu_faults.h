// The faults of a factorisation, in the words of the command.

#pragma once

namespace Pavex::Tool {

constexpr char const* kSingular = "the matrix is numerically singular: ";
constexpr char const* kNoMemory = "not enough memory for the factorisation";

}  // namespace Pavex::Tool
