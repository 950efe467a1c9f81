#include "tests/fuzz/announced_comm.h"

#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace Pavex {

namespace {

constexpr unsigned char kSent = 0x11;
constexpr int kMostCalls = 1000;

unsigned char* At(void* buffer, int element, Datatype type) {
  return static_cast<unsigned char*>(buffer) +
         static_cast<std::size_t>(element) * DatatypeSize(type);
}

PavexStatus Write(void* buffer, int first, int count, Datatype type) {
  if (count == 0) return STATUS_OK;
  if (count < 0 || first < 0) return STATUS_COMM_FAILED;
  std::memset(At(buffer, first, type), kSent,
              static_cast<std::size_t>(count) * DatatypeSize(type));
  return STATUS_OK;
}

PavexStatus Read(void const* buffer, int first, int count, Datatype type) {
  if (count == 0) return STATUS_OK;
  if (count < 0 || first < 0) return STATUS_COMM_FAILED;
  auto const* const begin = At(const_cast<void*>(buffer), first, type);
  auto const* const end = begin + static_cast<std::size_t>(count) * DatatypeSize(type);
  std::vector<unsigned char> const sent(begin, end);
  return STATUS_OK;
}

bool HasNegative(std::vector<int> const& numbers) {
  return std::any_of(numbers.begin(), numbers.end(), [](int number) { return number < 0; });
}

}  // namespace

PavexStatus AnnouncedComm::Handle(CommCall& call) const {
  bool const moves = call.op != CommOp::RANK && call.op != CommOp::SIZE;
  if (moves && ++mCalls > kMostCalls) return STATUS_COMM_FAILED;
  switch (call.op) {
    case CommOp::RANK:
      return mRank;
    case CommOp::SIZE:
      return mSize;
    case CommOp::ALLGATHER:
      Exchange(call.recvbuf);
      return STATUS_OK;
    case CommOp::GATHERV:
      if (mRank != call.peer) return Read(call.sendbuf, 0, call.sendcount, call.sendtype);
      return Collect(call);
    case CommOp::ALLGATHERV:
      return Collect(call);
    case CommOp::SCATTERV:
      return Distribute(call);
    case CommOp::SEND:
      return Read(call.sendbuf, 0, call.sendcount, call.sendtype);
    case CommOp::RECV:
      return Write(call.recvbuf, 0, call.recvcount, call.recvtype);
    case CommOp::BCAST:
      return mRank == call.peer ? Read(call.recvbuf, 0, call.recvcount, call.recvtype)
                                : Write(call.recvbuf, 0, call.recvcount, call.recvtype);
    default:
      Require(false, "the library calls no other operation");
      return STATUS_COMM_FAILED;
  }
}

void AnnouncedComm::Exchange(void* records) const {
  for (int rank = 0; rank < mSize; ++rank)
    if (mOwn || rank != mRank)
      std::memcpy(static_cast<MatrixLocalInfo*>(records) + rank,
                  &mRecords[static_cast<std::size_t>(rank)], sizeof(MatrixLocalInfo));
}

PavexStatus AnnouncedComm::Collect(CommCall const& call) const {
  if (HasNegative(call.recvcountsRead) ||
      call.recvcountsRead[static_cast<std::size_t>(mRank)] != call.sendcount)
    return STATUS_COMM_FAILED;
  PavexStatus status = Read(call.sendbuf, 0, call.sendcount, call.sendtype);
  for (std::size_t p = 0; p < call.recvcountsRead.size() && status == STATUS_OK; ++p)
    status = Write(call.recvbuf, call.recvdisplsRead[p], call.recvcountsRead[p], call.recvtype);
  return status;
}

PavexStatus AnnouncedComm::Distribute(CommCall const& call) const {
  PavexStatus status = STATUS_OK;
  if (mRank == call.peer) {
    if (HasNegative(call.sendcountsRead) ||
        call.sendcountsRead[static_cast<std::size_t>(mRank)] != call.recvcount)
      return STATUS_COMM_FAILED;
    for (std::size_t p = 0; p < call.sendcountsRead.size() && status == STATUS_OK; ++p)
      status =
          Read(call.sendbuf, call.senddisplsRead[p], call.sendcountsRead[p], call.sendtype);
  }
  return status == STATUS_OK ? Write(call.recvbuf, 0, call.recvcount, call.recvtype) : status;
}

}  // namespace Pavex
