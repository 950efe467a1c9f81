#include "pavex/comm/local_comm.h"

#include "pavex/comm/local_group.h"
#include "pavex/runtime/log.h"

#include <cstddef>
#include <exception>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace Pavex {
namespace {

// The threads of the ranks 1 .. n - 1. The destructor waits for all of them.
class RankThreads {
 public:
  RankThreads() = default;
  RankThreads(RankThreads const&) = delete;
  RankThreads& operator=(RankThreads const&) = delete;
  ~RankThreads() { Join(); }

  template <typename Function>
  void Start(Function function) {
    mThreads.emplace_back(std::move(function));
  }

  void Join() {
    for (std::thread& thread : mThreads) {
      thread.join();
    }
    mThreads.clear();
  }

 private:
  std::vector<std::thread> mThreads;
};

LocalOperation Collective(LocalKind kind, int root, LocalSide send, LocalSide recv) {
  return {kind, root, 0, send, recv, REDUCE_SUM, nullptr};
}

}  // namespace

void LocalComm::Run(int ranks, Body const& body) {
  if (ranks < 1 || !body) {
    throw std::invalid_argument("LocalComm::Run needs at least one rank and a body");
  }
  auto const job = std::make_shared<LocalJob>(ranks);
  auto const group = std::make_shared<LocalGroup>(job, job->Slots());
  group->Open();
  std::vector<std::exception_ptr> failures(static_cast<std::size_t>(ranks));
  auto const run = [&](int rank) {
    try {
      body(std::shared_ptr<LocalComm>(new LocalComm(group, rank)));
    } catch (...) {
      failures[static_cast<std::size_t>(rank)] = std::current_exception();
    }
    group->Leave(rank);
  };

  RankThreads threads;
  int started = 1;
  try {
    for (; started < ranks; ++started) {
      threads.Start([&run, rank = started] { run(rank); });
    }
  } catch (...) {
    group->Leave(0);
    for (int rank = started; rank < ranks; ++rank) {
      group->Leave(rank);
    }
    throw;
  }
  run(0);
  threads.Join();
  for (std::exception_ptr const& failure : failures) {
    if (failure != nullptr) std::rethrow_exception(failure);
  }
}

LocalComm::LocalComm(std::shared_ptr<LocalGroup> group, int rank)
    : mGroup(std::move(group)), mRank(rank) {}

LocalComm::~LocalComm() = default;

int LocalComm::Rank() const {
  return mRank;
}

int LocalComm::Size() const {
  return mGroup->Size();
}

// A rank without memory for its communicator takes part all the same, so that the split fails
// on every rank.
std::shared_ptr<Comm> LocalComm::Split(int color, int key) const {
  std::shared_ptr<LocalComm> part;
  try {
    if (color >= 0) part.reset(new LocalComm(nullptr, -1));
  } catch (std::bad_alloc const&) {
    part.reset();
  }
  bool const ready = color < 0 || part != nullptr;
  LocalSplit split{color, key, ready, nullptr, -1};
  LocalOperation operation = Collective(LocalKind::SPLIT, 0, {}, {});
  operation.mSplit = &split;
  if (mGroup->Execute(mRank, operation) != STATUS_OK) {
    Log::Error("LocalComm::Split failed on rank %d of %d.", mRank, Size());
    return nullptr;
  }
  if (split.mGroup == nullptr) return nullptr;
  part->mGroup = std::move(split.mGroup);
  part->mRank = split.mRank;
  return part;
}

PavexStatus LocalComm::Barrier() const {
  return mGroup->Execute(mRank, Collective(LocalKind::BARRIER, 0, {}, {}));
}

PavexStatus LocalComm::Send(void const* buf, int count, Datatype type, int dest,
                            int tag) const {
  return mGroup->Execute(mRank, {LocalKind::SEND, dest, tag, LocalSide::Whole(buf, count, type),
                                 LocalSide(), REDUCE_SUM});
}

PavexStatus LocalComm::Recv(void* buf, int count, Datatype type, int source, int tag) const {
  return mGroup->Execute(mRank, {LocalKind::RECV, source, tag, LocalSide(),
                                 LocalSide::Whole(buf, count, type), REDUCE_SUM});
}

