// The parts of the check that do not depend on storage and source.

#pragma once

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace Pavex::Tool {

// Compares like std::memcmp: 0 if the bits are the same.
template <typename T>
int CompareBits(T const& a, T const& b) {
  void const* const bitsOfA = &a;
  void const* const bitsOfB = &b;
  return std::memcmp(bitsOfA, bitsOfB, sizeof(T));
}

// One entry of a row. Equal means the same bits, so -0 is not 0.
template <typename T>
struct Item {
  long mCol;
  T mValue;

  bool operator==(Item const& other) const {
    return mCol == other.mCol && CompareBits(mValue, other.mValue) == 0;
  }
  bool operator<(Item const& other) const {
    if (mCol != other.mCol) return mCol < other.mCol;
    return CompareBits(mValue, other.mValue) < 0;
  }
};

// Makes one entry of those in the same column: their sum, in their order.
template <typename T>
void AddRepeated(std::vector<Item<T>>& items) {
  std::stable_sort(items.begin(), items.end(),
                   [](Item<T> const& a, Item<T> const& b) { return a.mCol < b.mCol; });
  std::size_t last = 0;
  for (std::size_t k = 1; k < items.size(); ++k) {
    if (items[k].mCol == items[last].mCol)
      items[last].mValue += items[k].mValue;
    else
      items[++last] = items[k];
  }
  if (!items.empty()) items.resize(last + 1);
}

template <typename T>
std::string InWords(T const& value) {
  std::ostringstream text;
  text.precision(17);
  text << value;
  return text.str();
}

inline std::string At(long row, long col) {
  return "(" + std::to_string(row) + ", " + std::to_string(col) + ")";
}

// Compares the entries of `row` as multisets. Sorts both sides if their orders differ.
template <typename T>
std::string FindDifferenceInRow(long row, std::vector<Item<T>>& expected,
                                std::vector<Item<T>>& found) {
  if (expected.size() != found.size())
    return "row " + std::to_string(row) + " has " + std::to_string(found.size()) +
           " entries instead of " + std::to_string(expected.size());
  if (expected == found) return "";
  std::sort(expected.begin(), expected.end());
  std::sort(found.begin(), found.end());
  for (std::size_t k = 0; k < expected.size(); ++k) {
    if (expected[k] == found[k]) continue;
    if (expected[k].mCol != found[k].mCol)
      return "an entry at " + At(row, found[k].mCol) + " instead of " +
             At(row, expected[k].mCol);
    return "the entry at " + At(row, found[k].mCol) + " is " + InWords(found[k].mValue) +
           " instead of " + InWords(expected[k].mValue);
  }
  return "";
}

}  // namespace Pavex::Tool
