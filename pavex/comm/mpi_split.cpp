#include "pavex/comm/mpi_split.h"

#include "pavex/comm/mpi_call.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <numeric>
#include <type_traits>

namespace Pavex::MpiSplit {

namespace {

// The most elements of a message.
int Most(Datatype type) {
  return static_cast<int>(kMostBytes / DatatypeSize(type));
}

// Elements `index` and later of an array. Index 0 also of what is no array.
template <typename Void>
Void* At(Void* array, long index, Datatype type) {
  if (index == 0) return array;
  using Byte = std::conditional_t<std::is_const_v<Void>, char const, char>;
  return static_cast<Byte*>(array) + static_cast<std::size_t>(index) * DatatypeSize(type);
}

// Calls `move` for elements `first` to `count` of a piece, as many as a message has at a time,
// until one call fails.
template <typename Move>
int InMessages(int first, int count, Datatype type, Move const& move) {
  int code = MPI_SUCCESS;
  for (int moved = first; moved < count && code == MPI_SUCCESS;) {
    int const now = std::min(count - moved, Most(type));
    code = move(moved, now);
    moved += now;
  }
  return code;
}

// The counts of a call that moves the beginning of each piece: those given, or smaller ones.
class FirstCounts {
 public:
  FirstCounts(int const* counts, int size, Datatype type) : mCounts(counts) {
    int const most = Most(type);
    if (std::all_of(counts, counts + size, [most](int count) { return count <= most; })) return;
    mSmaller.reset(new (std::nothrow) int[static_cast<std::size_t>(size)]);
    mCounts = mSmaller.get();
    if (mCounts != nullptr)
      std::transform(counts, counts + size, mSmaller.get(),
                     [most](int count) { return std::min(count, most); });
  }

  // Null without memory for them.
  int const* Get() const { return mCounts; }
  bool AreSmaller() const { return mSmaller != nullptr; }

