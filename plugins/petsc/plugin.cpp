// How the types become known: by -dll_append, or by a call.

#include "plugins/petsc/events.h"
#include "plugins/petsc/petscpavex.h"
#include "plugins/petsc/types.h"

#include <cstddef>

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

// Refuses a program whose PETSc has other numbers. The loader binds the calls of the plugin to
// the PETSc of the program, which would read arrays of other elements and give wrong solutions.
PetscErrorCode CheckNumbers() {
  PetscDataType scalar = PETSC_DATATYPE_UNKNOWN;
  PetscBool found = PETSC_FALSE;
  std::size_t scalarBytes = 0;
  std::size_t indexBytes = 0;
  PetscFunctionBegin;
  PetscCall(PetscDataTypeFromString("scalar", &scalar, &found));
  if (found) PetscCall(PetscDataTypeGetSize(scalar, &scalarBytes));
  PetscCall(PetscDataTypeGetSize(PETSC_INT, &indexBytes));
  PetscCheck(scalar == PETSC_SCALAR && scalarBytes == sizeof(PetscScalar) &&
                 indexBytes == sizeof(PetscInt),
             PETSC_COMM_SELF, PETSC_ERR_ARG_INCOMP,
             "The PETSc of the program has %s numbers of %zu bytes and indices of %zu bytes, "
             "that of the Pavex plugin %s numbers of %zu and indices of %zu; build the plugin "
             "with the PETSc of the program",
             scalar == PETSC_COMPLEX ? "complex" : "real", scalarBytes, indexBytes,
             PETSC_SCALAR == PETSC_COMPLEX ? "complex" : "real", sizeof(PetscScalar),
             sizeof(PetscInt));
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
  PetscCall(CheckNumbers());
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
