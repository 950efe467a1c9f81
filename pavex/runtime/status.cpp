#include "pavex/runtime/status.h"

char const* PavexStatusStr(PavexStatus status) noexcept {
  switch (status) {
    case Pavex::STATUS_OK:
      return "Success";
    case Pavex::STATUS_NOT_SUPPORTED:
      return "Operation not supported";
    case Pavex::STATUS_OUT_OF_MEMORY:
      return "Out of memory";
    case Pavex::STATUS_INVALID_VALUE:
      return "Invalid value";
    case Pavex::STATUS_MISMATCH:
      return "Matrix does not match the gathered one";
    case Pavex::STATUS_WRONG_ORDER:
      return "Operation called in wrong order";
    case Pavex::STATUS_INCONSISTENT:
      return "Inconsistent data";
    case Pavex::STATUS_COMM_FAILED:
      return "Communication failed";
    default:
      return "Unknown status";
  }
}
