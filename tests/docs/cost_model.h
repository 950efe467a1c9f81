// The formulas of docs/cost.md, as that page writes them, and nothing else.

#pragma once

#include "tests/property/round.h"
#include "tests/support/most_per_call.h"

#include <algorithm>
#include <ostream>

namespace Pavex {

// What one process pays for one operation.
struct Cost {
  long calls = 0;  // of the communicator, other than Rank and Size
  long out = 0;    // bytes handed to it, the process's own share included
  long in = 0;     // bytes that it delivers, the process's own share included
  long peak = 0;   // bytes taken from the pool at once, on top of what was taken before
};

inline bool operator==(Cost const& a, Cost const& b) {
  return a.calls == b.calls && a.out == b.out && a.in == b.in && a.peak == b.peak;
}
inline std::ostream& operator<<(std::ostream& stream, Cost const& cost) {
  return stream << cost.calls << " calls, " << cost.out << " bytes out, " << cost.in
                << " bytes in, peak " << cost.peak;
}

// The formulas for process `rank` of a round. The names are those of the page.
class CostModel {
 public:
  CostModel(Round const& round, int rank, long valueBytes, long indexBytes)
      : mRound(round),
        mPiece(round.PieceOf(rank)),
        i(indexBytes),
        t(valueBytes),
        v(round.Reference().withValues ? valueBytes : 0),
        P(static_cast<long>(round.pieces.size())),
        n(static_cast<long>(mPiece.entries.size())),
        N(static_cast<long>(round.WholeOn(rank).entries.size())),
        c(round.CompressedCount(mPiece.rows, mPiece.cols)),
        C(round.CompressedCount(round.WholeOn(rank).rows, round.WholeOn(rank).cols)),
        pieces(round.holding == Holding::PIECES),
        one(round.holding == Holding::ONE),
        receiver(round.Receives(rank)),
        holder(one && rank == round.holder),
        root(rank == 0) {}

  Cost Gather() const {
    Cost cost = Move(CallsOfGather(), OutOfGather(), InOfGather());
    if (P > 1) cost.calls += 1;
    if (P > 1) cost.out += 72;
    if (P > 1) cost.in += 72 * P;
    cost.peak = 72 * P + (pieces && receiver ? 8 * P : 0) + ArraysPeak();
    return cost;
  }

  // A gather on an object that has gathered the same before.
  Cost GatherAgain() const {
    Cost cost = Gather();
    long const held = 72 * P + (pieces && receiver ? 8 * P : 0);
    cost.peak = std::max(72 * P, cost.peak - held);
    return cost;
  }

  // Bytes of the pool that the object holds after its gather.
  long Held() const { return 72 * P + (pieces && receiver ? 8 * P : 0) + HeldArrays(); }

  Cost Update() const {
    Cost cost = Move(CallsFor(N), pieces ? n * t : N * t, N * t);
    cost.peak = mRound.IsDense() ? DensePeak(UPDATED, t) : Owns() ? N * t + RoundCounts(N) : 0;
    return cost;
  }

  // An update in place after an update.
  Cost UpdateInPlace() const {
    Cost cost = Update();
    bool const borrows = holder && (!mRound.IsDense() || mPiece.IsPacked(UPDATED));
    if (!receiver || !(pieces || one) || borrows) return cost;
    bool const reordered = pieces && mRound.IsDense() && Reordered();
    cost.peak -= reordered ? std::max(N * t, RoundCounts(N)) - RoundCounts(N) : N * t;
    return cost;
  }

  Cost Scatter() const {
    Cost cost;
    if (mRound.toAll) return cost;
    long const padded = mPiece.IsPacked(SCATTERED) ? 0 : n * t;
    if (pieces) {
      cost = {CallsFor(N), root ? N * t : 0, n * t,
              padded + RoundCounts(N) + (root && Reordered() ? N * t : 0)};
    } else if (one) {
      if (mRound.holder == 0 || !(root || holder)) return cost;
      cost = {CallsFor(N), root ? N * t : 0, holder ? N * t : 0, holder ? padded : 0};
    } else {
      bool const packs = !mPiece.IsPacked(UPDATED);
      cost = {CallsFor(N), root ? N * t : 0, root ? 0 : N * t,
              root ? (packs ? N * t : 0) : padded};
    }
    return cost;
  }

