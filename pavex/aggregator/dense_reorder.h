// The two orders of the values of a dense matrix in one array, and the moves between them.
// Internal to the library; local, no communication, no allocation.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/runtime/buffer.h"
#include "pavex/runtime/copy_runs.h"

#include <cstddef>
#include <cstdint>

namespace Pavex {

// A dense matrix cut into pieces along its runs (the rows of a row-major matrix, the columns of
// a column-major one) arrives piece after piece, each packed: the communication layout. In the
// global layout the pieces lie side by side. With two ranks, a row-major 3 x 5 matrix cut into
// columns 0-1 and 2-4, and element (i, j) written as ij:
//
//   rank 0 packed   00 01 10 11 20 21
//   rank 1 packed   02 03 04 12 13 14 22 23 24
//   communication   00 01 10 11 20 21 | 02 03 04 12 13 14 22 23 24
//   global          00 01|02 03 04  10 11|12 13 14  20 21|22 23 24     (ld = 5)
//
// Element 13 is element 1 of run 1 of piece 1. Its index is 6 + 1*3 + 1 = 10 in the
// communication layout and 2 + 1*5 + 1 = 8 in the global one.
//
// Piece p has `cols` (row-major) or `rows` (column-major) of record p as the length of its runs
// and the other one as their number. The walk visits the pieces in rank order: run k of
// piece p moves between (elements of the earlier pieces) + k * (its length) and (lengths of the
// earlier pieces) + k * `ld`. Where pieces overlap, the later one wins; elements that no run
// reaches keep what they had. Each function reads the first `pieces` records.

// The first process with an element that the walk would read or write outside arrays of `total`
// elements, the same on both sides, or with a negative extent; kNobody if there is none, which
// must be so before the two moves below. A negative `ld` or `total` counts as a fault of
// process 0.
std::int64_t FindRunsOutside(Buffer<MatrixLocalInfo> const& infos, int pieces, bool rowMajor,
                             long ld, long total) noexcept;

// Whether the pieces, side by side, cover every run of the global layout exactly once.
bool PiecesTile(Buffer<MatrixLocalInfo> const& infos, int pieces, bool rowMajor,
                long ld) noexcept;

// Moves the values from the communication to the global layout, as opaque elements of
// `elementBytes` bytes. The two arrays do not overlap.
void CommToGlobal(std::size_t elementBytes, Buffer<MatrixLocalInfo> const& infos, int pieces,
                  bool rowMajor, long ld, void const* comm, void* global) noexcept;

// The inverse: from the global to the communication layout.
void GlobalToComm(std::size_t elementBytes, Buffer<MatrixLocalInfo> const& infos, int pieces,
                  bool rowMajor, long ld, void const* global, void* comm) noexcept;

}  // namespace Pavex
