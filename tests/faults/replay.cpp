#include "tests/faults/replay.h"

#include <cstring>
#include <utility>

namespace Pavex {

namespace {

bool IsQuestion(CommCall const& call) {
  return call.op == CommOp::RANK || call.op == CommOp::SIZE;
}

// Collects the parts of the receive buffer that a call fills.
class Arrivals {
 public:
  explicit Arrivals(CommCall const& call) : mCall(call) {}

  std::vector<RecordedCall::Piece> Of(int rank, int size) {
    switch (mCall.op) {
      case CommOp::ALLGATHER:
        Add(0, mCall.recvcount * size);
        break;
      case CommOp::GATHERV:
      case CommOp::ALLGATHERV:
        for (std::size_t p = 0; p < mCall.recvcountsRead.size(); ++p)
          Add(mCall.recvdisplsRead[p], mCall.recvcountsRead[p]);
        break;
      case CommOp::BCAST:
        if (mCall.peer != rank) Add(0, mCall.recvcount);
        break;
      case CommOp::RECV:
      case CommOp::SCATTERV:
        Add(0, mCall.recvcount);
        break;
      default:
        break;
    }
    return std::move(mPieces);
  }

 private:
  void Add(int first, int count) {
    if (count == 0) return;
    std::size_t const bytes = DatatypeSize(mCall.recvtype);
    std::size_t const offset = static_cast<std::size_t>(first) * bytes;
    auto const* const data = static_cast<unsigned char const*>(mCall.recvbuf) + offset;
    mPieces.push_back({offset, {data, data + static_cast<std::size_t>(count) * bytes}});
  }

  CommCall const& mCall;
  std::vector<RecordedCall::Piece> mPieces;
};

}  // namespace

PavexStatus RecordingComm::Handle(CommCall& call) const {
  PavexStatus const status = Forward(call, *mInner);
  if (!IsQuestion(call)) mCalls.push_back({Text(call), Arrivals(call).Of(mRank, mSize)});
  return status;
}

PavexStatus ReplayComm::Handle(CommCall& call) const {
  if (call.op == CommOp::RANK) return mRank;
  if (call.op == CommOp::SIZE) return mSize;
  if (mNext == mCalls.size() || Text(call) != mCalls[mNext].text) return STATUS_COMM_FAILED;
  for (RecordedCall::Piece const& piece : mCalls[mNext].arrived) {
    std::memcpy(static_cast<unsigned char*>(call.recvbuf) + piece.offset, piece.bytes.data(),
                piece.bytes.size());
  }
  ++mNext;
  return STATUS_OK;
}

}  // namespace Pavex
