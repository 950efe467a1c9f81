#include "tests/support/scripted_comm.h"

#include <cstring>

namespace Pavex {

PavexStatus ScriptedComm::Handle(CommCall& call) const {
  auto const handler = mHandlers.find(call.op);
  if (handler != mHandlers.end()) return handler->second(call);
  switch (call.op) {
    case CommOp::RANK:
      return mRank;
    case CommOp::SIZE:
      return mSize;
    case CommOp::ALLGATHER:
      return FillRecords(call);
    default:
      return STATUS_OK;
  }
}

PavexStatus ScriptedComm::FillRecords(CommCall const& call) const {
  std::size_t const bytes =
      static_cast<std::size_t>(call.recvcount) * DatatypeSize(call.recvtype);
  if (bytes != mRecordBytes || mRecords.size() != bytes * static_cast<std::size_t>(mSize))
    return STATUS_COMM_FAILED;
  for (int rank = 0; rank < mSize; ++rank) {
    std::size_t const offset = static_cast<std::size_t>(rank) * bytes;
    unsigned char* const slot = static_cast<unsigned char*>(call.recvbuf) + offset;
    if (rank != mRank)
      std::memcpy(slot, mRecords.data() + offset, bytes);
    else if (!call.InPlace())
      std::memcpy(slot, call.sendbuf, bytes);
  }
  return STATUS_OK;
}

}  // namespace Pavex
