// The least and the greatest element of an array of indices.

#pragma once

#include <algorithm>
#include <cstdint>

namespace Pavex {

// The elements of an array lie from mFirst to mLast. Empty if there are none.
struct Range {
  std::int64_t mFirst = 0;
  std::int64_t mLast = -1;

  // The numbers from mFirst to mLast. Call it for elements that have been checked; others may
  // lie too far apart to be counted.
  std::int64_t Count() const { return mLast - mFirst + 1; }
};

// The least and the greatest of some elements.
template <typename I>
struct Extremes {
  I mLeast;
  I mMost;

  void Add(I element) {
    mLeast = std::min(mLeast, element);
    mMost = std::max(mMost, element);
  }
};

// The range of `count` elements, at least 1. Each minimum waits for the one before, so four
// parts of the array that do not wait for each other take less than half the time of one.
template <typename I>
Range RangeOf(I const* elements, std::int64_t count) {
  std::int64_t const part = count / 4;
  Extremes<I> a{elements[0], elements[0]};
  Extremes<I> b = a;
  Extremes<I> c = a;
  Extremes<I> d = a;
  for (std::int64_t k = 0; k < part; ++k) {
    a.Add(elements[k]);
    b.Add(elements[part + k]);
    c.Add(elements[2 * part + k]);
    d.Add(elements[3 * part + k]);
  }
  for (std::int64_t k = 4 * part; k < count; ++k)
    a.Add(elements[k]);
  return {std::min({a.mLeast, b.mLeast, c.mLeast, d.mLeast}),
          std::max({a.mMost, b.mMost, c.mMost, d.mMost})};
}

}  // namespace Pavex
