// A program of PETSc that knows nothing of the plugin: Poisson's equation on a distributed grid
// without a boundary value, so its solution has a free constant. PETSc makes the operator of
// each grid that its solver asks for. Prints the norms of -ksp_monitor and the number of
// iterations.

#include <petscdmda.h>
#include <petscksp.h>

namespace {

PetscErrorCode RightHandSide(KSP ksp, Vec b, void*) {
  DM grid = nullptr;
  DMDALocalInfo info;
  PetscScalar** values = nullptr;
  MatNullSpace constants = nullptr;
  PetscFunctionBeginUser;
  PetscCall(KSPGetDM(ksp, &grid));
  PetscCall(DMDAGetLocalInfo(grid, &info));
  PetscCall(DMDAVecGetArray(grid, b, &values));
  for (PetscInt j = info.ys; j < info.ys + info.ym; ++j)
    for (PetscInt i = info.xs; i < info.xs + info.xm; ++i)
      values[j][i] = PetscCosReal(0.7 * static_cast<PetscReal>(i)) *
                     PetscCosReal(0.4 * static_cast<PetscReal>(j));
  PetscCall(DMDAVecRestoreArray(grid, b, &values));
  PetscCall(MatNullSpaceCreate(PETSC_COMM_WORLD, PETSC_TRUE, 0, nullptr, &constants));
  PetscCall(MatNullSpaceRemove(constants, b));
  PetscCall(MatNullSpaceDestroy(&constants));
  PetscFunctionReturn(0);
}

// The row of a point: its neighbours, and their number on the diagonal.
PetscErrorCode SetRow(DMDALocalInfo const& info, PetscInt i, PetscInt j, Mat mat) {
  MatStencil row{0, j, i, 0};
  MatStencil const around[] = {
      {0, j - 1, i, 0}, {0, j + 1, i, 0}, {0, j, i - 1, 0}, {0, j, i + 1, 0}};
  MatStencil columns[5];
  PetscScalar values[5];
  PetscInt count = 0;
  PetscFunctionBeginUser;
  for (MatStencil const& point : around) {
    if (point.i < 0 || point.i >= info.mx || point.j < 0 || point.j >= info.my) continue;
    columns[count] = point;
    values[count++] = -1.0;
  }
  columns[count] = row;
  values[count] = static_cast<PetscReal>(count);
  ++count;
  PetscCall(MatSetValuesStencil(mat, 1, &row, count, columns, values, INSERT_VALUES));
  PetscFunctionReturn(0);
}

PetscErrorCode Operator(KSP ksp, Mat, Mat mat, void*) {
  DM grid = nullptr;
  DMDALocalInfo info;
  MatNullSpace constants = nullptr;
  PetscFunctionBeginUser;
  PetscCall(KSPGetDM(ksp, &grid));
  PetscCall(DMDAGetLocalInfo(grid, &info));
  for (PetscInt j = info.ys; j < info.ys + info.ym; ++j)
    for (PetscInt i = info.xs; i < info.xs + info.xm; ++i)
      PetscCall(SetRow(info, i, j, mat));
  PetscCall(MatAssemblyBegin(mat, MAT_FINAL_ASSEMBLY));
  PetscCall(MatAssemblyEnd(mat, MAT_FINAL_ASSEMBLY));
  PetscCall(MatNullSpaceCreate(PETSC_COMM_WORLD, PETSC_TRUE, 0, nullptr, &constants));
  PetscCall(MatSetNullSpace(mat, constants));
  PetscCall(MatNullSpaceDestroy(&constants));
  PetscFunctionReturn(0);
}

PetscErrorCode Run() {
  DM grid = nullptr;
  KSP ksp = nullptr;
  PetscInt iterations = 0;
  KSPConvergedReason reason = KSP_CONVERGED_ITERATING;
  PetscFunctionBeginUser;
  PetscCall(DMDACreate2d(PETSC_COMM_WORLD, DM_BOUNDARY_NONE, DM_BOUNDARY_NONE,
                         DMDA_STENCIL_STAR, 17, 13, PETSC_DECIDE, PETSC_DECIDE, 1, 1, nullptr,
                         nullptr, &grid));
  PetscCall(DMSetFromOptions(grid));
  PetscCall(DMSetUp(grid));
  PetscCall(KSPCreate(PETSC_COMM_WORLD, &ksp));
  PetscCall(KSPSetDM(ksp, grid));
  PetscCall(KSPSetComputeRHS(ksp, RightHandSide, nullptr));
  PetscCall(KSPSetComputeOperators(ksp, Operator, nullptr));
  PetscCall(KSPSetFromOptions(ksp));
  PetscCall(KSPSolve(ksp, nullptr, nullptr));
  PetscCall(KSPGetIterationNumber(ksp, &iterations));
  PetscCall(KSPGetConvergedReason(ksp, &reason));
  PetscCall(PetscPrintf(PETSC_COMM_WORLD, "%" PetscInt_FMT " iterations\n", iterations));
  PetscCheck(reason > 0, PETSC_COMM_WORLD, PETSC_ERR_NOT_CONVERGED, "reason %d",
             static_cast<int>(reason));
  PetscCall(KSPDestroy(&ksp));
  PetscCall(DMDestroy(&grid));
  PetscFunctionReturn(0);
}

}  // namespace

int main(int argc, char** argv) {
  PetscCall(PetscInitialize(&argc, &argv, nullptr, nullptr));
  PetscCall(Run());
  PetscCall(PetscFinalize());
  return 0;
}
