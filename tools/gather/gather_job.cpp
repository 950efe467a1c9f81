#include "tools/gather/gather_job.h"

#include "tools/cut/refusals.h"
#include "tools/gather/assembled_rank.h"
#include "tools/gather/gather_rank.h"
#include "tools/source/type_choice.h"

namespace Pavex::Tool {

GatherResult RunGather(Source const& source, GatherOptions const& options, Ranks& ranks) {
  RefuseTooLarge(source.Name(), source.Whole(), options, options.mIndex);
  ValueKind const value = ChooseValue(source, options.mValue, options.mWithValues);
  GatherResult result;
  auto const run = [&](auto valueTag, auto indexTag) {
    using T = typename decltype(valueTag)::Type;
    using I = typename decltype(indexTag)::Type;
    ranks.Run([&](std::shared_ptr<Comm> const& comm) {
      GatherResult* const here = comm->Rank() == ranks.FirstHere() ? &result : nullptr;
      if (IsAssembled(options))
        AssembledRank<T, I>(comm, source, options).Run(here);
      else
        GatherRank<T, I>(comm, source, options).Run(here);
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
