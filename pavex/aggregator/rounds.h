// Cuts a transfer into rounds. A communicator counts elements and positions in `int`, so pieces
// that are larger together move in several calls of the same operation. The records alone
// decide the rounds, so every process computes the same ones.
//
// Example, at most 7 elements in a call, three pieces of 5, 4 and 6 entries:
//
//   round 0   elements 0-4 of piece 0, 0-1 of piece 1             placed from 0 on
//   round 1   elements 2-3 of piece 1, 0-4 of piece 2             placed from 7 on
//   round 2   element 5 of piece 2                                placed from 14 on
//
// Internal; local, no communication, no allocation. Records may contain any bytes.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/runtime/buffer.h"

#include <cstdint>
#include <limits>

namespace Pavex {

// The most elements that one call of a communicator moves. Tests build the library with few, so
// that small matrices take several rounds.
#ifdef PAVEX_MOST_PER_CALL
inline constexpr long kMostPerCall = PAVEX_MOST_PER_CALL;
#else
inline constexpr long kMostPerCall = std::numeric_limits<int>::max();
#endif

// What a transfer moves of each process, and where its elements go in the gathered array.
enum class Moved {
  ENTRIES,  // the entries, after those of the earlier processes
  ROWS,     // one length per row, from the begin of the piece on
  COLS      // one length per column, from the begin of the piece on
};

// A place in a transfer, whose elements follow each other in rank order.
struct TransferPoint {
  std::int64_t process = 0;  // before element `taken` of this process; the number of
  long taken = 0;            // processes at the end of the transfer
  long before = 0;           // elements of the earlier processes
};

// The elements of one process that a round moves.
struct RoundPart {
  long skip = 0;   // elements of the process that earlier rounds move
  long count = 0;  // elements that this round moves; 0 if it has none of the process
};

// The elements that one call moves: those from `first` to before `last`.
struct TransferRound {
  TransferPoint first;
  TransferPoint last;
  long base = 0;  // where the part of the gathered array begins that the round fills
};

// The next round after `from`, which is the beginning of the transfer (the default) or the end
// of an earlier round. It moves as many elements as `most` allows: together, and as the extent
// of the places that they fill. Empty only at the end of the transfer. A negative size counts
// as 0.
TransferRound NextRound(Buffer<MatrixLocalInfo> const& records, Moved moved,
                        TransferPoint const& from, long most = kMostPerCall) noexcept;

// Whether the whole transfer is one round, whose places are counted from the beginning of the
// gathered array.
bool IsOneRound(Buffer<MatrixLocalInfo> const& records, Moved moved,
                long most = kMostPerCall) noexcept;

// What `round` moves of `process`.
RoundPart PartOf(Buffer<MatrixLocalInfo> const& records, Moved moved,
                 TransferRound const& round, std::int64_t process) noexcept;

// Writes for every process how many elements `round` moves, and where they go, counted from the
// base of the round. `counts`, `displs`: one element per record. A process without elements in
// the round has displacement 0.
void FillRound(Buffer<MatrixLocalInfo> const& records, Moved moved, TransferRound const& round,
               int* counts, int* displs) noexcept;

// Where the entries of `process` begin among those of all processes.
long EntriesBefore(Buffer<MatrixLocalInfo> const& records, std::int64_t process) noexcept;

}  // namespace Pavex
