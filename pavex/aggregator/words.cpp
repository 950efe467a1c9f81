#include "pavex/aggregator/words.h"

#include "pavex/aggregator/rules.h"
#include "pavex/matrix/store_type.h"

namespace Pavex::Words {

std::string Text(std::int64_t number) {
  return std::to_string(number);
}

std::string Process(std::int64_t rank) {
  return "process " + Text(rank);
}

std::string StoreName(PavexMatrixStoreType type) {
  StoreTypeInfo const* const info = FindStoreType(type);
  return info == nullptr ? "unknown store type " + Text(type) : info->name;
}

std::string PartitionName(std::int32_t type) {
  if (type == PARTITION_NONE) return "no partition";
  char const* const word = PartitionWord(type);
  return word == nullptr ? "unknown partition type " + Text(type) : word;
}

std::string Shape(std::int64_t rows, std::int64_t cols) {
  return Text(rows) + " x " + Text(cols);
}

std::string Codes(MatrixLocalInfo const& info) {
  return "pattern " + Text(info.pattern) + ", attribute " + Text(info.attribute);
}

std::string Flag(bool withValues) {
  return withValues ? "with values" : "without values";
}

std::string Lines(bool byRows) {
  return byRows ? "rows" : "columns";
}

std::string Lines(bool byRows, std::int64_t first, std::int64_t last) {
  if (first == last) return std::string(byRows ? "row " : "column ") + Text(first);
  return Lines(byRows) + " " + Text(first) + " to " + Text(last);
}

std::string Record(MatrixLocalInfo const& info) {
  if (!info.Arrived()) return "its record never arrived";
  return StoreName(info.storeType) + ", " + PartitionName(info.partition.type) + " from " +
         Text(info.partition.begin) + ", " + Shape(info.rows, info.cols) + ", " +
         Text(info.nnz) + " entries, of " + Shape(info.globalRows, info.globalCols) + ", " +
         Codes(info) + ", " + Flag(info.WithValues()) + (IsEmpty(info) ? ", empty" : "");
}

}  // namespace Pavex::Words
