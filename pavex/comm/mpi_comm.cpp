#include "pavex/comm/mpi_comm.h"

#include "pavex/comm/mpi_call.h"
#include "pavex/comm/mpi_split.h"

#include <cstddef>
#include <new>

namespace Pavex {

namespace {

// The MPI operation of `op`; MPI_OP_NULL for a value outside the enumeration.
MPI_Op MpiOp(ReduceOp op) {
  switch (op) {
    case REDUCE_SUM:
      return MPI_SUM;
    case REDUCE_MIN:
      return MPI_MIN;
    case REDUCE_MAX:
      return MPI_MAX;
  }
  return MPI_OP_NULL;
}

// MPI_Allreduce accepts numbers only, and MPI_BYTE is not one.
MPI_Datatype MpiNumber(Datatype type) {
  return type == DATATYPE_BYTE ? MPI_UNSIGNED_CHAR : MpiType(type);
}

bool Finalized() {
  int finalized = 0;
  MPI_Finalized(&finalized);
  return finalized != 0;
}

// Whether MPI has been initialised and not yet finalised.
bool MpiIsLive() {
  int initialized = 0;
  MPI_Initialized(&initialized);
  return initialized != 0 && !Finalized();
}

}  // namespace

MpiComm::MpiComm(MPI_Comm comm) {
  if (!MpiIsLive() || comm == MPI_COMM_NULL) return;
  int isInter = 0;
  MPI_Comm_rank(comm, &mRank);
  MPI_Comm_size(comm, &mSize);
  MPI_Comm_test_inter(comm, &isInter);

  MpiCall call("MpiComm::MpiComm", mRank, mSize);
  if (isInter != 0) call.Refuse(STATUS_INVALID_VALUE, "an intercommunicator has two groups");
  PavexStatus status = call.Ready();
  MPI_Comm duplicate = MPI_COMM_NULL;
  if (status == STATUS_OK) status = call.Done(MPI_Comm_dup(comm, &duplicate));
  if (status == STATUS_OK) {
    mComm = duplicate;
    status = call.Done(MPI_Comm_set_errhandler(mComm, MPI_ERRORS_RETURN));
  }
  if (status != STATUS_OK) mRank = mSize = -1;
}

MpiComm::~MpiComm() {
  if (mComm == MPI_COMM_NULL || Finalized()) return;
  MpiCall call("MpiComm::~MpiComm", mRank, mSize);
  call.Done(MPI_Comm_free(&mComm));
}

std::shared_ptr<Comm> MpiComm::Split(int color, int key) const {
  MpiCall const call("MpiComm::Split", Rank(), mSize);
  std::shared_ptr<MpiComm> part;
  try {
    if (color >= 0) part.reset(new MpiComm);
  } catch (std::bad_alloc const&) {
    part.reset();
  }
  return SplitInto(call, color, key, part.get()) ? part : nullptr;
}

// Makes `part`, null if there was no memory for it or the color is negative, the communicator
// of this process's group. Returns false if the split has failed or this process takes no part.
// Every process makes the same calls, whatever has failed on it alone.
bool MpiComm::SplitInto(MpiCall const& call, int color, int key, MpiComm* part) const {
  if (call.Ready() != STATUS_OK) return false;
  enum Step { NOTHING, MADE, READY };
  MPI_Comm group = MPI_COMM_NULL;
  int step = NOTHING;
  int code = MPI_Comm_split(mComm, color < 0 ? MPI_UNDEFINED : color, key, &group);
  if (call.Done(code) == STATUS_OK) {
    step = part != nullptr || color < 0 ? READY : MADE;
    if (step == MADE) call.Fail(STATUS_COMM_FAILED, "there is no memory for the communicator");
    if (group != MPI_COMM_NULL) MPI_Comm_set_errhandler(group, MPI_ERRORS_RETURN);
  }
  int lowest = NOTHING;
  code = MPI_Allreduce(&step, &lowest, 1, MPI_INT, MPI_MIN, mComm);
  if (code != MPI_SUCCESS) lowest = NOTHING;
  // Otherwise this process has logged its line already.
  if (step == READY && call.Done(code) == STATUS_OK && lowest != READY)
    call.Fail(STATUS_COMM_FAILED, "the split has failed on another rank");
  if (group == MPI_COMM_NULL) return false;
  if (lowest == READY) {
    part->mComm = group;
    MPI_Comm_rank(group, &part->mRank);
    MPI_Comm_size(group, &part->mSize);
  } else if (lowest == MADE) {  // on all ranks: to free it is collective
    MPI_Comm_free(&group);
  }
  return lowest == READY;
}

int MpiComm::Rank() const {
  return mRank >= 0 && !Finalized() ? mRank : -1;
}

int MpiComm::Size() const {
  return mSize >= 0 && !Finalized() ? mSize : -1;
}

PavexStatus MpiComm::Barrier() const {
  MpiCall call("MpiComm::Barrier", Rank(), mSize);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  return call.Done(MPI_Barrier(mComm));
}

PavexStatus MpiComm::Send(void const* buf, int count, Datatype type, int dest, int tag) const {
  MpiCall call("MpiComm::Send", Rank(), mSize);
  call.Send(buf, count, type, dest, tag);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  return call.Done(MpiSplit::Send(buf, count, type, dest, tag, {mComm, mRank, mSize}));
}

PavexStatus MpiComm::Recv(void* buf, int count, Datatype type, int source, int tag) const {
  MpiCall call("MpiComm::Recv", Rank(), mSize);
  call.Recv(buf, count, type, source, tag);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  bool isWhole = false;
  PavexStatus const status =
      call.Done(MpiSplit::Recv(buf, count, type, source, tag, {mComm, mRank, mSize}, isWhole));
  if (status == STATUS_OK && !isWhole)
    return call.Fail(STATUS_COMM_FAILED, "the message is shorter than asked for");
  return status;
}

PavexStatus MpiComm::Gatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                             void* recvbuf, int const* recvcounts, int const* displs,
                             Datatype recvtype, int root) const {
  MpiCall call("MpiComm::Gatherv", Rank(), mSize);
  call.Gatherv(sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype, root);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  return call.Done(MpiSplit::Gatherv(call.SendBuffer(sendbuf), sendcount, sendtype, recvbuf,
                                     recvcounts, displs, recvtype, root,
                                     {mComm, mRank, mSize}));
}

