/* The plugin for PETSc: the preconditioner type and the direct solver type `pavex`. Plain C.
   See docs/petsc.md. */

#ifndef PETSCPAVEX_H
#define PETSCPAVEX_H

#include <petscsys.h>

#define PCPAVEX "pavex"
#define MATSOLVERPAVEX "pavex"

/* Makes both types known. Call it after PetscInitialize if the program links the plugin; a
   plugin that -dll_append loads needs no call. May be called again. */
PETSC_EXTERN PetscErrorCode PavexPetscRegister(void);

#endif
