#include "pavex/assembly/renumbered_comm.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace Pavex {

PavexStatus RenumberedComm::Prepare(MemoryPool& pool) {
  PavexStatus status = pool.Get(mCounts, Size());
  if (status == STATUS_OK) status = pool.Get(mDispls, Size());
  return status;
}

// Counts by rank, and displacements without gaps in the order of the pieces.
void RenumberedComm::Place(int const* countsBySeat) const {
  int displ = 0;
  for (std::int64_t k = 0; k < mOrder.mSize; ++k) {
    int const rank = mOrder.mData[k];
    mCounts.mData[rank] = countsBySeat[SeatOf(rank)];
    mDispls.mData[rank] = displ;
    displ += mCounts.mData[rank];
  }
}

PavexStatus RenumberedComm::Send(void const* /*buf*/, int /*count*/, Datatype /*type*/,
                                 int /*dest*/, int /*tag*/) const {
  return STATUS_NOT_SUPPORTED;
}

PavexStatus RenumberedComm::Recv(void* /*buf*/, int /*count*/, Datatype /*type*/,
                                 int /*source*/, int /*tag*/) const {
  return STATUS_NOT_SUPPORTED;
}

PavexStatus RenumberedComm::Gatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                                    void* recvbuf, int const* recvcounts, int const* /*displs*/,
                                    Datatype recvtype, int root) const {
  int const rank = RankOf(root);
  if (mInner->Rank() == rank) Place(recvcounts);
  return mInner->Gatherv(sendbuf, sendcount, sendtype, recvbuf, mCounts.mData, mDispls.mData,
                         recvtype, rank);
}

PavexStatus RenumberedComm::Scatterv(void const* /*sendbuf*/, int const* /*sendcounts*/,
                                     int const* /*displs*/, Datatype /*sendtype*/,
                                     void* /*recvbuf*/, int /*recvcount*/,
                                     Datatype /*recvtype*/, int /*root*/) const {
  return STATUS_NOT_SUPPORTED;
}

// The elements arrive by rank. Seat 0 is moved to the front, and the ranks before it go one
// further.
PavexStatus RenumberedComm::Allgather(void const* sendbuf, int sendcount, Datatype sendtype,
                                      void* recvbuf, int recvcount, Datatype recvtype) const {
  std::size_t const bytes = static_cast<std::size_t>(recvcount) * DatatypeSize(recvtype);
  auto* const base = static_cast<unsigned char*>(recvbuf);
  auto const slot = [base, bytes](int at) {
    return base + static_cast<std::size_t>(at) * bytes;
  };
  if (sendbuf == &IN_PLACE_OBJ) {
    int const rank = mInner->Rank();
    if (SeatOf(rank) != rank) std::memcpy(slot(rank), slot(SeatOf(rank)), bytes);
  }
  PavexStatus const status =
      mInner->Allgather(sendbuf, sendcount, sendtype, recvbuf, recvcount, recvtype);
  if (status == STATUS_OK) std::rotate(slot(0), slot(mFirst), slot(mFirst + 1));
  return status;
}

PavexStatus RenumberedComm::Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                                       void* recvbuf, int const* recvcounts,
                                       int const* /*displs*/, Datatype recvtype) const {
  Place(recvcounts);
  return mInner->Allgatherv(sendbuf, sendcount, sendtype, recvbuf, mCounts.mData, mDispls.mData,
                            recvtype);
}

PavexStatus RenumberedComm::Bcast(void* /*buf*/, int /*count*/, Datatype /*type*/,
                                  int /*root*/) const {
  return STATUS_NOT_SUPPORTED;
}

}  // namespace Pavex
