// Gathers with an application's own memory pool and communicator: a pool with a budget, and two
// processes that communicate over a pair of sockets. The library returns the statuses of both
// unchanged. Run: build/openmpi/examples/own_pool_and_comm (no arguments, no MPI)
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <pavex/pavex.h>

using namespace Pavex;
constexpr PavexStatus kOverBudget = -1001, kPeerLost = -1002;

struct BudgetPool : MemoryPool {
  PavexStatus Allocate(void** block, std::size_t bytes) override {
    if (bytes > mLeft || (*block = std::malloc(bytes + 1)) == nullptr) return kOverBudget;
    mLeft -= bytes;
    return STATUS_OK;
  }
  void Deallocate(void* block, std::size_t bytes) override {
    std::free(block);
    mLeft += bytes;  // the size that was requested for this block
  }
  std::size_t mLeft = 4096;
};

// Ranks 0 and 1 at the ends of a stream. The stream keeps messages in order, so it ignores
// tags.
struct SocketComm : Comm {
  SocketComm(int socket, int rank) : mSocket(socket), mRank(rank), mPeer(1 - rank) {}
  int Rank() const override { return mRank; }
  int Size() const override { return 2; }
  PavexStatus Send(void const* buf, int n, Datatype type, int, int) const override {
    return Ok(send(mSocket, buf, Bytes(n, type), MSG_NOSIGNAL), Bytes(n, type));
  }
  PavexStatus Recv(void* buf, int n, Datatype type, int, int) const override {
    return Ok(n == 0 ? 0 : recv(mSocket, buf, Bytes(n, type), MSG_WAITALL), Bytes(n, type));
  }
  PavexStatus Bcast(void* buf, int n, Datatype type, int root) const override {
    return mRank == root ? Send(buf, n, type, mPeer, 0) : Recv(buf, n, type, mPeer, 0);
  }
  PavexStatus Gatherv(void const* out, int n, Datatype type, void* in, int const* counts,
                      int const* displs, Datatype, int root) const override {
    if (mRank != root) return Send(out, n, type, root, 0);
    if (out != &IN_PLACE_OBJ)
      std::copy_n(At(out, 0, type), Bytes(n, type), At(in, displs[mRank], type));
    return Recv(At(in, displs[mPeer], type), counts[mPeer], type, mPeer, 0);
  }
  PavexStatus Scatterv(void const* out, int const* counts, int const* displs, Datatype type,
                       void* in, int n, Datatype, int root) const override {
    if (mRank != root) return Recv(in, n, type, root, 0);
    std::copy_n(At(out, displs[mRank], type), Bytes(n, type), At(in, 0, type));
    return Send(At(out, displs[mPeer], type), counts[mPeer], type, mPeer, 0);
  }
  PavexStatus Allgatherv(void const* out, int n, Datatype type, void* in, int const* counts,
                         int const* displs, Datatype) const override {
    if (out != &IN_PLACE_OBJ)
      std::copy_n(At(out, 0, type), Bytes(n, type), At(in, displs[mRank], type));
    PavexStatus const status = Bcast(At(in, displs[0], type), counts[0], type, 0);
    return status != STATUS_OK ? status : Bcast(At(in, displs[1], type), counts[1], type, 1);
  }
  PavexStatus Allgather(void const* out, int, Datatype, void* in, int n,
                        Datatype type) const override {
    int const counts[] = {n, n}, displs[] = {0, n};
    return Allgatherv(out, n, type, in, counts, displs, type);
  }
  static std::size_t Bytes(int n, Datatype type) { return unsigned(n) * DatatypeSize(type); }
  static PavexStatus Ok(ssize_t n, size_t all) { return size_t(n) == all ? 0 : kPeerLost; }
  static char* At(void const* buf, int displ, Datatype type) {
    return static_cast<char*>(const_cast<void*>(buf)) + Bytes(displ, type);
  }
  int mSocket, mRank, mPeer;
};

// Each rank holds one column of a 2 x 2 matrix; both gather the whole and check it.
bool Work(int socket, int rank, MemoryPool& pool) {
  double column[] = {1.0 + rank, 3.0 + rank};
  auto piece = MatrixDense<double, int>::Borrow(2, 1, true, 1, column);
  piece.PlaceIn(2, 2, MatrixPartition::ColumnWise(rank));
  Aggregator<double, int> whole(&pool);
  auto const comm = std::make_shared<SocketComm>(socket, rank);
  if (whole.Allgather(comm, piece, true) != STATUS_OK) return false;
  double const* const a = whole.TargetAs<MatrixDense<double, int>>()->mValues.mData;
  if (rank == 0) std::printf("%g %g\n%g %g\n", a[0], a[1], a[2], a[3]);
  return a[0] == 1 && a[1] == 2 && a[2] == 3 && a[3] == 4;
}

int main() {
  int sockets[2], childCode = 0;
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) != 0) return 1;
  pid_t const child = fork();
  int const rank = child == 0 ? 1 : 0;
  close(sockets[1 - rank]);  // so that a lost peer is noticed
  BudgetPool pool;
  bool const good = Work(sockets[rank], rank, pool) && pool.mLeft == 4096;
  if (rank == 0) waitpid(child, &childCode, 0);
  return good && childCode == 0 ? 0 : 1;
}
