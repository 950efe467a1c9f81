// Runs a time loop in which the values of a matrix change and its pattern does not: the first
// step gathers, and later steps send values only. Three ranks hold the rows of the implicit
// heat operator 1 / dt - k(t) d2/dx2 on a line; rank 0 receives each step's operator whole.
// Run: build/openmpi/examples/update_loop (no arguments, no MPI)
#include <cstdio>
#include <stdexcept>
#include <vector>

#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

using Matrix = Pavex::MatrixCSR<double, int>;

constexpr int kPoints = 12;
constexpr int kSteps = 4;
constexpr double kTimeStep = 0.25;

// The conductivity k(t).
double Conductivity(int step) {
  return 1 + 0.5 * step;
}

// This rank's rows in CSR, with global columns.
struct Rows {
  int begin, end;
  std::vector<int> ptr{0}, col;
  std::vector<double> values;

  Rows(int first, int last) : begin(first), end(last) {
    for (int i = begin; i < end; ++i) {
      for (int j = i - 1; j <= i + 1; ++j)
        if (j >= 0 && j < kPoints) col.push_back(j);
      ptr.push_back(static_cast<int>(col.size()));
    }
    values.resize(col.size());
  }

  // Writes the values of a step into the array that the piece borrows.
  void Assemble(int step) {
    double const k = Conductivity(step);
    double* value = values.data();
    for (int i = begin; i < end; ++i) {
      for (int j = i - 1; j <= i + 1; ++j)
        if (j >= 0 && j < kPoints) *value++ = j == i ? 1 / kTimeStep + 2 * k : -k;
    }
  }
};

// LocalComm ends all ranks when one throws, and main receives the exception.
void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) throw std::runtime_error(PavexStatusStr(status));
}

// Takes the place of a solver: checks the sum of all entries, which is known.
void UseOperator(Matrix const& whole, int step) {
  double sum = 0;
  for (int at = 0; at < whole.mRowPtr.mData[kPoints]; ++at)
    sum += whole.mValues.mData[at];
  std::printf("step %d: %ld entries, sum %g\n", step, whole.NNZ(), sum);
  if (sum != kPoints / kTimeStep + 2 * Conductivity(step))
    throw std::runtime_error("the gathered operator is wrong");
}

void Work(std::shared_ptr<Pavex::Comm> const& comm) {
  Rows rows(kPoints * comm->Rank() / comm->Size(), kPoints * (comm->Rank() + 1) / comm->Size());
  auto piece = Matrix::Borrow(rows.end - rows.begin, kPoints, rows.ptr.data(), rows.col.data(),
                              rows.values.data());
  piece.PlaceIn(kPoints, kPoints, Pavex::MatrixPartition::RowWise(rows.begin));

  Pavex::MemoryPool pool;
  Pavex::Aggregator<double, int> aggregator(&pool);
  for (int step = 0; step < kSteps; ++step) {
    rows.Assemble(step);
    Check(step == 0 ? aggregator.Gather(comm, piece, true) : aggregator.Update(piece));
    Matrix const* const whole = aggregator.TargetAs<Matrix>();
    if (whole != nullptr) UseOperator(*whole, step);
  }
}

int main() {
  try {
    Pavex::LocalComm::Run(3, Work);
  } catch (std::exception const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
