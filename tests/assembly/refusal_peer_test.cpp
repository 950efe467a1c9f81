// A peer's verdict that this version of the library does not know: it is refused, and no name
// is read outside an array.

#include "pavex/assembly/assembler.h"
#include "pavex/comm/local_comm.h"
#include "tests/assembly/spoiled_input.h"
#include "tests/support/capture.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/trace_comm.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <utility>

namespace Pavex {
namespace {

using Change = std::function<void(AssemblyRecord& record)>;

// Changes what arrives from rank 1 in every exchange of records.
class OtherPeerComm : public TraceComm {
 public:
  OtherPeerComm(std::shared_ptr<Comm> inner, Change change)
      : TraceComm(std::move(inner)), mChange(std::move(change)) {}

 protected:
  PavexStatus Handle(CommCall& call) const override {
    PavexStatus const status = TraceComm::Handle(call);
    if (call.op != CommOp::ALLGATHER || call.recvcount < int{sizeof(AssemblyRecord)})
      return status;
    char* const bytes = static_cast<char*>(call.recvbuf) + call.recvcount;
    AssemblyRecord record;
    std::memcpy(&record, bytes, sizeof record);
    mChange(record);
    std::memcpy(bytes, &record, sizeof record);
    return status;
  }

 private:
  Change const mChange;
};

void ExpectReason(std::string const& reason, Change const& change,
                  PavexStatus status = STATUS_INVALID_VALUE, int base = 0) {
  std::string const printed = CaptureStdout([&] {
    LocalComm::Run(2, [&](std::shared_ptr<Comm> const& comm) {
      LedgerPool pool;
      Assembler<double, int> assembler(&pool);
      Input input;
      input.request.mBase = base;
      auto const other = std::make_shared<OtherPeerComm>(comm, change);
      EXPECT_EQ(assembler.Gather(other, input.own, input.request), status);
      EXPECT_EQ(assembler.Describe(), reason);
    });
  });
  EXPECT_EQ(CountOf("[ERROR] " + reason + "\n", printed), 2) << printed;
}

TEST(APeerOfAnotherVersion, IsRefusedForAReasonThatNoOneKnows) {
  for (int const flaw : {-1, 77}) {
    ExpectReason(
        "Process 1 refuses its piece for an unknown reason; run one version of the library.",
        [flaw](AssemblyRecord& record) { record.mFlaw = static_cast<std::int16_t>(flaw); });
  }
}

TEST(APeerOfAnotherVersion, MayMissAnArrayOfAPartThatNoOneKnows) {
  for (int const number : {-1, 6}) {
    ExpectReason("Process 1 passes no array; pass the array.",
                 [number](AssemblyRecord& record) {
                   record.mFlaw = static_cast<std::int16_t>(AssemblyFlaw::MISSING_ARRAY);
                   record.mLimit = number;
                   record.mPart = static_cast<std::int16_t>(number < 0 ? -1 : 5);
                 });
  }
}

TEST(APeerOfAnotherVersion, IsRefusedAlsoIfItsStepFailedWithSuccess) {
  ExpectReason("Process 1 got no memory from its pool: Success; look there.",
               [](AssemblyRecord& record) {
                 record.mFlaw = static_cast<std::int16_t>(AssemblyFlaw::FAILED_STEP);
                 record.mStatus = STATUS_OK;
               });
}

TEST(APeerOfAnotherVersion, IsRefusedIfItSendsFewerEntriesThanNoneOrTooMany) {
  for (std::int64_t const entries : {std::int64_t{-1}, std::int64_t{1} << 40})
    ExpectReason(
        "Up to process 1 there are more than 2147483647 entries or rows; pass fewer.",
        [entries](AssemblyRecord& record) { record.mGiven = record.mNnz = entries; },
        STATUS_NOT_SUPPORTED);
}

TEST(AWholeFromBase1, IsRefusedIfItsLastOffsetIsBeyondTheIndexType) {
  ExpectReason(
      "Up to process 1 there is one entry more than base 1 counts; pass base 0.",
      [](AssemblyRecord& record) {
        record.mGiven = record.mNnz = std::numeric_limits<int>::max() - 2;  // rank 0 has 2
      },
      STATUS_NOT_SUPPORTED, 1);
}

TEST(APeerOfAnotherVersion, MayHaveBeenGivenAnyNumberOfEntries) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    LedgerPool pool;
    Assembler<double, int> assembler(&pool);
    Input input;
    auto const other = std::make_shared<OtherPeerComm>(comm, [](AssemblyRecord& record) {
      record.mGiven = std::numeric_limits<std::int64_t>::max();
    });
    ASSERT_EQ(assembler.Gather(other, input.own, input.request), STATUS_OK);
    EXPECT_EQ(assembler.Describe(),  // the sum wraps
              "path merge: 2 processes, -9223372036854775807 entries given, 4 sent, 4 x 4 "
              "whole");
  });
}

TEST(APeerOfAnotherVersion, IsRefusedForTheFirstOfTwoReasons) {
  ExpectReason(
      "Process 1 wants a whole of 9 x 4, process 0 wants 4 x 4; pass one shape.",
      [](AssemblyRecord& record) {
        record.mWholeRows = 9;
        record.mNnz = -1;
      },
      STATUS_INCONSISTENT);
}

}  // namespace
}  // namespace Pavex
