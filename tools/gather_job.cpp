#include "tools/gather_job.h"

#include "tools/gather_rank.h"
#include "tools/input_error.h"

#include <complex>
#include <variant>

namespace Pavex::Tool {

namespace {

// A type to choose at run time.
template <typename T>
struct Tag {
  using Type = T;
};

using ValueTag =
    std::variant<Tag<float>, Tag<double>, Tag<std::complex<float>>, Tag<std::complex<double>>>;
using IndexTag = std::variant<Tag<int>, Tag<long>>;

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

ValueKind ChooseValue(Source const& source, GatherOptions const& options) {
  bool const complexInput = source.Kind() == Field::Complex;
  if (!options.mValue) return complexInput ? ValueKind::COMPLEX_DOUBLE : ValueKind::DOUBLE;
  if (complexInput && options.mWithValues && !IsComplex(*options.mValue))
    throw InputError(source.Name() + " is complex and does not fit into --value " +
                     NameOf(*options.mValue) + ": use complex-float or complex-double");
  return *options.mValue;
}

char const* FieldWord(Field field) {
  switch (field) {
    case Field::Real:
      return "real";
    case Field::Integer:
      return "integer";
    case Field::Complex:
      return "complex";
    case Field::Pattern:
      break;
  }
  return "pattern";
}

void RefuseTooLarge(Source const& source, GatherOptions const& options) {
  Extent const& whole = source.Whole();
  if (IsDense(options.mFormat) && whole.mCols > 0 && whole.mRows > kMaxEntries / whole.mCols)
    throw InputError("a dense matrix of " + std::to_string(whole.mRows) + " x " +
                     std::to_string(whole.mCols) + " has more than the " +
                     std::to_string(kMaxEntries) +
                     " elements that one gather can place: use a sparse --format");
}

}  // namespace

GatherResult RunGather(Source const& source, GatherOptions const& options, Ranks& ranks) {
  RefuseTooLarge(source, options);
  ValueKind const value = ChooseValue(source, options);
  GatherResult result;
  auto const run = [&](auto valueTag, auto indexTag) {
    using T = typename decltype(valueTag)::Type;
    using I = typename decltype(indexTag)::Type;
    ranks.Run([&](std::shared_ptr<Comm> const& comm) {
      GatherRank<T, I>(comm, source, options).Run(result);
    });
  };
  std::visit(run, TagOf(value), TagOf(options.mIndex));

  GatherReport& report = result.mReport;
  report.mInput = source.Name();
  report.mField = FieldWord(source.Kind());
  report.mWhole = source.Whole();
  report.mOptions = options;
  report.mValue = value;
  return result;
}

}  // namespace Pavex::Tool
