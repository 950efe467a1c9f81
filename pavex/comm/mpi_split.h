// The transfers of MpiComm as calls of MPI whose messages every MPI carries. Messages of more
// than 2^31 bytes are known trouble, so larger ones are split. A transfer of small pieces is
// one call of MPI with the arguments as they are. Not installed.
//
// The functions take the arguments of Comm's operations, which MpiCall has accepted, and return
// MPI's code. `sendbuf` is as MPI expects it (MpiCall::SendBuffer).

#pragma once

#include "pavex/runtime/datatype.h"

#include <cstddef>
#include <mpi.h>

namespace Pavex::MpiSplit {

// The most bytes of a message. Tests compile the files that split with few; it is a multiple of
// the size of every element.
#ifdef PAVEX_MOST_BYTES_PER_MESSAGE
constexpr std::size_t kMostBytes = PAVEX_MOST_BYTES_PER_MESSAGE;
#else
constexpr std::size_t kMostBytes = std::size_t{1} << 30;
#endif

// Where a transfer takes place.
struct MpiGroup {
  MPI_Comm comm;
  int rank;
  int size;
};

// The tag of the messages that continue a large piece of a Gatherv or Scatterv.
inline constexpr int kRestTag = 32767;

int Send(void const* buf, int count, Datatype type, int dest, int tag, MpiGroup const& group);

// `isWhole` becomes false if a message is shorter than asked for.
int Recv(void* buf, int count, Datatype type, int source, int tag, MpiGroup const& group,
         bool& isWhole);

int Bcast(void* buf, int count, Datatype type, int root, MpiGroup const& group);

// Only the root knows the counts of all processes. So the collective call moves the beginning
// of each piece, and messages between two processes move the rest.
int Gatherv(void const* sendbuf, int sendcount, Datatype sendtype, void* recvbuf,
            int const* recvcounts, int const* displs, Datatype recvtype, int root,
            MpiGroup const& group);
int Scatterv(void const* sendbuf, int const* sendcounts, int const* displs, Datatype sendtype,
             void* recvbuf, int recvcount, Datatype recvtype, int root, MpiGroup const& group);

// All processes know all counts, and decide by them alone: displacements may differ. The pieces
// of one call of MPI are small together, because algorithms pass several of them on in one
// message. A piece that is large alone is broadcast.
int Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype, void* recvbuf,
               int const* recvcounts, int const* displs, Datatype recvtype,
               MpiGroup const& group);

}  // namespace Pavex::MpiSplit