PavexStatus LocalComm::Gatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                               void* recvbuf, int const* recvcounts, int const* displs,
                               Datatype recvtype, int root) const {
  return mGroup->Execute(
      mRank,
      Collective(LocalKind::GATHERV, root, LocalSide::Whole(sendbuf, sendcount, sendtype),
                 LocalSide::Pieces(recvbuf, recvcounts, displs, recvtype)));
}

PavexStatus LocalComm::Scatterv(void const* sendbuf, int const* sendcounts, int const* displs,
                                Datatype sendtype, void* recvbuf, int recvcount,
                                Datatype recvtype, int root) const {
  return mGroup->Execute(mRank,
                         Collective(LocalKind::SCATTERV, root,
                                    LocalSide::Pieces(sendbuf, sendcounts, displs, sendtype),
                                    LocalSide::Whole(recvbuf, recvcount, recvtype)));
}

PavexStatus LocalComm::Alltoallv(void const* sendbuf, int const* sendcounts, int const* sdispls,
                                 Datatype sendtype, void* recvbuf, int const* recvcounts,
                                 int const* rdispls, Datatype recvtype) const {
  return mGroup->Execute(mRank,
                         Collective(LocalKind::ALLTOALLV, 0,
                                    LocalSide::Pieces(sendbuf, sendcounts, sdispls, sendtype),
                                    LocalSide::Pieces(recvbuf, recvcounts, rdispls, recvtype)));
}

PavexStatus LocalComm::Allgather(void const* sendbuf, int sendcount, Datatype sendtype,
                                 void* recvbuf, int recvcount, Datatype recvtype) const {
  return mGroup->Execute(
      mRank, Collective(LocalKind::ALLGATHER, 0, LocalSide::Whole(sendbuf, sendcount, sendtype),
                        LocalSide::Slots(recvbuf, recvcount, recvtype)));
}

PavexStatus LocalComm::Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                                  void* recvbuf, int const* recvcounts, int const* displs,
                                  Datatype recvtype) const {
  return mGroup->Execute(
      mRank,
      Collective(LocalKind::ALLGATHERV, 0, LocalSide::Whole(sendbuf, sendcount, sendtype),
                 LocalSide::Pieces(recvbuf, recvcounts, displs, recvtype)));
}

PavexStatus LocalComm::Allreduce(void const* sendbuf, void* recvbuf, int count, Datatype type,
                                 ReduceOp op) const {
  return mGroup->Execute(mRank,
                         {LocalKind::ALLREDUCE, 0, 0, LocalSide::Whole(sendbuf, count, type),
                          LocalSide::Whole(recvbuf, count, type), op});
}

PavexStatus LocalComm::Bcast(void* buf, int count, Datatype type, int root) const {
  LocalSide const whole = LocalSide::Whole(buf, count, type);
  return mGroup->Execute(mRank, Collective(LocalKind::BCAST, root, whole, whole));
}

bool LocalComm::Strided() const {
  return Size() > 1;
}

PavexStatus LocalComm::GatherRuns(void const* sendbuf, Runs const& sent, void* recvbuf,
                                  Runs const* received, Datatype type, int root) const {
  if (!Strided()) return STATUS_NOT_SUPPORTED;
  bool const toAll = root == -1;
  LocalKind const kind = toAll ? LocalKind::ALLGATHER_RUNS : LocalKind::GATHER_RUNS;
  return mGroup->Execute(
      mRank, Collective(kind, toAll ? 0 : root, LocalSide::WholeRuns(sendbuf, sent, type),
                        LocalSide::PieceRuns(recvbuf, received, type)));
}

PavexStatus LocalComm::ScatterRuns(void const* sendbuf, Runs const* sent, void* recvbuf,
                                   Runs const& received, Datatype type, int root) const {
  if (!Strided()) return STATUS_NOT_SUPPORTED;
  return mGroup->Execute(mRank, Collective(LocalKind::SCATTER_RUNS, root,
                                           LocalSide::PieceRuns(sendbuf, sent, type),
                                           LocalSide::WholeRuns(recvbuf, received, type)));
}

}  // namespace Pavex
