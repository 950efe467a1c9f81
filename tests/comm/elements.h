// Elements of every type that a communicator moves, and pieces of them for each rank.

#pragma once

#include "pavex/runtime/comm.h"

#include <algorithm>
#include <complex>
#include <cstddef>
#include <gtest/gtest.h>
#include <vector>

namespace Pavex {

// The types of elements that a communicator moves.
template <typename T>
struct Element {
  using Value = T;
  static constexpr Datatype kType = DatatypeOf<T>::kValue;
};
struct ByteElement {
  using Value = unsigned char;
  static constexpr Datatype kType = DATATYPE_BYTE;
};

// Element `i` of rank `rank`. All elements of a test differ, and no byte of a wide type is
// always the same.
template <typename T>
struct Make {
  static T Of(int rank, int i) { return static_cast<T>(7 * rank + i + 1) / T(4); }
};
template <>
struct Make<unsigned char> {
  static unsigned char Of(int rank, int i) {
    return static_cast<unsigned char>(255 - 7 * rank - i);
  }
};
template <>
struct Make<int> {
  static int Of(int rank, int i) { return -0x12345600 + 7 * rank + i; }
};
template <>
struct Make<long> {
  static long Of(int rank, int i) { return 0x123456789abcde00 + 7L * rank + i; }
};
template <typename T>
struct Make<std::complex<T>> {
  static std::complex<T> Of(int rank, int i) {
    return {Make<T>::Of(rank, i), -Make<T>::Of(rank, i + 50)};
  }
};

template <typename T>
std::vector<T> ElementsOf(int rank, int count) {
  std::vector<T> elements(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i)
    elements[static_cast<std::size_t>(i)] = Make<T>::Of(rank, i);
  return elements;
}

// A number from 0 to 255, which every type can hold.
template <typename T>
T Small(int number) {
  return static_cast<T>(static_cast<unsigned char>(number));
}

// The order of the pieces in the whole array.
enum class Layout {
  CLOSE_UP,             // in rank order, without gaps
  BACKWARDS_WITH_GAPS,  // the piece of the last rank first, a gap of one element before each
};

// Pieces of unequal length, (r + 1) % 3 elements of rank r, and the array that they make up. An
// element that belongs to no rank follows the last piece. For four ranks:
//   ranks                  0   1   2   3
//   counts                 1   2   0   1
//   displs, close up       0   1   3   3    of 5 elements
//   displs, backwards      7   4   3   1    of 9 elements
template <typename T>
struct Pieces {
  Pieces(int ranks, Layout layout) {
    bool const backwards = layout == Layout::BACKWARDS_WITH_GAPS;
    auto const size = static_cast<std::size_t>(ranks);
    mCounts.resize(size);
    mDispls.resize(size);
    int next = 0;
    for (int place = 0; place < ranks; ++place) {
      auto const r = static_cast<std::size_t>(backwards ? ranks - 1 - place : place);
      mCounts[r] = (static_cast<int>(r) + 1) % 3;
      mDispls[r] = next + (backwards ? 1 : 0);
      next = mDispls[r] + mCounts[r];
    }
    mLength = static_cast<std::size_t>(next) + 1;
  }

  int Count(int rank) const { return mCounts[static_cast<std::size_t>(rank)]; }
  std::vector<T> Of(int rank) const { return ElementsOf<T>(rank, Count(rank)); }

  // The whole array with no piece, with the piece of one rank, and with all pieces.
  std::vector<T> None() const { return std::vector<T>(mLength, T(77)); }
  std::vector<T> Only(int rank) const {
    std::vector<T> array = None();
    Place(rank, array);
    return array;
  }
  std::vector<T> All() const {
    std::vector<T> array = None();
    for (std::size_t r = 0; r < mCounts.size(); ++r)
      Place(static_cast<int>(r), array);
    return array;
  }

  std::vector<int> mCounts;
  std::vector<int> mDispls;

 private:
  void Place(int rank, std::vector<T>& array) const {
    std::vector<T> const piece = Of(rank);
    std::copy(piece.begin(), piece.end(),
              array.begin() + mDispls[static_cast<std::size_t>(rank)]);
  }

  std::size_t mLength = 0;
};

}  // namespace Pavex
