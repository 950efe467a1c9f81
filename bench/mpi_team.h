// What the benchmarks over MPI share: processes that work in step, and gathers over both
// communicators.

#pragma once

#include "pavex/comm/mpi_comm.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "pavex/pavex.h"

#include <cstdlib>
#include <functional>
#include <memory>
#include <mpi.h>
#include <string>
#include <vector>

namespace Pavex::Bench {

#if defined(OPEN_MPI)
constexpr bool kIsOpenMpi = true;
#else
constexpr bool kIsOpenMpi = false;
#endif

// Whether Open MPI is told to copy long messages twice, through memory that both processes
// share. By default the kernel copies them once, from one process to the other.
inline bool CopiesTwice() {
  char const* const mechanism = std::getenv("OMPI_MCA_btl_vader_single_copy_mechanism");
  return kIsOpenMpi && mechanism != nullptr && std::string(mechanism) == "none";
}

inline std::string MpiName() {
  if (!kIsOpenMpi) return "MPICH";
  return CopiesTwice() ? "Open MPI without single copies" : "Open MPI";
}

// The greatest allowed ratio. It holds over Open MPI as it is by default; otherwise the ratio
// is reported alone.
inline double AtMost(double limit) {
  return kIsOpenMpi && !CopiesTwice() ? limit : 0;
}

// The name of the JSON file of the benchmark `name`.
inline std::string FileName(std::string const& name) {
  if (!kIsOpenMpi) return name + "_mpich";
  return CopiesTwice() ? name + "_two_copies" : name;
}

inline int Rank() {
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  return rank;
}

inline int Size() {
  int size = 0;
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  return size;
}

// Runs the operations on all processes in step: the runner on rank 0 sends the number of the
// next one to the others.
class Team {
 public:
  // Call it on every process in the same order. On rank 0 the result runs the operation on all
  // processes.
  std::function<void()> Add(std::function<void()> operation) {
    mOperations.push_back(std::move(operation));
    return [this, number = static_cast<int>(mOperations.size()) - 1]() mutable {
      MPI_Bcast(&number, 1, MPI_INT, 0, MPI_COMM_WORLD);
      mOperations[static_cast<std::size_t>(number)]();
    };
  }

  // Serves rank 0 until it dismisses the others.
  void Follow() {
    for (;;) {
      int number = 0;
      MPI_Bcast(&number, 1, MPI_INT, 0, MPI_COMM_WORLD);
      if (number < 0) return;
      mOperations[static_cast<std::size_t>(number)]();
    }
  }

  static void Dismiss() {
    int number = -1;
    MPI_Bcast(&number, 1, MPI_INT, 0, MPI_COMM_WORLD);
  }

 private:
  std::vector<std::function<void()>> mOperations;
};

// Gathers pieces with Pavex, over MPI alone or with memory that the processes of a node share.
template <typename CommType, typename PoolType>
struct Gatherer {
  std::shared_ptr<Comm> comm = std::make_shared<CommType>(MPI_COMM_WORLD);
  PoolType pool;
  Aggregator<double, int> aggregator{&pool};
  bool correct = true;

  void Expect(PavexStatus status) { correct &= status == STATUS_OK; }
  void Gather(MatrixBase const& local, bool toAll = false) {
    GatherInto(aggregator, local, toAll);
  }
  void Update(MatrixBase const& local) { Expect(aggregator.Update(local)); }

  // Makes the first gather of an application, into new arrays.
  void GatherFresh(MatrixBase const& local, bool toAll) {
    PoolType fresh;
    Aggregator<double, int> first(&fresh);
    GatherInto(first, local, toAll);
  }

 private:
  void GatherInto(Aggregator<double, int>& receiver, MatrixBase const& local, bool toAll) {
    Expect(toAll ? receiver.Allgather(comm, local, true) : receiver.Gather(comm, local, true));
  }
};
using MpiGatherer = Gatherer<MpiComm, MemoryPool>;
using NodeGatherer = Gatherer<NodeComm, NodePool>;

// The main function of a benchmark over MPI: `run` is the program between MPI's start and end.
inline int RunOverMpi(int argc, char** argv, int (*run)(int argc, char** argv)) {
  MPI_Init(&argc, &argv);
  int const code = run(argc, argv);
  MPI_Finalize();
  return code;
}

}  // namespace Pavex::Bench
