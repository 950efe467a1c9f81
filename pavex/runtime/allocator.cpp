#include "pavex/runtime/allocator.h"

namespace Pavex {

Allocator::~Allocator() = default;

}  // namespace Pavex
