#include "pavex/comm/mpi_call.h"

#include "pavex/runtime/log.h"
#include "pavex/runtime/wrapping.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace Pavex {

MPI_Datatype MpiType(Datatype type) noexcept {
  switch (type) {
    case DATATYPE_BYTE:
      return MPI_BYTE;
    case DATATYPE_INT:
      return MPI_INT;
    case DATATYPE_LONG:
      return MPI_LONG;
    case DATATYPE_FLOAT:
      return MPI_FLOAT;
    case DATATYPE_DOUBLE:
      return MPI_DOUBLE;
    case DATATYPE_COMPLEX_FLOAT:
      return MPI_C_FLOAT_COMPLEX;
    case DATATYPE_COMPLEX_DOUBLE:
      return MPI_C_DOUBLE_COMPLEX;
  }
  return MPI_DATATYPE_NULL;
}

MpiCall::MpiCall(char const* operation, int rank, int size)
    : mOperation(operation), mRank(rank), mSize(rank < 0 ? -1 : size) {
  if (rank < 0) Refuse(STATUS_COMM_FAILED, "no live MPI communicator");
}

void MpiCall::Send(void const* buf, int count, Datatype type, int dest, int tag) {
  To(dest);
  Tag(tag);
  NotInPlace(buf);
  Out(count, type);
}

void MpiCall::Recv(void const* buf, int count, Datatype type, int source, int tag) {
  To(source);
  Tag(tag);
  NotInPlace(buf);
  In(count, type);
}

void MpiCall::Gatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                      void const* recvbuf, int const* recvcounts, int const* displs,
                      Datatype recvtype, int root) {
  To(root);
  if (mRank != root) NotInPlace(sendbuf);
  if (sendbuf != &Comm::IN_PLACE_OBJ) Out(sendcount, sendtype);
  if (mRank != root) return;
  NotInPlace(recvbuf);
  In(recvcounts, displs, recvtype);
}

void MpiCall::Scatterv(void const* sendbuf, int const* sendcounts, int const* displs,
                       Datatype sendtype, void const* recvbuf, int recvcount, Datatype recvtype,
                       int root) {
  To(root);
  if (mRank == root) {
    NotInPlace(sendbuf);
    Out(sendcounts, displs, sendtype);
  }
  NotInPlace(recvbuf);
  In(recvcount, recvtype);
}

void MpiCall::Alltoallv(void const* sendbuf, int const* sendcounts, int const* sdispls,
                        Datatype sendtype, void const* recvbuf, int const* recvcounts,
                        int const* rdispls, Datatype recvtype) {
  if (sendbuf != &Comm::IN_PLACE_OBJ) Out(sendcounts, sdispls, sendtype);
  NotInPlace(recvbuf);
  In(recvcounts, rdispls, recvtype);
}

void MpiCall::Allgather(void const* sendbuf, int sendcount, Datatype sendtype,
                        void const* recvbuf, int recvcount, Datatype recvtype) {
  if (sendbuf != &Comm::IN_PLACE_OBJ) Out(sendcount, sendtype);
  NotInPlace(recvbuf);
  In(recvcount, recvtype, mSize);
}

void MpiCall::Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                         void const* recvbuf, int const* recvcounts, int const* displs,
                         Datatype recvtype) {
  if (sendbuf != &Comm::IN_PLACE_OBJ) Out(sendcount, sendtype);
  NotInPlace(recvbuf);
  In(recvcounts, displs, recvtype);
}

void MpiCall::Bcast(void const* buf, int count, Datatype type, int root) {
  To(root);
  NotInPlace(buf);
  if (mRank == root)
    Out(count, type);
  else
    In(count, type);
}

void MpiCall::GatherRuns(void const* sendbuf, Runs const& sent, void const* recvbuf,
                         Runs const* received, Datatype type, int root) {
  if (root != -1) To(root);
  NotInPlace(sendbuf);
  Out(&sent, 1, type);
  if (root != -1 && root != mRank) return;
  NotInPlace(recvbuf);
  In(received, mSize, type);
}

void MpiCall::ScatterRuns(void const* sendbuf, Runs const* sent, void const* recvbuf,
                          Runs const& received, Datatype type, int root) {
  To(root);
  if (root == mRank) {
    NotInPlace(sendbuf);
    Out(sent, mSize, type);
  }
  NotInPlace(recvbuf);
  In(&received, 1, type);
}

