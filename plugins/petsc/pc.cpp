// The preconditioner type `pavex`: the matrix is gathered onto one process, where another
// solver works on it.

#include "plugins/petsc/gathered.h"
#include "plugins/petsc/types.h"

#include <new>
#include <petsc/private/pcimpl.h>

namespace PavexPetsc {

namespace {

struct PcData {
  Gathered mGathered;
  Choices mChoices;
};

PcData& DataOf(PC pc) {
  return *static_cast<PcData*>(pc->data);
}

PetscErrorCode SetUp(PC pc) {
  PCFailedReason reason = PC_NOERROR;
  InnerChoices inner;
  PetscFunctionBegin;
  PetscCall(PCGetOptionsPrefix(pc, &inner.mPrefix));
  inner.mSuffix = "pavex_";
  PetscCall(DataOf(pc).mGathered.SetUp(pc->pmat, DataOf(pc).mChoices, inner, &reason));
  PetscCall(PCSetFailedReason(pc, reason));
  PetscFunctionReturn(kSuccess);
}

// `Object` is Vec, or Mat for several columns.
template <typename Object>
PetscErrorCode Solve(PC pc, Object b, Object x, PetscBool transposed) {
  PCFailedReason reason = PC_NOERROR;
  PetscFunctionBegin;
  PetscCall(DataOf(pc).mGathered.Solve(b, x, transposed, &reason));
  if (reason != PC_NOERROR) PetscCall(PCSetFailedReason(pc, reason));
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode Apply(PC pc, Vec b, Vec x) {
  return Solve(pc, b, x, PETSC_FALSE);
}

PetscErrorCode ApplyTranspose(PC pc, Vec b, Vec x) {
  return Solve(pc, b, x, PETSC_TRUE);
}

PetscErrorCode MatApply(PC pc, Mat b, Mat x) {
  return Solve(pc, b, x, PETSC_FALSE);
}

PetscErrorCode SetFromOptions(PC pc, PetscOptionItems* PetscOptionsObject) {
  PetscFunctionBegin;
  PetscOptionsHeadBegin(PetscOptionsObject, kTitle);
  PetscCall(OfferChoices(PetscOptionsObject, DataOf(pc).mChoices));
  PetscOptionsHeadEnd();
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode View(PC pc, PetscViewer viewer) {
  return DataOf(pc).mGathered.View(viewer);
}

PetscErrorCode Reset(PC pc) {
  return DataOf(pc).mGathered.Reset();
}

PetscErrorCode Destroy(PC pc) {
  PetscFunctionBegin;
  delete static_cast<PcData*>(pc->data);
  pc->data = nullptr;
  PetscFunctionReturn(kSuccess);
}

}  // namespace

PetscErrorCode CreatePc(PC pc) {
  PetscFunctionBegin;
  auto* const data = new (std::nothrow) PcData;
  PetscCheck(data != nullptr, PETSC_COMM_SELF, PETSC_ERR_MEM, "Pavex: no memory");
  pc->data = data;
  pc->ops->setup = SetUp;
  pc->ops->apply = Apply;
  pc->ops->applytranspose = ApplyTranspose;
  pc->ops->matapply = MatApply;
  pc->ops->setfromoptions = SetFromOptions;
  pc->ops->view = View;
  pc->ops->reset = Reset;
  pc->ops->destroy = Destroy;
  PetscFunctionReturn(kSuccess);
}

}  // namespace PavexPetsc
