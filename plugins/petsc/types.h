// What the plugin registers.

#pragma once

#include "plugins/petsc/gathered.h"

namespace PavexPetsc {

// Of PCRegister.
PetscErrorCode CreatePc(PC pc);
// Of MatSolverTypeRegister.
PetscErrorCode GetFactor(Mat mat, MatFactorType type, Mat* factor);

// The options that both types have, within PetscOptionsHeadBegin or PetscOptionsBegin.
PetscErrorCode OfferChoices(PetscOptionItems* PetscOptionsObject, Choices& choices);

}  // namespace PavexPetsc
