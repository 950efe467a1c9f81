// The rows of PETSc's matrices and vectors as pieces for an Aggregator. Header-only and not
// part of pavex.h. Needs the headers of PETSc 3.18 or later; real or complex, with 32- or
// 64-bit indices, as that PETSc was built.
//
//   Pavex::PetscRows rows(&pool);
//   Check(rows.Attach(A));                                   // A: an assembled Mat
//   if (rows.Owners() == MPI_COMM_NULL) ...                  // this process has no rows
//   auto comm = std::make_shared<Pavex::MpiComm>(rows.Owners());
//   Check(aggregator.Gather(comm, rows.Piece(), true));
//   ...                                                      // new values in A
//   Check(rows.Refresh());
//   Check(aggregator.UpdateInPlace(rows.Piece()));
//
// Only public functions of PETSc are called. Errors of PETSc become statuses; nothing is
// thrown.

#pragma once

#include "pavex/interop/petsc_band.h"
#include "pavex/interop/petsc_owners.h"
#include "pavex/interop/petsc_rows.h"
