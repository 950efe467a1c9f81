// A program of PETSc that knows nothing of the plugin: four coupled equations
// -Laplace(u_k) = 5 exp(u_k+1) on a square, by Newton's method on a distributed grid. Prints
// each norm of the function with -snes_monitor, and the number of steps.

#include <petscdmda.h>
#include <petscsnes.h>

namespace {

constexpr PetscInt kUnknowns = 4;
struct Point {
  PetscScalar u[kUnknowns];
};

PetscErrorCode Function(DMDALocalInfo* info, Point** u, Point** f, void*) {
  PetscReal const h = 1.0 / static_cast<PetscReal>(info->mx - 1);
  PetscFunctionBeginUser;
  for (PetscInt j = info->ys; j < info->ys + info->ym; ++j) {
    for (PetscInt i = info->xs; i < info->xs + info->xm; ++i) {
      bool const edge = i == 0 || j == 0 || i == info->mx - 1 || j == info->my - 1;
      for (PetscInt k = 0; k < kUnknowns; ++k) {
        PetscScalar const own = u[j][i].u[k];
        f[j][i].u[k] = edge ? own
                            : 4.0 * own - u[j][i - 1].u[k] - u[j][i + 1].u[k] -
                                  u[j - 1][i].u[k] - u[j + 1][i].u[k] -
                                  5.0 * h * h * PetscExpScalar(u[j][i].u[(k + 1) % kUnknowns]);
      }
    }
  }
  PetscFunctionReturn(0);
}

PetscErrorCode Run() {
  DM grid = nullptr;
  SNES snes = nullptr;
  PetscInt steps = 0;
  SNESConvergedReason reason = SNES_CONVERGED_ITERATING;
  PetscFunctionBeginUser;
  PetscCall(DMDACreate2d(PETSC_COMM_WORLD, DM_BOUNDARY_NONE, DM_BOUNDARY_NONE,
                         DMDA_STENCIL_STAR, 17, 17, PETSC_DECIDE, PETSC_DECIDE, kUnknowns, 1,
                         nullptr, nullptr, &grid));
  PetscCall(DMSetFromOptions(grid));
  PetscCall(DMSetUp(grid));
  PetscCall(SNESCreate(PETSC_COMM_WORLD, &snes));
  PetscCall(SNESSetDM(snes, grid));
  PetscCall(DMDASNESSetFunctionLocal(
      grid, INSERT_VALUES,
      reinterpret_cast<PetscErrorCode (*)(DMDALocalInfo*, void*, void*, void*)>(Function),
      nullptr));
  PetscCall(SNESSetFromOptions(snes));
  PetscCall(SNESSolve(snes, nullptr, nullptr));
  PetscCall(SNESGetIterationNumber(snes, &steps));
  PetscCall(SNESGetConvergedReason(snes, &reason));
  PetscCall(PetscPrintf(PETSC_COMM_WORLD, "%" PetscInt_FMT " steps\n", steps));
  PetscCheck(reason > 0, PETSC_COMM_WORLD, PETSC_ERR_NOT_CONVERGED, "reason %d",
             static_cast<int>(reason));
  PetscCall(SNESDestroy(&snes));
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