void MpiCall::To(int peer) {
  mPeer = peer;
  if (peer < 0 || peer >= mSize)
    Refuse(STATUS_INVALID_VALUE, "rank %d is outside the communicator", peer);
}

void MpiCall::Tag(int tag) {
  if (tag < 0) Refuse(STATUS_INVALID_VALUE, "tag %d is negative", tag);
}

void MpiCall::Out(int count, Datatype type) {
  CheckType(type);
  mOut = count;
  if (count < 0) Refuse(STATUS_INVALID_VALUE, "send count %d is negative", count);
}

void MpiCall::Out(int const* counts, int const* displs, Datatype type) {
  CheckType(type);
  mOut = Sum(counts, displs);
}

void MpiCall::In(int count, Datatype type, int senders) {
  CheckType(type);
  mIn = static_cast<long>(count) * senders;
  if (count < 0) Refuse(STATUS_INVALID_VALUE, "receive count %d is negative", count);
}

void MpiCall::In(int const* counts, int const* displs, Datatype type) {
  CheckType(type);
  mIn = Sum(counts, displs);
}

void MpiCall::Out(Runs const* runs, int ranks, Datatype type) {
  CheckType(type);
  mOut = Sum(runs, ranks);
}

void MpiCall::In(Runs const* runs, int ranks, Datatype type) {
  CheckType(type);
  mIn = Sum(runs, ranks);
}

void MpiCall::NotInPlace(void const* buf) {
  if (buf == &Comm::IN_PLACE_OBJ) Refuse(STATUS_INVALID_VALUE, "in place is not possible here");
}

void MpiCall::CheckType(Datatype type) {
  if (MpiType(type) == MPI_DATATYPE_NULL)
    Refuse(STATUS_INVALID_VALUE, "element type %d is unknown", static_cast<int>(type));
}

long MpiCall::Sum(int const* counts, int const* displs) {
  if (counts == nullptr || displs == nullptr) {
    Refuse(STATUS_INVALID_VALUE, "there are no counts or no displacements");
    return 0;
  }
  long sum = 0;
  for (int r = 0; r < mSize; ++r) {
    sum += counts[r];
    if (counts[r] < 0 || displs[r] < 0)
      Refuse(STATUS_INVALID_VALUE, "count %d or displacement %d of rank %d is negative",
             counts[r], displs[r], r);
  }
  return sum;
}

long MpiCall::Sum(Runs const* runs, int ranks) {
  if (runs == nullptr) {
    Refuse(STATUS_INVALID_VALUE, "there are no runs");
    return 0;
  }
  long sum = 0;
  for (int r = 0; r < ranks; ++r) {
    Runs const& piece = runs[r];
    if ((piece.begin | piece.length | piece.count | piece.stride) < 0)
      Refuse(STATUS_INVALID_VALUE, "a number of runs %d is negative", r);
    sum = WrappingAdd(sum, WrappingMul(piece.length, piece.count));
  }
  return sum;
}

void MpiCall::Refuse(PavexStatus status, char const* format, ...) {
  if (mStatus != STATUS_OK) return;
  mStatus = status;
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(mReason, sizeof mReason, format, arguments);
  va_end(arguments);
}

PavexStatus MpiCall::Ready() const {
  return mStatus == STATUS_OK ? STATUS_OK : Fail(mStatus, mReason);
}

void const* MpiCall::SendBuffer(void const* sendbuf) const {
  static char const kNothing = 0;
  if (sendbuf == &Comm::IN_PLACE_OBJ) return MPI_IN_PLACE;
  return sendbuf == nullptr && mOut == 0 ? &kNothing : sendbuf;
}

PavexStatus MpiCall::Done(int code) const {
  if (code == MPI_SUCCESS) return STATUS_OK;
  char text[MPI_MAX_ERROR_STRING + 1] = "";
  int length = 0;
  MPI_Error_string(code, text, &length);
  std::replace(text, text + length, '\n', ' ');  // some texts are a stack of several lines
  return Fail(STATUS_COMM_FAILED, text);
}

PavexStatus MpiCall::Fail(PavexStatus status, char const* reason) const {
  Log::Error("%s failed on rank %d of %d (peer %d, %ld out, %ld in): %s", mOperation, mRank,
             mSize, mPeer, mOut, mIn, reason);
  return status;
}

}  // namespace Pavex
