// Solves with a matrix and vectors of hypre on one process, in time steps: hypre assembles,
// rank 0 gathers and factors with Eigen, each process gets its rows of the solution into its
// vector, and hypre computes the residual. The system is u / dt - u'' = f on a line.
// Run: mpirun -n 4 build/openmpi/examples/hypre_matrix
#include <Eigen/Core>
#include <Eigen/SparseLU>
#include <HYPRE.h>
#include <HYPRE_parcsr_mv.h>
#include <cstdio>
#include <memory>

#include <pavex/comm/mpi_comm.h>
#include <pavex/interop/eigen.h>
#include <pavex/interop/hypre.h>
#include <pavex/pavex.h>

constexpr int kPoints = 500;
constexpr int kSteps = 3;

using EigenRows = Eigen::SparseMatrix<double, Eigen::RowMajor>;

// The library has logged what failed; one process alone cannot go on.
void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) MPI_Abort(MPI_COMM_WORLD, 1);
}

struct Rows {
  int begin;
  int end;
};

void Assemble(HYPRE_IJMatrix matrix, Rows rows, double dt) {
  HYPRE_IJMatrixInitialize(matrix);
  for (int i = rows.begin; i < rows.end; ++i) {
    int const col[] = {i, i - 1, i + 1};
    double const values[] = {2 + 1 / dt, -1, -1};
    for (int k = 0; k < 3; ++k) {
      int one = 1;
      if (col[k] >= 0 && col[k] < kPoints)
        HYPRE_IJMatrixSetValues(matrix, 1, &one, &i, &col[k], &values[k]);
    }
  }
  HYPRE_IJMatrixAssemble(matrix);
}

HYPRE_IJVector MakeVector(Rows rows, double value) {
  HYPRE_IJVector vector;
  HYPRE_IJVectorCreate(MPI_COMM_WORLD, rows.begin, rows.end - 1, &vector);
  HYPRE_IJVectorSetObjectType(vector, HYPRE_PARCSR);
  HYPRE_IJVectorInitialize(vector);
  for (int i = rows.begin; i < rows.end; ++i)
    HYPRE_IJVectorSetValues(vector, 1, &i, &value);
  HYPRE_IJVectorAssemble(vector);
  return vector;
}

// What hypre finds for the sum of squares of f - A u.
double Residual(HYPRE_ParCSRMatrix a, HYPRE_IJVector f, HYPRE_IJVector u) {
  void *right, *solution;
  HYPRE_IJVectorGetObject(f, &right);
  HYPRE_IJVectorGetObject(u, &solution);
  auto* const rest = static_cast<HYPRE_ParVector>(right);
  double sum = -1;
  HYPRE_ParCSRMatrixMatvec(-1, a, static_cast<HYPRE_ParVector>(solution), 1, rest);
  HYPRE_ParVectorInnerProd(rest, rest, &sum);
  return sum;
}

void Work() {
  auto const comm = std::make_shared<Pavex::MpiComm>(MPI_COMM_WORLD);
  Rows const rows = {kPoints * comm->Rank() / comm->Size(),
                     kPoints * (comm->Rank() + 1) / comm->Size()};
  HYPRE_IJMatrix matrix;
  HYPRE_IJMatrixCreate(MPI_COMM_WORLD, rows.begin, rows.end - 1, rows.begin, rows.end - 1,
                       &matrix);
  HYPRE_IJMatrixSetObjectType(matrix, HYPRE_PARCSR);

  Pavex::MemoryPool pool;
  Pavex::HypreRows piece(&pool);
  Pavex::Aggregator<double, int> system(&pool);
  for (int step = 0; step < kSteps; ++step) {
    Assemble(matrix, rows, 1.0 / (1 + step));
    void* object;
    HYPRE_IJMatrixGetObject(matrix, &object);
    auto* const a = static_cast<HYPRE_ParCSRMatrix>(object);
    Check(step == 0 ? piece.Attach(a) : piece.Refresh());
    Check(step == 0 ? system.Gather(comm, piece.Piece(), true) : system.Update(piece.Piece()));

    HYPRE_IJVector f = MakeVector(rows, 1);  // the right-hand side
    HYPRE_IJVector u = MakeVector(rows, 1);  // first the same, then the solution
    Pavex::HypreDense band;
    Pavex::Aggregator<double, int> solution(&pool);
    Check(BorrowHypreVector(u, band));
    Check(solution.Gather(comm, band, true));
    if (comm->Rank() == 0) {
      Eigen::SparseLU<Eigen::SparseMatrix<double>> const lu(
          Pavex::ViewAsEigen<EigenRows>(*system.Target()));
      auto x = Pavex::ViewAsEigen<Eigen::VectorXd>(*solution.Target());
      x = lu.solve(Eigen::VectorXd(x));
    }
    Check(solution.Scatter(band));

    bool const good = Residual(a, f, u) < 1e-24;
    if (comm->Rank() == 0)
      std::printf("step %d: residual below 1e-12: %s\n", step, good ? "yes" : "no");
    HYPRE_IJVectorDestroy(f);
    HYPRE_IJVectorDestroy(u);
  }
  HYPRE_IJMatrixDestroy(matrix);
}

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  HYPRE_Init();
  Work();  // everything that uses MPI is gone before MPI_Finalize
  HYPRE_Finalize();
  MPI_Finalize();
}
