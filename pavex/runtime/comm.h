// The communicator through which the library talks to the other processes of a parallel job.

#pragma once

#include "pavex/runtime/datatype.h"
#include "pavex/runtime/export.h"
#include "pavex/runtime/status.h"

#include <cstdint>

namespace Pavex {

// What Allreduce does with the elements of all ranks, element by element.
enum ReduceOp : std::int32_t { REDUCE_SUM = 0, REDUCE_MIN = 1, REDUCE_MAX = 2 };

// Elements of an array: `count` runs of `length` elements each. The first run begins at element
// `begin`, each further one `stride` elements after the one before. Example: columns 2 to 4 of
// a row-major 3 x 8 matrix are {2, 3, 3, 8}.
struct Runs {
  long begin;   // first element of the first run
  long length;  // elements of a run
  long count;   // runs
  long stride;  // elements from the beginning of a run to that of the next
};

// A group of processes, seen by one of them. SelfComm, LocalComm, MpiComm or the application
// implement it; std::shared_ptr shares it. Every operation is const and blocking. All except
// Rank, Size, Send and Recv are collective: every rank enters them in the same order with
// matching arguments. They return STATUS_OK or any other status, which the aggregator returns
// unchanged. Ranks, counts and displacements are 32-bit. Displacements count elements from the
// start of the buffer. The order of the virtual functions is fixed: see docs/compatibility.md.
class PAVEX_API Comm {
 public:
  // Its address as send buffer means in-place: the rank's own contribution is already in its
  // slot of the receive buffer. Legal in Allgather and Allgatherv, and in Gatherv on the root.
  static std::int32_t const IN_PLACE_OBJ;

  Comm() = default;
  Comm(Comm const&) = delete;
  Comm& operator=(Comm const&) = delete;
  virtual ~Comm();

  // This process's rank, 0-based. Local.
  virtual int Rank() const = 0;

  // The number of processes. Local.
  virtual int Size() const = 0;

  // Returns when every rank has entered. The library never calls it; the default body returns
  // STATUS_NOT_SUPPORTED.
  [[nodiscard]] virtual PavexStatus Barrier() const;

  // Sends `count` elements to rank `dest` with tag `tag`.
  [[nodiscard]] virtual PavexStatus Send(void const* buf, int count, Datatype type, int dest,
                                         int tag) const = 0;

  // Receives `count` elements from rank `source` with tag `tag`.
  [[nodiscard]] virtual PavexStatus Recv(void* buf, int count, Datatype type, int source,
                                         int tag) const = 0;

  // Rank `root` receives `recvcounts[r]` elements of each rank r at element `displs[r]` of
  // `recvbuf`. The root reads `recvbuf`, `recvcounts` and `displs` (`Size()` entries each); the
  // other ranks ignore them.
  [[nodiscard]] virtual PavexStatus Gatherv(void const* sendbuf, int sendcount,
                                            Datatype sendtype, void* recvbuf,
                                            int const* recvcounts, int const* displs,
                                            Datatype recvtype, int root) const = 0;

  // The inverse of Gatherv: rank r receives `sendcounts[r]` elements at `displs[r]` of the
  // root's `sendbuf`. Only the root reads `sendbuf`, `sendcounts` and `displs`.
  [[nodiscard]] virtual PavexStatus Scatterv(void const* sendbuf, int const* sendcounts,
                                             int const* displs, Datatype sendtype,
                                             void* recvbuf, int recvcount, Datatype recvtype,
                                             int root) const = 0;

  // Every rank sends `sendcounts[r]` elements at `sdispls[r]` to each rank r and receives
  // `recvcounts[r]` elements of each rank r at `rdispls[r]`. The library never calls it; the
  // default body returns STATUS_NOT_SUPPORTED.
  [[nodiscard]] virtual PavexStatus Alltoallv(void const* sendbuf, int const* sendcounts,
                                              int const* sdispls, Datatype sendtype,
                                              void* recvbuf, int const* recvcounts,
                                              int const* rdispls, Datatype recvtype) const;

  // Every rank receives `recvcount` elements from each rank, in rank order.
  [[nodiscard]] virtual PavexStatus Allgather(void const* sendbuf, int sendcount,
                                              Datatype sendtype, void* recvbuf, int recvcount,
                                              Datatype recvtype) const = 0;

  // A Gatherv whose result reaches every rank. Every rank reads all arguments.
  [[nodiscard]] virtual PavexStatus Allgatherv(void const* sendbuf, int sendcount,
                                               Datatype sendtype, void* recvbuf,
                                               int const* recvcounts, int const* displs,
                                               Datatype recvtype) const = 0;

  // Combines `count` elements of all ranks with `op` into `recvbuf` of every rank. Minimum and
  // maximum are not defined for complex types; sums of DATATYPE_BYTE wrap. The library never
  // calls it; the default body returns STATUS_NOT_SUPPORTED.
  [[nodiscard]] virtual PavexStatus Allreduce(void const* sendbuf, void* recvbuf, int count,
                                              Datatype type, ReduceOp op) const;

  // Copies `count` elements of rank `root`'s `buf` into every other rank's `buf`.
  [[nodiscard]] virtual PavexStatus Bcast(void* buf, int count, Datatype type,
                                          int root) const = 0;

  // Whether GatherRuns and ScatterRuns work; the same on every rank. Where they do, the library
  // moves dense pieces by them, from and to the arrays of the caller, and neither packs nor
  // reorders. Bands of compressed rows or columns send their final offsets instead of lengths,
  // so that receivers do not rewrite what has arrived. Local. The default body returns false.
  virtual bool Strided() const;

  // A Gatherv of runs: the elements `sent` of each rank's `sendbuf` become the elements
  // `received[r]` of the root's `recvbuf`, in order. `root` is a rank, or -1 for every rank.
  // Only receivers read `recvbuf` and `received` (`Size()` entries). Both sides count the same
  // elements, in runs of the same length, unless those of one side follow each other without a
  // gap. What is received does not overlap. A rank that receives its own elements where they
  // are already copies nothing. The default body returns STATUS_NOT_SUPPORTED.
  [[nodiscard]] virtual PavexStatus GatherRuns(void const* sendbuf, Runs const& sent,
                                               void* recvbuf, Runs const* received,
                                               Datatype type, int root) const;

  // The inverse of GatherRuns: the elements `sent[r]` of the root's `sendbuf` become the
  // elements `received` of rank r's `recvbuf`. Only the root, a rank, reads `sendbuf` and
  // `sent`; what it sends to several ranks may overlap. The default body returns
  // STATUS_NOT_SUPPORTED.
  [[nodiscard]] virtual PavexStatus ScatterRuns(void const* sendbuf, Runs const* sent,
                                                void* recvbuf, Runs const& received,
                                                Datatype type, int root) const;
};

}  // namespace Pavex
