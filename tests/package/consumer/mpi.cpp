// A program whose ranks are the processes of an MPI job. It links Pavex::mpi.

#include "gather.h"

#include <cstdio>

#include <pavex/comm/mpi_comm.h>

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int here = 0;
  int everywhere = 0;
  int ranks = 0;
  {
    auto const comm = std::make_shared<Pavex::MpiComm>(MPI_COMM_WORLD);
    here = VersionIsRight() && GatherIsRight(comm) ? 1 : 0;
    ranks = comm->Size();
    MPI_Allreduce(&here, &everywhere, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
    if (comm->Rank() == 0 && everywhere == 1) std::printf("mpi: right on %d ranks\n", ranks);
  }
  MPI_Finalize();
  return everywhere == 1 ? 0 : 1;
}
