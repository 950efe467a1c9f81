// Agrees on a status after a step that can fail on one process alone, such as reading a share
// of a matrix. All processes then enter the next collective step, or none does, so no process
// waits there for another. The argument names the rank that fails; without it no rank fails.
// Run: mpirun -n 4 build/openmpi/examples/mpi_agree_on_status 2
#include <cstdio>
#include <cstdlib>

#include <pavex/comm/mpi_comm.h>
#include <pavex/pavex.h>

// Returns the worst status of all processes, the same on every one: the lowest if any is
// negative, else the highest, because an application's own codes may be positive. Collective.
PavexStatus Agree(Pavex::Comm const& comm, PavexStatus mine) {
  long const signs[2] = {mine, -static_cast<long>(mine)};
  long worst[2] = {};
  PavexStatus const status =
      comm.Allreduce(signs, worst, 2, Pavex::DATATYPE_LONG, Pavex::REDUCE_MIN);
  if (status != Pavex::STATUS_OK) return status;
  return static_cast<PavexStatus>(worst[0] != 0 ? worst[0] : -worst[1]);
}

// A local step that fails on one rank.
PavexStatus ReadShare(int rank, int failingRank, double& share) {
  if (rank == failingRank) return Pavex::STATUS_OUT_OF_MEMORY;
  share = rank + 1;
  return Pavex::STATUS_OK;
}

// Gathers one diagonal entry from each process.
PavexStatus Gather(std::shared_ptr<Pavex::Comm> const& comm, double& share) {
  int const rank = comm->Rank();
  int ptr[] = {0, 1};
  int col[] = {rank};
  auto piece = Pavex::MatrixCSR<double, int>::Borrow(1, comm->Size(), ptr, col, &share);
  piece.PlaceIn(comm->Size(), comm->Size(), Pavex::MatrixPartition::RowWise(rank));
  Pavex::MemoryPool pool;
  Pavex::Aggregator<double, int> aggregator(&pool);
  PavexStatus const status = aggregator.Gather(comm, piece, true);
  if (aggregator.Target() != nullptr)
    std::printf("gathered %ld entries\n", aggregator.Target()->NNZ());
  return status;
}

PavexStatus Work(int failingRank) {
  auto const comm = std::make_shared<Pavex::MpiComm>(MPI_COMM_WORLD);
  double share = 0;
  PavexStatus const worst = Agree(*comm, ReadShare(comm->Rank(), failingRank, share));
  if (comm->Rank() == 0) std::printf("reading: %s\n", PavexStatusStr(worst));
  if (worst != Pavex::STATUS_OK) return worst;  // on every process, so no process waits
  return Gather(comm, share);
}

int main(int argc, char** argv) {
  int provided = 0;
  MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &provided);
  PavexStatus const status = Work(argc > 1 ? std::atoi(argv[1]) : -1);
  MPI_Finalize();
  return status == Pavex::STATUS_OK ? 0 : 1;
}