PavexStatus MpiComm::Scatterv(void const* sendbuf, int const* sendcounts, int const* displs,
                              Datatype sendtype, void* recvbuf, int recvcount,
                              Datatype recvtype, int root) const {
  MpiCall call("MpiComm::Scatterv", Rank(), mSize);
  call.Scatterv(sendbuf, sendcounts, displs, sendtype, recvbuf, recvcount, recvtype, root);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  return call.Done(MpiSplit::Scatterv(call.SendBuffer(sendbuf), sendcounts, displs, sendtype,
                                      recvbuf, recvcount, recvtype, root,
                                      {mComm, mRank, mSize}));
}

PavexStatus MpiComm::Alltoallv(void const* sendbuf, int const* sendcounts, int const* sdispls,
                               Datatype sendtype, void* recvbuf, int const* recvcounts,
                               int const* rdispls, Datatype recvtype) const {
  MpiCall call("MpiComm::Alltoallv", Rank(), mSize);
  call.Alltoallv(sendbuf, sendcounts, sdispls, sendtype, recvbuf, recvcounts, rdispls,
                 recvtype);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  return call.Done(MPI_Alltoallv(call.SendBuffer(sendbuf), sendcounts, sdispls,
                                 MpiType(sendtype), recvbuf, recvcounts, rdispls,
                                 MpiType(recvtype), mComm));
}

PavexStatus MpiComm::Allgather(void const* sendbuf, int sendcount, Datatype sendtype,
                               void* recvbuf, int recvcount, Datatype recvtype) const {
  MpiCall call("MpiComm::Allgather", Rank(), mSize);
  call.Allgather(sendbuf, sendcount, sendtype, recvbuf, recvcount, recvtype);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  return call.Done(MPI_Allgather(call.SendBuffer(sendbuf), sendcount, MpiType(sendtype),
                                 recvbuf, recvcount, MpiType(recvtype), mComm));
}

PavexStatus MpiComm::Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                                void* recvbuf, int const* recvcounts, int const* displs,
                                Datatype recvtype) const {
  MpiCall call("MpiComm::Allgatherv", Rank(), mSize);
  call.Allgatherv(sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  return call.Done(MpiSplit::Allgatherv(call.SendBuffer(sendbuf), sendcount, sendtype, recvbuf,
                                        recvcounts, displs, recvtype, {mComm, mRank, mSize}));
}

PavexStatus MpiComm::Allreduce(void const* sendbuf, void* recvbuf, int count, Datatype type,
                               ReduceOp op) const {
  MpiCall call("MpiComm::Allreduce", Rank(), mSize);
  call.NotInPlace(recvbuf);
  call.Out(count, type);
  call.In(count, type);
  if (MpiOp(op) == MPI_OP_NULL)
    call.Refuse(STATUS_INVALID_VALUE, "reduction %d is unknown", static_cast<int>(op));
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  return call.Done(MPI_Allreduce(call.SendBuffer(sendbuf), recvbuf, count, MpiNumber(type),
                                 MpiOp(op), mComm));
}

PavexStatus MpiComm::Bcast(void* buf, int count, Datatype type, int root) const {
  MpiCall call("MpiComm::Bcast", Rank(), mSize);
  call.Bcast(buf, count, type, root);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  return call.Done(MpiSplit::Bcast(buf, count, type, root, {mComm, mRank, mSize}));
}

}  // namespace Pavex
