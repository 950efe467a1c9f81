// Prints why a gather was refused: a text that names the processes, both values and what was
// expected. Every process has the same text. Two ranks hold bands with a row missing between
// them. Run: build/openmpi/examples/refused_gather (no arguments, no MPI)
#include <cstdio>
#include <memory>

#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

void Work(std::shared_ptr<Pavex::Comm> const& comm) {
  double values[] = {1, 2, 3, 4};
  auto piece = Pavex::MatrixDense<double, int>::Borrow(2, 2, true, 2, values);
  piece.PlaceIn(5, 2, Pavex::MatrixPartition::RowWise(3L * comm->Rank()));

  Pavex::MemoryPool pool;
  Pavex::Aggregator<double, int> aggregator(&pool);
  PavexStatus const status = aggregator.Gather(comm, piece, true);
  if (status != Pavex::STATUS_OK && comm->Rank() == 0)
    std::printf("%s\n%s", PavexStatusStr(status), aggregator.Describe().c_str());
}

int main() {
  Pavex::Log::mMaxLogLevel = -1;  // no log lines: they do not name a process
  Pavex::LocalComm::Run(2, Work);
}
