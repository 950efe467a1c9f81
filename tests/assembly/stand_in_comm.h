// A communicator whose rank can fail without leaving the other ranks waiting.

#pragma once

#include "pavex/assembly/assembly_plan.h"
#include "tests/support/comm_call.h"
#include "tests/support/trace_comm.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace Pavex {

// Passes every call to the wrapped communicator. It records the calls of one operation with
// what they send. When the operation runs again and fails on this rank, MakeUp makes the calls
// that are missing as they were recorded: to the other ranks nothing has happened. Works over
// any communicator, also one whose ranks wait for ever. One thread uses it at a time.
class StandInComm final : public CallComm {
 public:
  using FaultMode = TraceComm::FaultMode;

  explicit StandInComm(std::shared_ptr<Comm> inner)
      : CallComm(inner->Rank(), inner->Size()), mInner(std::move(inner)) {}

  // The calls from now on are those to make up for.
  void Record() {
    mCalls.clear();
    Repeat({});
    mRecords = true;
  }

  // The recorded operation begins again. `fault` decides which of its calls fail.
  void Repeat(Fault const& fault, FaultMode mode = TraceComm::INSTEAD) {
    mRecords = mTold = false;
    mMade = 0;
    mFault = fault;
    mMode = mode;
  }

  bool FaultStruck() const { return mFault.Struck(); }

  // Whether this rank has told the others that it fails: then they stop as well.
  bool Told() const { return mTold; }

  // Makes the recorded calls that are missing, unless the others stop as well.
  PavexStatus MakeUp() {
    PavexStatus status = STATUS_OK;
    for (; !mTold && mMade < mCalls.size() && status == STATUS_OK; ++mMade)
      status = Make(mCalls[mMade]);
    return status;
  }

 private:
  struct Kept {
    CommCall call;
    std::vector<unsigned char> sent;
    std::size_t room = 0;  // bytes that the receive buffer has at least
  };

  PavexStatus Handle(CommCall& call) const override {
    if (call.op == CommOp::RANK || call.op == CommOp::SIZE) return Forward(call, *mInner);
    if (mRecords) mCalls.push_back(Keep(call));
    bool const fails = mFault.Due();
    if (fails && mMode == TraceComm::INSTEAD) return mFault.Status();
    ++mMade;
    mTold = mTold || TellsAFlaw(call);
    PavexStatus const status = Forward(call, *mInner);
    return fails ? mFault.Status() : status;
  }

  // Whether the call is an exchange of records, to which this rank adds a flaw.
  static bool TellsAFlaw(CommCall const& call) {
    bool const record = call.op == CommOp::ALLGATHER && !call.InPlace() &&
                        call.sendtype == DATATYPE_BYTE &&
                        call.sendcount == int{sizeof(AssemblyRecord)};
    if (!record) return false;
    AssemblyRecord own;
    std::memcpy(&own, call.sendbuf, sizeof own);
    return !own.Flawless();
  }

  static std::size_t Bytes(std::vector<int> const& counts, std::vector<int> const& displs,
                           Datatype type) {
    int end = 0;
    for (std::size_t p = 0; p < counts.size(); ++p)
      end = std::max(end, displs[p] + counts[p]);
    return static_cast<std::size_t>(end) * DatatypeSize(type);
  }

  Kept Keep(CommCall const& call) const {
    Kept kept;
    kept.call = call;
    std::size_t const each =
        static_cast<std::size_t>(call.recvcount) * DatatypeSize(call.recvtype);
    kept.room = call.op == CommOp::ALLGATHER ? each * static_cast<std::size_t>(mSize)
                : call.op == CommOp::SCATTERV
                    ? each
                    : Bytes(call.recvcountsRead, call.recvdisplsRead, call.recvtype);
    std::size_t sent = static_cast<std::size_t>(call.sendcount) * DatatypeSize(call.sendtype);
    if (call.op == CommOp::SCATTERV)
      sent = Bytes(call.sendcountsRead, call.senddisplsRead, call.sendtype);
    auto const* from = static_cast<unsigned char const*>(call.sendbuf);
    if (call.InPlace()) {  // of the operations in use, only an Allgather is
      EXPECT_EQ(call.op, CommOp::ALLGATHER);
      from = static_cast<unsigned char const*>(call.recvbuf) +
             each * static_cast<std::size_t>(mRank);
      sent = each;
      kept.call.sendcount = call.recvcount;
      kept.call.sendtype = call.recvtype;
    }
    kept.sent.assign(from, from + sent);
    return kept;
  }

  PavexStatus Make(Kept& kept) const {
    std::vector<unsigned char> received(kept.room);
    CommCall& call = kept.call;
    call.sendbuf = kept.sent.data();
    call.recvbuf = received.data();
    call.sendcounts = call.sendcountsRead.data();
    call.senddispls = call.senddisplsRead.data();
    call.recvcounts = call.recvcountsRead.data();
    call.recvdispls = call.recvdisplsRead.data();
    return Forward(call, *mInner);
  }

  std::shared_ptr<Comm> const mInner;
  std::vector<Kept> mutable mCalls;
  std::size_t mutable mMade = 0;
  bool mutable mTold = false;
  bool mRecords = false;
  Fault mutable mFault;
  FaultMode mMode = TraceComm::INSTEAD;
};

}  // namespace Pavex
