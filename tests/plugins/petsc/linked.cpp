// A program that links the plugin: both types are known after a call, also when PETSc begins a
// second time.

#include "petscpavex.h"

#include <cstdio>
#include <petscksp.h>

namespace {

PetscErrorCode Look(PetscBool* found) {
  Mat mat = nullptr;
  PC pc = nullptr;
  PCType type = nullptr;
  PetscBool isPavex = PETSC_FALSE;
  PetscFunctionBeginUser;
  PetscCall(PavexPetscRegister());
  PetscCall(PavexPetscRegister());
  PetscCall(PCCreate(PETSC_COMM_WORLD, &pc));
  PetscCall(PCSetType(pc, PCPAVEX));
  PetscCall(PCGetType(pc, &type));
  PetscCall(PetscStrcmp(type, "pavex", &isPavex));
  PetscCall(PCDestroy(&pc));
  PetscCall(MatCreateSeqAIJ(PETSC_COMM_SELF, 2, 2, 1, nullptr, &mat));
  PetscCall(MatGetFactorAvailable(mat, MATSOLVERPAVEX, MAT_FACTOR_LU, found));
  PetscCall(MatDestroy(&mat));
  if (isPavex == PETSC_FALSE) *found = PETSC_FALSE;
  PetscFunctionReturn(0);
}

}  // namespace

int main(int argc, char** argv) {
  int found = 0;
  MPI_Init(&argc, &argv);
  for (int turn = 0; turn < 2; ++turn) {
    PetscBool here = PETSC_FALSE;
    PetscCall(PetscInitialize(&argc, &argv, nullptr, nullptr));
    PetscCall(Look(&here));
    PetscCall(PetscFinalize());
    found += here == PETSC_TRUE ? 1 : 0;
  }
  MPI_Finalize();
  std::printf("found %d times\n", found);
  return found == 2 ? 0 : 1;
}
