#include "tools/source/type_choice.h"

#include "tools/choice/input_error.h"

namespace Pavex::Tool {

ValueTag TagOf(ValueKind kind) {
  switch (kind) {
    case ValueKind::FLOAT:
      return Tag<float>();
    case ValueKind::DOUBLE:
      return Tag<double>();
    case ValueKind::COMPLEX_FLOAT:
      return Tag<std::complex<float>>();
    case ValueKind::COMPLEX_DOUBLE:
      break;
  }
  return Tag<std::complex<double>>();
}

IndexTag TagOf(IndexKind kind) {
  if (kind == IndexKind::INT) return Tag<int>();
  return Tag<long>();
}

ValueKind ChooseValue(Source const& source, std::optional<ValueKind> asked, bool withValues) {
  bool const complexInput = source.Kind() == Field::COMPLEX;
  if (!asked) return complexInput ? ValueKind::COMPLEX_DOUBLE : ValueKind::DOUBLE;
  if (complexInput && withValues && !IsComplex(*asked))
    throw InputError(source.Name() + " is complex and does not fit into --value " +
                     NameOf(*asked) + ": use complex-float or complex-double");
  return *asked;
}

}  // namespace Pavex::Tool
