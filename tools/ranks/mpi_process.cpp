#include "tools/ranks/mpi_process.h"

#include "pavex/comm/mpi_comm.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "tools/choice/job_error.h"

#include <chrono>
#include <cstdlib>
#include <thread>

namespace Pavex::Tool {

namespace {

class LiveProcess final : public MpiProcess {
 public:
  explicit LiveProcess(bool shareMemory) {
    if (shareMemory) {
      auto const node = std::make_shared<NodeComm>(MPI_COMM_WORLD);
      mSharesMemory = node->Active();
      mWorld = node;
    } else {
      mWorld = std::make_shared<MpiComm>(MPI_COMM_WORLD);
    }
    MPI_Comm_dup(MPI_COMM_WORLD, &mArrivals);
  }

  std::shared_ptr<Comm> const& World() const override { return mWorld; }
  bool SharesMemory() const override { return mSharesMemory; }

  bool AllArrive(double seconds) const override {
    using Clock = std::chrono::steady_clock;
    auto const end = Clock::now() + std::chrono::duration<double>(seconds);
    MPI_Request request = MPI_REQUEST_NULL;
    MPI_Ibarrier(mArrivals, &request);
    int complete = 0;
    while (complete == 0 && Clock::now() < end) {
      MPI_Test(&request, &complete, MPI_STATUS_IGNORE);
      if (complete == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return complete != 0;
  }

  void Finish() override {
    mWorld.reset();
    MPI_Comm_free(&mArrivals);
    MPI_Finalize();
  }

  [[noreturn]] void Abort() const override {
    MPI_Abort(MPI_COMM_WORLD, 1);
    std::abort();
  }

 private:
  std::shared_ptr<Comm> mWorld;
  bool mSharesMemory = false;
  MPI_Comm mArrivals = MPI_COMM_NULL;  // only AllArrive uses it, so it meets no other call
};

}  // namespace

MpiKind OwnMpi() {
#if defined(OPEN_MPI)
  return MpiKind::OPENMPI;
#elif defined(MPICH_VERSION)
  return MpiKind::MPICH_LIKE;
#else
  return MpiKind::UNKNOWN;
#endif
}

std::string OwnMpiName() {
  switch (OwnMpi()) {
    case MpiKind::OPENMPI:
      return "Open MPI";
    case MpiKind::MPICH_LIKE:
      return "MPICH";
    case MpiKind::UNKNOWN:
      break;
  }
  return "another MPI";
}

std::unique_ptr<MpiProcess> StartMpi(bool shareMemory) {
  int provided = 0;
  if (MPI_Init_thread(nullptr, nullptr, MPI_THREAD_FUNNELED, &provided) != MPI_SUCCESS)
    throw JobError("MPI cannot be initialised");
  if (provided < MPI_THREAD_FUNNELED) throw JobError("this MPI does not support threads");
  return std::make_unique<LiveProcess>(shareMemory);
}

std::unique_ptr<MemoryPool> MakePool(Comm const& comm) {
  if (dynamic_cast<NodeComm const*>(&comm) != nullptr) return std::make_unique<NodePool>();
  return std::make_unique<MemoryPool>();
}

}  // namespace Pavex::Tool
