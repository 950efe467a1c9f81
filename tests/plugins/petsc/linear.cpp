// A program of PETSc that knows nothing of the plugin: options alone choose the solver. It
// solves a convection-diffusion problem on an n x n grid `-steps` times with new values, prints
// the residual of each step, which PETSc computes, and fails if one is above `-tolerance` or if
// the solver has changed the matrix or the right-hand side.
//
// -empty: process 0 owns no rows. -baij: blocks of 2. -transpose: solves with the transposed
// matrix. -columns m: m right-hand sides at once. -errors: prints on how many processes PETSc
// returns an error, and succeeds. -singular: the first row is empty. -symmetric: no convection.
// -moved, with -columns: one row of the solutions of process 0 is on process 1.
// -starved p -room m: process p gets m MiB for the solver and no more. -again: a solve that
// fails is tried once more, with all room. Complex numbers get a complex shift.

#include <cstdio>
#include <petscksp.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

struct Options {
  PetscInt n = 12;
  PetscInt steps = 3;
  PetscInt columns = 0;
  PetscInt starved = -1;
  PetscInt room = 0;
  PetscReal tolerance = 1e-12;
  PetscBool empty = PETSC_FALSE;
  PetscBool baij = PETSC_FALSE;
  PetscBool transpose = PETSC_FALSE;
  PetscBool singular = PETSC_FALSE;
  PetscBool symmetric = PETSC_FALSE;
  PetscBool moved = PETSC_FALSE;
  PetscBool again = PETSC_FALSE;
};

PetscErrorCode Read(Options& options) {
  PetscFunctionBeginUser;
  PetscCall(PetscOptionsGetInt(nullptr, nullptr, "-n", &options.n, nullptr));
  PetscCall(PetscOptionsGetInt(nullptr, nullptr, "-steps", &options.steps, nullptr));
  PetscCall(PetscOptionsGetInt(nullptr, nullptr, "-columns", &options.columns, nullptr));
  PetscCall(PetscOptionsGetReal(nullptr, nullptr, "-tolerance", &options.tolerance, nullptr));
  PetscCall(PetscOptionsGetBool(nullptr, nullptr, "-empty", &options.empty, nullptr));
  PetscCall(PetscOptionsGetBool(nullptr, nullptr, "-baij", &options.baij, nullptr));
  PetscCall(PetscOptionsGetBool(nullptr, nullptr, "-transpose", &options.transpose, nullptr));
  PetscCall(PetscOptionsGetBool(nullptr, nullptr, "-singular", &options.singular, nullptr));
  PetscCall(PetscOptionsGetBool(nullptr, nullptr, "-symmetric", &options.symmetric, nullptr));
  PetscCall(PetscOptionsGetBool(nullptr, nullptr, "-moved", &options.moved, nullptr));
  PetscCall(PetscOptionsGetBool(nullptr, nullptr, "-again", &options.again, nullptr));
  PetscCall(PetscOptionsGetInt(nullptr, nullptr, "-starved", &options.starved, nullptr));
  PetscCall(PetscOptionsGetInt(nullptr, nullptr, "-room", &options.room, nullptr));
  PetscFunctionReturn(0);
}

// The rows of this process: all are shared among the processes that own any.
PetscErrorCode LocalRows(Options const& options, PetscInt* rows) {
  int rank = 0;
  int size = 0;
  PetscFunctionBeginUser;
  PetscCallMPI(MPI_Comm_rank(PETSC_COMM_WORLD, &rank));
  PetscCallMPI(MPI_Comm_size(PETSC_COMM_WORLD, &size));
  PetscInt const blocks = options.n * options.n / 2;
  PetscInt const first = options.empty == PETSC_TRUE && size > 1 ? 1 : 0;
  PetscInt const share = size - first;
  PetscInt const turn = rank - first;
  *rows = turn < 0 ? 0 : 2 * (blocks / share + (turn < blocks % share ? 1 : 0));
  PetscFunctionReturn(0);
}

