#include "pavex/runtime/datatype.h"

namespace Pavex {

std::size_t DatatypeSize(Datatype type) noexcept {
  switch (type) {
    case DATATYPE_BYTE:
      return 1;
    case DATATYPE_INT:
      return sizeof(int);
    case DATATYPE_LONG:
      return sizeof(long);
    case DATATYPE_FLOAT:
      return sizeof(float);
    case DATATYPE_DOUBLE:
      return sizeof(double);
    case DATATYPE_COMPLEX_FLOAT:
      return sizeof(std::complex<float>);
    case DATATYPE_COMPLEX_DOUBLE:
      return sizeof(std::complex<double>);
  }
  return 0;
}

}  // namespace Pavex
