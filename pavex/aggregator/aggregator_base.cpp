#include "pavex/aggregator/aggregator_base.h"

namespace Pavex {

AggregatorBase::~AggregatorBase() {
  Clear();
}

void AggregatorBase::Clear() {
  delete mTarget;
  mTarget = nullptr;
}

}  // namespace Pavex
