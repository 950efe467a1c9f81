// How the types become known: by -dll_append, or by a call.

#include "plugins/petsc/events.h"
#include "plugins/petsc/petscpavex.h"
#include "plugins/petsc/types.h"

namespace PavexPetsc {

Events gEvents;

PetscErrorCode OfferChoices(PetscOptionItems* PetscOptionsObject, Choices& choices) {
  PetscFunctionBegin;
  PetscCall(PetscOptionsInt("-pavex_receiver", "Process that solves", "", choices.mReceiver,
                            &choices.mReceiver, nullptr));
  PetscCall(PetscOptionsBool("-pavex_node", "Share memory between the processes of a node", "",
                             choices.mNode, &choices.mNode, nullptr));
  PetscCall(PetscOptionsBool("-pavex_view", "Show the receiver and its solver after a set-up",
                             "", choices.mView, &choices.mView, nullptr));
  PetscFunctionReturn(kSuccess);
}

namespace {

PetscErrorCode RegisterEvents() {
  PetscClassId id = 0;
  PetscFunctionBegin;
  PetscCall(PetscClassIdRegister("Pavex", &id));
  PetscCall(PetscLogEventRegister("PavexMerge", id, &gEvents.mMerge));
  PetscCall(PetscLogEventRegister("PavexGather", id, &gEvents.mGather));
  PetscCall(PetscLogEventRegister("PavexUpdate", id, &gEvents.mUpdate));
  PetscCall(PetscLogEventRegister("PavexVector", id, &gEvents.mVector));
  PetscCall(PetscLogEventRegister("PavexScatter", id, &gEvents.mScatter));
  PetscFunctionReturn(kSuccess);
}

bool gRegistered = false;

// PETSc forgets its types when it ends, and may begin again.
PetscErrorCode Forget() {
  gRegistered = false;
  return kSuccess;
}

}  // namespace
}  // namespace PavexPetsc

PetscErrorCode PavexPetscRegister() {
  using namespace PavexPetsc;
  PetscFunctionBegin;
  if (gRegistered) PetscFunctionReturn(kSuccess);
  gRegistered = true;
  PetscCall(PetscRegisterFinalize(Forget));
  // Before a solver type is registered, the package must have its list of them.
  PetscCall(MatInitializePackage());
  PetscCall(PCInitializePackage());
  PetscCall(RegisterEvents());
  PetscCall(PCRegister(PCPAVEX, CreatePc));
  for (MatType const type : {MATSEQAIJ, MATMPIAIJ, MATSEQBAIJ, MATMPIBAIJ}) {
    PetscCall(MatSolverTypeRegister(MATSOLVERPAVEX, type, MAT_FACTOR_LU, GetFactor));
    PetscCall(MatSolverTypeRegister(MATSOLVERPAVEX, type, MAT_FACTOR_CHOLESKY, GetFactor));
  }
  PetscFunctionReturn(kSuccess);
}

// The name that PETSc looks for in a library that it loads.
PETSC_EXTERN PETSC_VISIBILITY_PUBLIC PetscErrorCode PetscDLLibraryRegister_petscpavex();
PetscErrorCode PetscDLLibraryRegister_petscpavex() {
  return PavexPetscRegister();
}
