// One rank of a job. The other ranks are only their records.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "tests/support/comm_call.h"

#include <vector>

namespace Pavex {

// The exchange of the records brings `records`. In every other call the peers do what their
// records announce: the communicator reads every element that is to be sent, and writes every
// element that is to be received. A call that no communicator would carry out fails with
// STATUS_COMM_FAILED: one with a negative count or displacement, or with two lengths for the
// own piece. So does one after a thousand others: peers that announce so many rounds do not
// have the memory for them.
class AnnouncedComm : public CallComm {
 public:
  // `own`: the exchange also overwrites the record of this rank. `records` outlive the object.
  AnnouncedComm(int rank, std::vector<MatrixLocalInfo> const& records, bool own)
      : CallComm(rank, static_cast<int>(records.size())), mRecords(records), mOwn(own) {}

 protected:
  PavexStatus Handle(CommCall& call) const override;

 private:
  void Exchange(void* records) const;
  PavexStatus Collect(CommCall const& call) const;
  PavexStatus Distribute(CommCall const& call) const;

  std::vector<MatrixLocalInfo> const& mRecords;
  bool const mOwn;
  mutable int mCalls = 0;  // that move data
};

}  // namespace Pavex