 private:
  // What so many calls cost, of `out` bytes on a sender and `in` bytes on a receiver.
  Cost Move(long calls, long out, long in) const {
    if (pieces) return {calls, out, receiver ? in : 0, 0};
    if (!one || (!mRound.toAll && mRound.holder == 0)) return {};
    bool const receives = receiver && !holder;
    if (!receives && !holder) return {};
    return {calls, holder ? out : 0, receives ? in : 0, 0};
  }

  long CallsOfGather() const {
    long const values = v == 0 ? 0 : CallsFor(N);
    if (mRound.IsDense()) return values;
    if (!mRound.IsCompressed()) return 2 * CallsFor(N) + values;
    return CallsFor(pieces ? C : C + 1) + CallsFor(N) + values;
  }
  long OutOfGather() const {
    if (mRound.IsDense()) return (pieces ? n : N) * v;
    if (mRound.IsCompressed()) return pieces ? c * i + n * (i + v) : (C + 1) * i + N * (i + v);
    return (pieces ? n : N) * (2 * i + v);
  }
  long InOfGather() const {
    if (mRound.IsDense()) return N * v;
    if (mRound.IsCompressed()) return (pieces ? C : C + 1) * i + N * (i + v);
    return N * (2 * i + v);
  }

  bool Owns() const { return receiver && (pieces || (one && !holder)); }

  long ArraysPeak() const {
    if (mRound.IsDense()) return DensePeak(GATHERED, v);
    if (!mRound.IsCompressed()) return OwnedArrays() + RoundCounts(N);
    if (!pieces) return OwnedArrays() + ZeroOffsets();
    long const lengths = receiver ? (C + 1) * i + 8 * P + c * i : c * i;
    return std::max(lengths, OwnedArrays() + RoundCounts(N));
  }

  // Counts and displacements while `count` elements move in several rounds.
  long RoundCounts(long count) const {
    return pieces && receiver && CallsFor(count) > 1 ? 8 * P : 0;
  }

  // Of a gathered sparse matrix.
  long OwnedArrays() const {
    if (!Owns()) return 0;
    return mRound.IsCompressed() ? (C + 1) * i + N * (i + v) : N * (2 * i + v);
  }

  // Of a holder without an offset array that sends.
  long ZeroOffsets() const {
    bool const sends = holder && (mRound.toAll || !receiver);
    return mRound.IsCompressed() && sends && !mPiece.hasOffsets ? (C + 1) * i : 0;
  }

  // Of a gather of the pattern (w = 0) or of values (w = t).
  long DensePeak(Phase phase, long w) const {
    if (!pieces && !one) return 0;
    long const storage = receiver ? N * t : 0;
    bool const packs = !mPiece.IsPacked(phase) && (pieces || holder);
    long const reordered = pieces && receiver && Reordered() ? N * w : 0;
    long const counts = w == 0 ? 0 : RoundCounts(N);  // returned before the reorder
    return storage + (packs ? n * w : 0) + std::max(reordered, counts);
  }

  long HeldArrays() const {
    if (!receiver) return 0;
    if (!mRound.IsDense()) return OwnedArrays() + ZeroOffsets();
    bool const view = holder && v != 0 && mPiece.IsPacked(GATHERED);
    return (pieces || one) && !view ? N * t : 0;
  }

  // Whether the pieces lie side by side in the runs of the gathered matrix.
  bool Reordered() const {
    Whole const& whole = mRound.wholes.front();
    return mPiece.rowMajor ? mPiece.partition != 0 && whole.rows != 1
                           : mPiece.partition != 1 && whole.cols != 1;
  }

  Round const& mRound;
  Piece const& mPiece;
  long const i;
  long const t;
  long const v;
  long const P;
  long const n;
  long const N;
  long const c;
  long const C;
  bool const pieces;
  bool const one;
  bool const receiver;
  bool const holder;
  bool const root;
};

}  // namespace Pavex
