// A program of PETSc: solves a problem on a 10 x 10 grid by the solver that the options name.

#include <petscksp.h>

int main(int argc, char** argv) {
  Mat a;
  Vec b, x;
  KSP ksp;
  PetscReal size, rest;
  PetscInt begin, end;
  const PetscInt n = 10;

  PetscCall(PetscInitialize(&argc, &argv, NULL, NULL));
  PetscCall(MatCreateAIJ(PETSC_COMM_WORLD, PETSC_DECIDE, PETSC_DECIDE, n * n, n * n, 5, NULL, 5,
                         NULL, &a));
  PetscCall(MatGetOwnershipRange(a, &begin, &end));
  for (PetscInt row = begin; row < end; ++row) {
    PetscCall(MatSetValue(a, row, row, 4.5, INSERT_VALUES));
    if (row >= n) PetscCall(MatSetValue(a, row, row - n, -1.0, INSERT_VALUES));
    if (row < n * n - n) PetscCall(MatSetValue(a, row, row + n, -1.0, INSERT_VALUES));
    if (row % n > 0) PetscCall(MatSetValue(a, row, row - 1, -1.5, INSERT_VALUES));
    if (row % n < n - 1) PetscCall(MatSetValue(a, row, row + 1, -0.5, INSERT_VALUES));
  }
  PetscCall(MatAssemblyBegin(a, MAT_FINAL_ASSEMBLY));
  PetscCall(MatAssemblyEnd(a, MAT_FINAL_ASSEMBLY));
  PetscCall(MatCreateVecs(a, &x, &b));
  PetscCall(VecSet(b, 1.0));
  PetscCall(KSPCreate(PETSC_COMM_WORLD, &ksp));
  PetscCall(KSPSetOperators(ksp, a, a));
  PetscCall(KSPSetFromOptions(ksp));
  PetscCall(KSPSolve(ksp, b, x));
  PetscCall(VecNorm(b, NORM_2, &size));
  PetscCall(VecScale(b, -1.0));
  PetscCall(MatMultAdd(a, x, b, b));
  PetscCall(VecNorm(b, NORM_2, &rest));
  PetscCall(PetscPrintf(PETSC_COMM_WORLD, "residual below 1e-12: %s\n",
                        rest < 1e-12 * size ? "yes" : "no"));
  PetscCall(KSPDestroy(&ksp));
  PetscCall(VecDestroy(&b));
  PetscCall(VecDestroy(&x));
  PetscCall(MatDestroy(&a));
  PetscCall(PetscFinalize());
  return 0;
}
