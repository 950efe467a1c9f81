// The communicator of a job of one process.

#pragma once

#include "pavex/runtime/comm.h"

namespace Pavex {

// Rank 0 of 1. Bcast succeeds, because there is no process to copy to. Every other operation
// that moves data returns STATUS_NOT_SUPPORTED and copies nothing, so the caller detects the
// single process itself. Fixed: see docs/compatibility.md. It has no state and may be shared
// freely.
class PAVEX_API SelfComm : public Comm {
 public:
  ~SelfComm() override;
  int Rank() const override;
  int Size() const override;
  [[nodiscard]] PavexStatus Send(void const* buf, int count, Datatype type, int dest,
                                 int tag) const override;
  [[nodiscard]] PavexStatus Recv(void* buf, int count, Datatype type, int source,
                                 int tag) const override;
  [[nodiscard]] PavexStatus Gatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                                    void* recvbuf, int const* recvcounts, int const* displs,
                                    Datatype recvtype, int root) const override;
  [[nodiscard]] PavexStatus Scatterv(void const* sendbuf, int const* sendcounts,
                                     int const* displs, Datatype sendtype, void* recvbuf,
                                     int recvcount, Datatype recvtype, int root) const override;
  [[nodiscard]] PavexStatus Allgather(void const* sendbuf, int sendcount, Datatype sendtype,
                                      void* recvbuf, int recvcount,
                                      Datatype recvtype) const override;
  [[nodiscard]] PavexStatus Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                                       void* recvbuf, int const* recvcounts, int const* displs,
                                       Datatype recvtype) const override;
  [[nodiscard]] PavexStatus Bcast(void* buf, int count, Datatype type, int root) const override;
};

}  // namespace Pavex
