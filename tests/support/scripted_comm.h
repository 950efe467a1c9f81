// A communicator without peers, for tests of one rank of a job.

#pragma once

#include "tests/support/comm_call.h"

#include <cstddef>
#include <functional>
#include <map>
#include <type_traits>
#include <utility>
#include <vector>

namespace Pavex {

// Acts as rank `rank` of `size`, any numbers, in one thread. A test sets beforehand what the
// other ranks would do: Allgather fills their slots from given records. Every other operation
// succeeds and moves nothing unless it has a handler. Wrap it in a TraceComm to see the calls.
//
//   auto comm = std::make_shared<ScriptedComm>(1, 3);
//   comm->SetRecords(std::vector<Record>{first, {}, third});
//   comm->On(CommOp::RECV, [](CommCall const& call) { ...fill call.recvbuf...; return 0; });
class ScriptedComm : public CallComm {
 public:
  using Handler = std::function<PavexStatus(CommCall const&)>;

  ScriptedComm(int rank, int size) : CallComm(rank, size) {}

  // Sets the records of all ranks, one each; the record of this rank is ignored. Allgather
  // copies as many bytes of each as the caller receives from each rank, and the caller's own
  // contribution unless it is in place.
  template <typename Record>
  void SetRecords(std::vector<Record> const& records) {
    static_assert(std::is_trivially_copyable_v<Record>, "records travel as raw bytes");
    mRecordBytes = sizeof(Record);
    auto const* const bytes = reinterpret_cast<unsigned char const*>(records.data());
    mRecords.assign(bytes, bytes + records.size() * sizeof(Record));
  }

  // Makes `handler` carry out the calls of `op`, also if it is Allgather.
  void On(CommOp op, Handler handler) { mHandlers[op] = std::move(handler); }

  // Makes the calls of `op` return `status` and do nothing.
  void Return(CommOp op, PavexStatus status) {
    On(op, [status](CommCall const&) { return status; });
  }

 protected:
  PavexStatus Handle(CommCall& call) const override;

 private:
  // STATUS_COMM_FAILED if the records do not fit the call.
  PavexStatus FillRecords(CommCall const& call) const;

  std::map<CommOp, Handler> mHandlers;
  std::vector<unsigned char> mRecords;
  std::size_t mRecordBytes = 0;
};

}  // namespace Pavex
