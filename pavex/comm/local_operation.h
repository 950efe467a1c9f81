// The operation that a rank of a LocalComm calls, and the work that follows when operations
// meet.

#pragma once

#include "pavex/runtime/comm.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace Pavex {

class LocalGroup;

enum class LocalKind {
  SEND,
  RECV,
  BARRIER,
  GATHERV,
  SCATTERV,
  ALLTOALLV,
  ALLGATHER,
  ALLGATHERV,
  ALLREDUCE,
  BCAST,
  GATHER_RUNS,
  ALLGATHER_RUNS,
  SCATTER_RUNS,
  SPLIT
};

// `count` elements of `type` from `data` on, one behind the other or in runs. It is read or
// written, depending on its side.
struct LocalRegion {
  char* mData;
  long mCount;
  Datatype mType;
  long mRun = 0;     // elements of a run; 0 if there are no gaps
  long mStride = 0;  // elements from the beginning of a run to that of the next, if mRun > 0

  // A known type, no negative count, and memory unless the count is zero.
  bool Valid() const;
  std::size_t Bytes() const;
  // Whether both are valid and the elements of one can be copied to the other.
  bool Fits(LocalRegion const& other) const;
  bool operator==(LocalRegion const& other) const;
};

// The send or receive half of an operation: one region for each other rank, laid out in one of
// several ways. Each factory makes one layout.
class LocalSide {
 public:
  // Nothing to send or receive.
  LocalSide() = default;
  // The same `count` elements for every rank.
  static LocalSide Whole(void const* data, int count, Datatype type);
  // `count` elements for each rank, in rank order.
  static LocalSide Slots(void const* data, int count, Datatype type);
  // `counts[r]` elements at element `displs[r]` for rank r.
  static LocalSide Pieces(void const* data, int const* counts, int const* displs,
                          Datatype type);
  // The same `runs` for every rank.
  static LocalSide WholeRuns(void const* data, Runs const& runs, Datatype type);
  // `runs[r]` for rank r.
  static LocalSide PieceRuns(void const* data, Runs const* runs, Datatype type);

  bool InPlace() const;
  // The region for `rank`; an invalid one if the arguments make no sense.
  LocalRegion For(int rank) const;
  // For the ranks 0 .. `ranks` - 1 both have regions of the same counts and types at the same
  // displacements. May be false for equal layouts that are given in different ways.
  bool LaidOutAs(LocalSide const& other, int ranks) const;

 private:
  enum class Layout { WHOLE, SLOTS, PIECES, WHOLE_RUNS, PIECE_RUNS };

  LocalRegion OfRuns(int rank) const;

  Layout mLayout = Layout::WHOLE;
  void* mData = nullptr;
  int mCount = 0;  // of whole sides and slots
  int const* mCounts = nullptr;
  int const* mDispls = nullptr;
  Runs const* mRuns = nullptr;
  Datatype mType = DATATYPE_BYTE;
};

// What a rank passes to a split of its group, and what it gets.
struct LocalSplit {
  int mColor;
  int mKey;
  bool mHasRoom;                       // for the communicator; if not, the split fails
  std::shared_ptr<LocalGroup> mGroup;  // null if the rank takes no part
  int mRank = -1;                      // in that group
};

// One call of one rank. Lives on the stack of the call.
struct LocalOperation {
  LocalKind mKind;
  int mPeer;  // root of a collective (0 where there is none), partner of Send and Recv
  int mTag;   // Send and Recv; 0 otherwise
  LocalSide mSend;
  LocalSide mRecv;
  ReduceOp mReduce;              // Allreduce
  LocalSplit* mSplit = nullptr;  // Split

  bool PointToPoint() const { return mKind == LocalKind::SEND || mKind == LocalKind::RECV; }
  // Whether both are the same collective with the same root.
  bool SameCollective(LocalOperation const& other) const;
  // What `own`, the rank that calls the operation, sends to rank `to`; an invalid region if the
  // arguments make no sense. An in-place contribution is in the receive buffer.
  LocalRegion Sent(int own, int to) const;
};

// A copy, or a combination of all ranks' operands by slices. Any rank can do a part of it.
struct LocalPiece {
  char* mTarget;
  char const* mSource;  // unused by a reduction
  std::size_t mBytes;   // without the gaps between runs
  std::size_t mRun;     // bytes of a run; mBytes if there are no gaps
  std::size_t mTargetStride;
  std::size_t mSourceStride;

  // The copy from one region to another one that it fits.
  static LocalPiece Of(LocalRegion const& target, LocalRegion const& source);

  // Copies bytes [begin, end), counted without the gaps.
  void Copy(std::size_t begin, std::size_t end) const;
};

// The work of operations that have met: pieces that ranks may do in any order and at the same
// time, unless `mOrdered`.
struct LocalWork {
  std::vector<LocalPiece> mPieces;
  bool mOrdered = false;  // pieces overlap: do them in the given order

  // Allreduce only: one piece, whose target is the first of mResults.
  std::vector<char const*> mOperands;
  std::vector<char*> mResults;
  Datatype mType = DATATYPE_BYTE;
  ReduceOp mReduce = REDUCE_SUM;

  std::size_t Bytes() const;
  // Does bytes [begin, end) of piece `index`. Both are multiples of the size of the largest
  // type, or the piece's end.
  void Do(std::size_t index, std::size_t begin, std::size_t end) const;
  // Does everything, in order.
  void DoAll() const;
};

// Fills the empty `work` with what the operations of ranks 0 .. n - 1 (null where a rank takes
// no part) ask for. Returns false if they disagree or are wrong; do not use `work` then.
bool PlanLocalWork(std::vector<LocalOperation const*> const& operations, LocalWork& work);

}  // namespace Pavex
