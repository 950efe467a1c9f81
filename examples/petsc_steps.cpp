// Time steps with a matrix of PETSc: it is gathered onto one process and factored there by
// UMFPACK, and the solution goes back into PETSc's vector. Later steps bring new values into
// the arrays that UMFPACK has analysed. PETSc computes the residual.
//
//   mpirun -n 4 build/openmpi/examples/petsc_steps_real     (or petsc_steps_complex)

#include <cstdio>
#include <memory>
#include <petscvec.h>
#include <umfpack.h>
#include <vector>

#include <pavex/comm/mpi_comm.h>
#include <pavex/interop/petsc.h>
#include <pavex/pavex.h>

#ifdef PETSC_USE_COMPLEX  // real and imaginary parts alternate: no second array
#define UMFPACK(function) umfpack_zi_##function
#define ARRAY(array) reinterpret_cast<double*>(array), nullptr
#else
#define UMFPACK(function) umfpack_di_##function
#define ARRAY(array) array
#endif

static constexpr PetscInt kSize = 1600;

static void Check(bool ok, char const* what) {
  if (!ok) std::fprintf(stderr, "%s failed\n", what), MPI_Abort(PETSC_COMM_WORLD, 1);
}

// The rows of this process: 2.5 + `step` on the diagonal and -1 on both sides of it. PETSc
// ignores a negative column.
static PetscErrorCode Assemble(Mat mat, int step) {
  PetscInt begin = 0, end = 0;
  PetscFunctionBeginUser;
  PetscCall(MatGetOwnershipRange(mat, &begin, &end));
  for (PetscInt row = begin; row < end; ++row) {
    PetscInt const near[] = {row - 1, row + 1 < kSize ? row + 1 : -1};
    PetscScalar const minus[] = {-1.0, -1.0};
    PetscCall(MatSetValues(mat, 1, &row, 2, near, minus, INSERT_VALUES));
    PetscCall(MatSetValue(mat, row, row, 2.5 + step, INSERT_VALUES));
  }
  PetscCall(MatAssemblyBegin(mat, MAT_FINAL_ASSEMBLY));
  PetscCall(MatAssemblyEnd(mat, MAT_FINAL_ASSEMBLY));
  PetscFunctionReturn(0);
}

// UMFPACK takes columns. It gets our rows, and solves with the transposed of what it gets.
static void Solve(Pavex::PetscCsr const& a, void** symbolic, PetscScalar* b, PetscScalar* x) {
  int const* const ptr = a.mRowPtr.mData;
  int const* const idx = a.mColIdx.mData;
  PetscScalar* const values = a.mValues.mData;
  void* numeric = nullptr;
  int failed = 0;
  if (*symbolic == nullptr)
    failed =
        UMFPACK(symbolic)(kSize, kSize, ptr, idx, ARRAY(values), symbolic, nullptr, nullptr);
  if (!failed)
    failed = UMFPACK(numeric)(ptr, idx, ARRAY(values), *symbolic, &numeric, nullptr, nullptr);
  if (!failed)
    failed = UMFPACK(solve)(UMFPACK_Aat, ptr, idx, ARRAY(values), ARRAY(x), ARRAY(b), numeric,
                            nullptr, nullptr);
  Check(!failed, "UMFPACK");
  UMFPACK(free_numeric)(&numeric);
}

static PetscErrorCode Run() {
  Mat mat = nullptr;
  Vec b = nullptr, x = nullptr;
  PetscFunctionBeginUser;
  PetscCall(MatCreateAIJ(PETSC_COMM_WORLD, -1, -1, kSize, kSize, 3, nullptr, 2, nullptr, &mat));
  PetscCall(MatCreateVecs(mat, &x, &b));
  Pavex::MemoryPool pool;
  Pavex::PetscRows rows(&pool);
  Pavex::Aggregator<PetscScalar, PetscInt> matrix(&pool), vectors(&pool);
  std::vector<PetscScalar> solution(kSize);  // on the receiver
  void* symbolic = nullptr;
  for (int step = 0; step < 5; ++step) {
    bool const first = step == 0;
    PetscCall(Assemble(mat, step));
    PetscCall(VecSet(b, 1.0 + step));
    Check((first ? rows.Attach(mat) : rows.Refresh()) == 0, "reading the Mat");
    if (rows.Owners() != MPI_COMM_NULL) {  // this process has rows
      auto const comm = first ? std::make_shared<Pavex::MpiComm>(rows.Owners()) : nullptr;
      auto const bring = [&](auto& to, auto const& piece) {
        return first ? to.Gather(comm, piece, true) : to.UpdateInPlace(piece);
      };
      Pavex::PetscBand band;
      Check(bring(matrix, rows.Piece()) == 0, "gathering the matrix");
      Check(band.Borrow(b, Pavex::PetscAccess::READ) == 0, "reading the Vec");
      Check(bring(vectors, band.Piece()) == 0, "gathering the vector");
      if (matrix.Target() != nullptr) {
        Solve(*matrix.TargetAs<Pavex::PetscCsr>(), &symbolic,
              vectors.TargetAs<Pavex::PetscDense>()->mValues.mData, solution.data());
      }
      Check(band.Borrow(x, Pavex::PetscAccess::WRITE) == 0, "opening the solution");
      Check(vectors.Scatter(band.Piece(), solution.data()) == 0, "scattering it");
    }
    PetscReal norm = 0, residual = 0;
    PetscCall(VecNorm(b, NORM_2, &norm));
    PetscCall(VecScale(b, -1.0));
    PetscCall(MatMultAdd(mat, x, b, b));
    PetscCall(VecNorm(b, NORM_2, &residual));
    Check(residual <= 1e-12 * norm, "the solution");
    PetscCall(PetscPrintf(PETSC_COMM_WORLD, "step %d: residual below 1e-12: yes\n", step));
  }
  UMFPACK(free_symbolic)(&symbolic);
  PetscCall(MatDestroy(&mat));
  PetscCall(VecDestroy(&b));
  PetscCall(VecDestroy(&x));
  PetscFunctionReturn(0);
}

int main(int argc, char** argv) {
  PetscCall(PetscInitialize(&argc, &argv, nullptr, nullptr));
  PetscCall(Run());
  PetscCall(PetscFinalize());
  return 0;
}