PetscErrorCode Create(Options const& options, Mat* mat) {
  PetscInt rows = 0;
  PetscFunctionBeginUser;
  PetscCall(LocalRows(options, &rows));
  PetscCall(MatCreate(PETSC_COMM_WORLD, mat));
  PetscCall(MatSetSizes(*mat, rows, rows, PETSC_DETERMINE, PETSC_DETERMINE));
  PetscCall(MatSetType(*mat, options.baij == PETSC_TRUE ? MATBAIJ : MATAIJ));
  PetscCall(MatSetBlockSize(*mat, options.baij == PETSC_TRUE ? 2 : 1));
  PetscCall(MatSetUp(*mat));
  PetscCall(MatSetOption(*mat, MAT_NEW_NONZERO_ALLOCATION_ERR, PETSC_FALSE));
  PetscFunctionReturn(0);
}

PetscErrorCode Fill(Options const& options, PetscInt step, Mat mat) {
  PetscInt begin = 0;
  PetscInt end = 0;
  PetscInt const n = options.n;
  PetscScalar const wind =
      options.symmetric == PETSC_TRUE ? 0.0 : 0.3 + 0.1 * static_cast<PetscReal>(step);
  PetscScalar diagonal = 4.0 + 0.5 * static_cast<PetscReal>(step);
#ifdef PETSC_USE_COMPLEX
  diagonal += PetscScalar(0.0, 1.5);
#endif
  PetscFunctionBeginUser;
  PetscCall(MatGetOwnershipRange(mat, &begin, &end));
  for (PetscInt row = begin; row < end; ++row) {
    if (options.singular == PETSC_TRUE && row == 0) continue;
    PetscInt const i = row / n;
    PetscInt const j = row % n;
    PetscCall(MatSetValue(mat, row, row, diagonal, INSERT_VALUES));
    if (i > 0) PetscCall(MatSetValue(mat, row, row - n, -1.0 - wind, INSERT_VALUES));
    if (i + 1 < n) PetscCall(MatSetValue(mat, row, row + n, -1.0 + wind, INSERT_VALUES));
    if (j > 0) PetscCall(MatSetValue(mat, row, row - 1, -1.0 - wind, INSERT_VALUES));
    if (j + 1 < n) PetscCall(MatSetValue(mat, row, row + 1, -1.0 + wind, INSERT_VALUES));
  }
  PetscCall(MatAssemblyBegin(mat, MAT_FINAL_ASSEMBLY));
  PetscCall(MatAssemblyEnd(mat, MAT_FINAL_ASSEMBLY));
  PetscFunctionReturn(0);
}

// Lets the starved process have its room and no more, until `ends`.
PetscErrorCode Starve(Options const& options, PetscBool ends) {
  int rank = 0;
  unsigned long pages = 0;
  rlimit limit{};
  PetscFunctionBeginUser;
  PetscCallMPI(MPI_Comm_rank(PETSC_COMM_WORLD, &rank));
  if (rank != options.starved) PetscFunctionReturn(0);
  std::FILE* const file = std::fopen("/proc/self/statm", "r");
  int const found = file == nullptr ? 0 : std::fscanf(file, "%lu", &pages);
  if (file != nullptr) (void)std::fclose(file);
  PetscCheck(found == 1 && getrlimit(RLIMIT_AS, &limit) == 0, PETSC_COMM_SELF, PETSC_ERR_SYS,
             "no limits");
  limit.rlim_cur = limit.rlim_max;
  if (ends == PETSC_FALSE)
    limit.rlim_cur = pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) +
                     (static_cast<unsigned long>(options.room) << 20);
  PetscCheck(setrlimit(RLIMIT_AS, &limit) == 0, PETSC_COMM_SELF, PETSC_ERR_SYS, "no limit");
  PetscFunctionReturn(0);
}

