// Offsets of pieces that a receiver stacks in an order of its own.

#pragma once

#include "pavex/assembly/assembly_plan.h"
#include "pavex/runtime/buffer.h"
#include "pavex/runtime/wrapping.h"

#include <algorithm>
#include <cstdint>

namespace Pavex {

// Makes the offsets of a stack count from 0 through all its pieces, which lie in the order
// `order`. Over a communicator that moves runs, a process sends offsets that count the entries
// of the seats before its own. That may be other pieces than those that lie before it in the
// stack. The first offset of a piece shows how many entries it has counted. `offsets` has those
// of all pieces; a process without rows has sent one. Example, pieces of 3, 2 and 1 entries in
// one row each, where the second one has the first seat: 2 0 5 becomes 0 3 5.
template <typename I>
void CountPiecesInOrder(Buffer<AssemblyRecord> const& records, Buffer<int> const& order,
                        I* offsets) {
  std::int64_t before = 0;
  for (std::int64_t k = 0; k < order.mSize; ++k) {
    AssemblyRecord const& record = records.mData[order.mData[k]];
    I* const end = offsets + std::max(record.mRows, std::int64_t{1});
    I const shift = WrappingSub(static_cast<I>(before), offsets[0]);
    for (; shift != 0 && offsets != end; ++offsets)
      *offsets = WrappingAdd(*offsets, shift);
    offsets = end;
    before += record.mNnz;
  }
}

}  // namespace Pavex
