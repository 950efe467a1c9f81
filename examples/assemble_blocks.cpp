// Passes the diagonal and the off-diagonal block of each rank's rows apart, as many codes store
// them: the first with columns of the rank's own range, the second with a map of the columns
// that other ranks own. Three ranks hold the rows of the operator -d2/dx2 on a line. Run:
// build/openmpi/examples/assemble_blocks (no arguments, no MPI)
#include <cstdio>
#include <stdexcept>
#include <vector>

#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

constexpr int kPoints = 9;

// One block in CSR, whose columns count within `columns`.
struct Block {
  std::vector<int> offsets{0}, cols, columns;
  std::vector<double> values;

  void Add(int col, double value) {
    cols.push_back(col);
    values.push_back(value);
  }
  void EndRow() { offsets.push_back(static_cast<int>(cols.size())); }
};

void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) throw std::runtime_error(PavexStatusStr(status));
}

void Work(std::shared_ptr<Pavex::Comm> const& comm) {
  int const begin = kPoints * comm->Rank() / comm->Size();
  int const end = kPoints * (comm->Rank() + 1) / comm->Size();
  Block diagonal;
  Block off;
  for (int i = begin; i < end; ++i) {
    diagonal.columns.push_back(i);
    for (int const j : {i - 1, i, i + 1}) {
      if (j < 0 || j >= kPoints) continue;
      if (j >= begin && j < end) {
        diagonal.Add(j - begin, j == i ? 2 : -1);
      } else {
        off.Add(static_cast<int>(off.columns.size()), -1);
        off.columns.push_back(j);
      }
    }
    diagonal.EndRow();
    off.EndRow();
  }

  Pavex::AssemblyRequest request;
  request.mRows = request.mCols = kPoints;
  auto const own =
      Pavex::Contribution<double, int>::Band(begin, end - begin)
          .Csr(diagonal.offsets.data(), diagonal.cols.data(), diagonal.values.data())
          .Columns(diagonal.columns.data(), static_cast<long>(diagonal.columns.size()))
          .Csr(off.offsets.data(), off.cols.data(), off.values.data())
          .Columns(off.columns.data(), static_cast<long>(off.columns.size()));
  Pavex::MemoryPool pool;
  Pavex::Assembler<double, int> assembler(&pool);
  Check(assembler.Gather(comm, own, request));

  auto const* const whole = assembler.Whole();
  if (whole == nullptr) return;
  std::printf("%s\n", assembler.Describe().c_str());
  for (int const i : {3, 5}) {
    std::printf("row %d:", i);
    for (int k = whole->mRowPtr.mData[i]; k < whole->mRowPtr.mData[i + 1]; ++k)
      std::printf(" (%d) %g", whole->mColIdx.mData[k], whole->mValues.mData[k]);
    std::printf("\n");
  }
}

int main() {
  Pavex::LocalComm::Run(3, Work);
  return 0;
}