PetscErrorCode SolveOne(Options const& options, KSP ksp, Mat mat, PetscReal* residual) {
  Vec b = nullptr;
  Vec x = nullptr;
  Vec r = nullptr;
  Vec given = nullptr;
  PetscReal norm = 0;
  PetscBool same = PETSC_FALSE;
  PetscFunctionBeginUser;
  PetscCall(MatCreateVecs(mat, &x, &b));
  PetscCall(VecDuplicate(b, &r));
  PetscCall(VecDuplicate(b, &given));
  PetscCall(VecSetRandom(b, nullptr));
  PetscCall(VecCopy(b, given));
  PetscCall(Starve(options, PETSC_FALSE));
  if (options.transpose == PETSC_TRUE)
    PetscCall(KSPSolveTranspose(ksp, b, x));
  else
    PetscCall(KSPSolve(ksp, b, x));
  PetscCall(Starve(options, PETSC_TRUE));
  if (options.transpose == PETSC_TRUE)
    PetscCall(MatMultTranspose(mat, x, r));
  else
    PetscCall(MatMult(mat, x, r));
  PetscCall(VecEqual(b, given, &same));
  PetscCheck(same == PETSC_TRUE, PETSC_COMM_WORLD, PETSC_ERR_PLIB, "b has changed");
  PetscCall(VecAXPY(r, -1.0, b));
  PetscCall(VecNorm(r, NORM_2, residual));
  PetscCall(VecNorm(b, NORM_2, &norm));
  *residual /= norm;
  PetscCall(VecDestroy(&b));
  PetscCall(VecDestroy(&x));
  PetscCall(VecDestroy(&r));
  PetscCall(VecDestroy(&given));
  PetscFunctionReturn(0);
}

// Solves by the factor itself: KSPMatSolve refuses solutions that were moved.
PetscErrorCode SolveMoved(KSP ksp, Mat b) {
  PC pc = nullptr;
  Mat factor = nullptr;
  Mat x = nullptr;
  int rank = 0;
  PetscInt rows = 0;
  PetscInt columns = 0;
  PetscFunctionBeginUser;
  PetscCallMPI(MPI_Comm_rank(PETSC_COMM_WORLD, &rank));
  PetscCall(MatGetLocalSize(b, &rows, nullptr));
  PetscCall(MatGetSize(b, nullptr, &columns));
  rows += rank == 0 ? -1 : rank == 1 ? 1 : 0;
  PetscCall(MatCreateDense(PETSC_COMM_WORLD, rows, PETSC_DECIDE, PETSC_DETERMINE, columns,
                           nullptr, &x));
  PetscCall(MatAssemblyBegin(x, MAT_FINAL_ASSEMBLY));
  PetscCall(MatAssemblyEnd(x, MAT_FINAL_ASSEMBLY));
  PetscCall(KSPSetUp(ksp));
  PetscCall(KSPGetPC(ksp, &pc));
  PetscCall(PCFactorGetMatrix(pc, &factor));
  PetscCall(MatMatSolve(factor, b, x));
  PetscCall(MatDestroy(&x));
  PetscFunctionReturn(0);
}

PetscErrorCode SolveMany(Options const& options, KSP ksp, Mat mat, PetscReal* residual) {
  Mat b = nullptr;
  Mat x = nullptr;
  Mat r = nullptr;
  PetscInt rows = 0;
  PetscReal norm = 0;
  PetscFunctionBeginUser;
  PetscCall(MatGetLocalSize(mat, &rows, nullptr));
  PetscCall(MatCreateDense(PETSC_COMM_WORLD, rows, PETSC_DECIDE, PETSC_DETERMINE,
                           options.columns, nullptr, &b));
  PetscCall(MatSetRandom(b, nullptr));
  if (options.moved == PETSC_TRUE) PetscCall(SolveMoved(ksp, b));
  PetscCall(MatDuplicate(b, MAT_DO_NOT_COPY_VALUES, &x));
  PetscCall(Starve(options, PETSC_FALSE));
  PetscCall(KSPMatSolve(ksp, b, x));
  PetscCall(Starve(options, PETSC_TRUE));
  PetscCall(MatMatMult(mat, x, MAT_INITIAL_MATRIX, PETSC_DEFAULT, &r));
  PetscCall(MatAXPY(r, -1.0, b, SAME_NONZERO_PATTERN));
  PetscCall(MatNorm(r, NORM_FROBENIUS, residual));
  PetscCall(MatNorm(b, NORM_FROBENIUS, &norm));
  *residual /= norm;
  PetscCall(MatDestroy(&b));
  PetscCall(MatDestroy(&x));
  PetscCall(MatDestroy(&r));
  PetscFunctionReturn(0);
}

