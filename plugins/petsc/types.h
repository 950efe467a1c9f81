// What the plugin registers.

#pragma once

#include "plugins/petsc/gathered.h"

namespace PavexPetsc {

// Of PCRegister.
PetscErrorCode CreatePc(PC pc);
// Of MatSolverTypeRegister.
PetscErrorCode GetFactor(Mat mat, MatFactorType type, Mat* factor);

// What -help prints above the options.
#ifdef PETSC_HAVE_SUITESPARSE
constexpr char kTitle[] =
    "Pavex options; SuiteSparse in PETSc puts this plugin under the GPL 3";
#else
constexpr char kTitle[] = "Pavex options";
#endif

// The options that both types have, within PetscOptionsHeadBegin or PetscOptionsBegin.
PetscErrorCode OfferChoices(PetscOptionItems* PetscOptionsObject, Choices& choices);

}  // namespace PavexPetsc
