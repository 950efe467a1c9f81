#include "tools/gather_job.h"

#include "tools/gather_rank.h"
#include "tools/input_error.h"
#include "tools/type_choice.h"

namespace Pavex::Tool {

namespace {

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
  ValueKind const value = ChooseValue(source, options.mValue, options.mWithValues);
  GatherResult result;
  auto const run = [&](auto valueTag, auto indexTag) {
    using T = typename decltype(valueTag)::Type;
    using I = typename decltype(indexTag)::Type;
    ranks.Run([&](std::shared_ptr<Comm> const& comm) {
      GatherRank<T, I> rank(comm, source, options);
      rank.Run(comm->Rank() == ranks.FirstHere() ? &result : nullptr);
    });
  };
  WithTypes(value, options.mIndex, run);

  GatherReport& report = result.mReport;
  report.mComm = ranks.Kind();
  report.mInput = source.Name();
  report.mField = NameOf(source.Kind());
  report.mWhole = source.Whole();
  report.mOptions = options;
  report.mValue = value;
  return result;
}

}  // namespace Pavex::Tool
