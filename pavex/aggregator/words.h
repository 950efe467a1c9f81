// Describes records in words. A record of another process may contain any number.
//
// Internal.

#pragma once

#include "pavex/aggregator/local_info.h"

#include <cstdint>
#include <string>

namespace Pavex::Words {

std::string Text(std::int64_t number);
// "process 3".
std::string Process(std::int64_t rank);
// The enumerator, or "unknown store type 13".
std::string StoreName(PavexMatrixStoreType type);
// "row-wise", "column-wise", "nonzero-wise", "no partition", or "unknown partition type 7".
std::string PartitionName(std::int32_t type);
// "10 x 7".
std::string Shape(std::int64_t rows, std::int64_t cols);
// "pattern 1, attribute 2".
std::string Codes(MatrixLocalInfo const& info);
// "with values" or "without values".
std::string Flag(bool withValues);
// "rows" or "columns".
std::string Lines(bool byRows);
// "rows 2 to 8" or "row 2".
std::string Lines(bool byRows, std::int64_t first, std::int64_t last);
// Everything that a record says, or a text that says that it never arrived.
std::string Record(MatrixLocalInfo const& info);

}  // namespace Pavex::Words
