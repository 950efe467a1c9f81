#include "tools/solve/solve_job.h"

#include "tools/choice/input_error.h"
#include "tools/solve/solve_rank.h"
#include "tools/solve/sparse_lu.h"
#include "tools/source/type_choice.h"

#include <string>

namespace Pavex::Tool {

namespace {

std::string Shape(long rows, long cols) {
  return std::to_string(rows) + " x " + std::to_string(cols);
}

void RefuseUnsolvable(Source const& source) {
  Extent const& whole = source.Whole();
  if (whole.mRows != whole.mCols)
    throw InputError(source.Name() + " is " + Shape(whole.mRows, whole.mCols) +
                     ": only a square matrix can be solved");
  if (whole.mRows == 0) throw InputError(source.Name() + " is empty: nothing to solve");
  if (whole.mEntries == 0) throw InputError(source.Name() + " has no entries: it is singular");
}

std::unique_ptr<Source> OpenRhs(std::string const& path, Source const& source,
                                ValueKind value) {
  auto rhs = OpenFile(path);
  Extent const& whole = rhs->Whole();
  long const unknowns = source.Whole().mRows;
  if (whole.mRows != unknowns)
    throw InputError(path + " has " + std::to_string(whole.mRows) + " rows, but " +
                     source.Name() + " has " + std::to_string(unknowns));
  if (whole.mCols == 0) throw InputError(path + " has no columns: nothing to solve");
  if (rhs->Kind() == Field::COMPLEX && !IsComplex(value))
    throw InputError(path + " is complex: use --value complex-double or complex-float");
  return rhs;
}

// A process with one rank forgets the rows of the others.
void KeepOwnRows(Source& rhs, Extent const& whole, CutOptions const& options,
                 Ranks const& ranks) {
  if (ranks.Kind() == CommKind::LOCAL) return;
  Piece rows = CutRows(whole, options, ranks.Count(), ranks.FirstHere());
  rows.mColEnd = rhs.Whole().mCols;
  rows.mEntryEnd = rhs.Whole().mEntries;
  rhs.Keep(rows);
}

SolveProblem MakeProblem(Source const& source, SolveOptions const& options, ValueKind value,
                         Ranks const& ranks) {
  SolveProblem problem{source, options, {}, 0, 0, {}};
  problem.mUnknowns = source.Whole().mRows;
  problem.mGrid = GridOf(options.mOperator.mGenerate, problem.mUnknowns);
  problem.mCount = options.mRhs;
  if (!options.mRhsFile.empty()) {
    problem.mRhs = OpenRhs(options.mRhsFile, source, value);
    problem.mCount = problem.mRhs->Whole().mCols;
    KeepOwnRows(*problem.mRhs, source.Whole(), options.mOperator, ranks);
  }
  if (problem.mUnknowns > kMaxEntries / problem.mCount)
    throw InputError("right-hand sides of " + Shape(problem.mUnknowns, problem.mCount) +
                     " have more than the " + std::to_string(kMaxEntries) +
                     " elements that a solver can count: use fewer");
  return problem;
}

}  // namespace

Piece CutRows(Extent const& whole, CutOptions const& options, int ranks, int rank) {
  CutOptions rows = options;
  bool const held =
      options.mPartition == Partition::ONE || options.mPartition == Partition::ALL;
  if (!held) rows.mPartition = Partition::ROWS;
  if (options.mPartition == Partition::ENTRIES) rows.mCuts.clear();  // they are not rows
  return CutPiece(whole, rows, ranks, rank);
}

SolveResult RunSolve(Source const& source, SolveOptions const& options, Ranks& ranks) {
  RefuseUnsolvable(source);
  ValueKind const value = ChooseValue(source, options.mOperator.mValue, true);
  SolveProblem const problem = MakeProblem(source, options, value, ranks);
  SolveResult result;
  WithTypes(value, options.mOperator.mIndex, [&](auto valueTag, auto indexTag) {
    using T = typename decltype(valueTag)::Type;
    using I = typename decltype(indexTag)::Type;
    if (ranks.FirstHere() == 0 || options.mOperator.mToAll) ReserveSparseLu<T, I>();
    ranks.Run([&](std::shared_ptr<Comm> const& comm) {
      SolveRank<T, I> rank(comm, problem);
      rank.Run(comm->Rank() == 0 ? &result : nullptr);
    });
  });

  result.mGrid = problem.mGrid;
  SolveReport& report = result.mReport;
  report.mOptions = options;
  report.mOptions.mRhs = static_cast<int>(problem.mCount);
  report.mInput = source.Name();
  report.mField = NameOf(source.Kind());
  report.mValue = value;
  report.mUnknowns = problem.mUnknowns;
  report.mEntries = source.Whole().mEntries;
  report.mComm = ranks.Kind();
  report.mRanks = ranks.Count();
  report.mKnowsError = !problem.mRhs;
  return result;
}

}  // namespace Pavex::Tool
