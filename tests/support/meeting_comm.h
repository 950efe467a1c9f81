// A communicator over shared memory for tests in which operations fail on one process alone.

#pragma once

#include "tests/support/comm_call.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <memory>
#include <utility>
#include <vector>

namespace Pavex {

// A communicator over shared memory whose processes can meet again after some have failed.
class MeetingComm final : public CallComm {
 public:
  explicit MeetingComm(std::shared_ptr<Comm> inner)
      : CallComm(inner->Rank(), inner->Size()), mInner(std::move(inner)) {}

  // Enters empty operations until every process is in the same one, then exchanges numbers.
  // Those that still wait for this process notice that it has gone on. Collective.
  void Meet() {
    constexpr long kMost = 64;  // collectives between two meetings
    long const meeting = (mCollectives / kMost + 1) * kMost;
    while (mCollectives < meeting - 1)
      EXPECT_EQ(Bcast(nullptr, 0, DATATYPE_BYTE, 0), STATUS_OK);
    std::vector<int> numbers(static_cast<std::size_t>(mSize), -1);
    EXPECT_EQ(Allgather(&mRank, 1, DATATYPE_INT, numbers.data(), 1, DATATYPE_INT), STATUS_OK);
    for (int r = 0; r < mSize; ++r)
      EXPECT_EQ(numbers[static_cast<std::size_t>(r)], r);
  }

  bool Strided() const override { return mInner->Strided(); }
  PavexStatus GatherRuns(void const* sendbuf, Runs const& sent, void* recvbuf,
                         Runs const* received, Datatype type, int root) const override {
    ++mCollectives;
    return mInner->GatherRuns(sendbuf, sent, recvbuf, received, type, root);
  }
  PavexStatus ScatterRuns(void const* sendbuf, Runs const* sent, void* recvbuf,
                          Runs const& received, Datatype type, int root) const override {
    ++mCollectives;
    return mInner->ScatterRuns(sendbuf, sent, recvbuf, received, type, root);
  }

 protected:
  PavexStatus Handle(CommCall& call) const override {
    bool const local = call.op == CommOp::RANK || call.op == CommOp::SIZE;
    bool const message = call.op == CommOp::SEND || call.op == CommOp::RECV;
    if (!local && !message) ++mCollectives;
    return Forward(call, *mInner);
  }

 private:
  std::shared_ptr<Comm> mInner;
  long mutable mCollectives = 0;
};

}  // namespace Pavex
