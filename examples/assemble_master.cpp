// Gathers onto a master that has no rows of its own, from workers whose bands lie in any order
// of the ranks. One worker is idle. The core of the library asks for bands in rank order
// without empty processes; an Assembler does not. Run: build/openmpi/examples/assemble_master
// (no arguments, no MPI)
#include <cstdio>
#include <stdexcept>
#include <vector>

#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

using Rows = Pavex::Contribution<double, int>;

constexpr int kPoints = 8;
constexpr int kMaster = 2;

void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) throw std::runtime_error(PavexStatusStr(status));
}

void Work(std::shared_ptr<Pavex::Comm> const& comm) {
  // Ranks 0 and 4 have the last and the first rows, rank 1 those between; rank 3 is idle.
  int const begins[] = {5, 3, 0, 0, 0};
  int const counts[] = {3, 2, 0, 0, 3};
  int const begin = begins[comm->Rank()];
  int const count = counts[comm->Rank()];
  std::vector<int> offsets{0};
  std::vector<int> cols;
  std::vector<double> values;
  for (int i = begin; i < begin + count; ++i) {
    cols.push_back(i);
    values.push_back(i + 1);
    offsets.push_back(static_cast<int>(cols.size()));
  }

  Pavex::AssemblyRequest request;
  request.mRows = request.mCols = kPoints;
  request.mReceiver = kMaster;
  Rows own;  // a process without rows passes nothing
  if (count > 0) own = Rows::Band(begin, count).Csr(offsets.data(), cols.data(), values.data());
  Pavex::MemoryPool pool;
  Pavex::Assembler<double, int> assembler(&pool);
  Check(assembler.Gather(comm, own, request));

  if (assembler.Whole() == nullptr) return;
  std::printf("rank %d, %s\n", comm->Rank(), assembler.Describe().c_str());
  for (int i = 0; i < kPoints; ++i)
    std::printf("%g ", assembler.Whole()->mValues.mData[i]);
  std::printf("\n");
}

int main() {
  Pavex::LocalComm::Run(5, Work);
  return 0;
}