 private:
  int const* mCounts;
  std::unique_ptr<int[]> mSmaller;
};

// Copies what messages would move from this process to itself.
void CopyRest(void const* from, void* to, int count, Datatype type) {
  int const first = Most(type);
  if (count > first && from != to)
    std::memmove(At(to, first, type), At(from, first, type),
                 static_cast<std::size_t>(count - first) * DatatypeSize(type));
}

// Makes one call.
int CallAllgatherv(void const* sendbuf, int sendcount, Datatype sendtype, void* recvbuf,
                   int const* recvcounts, int const* displs, Datatype recvtype,
                   MpiGroup const& group) {
  // MPICH ignores the displacement of a single process, so the address carries it.
  static int const kNone = 0;
  if (group.size == 1 && recvbuf != nullptr) {
    recvbuf = At(recvbuf, *displs, recvtype);
    displs = &kNone;
  }
  return MPI_Allgatherv(sendbuf, sendcount, MpiType(sendtype), recvbuf, recvcounts, displs,
                        MpiType(recvtype), group.comm);
}

// Brings the piece of process `owner` to its place on every process.
int SendToAll(void const* sendbuf, int sendcount, Datatype sendtype, void* piece, int count,
              Datatype type, int owner, MpiGroup const& group) {
  if (group.rank == owner && sendbuf != MPI_IN_PLACE && sendbuf != piece)
    std::memmove(piece, sendbuf, static_cast<std::size_t>(sendcount) * DatatypeSize(sendtype));
  return Bcast(piece, count, type, owner, group);
}

}  // namespace

int Send(void const* buf, int count, Datatype type, int dest, int tag, MpiGroup const& group) {
  if (count == 0) return MPI_Send(buf, 0, MpiType(type), dest, tag, group.comm);
  return InMessages(0, count, type, [&](int first, int now) {
    return MPI_Send(At(buf, first, type), now, MpiType(type), dest, tag, group.comm);
  });
}

int Recv(void* buf, int count, Datatype type, int source, int tag, MpiGroup const& group,
         bool& isWhole) {
  isWhole = true;
  auto const receive = [&](int first, int now) {
    if (!isWhole) return MPI_SUCCESS;  // a short message is the sender's last
    MPI_Status message;
    int const code =
        MPI_Recv(At(buf, first, type), now, MpiType(type), source, tag, group.comm, &message);
    if (code != MPI_SUCCESS) return code;
    int received = 0;
    MPI_Get_count(&message, MpiType(type), &received);
    isWhole = isWhole && received == now;
    return MPI_SUCCESS;
  };
  return count == 0 ? receive(0, 0) : InMessages(0, count, type, receive);
}

int Bcast(void* buf, int count, Datatype type, int root, MpiGroup const& group) {
  if (count == 0) return MPI_Bcast(buf, 0, MpiType(type), root, group.comm);
  return InMessages(0, count, type, [&](int first, int now) {
    return MPI_Bcast(At(buf, first, type), now, MpiType(type), root, group.comm);
  });
}

int Gatherv(void const* sendbuf, int sendcount, Datatype sendtype, void* recvbuf,
            int const* recvcounts, int const* displs, Datatype recvtype, int root,
            MpiGroup const& group) {
  bool const inPlace = sendbuf == MPI_IN_PLACE;
  int const firstCount = inPlace ? sendcount : std::min(sendcount, Most(sendtype));
  if (group.rank != root) {
    int const code = MPI_Gatherv(sendbuf, firstCount, MpiType(sendtype), recvbuf, recvcounts,
                                 displs, MpiType(recvtype), root, group.comm);
    if (code != MPI_SUCCESS) return code;
    return InMessages(firstCount, sendcount, sendtype, [&](int first, int now) {
      return MPI_Send(At(sendbuf, first, sendtype), now, MpiType(sendtype), root, kRestTag,
                      group.comm);
    });
  }

  FirstCounts const counts(recvcounts, group.size, recvtype);
  if (counts.Get() == nullptr) return MPI_ERR_NO_MEM;
  int code = MPI_Gatherv(sendbuf, firstCount, MpiType(sendtype), recvbuf, counts.Get(), displs,
                         MpiType(recvtype), root, group.comm);
  if (!counts.AreSmaller()) return code;
  for (int r = 0; r < group.size && code == MPI_SUCCESS; ++r) {
    if (r == root) {
      if (!inPlace)
        CopyRest(sendbuf, At(recvbuf, displs[r], recvtype), recvcounts[r], recvtype);
      continue;
    }
    code = InMessages(counts.Get()[r], recvcounts[r], recvtype, [&](int first, int now) {
      return MPI_Recv(At(recvbuf, static_cast<long>(displs[r]) + first, recvtype), now,
                      MpiType(recvtype), r, kRestTag, group.comm, MPI_STATUS_IGNORE);
    });
  }
  return code;
}

int Scatterv(void const* sendbuf, int const* sendcounts, int const* displs, Datatype sendtype,
             void* recvbuf, int recvcount, Datatype recvtype, int root, MpiGroup const& group) {
  int const firstCount = std::min(recvcount, Most(recvtype));
  if (group.rank != root) {
    int const code = MPI_Scatterv(sendbuf, sendcounts, displs, MpiType(sendtype), recvbuf,
                                  firstCount, MpiType(recvtype), root, group.comm);
    if (code != MPI_SUCCESS) return code;
    return InMessages(firstCount, recvcount, recvtype, [&](int first, int now) {
      return MPI_Recv(At(recvbuf, first, recvtype), now, MpiType(recvtype), root, kRestTag,
                      group.comm, MPI_STATUS_IGNORE);
    });
  }

  FirstCounts const counts(sendcounts, group.size, sendtype);
  if (counts.Get() == nullptr) return MPI_ERR_NO_MEM;
  int code = MPI_Scatterv(sendbuf, counts.Get(), displs, MpiType(sendtype), recvbuf, firstCount,
                          MpiType(recvtype), root, group.comm);
  if (!counts.AreSmaller()) return code;
  for (int r = 0; r < group.size && code == MPI_SUCCESS; ++r) {
    if (r == root) {
      CopyRest(At(sendbuf, displs[r], sendtype), recvbuf, sendcounts[r], sendtype);
      continue;
    }
    code = InMessages(counts.Get()[r], sendcounts[r], sendtype, [&](int first, int now) {
      return MPI_Send(At(sendbuf, static_cast<long>(displs[r]) + first, sendtype), now,
                      MpiType(sendtype), r, kRestTag, group.comm);
    });
  }
  return code;
}

int Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype, void* recvbuf,
               int const* recvcounts, int const* displs, Datatype recvtype,
               MpiGroup const& group) {
  int const* const end = recvcounts + group.size;
  int const most = Most(recvtype);
  if (std::accumulate(recvcounts, end, 0L) <= most)
    return CallAllgatherv(sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype,
                          group);

  auto const entries = static_cast<std::size_t>(group.size);
  std::unique_ptr<int[]> const counts(new (std::nothrow) int[entries]);
  if (counts == nullptr) return MPI_ERR_NO_MEM;
  int code = MPI_SUCCESS;
  for (int first = 0; first < group.size && code == MPI_SUCCESS;) {
    if (recvcounts[first] > most) {
      code = SendToAll(sendbuf, sendcount, sendtype, At(recvbuf, displs[first], recvtype),
                       recvcounts[first], recvtype, first, group);
      ++first;
      continue;
    }
    std::fill_n(counts.get(), group.size, 0);
    int sum = 0;
    for (; first < group.size && recvcounts[first] <= most - sum; ++first)
      sum += counts[static_cast<std::size_t>(first)] = recvcounts[first];
    int const own = counts[static_cast<std::size_t>(group.rank)];
    code = CallAllgatherv(sendbuf, own == 0 ? 0 : sendcount, sendtype, recvbuf, counts.get(),
                          displs, recvtype, group);
  }
  return code;
}

}  // namespace Pavex::MpiSplit
