#include "pavex/matrix/matrix_base.h"

namespace Pavex {

MatrixBase::~MatrixBase() = default;

}  // namespace Pavex
