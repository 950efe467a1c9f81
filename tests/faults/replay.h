// Records what the peers of one rank sent in a real run, and replays it without them.

#pragma once

#include "tests/support/comm_call.h"

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Pavex {

// One call that moved data, and what arrived.
struct RecordedCall {
  struct Piece {
    std::size_t offset;  // in the receive buffer, in bytes
    std::vector<unsigned char> bytes;
  };

  std::string text;
  std::vector<Piece> arrived;
};

// Passes every call on to the wrapped communicator, and keeps what arrives.
class RecordingComm : public CallComm {
 public:
  explicit RecordingComm(std::shared_ptr<Comm> inner)
      : CallComm(inner->Rank(), inner->Size()), mInner(std::move(inner)) {}

  // The calls since the start or the last Take.
  std::vector<RecordedCall> Take() { return std::move(mCalls); }

 protected:
  PavexStatus Handle(CommCall& call) const override;

 private:
  std::shared_ptr<Comm> const mInner;
  std::vector<RecordedCall> mutable mCalls;
};

// Answers each call with what arrived when it was recorded. A call other than the recorded one
// fails with STATUS_COMM_FAILED.
class ReplayComm : public CallComm {
 public:
  ReplayComm(int rank, int size, std::vector<RecordedCall> calls)
      : CallComm(rank, size), mCalls(std::move(calls)) {}

 protected:
  PavexStatus Handle(CommCall& call) const override;

 private:
  std::vector<RecordedCall> const mCalls;
  std::size_t mutable mNext = 0;
};

}  // namespace Pavex
