// The rows of -log_view.

#pragma once

#include <petsclog.h>

namespace PavexPetsc {

struct Events {
  PetscLogEvent mMerge = 0;    // rows of the process become one piece
  PetscLogEvent mGather = 0;   // the matrix goes to the receiver
  PetscLogEvent mUpdate = 0;   // its new values go there
  PetscLogEvent mVector = 0;   // right-hand sides go there
  PetscLogEvent mScatter = 0;  // solutions come back
};

// Registered when the types are.
extern Events gEvents;

}  // namespace PavexPetsc