PetscErrorCode Solve(Options& options, KSP ksp, Mat mat, PetscReal* residual) {
  auto const once = options.columns > 0 ? SolveMany : SolveOne;
  PetscFunctionBeginUser;
  PetscErrorCode error = once(options, ksp, mat, residual);
  if (error != 0 && options.again == PETSC_TRUE) {
    PetscCall(Starve(options, PETSC_TRUE));
    options.starved = -1;
    error = once(options, ksp, mat, residual);
  }
  PetscCall(error);
  PetscFunctionReturn(0);
}

PetscErrorCode Run() {
  Options options;
  Mat mat = nullptr;
  KSP ksp = nullptr;
  PetscFunctionBeginUser;
  PetscCall(Read(options));
  PetscCall(Create(options, &mat));
  PetscCall(KSPCreate(PETSC_COMM_WORLD, &ksp));
  PetscCall(KSPSetFromOptions(ksp));
  for (PetscInt step = 0; step < options.steps; ++step) {
    PetscReal residual = 0;
    PetscReal before = 0;
    PetscReal after = 0;
    KSPConvergedReason reason = KSP_CONVERGED_ITERATING;
    PetscCall(Fill(options, step, mat));
    PetscCall(MatNorm(mat, NORM_FROBENIUS, &before));
    PetscCall(KSPSetOperators(ksp, mat, mat));
    PetscCall(Solve(options, ksp, mat, &residual));
    PetscCall(MatNorm(mat, NORM_FROBENIUS, &after));
    PetscCheck(before == after, PETSC_COMM_WORLD, PETSC_ERR_PLIB, "the matrix has changed");
    PetscCall(KSPGetConvergedReason(ksp, &reason));
    PetscCall(PetscPrintf(PETSC_COMM_WORLD, "step %" PetscInt_FMT ": residual %.2e\n", step,
                          static_cast<double>(residual)));
    PetscCheck(residual <= options.tolerance && reason > 0, PETSC_COMM_WORLD,
               PETSC_ERR_NOT_CONVERGED, "residual %g, reason %d", static_cast<double>(residual),
               static_cast<int>(reason));
  }
  PetscCall(KSPDestroy(&ksp));
  PetscCall(MatDestroy(&mat));
  PetscFunctionReturn(0);
}

}  // namespace

int main(int argc, char** argv) {
  PetscBool errors = PETSC_FALSE;
  PetscCall(PetscInitialize(&argc, &argv, nullptr, nullptr));
  PetscCall(PetscOptionsGetBool(nullptr, nullptr, "-errors", &errors, nullptr));
  if (errors == PETSC_TRUE) {
    PetscCall(PetscPushErrorHandler(PetscReturnErrorHandler, nullptr));
    int failed = static_cast<int>(Run()) != 0 ? 1 : 0;
    PetscCall(PetscPopErrorHandler());
    PetscCallMPI(MPI_Allreduce(MPI_IN_PLACE, &failed, 1, MPI_INT, MPI_SUM, PETSC_COMM_WORLD));
    PetscCall(PetscPrintf(PETSC_COMM_WORLD, "errors on %d processes\n", failed));
  } else {
    PetscCall(Run());
  }
  PetscCall(PetscFinalize());
  return 0;
}
