// One rank's part of a solve, for one value and index type.

#pragma once

#include "pavex/aggregator/aggregator.h"
#include "pavex/runtime/memory_pool.h"
#include "tools/cut/refusals.h"
#include "tools/matrix/dense_piece.h"
#include "tools/matrix/elements.h"
#include "tools/matrix/gathered_bytes.h"
#include "tools/matrix/local_matrix.h"
#include "tools/matrix/piece_product.h"
#include "tools/matrix/write_gathered.h"
#include "tools/ranks/collect.h"
#include "tools/ranks/mpi_process.h"
#include "tools/ranks/out_of_memory.h"
#include "tools/ranks/timing.h"
#include "tools/solve/known_problem.h"
#include "tools/solve/lu_faults.h"
#include "tools/solve/solve_accuracy.h"
#include "tools/solve/solve_job.h"
#include "tools/solve/sparse_lu.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace Pavex::Tool {

// Every step is collective. The thread of its rank makes, uses and destroys it.
template <typename T, typename I>
class SolveRank {
 public:
  SolveRank(std::shared_ptr<Comm> comm, SolveProblem const& problem)
      : mComm(std::move(comm)),
        mProblem(problem),
        mOptions(problem.mOptions.mOperator),
        mOperator(mPool.get()),
        mRhs(mPool.get()) {}

  // `result` is set on rank 0 alone.
  void Run(SolveResult* result);

 private:
  // Why a receiver could not go on. It travels as bytes. Empty if nothing failed.
  struct Fault {
    char mText[256] = "";
  };

  void BuildPieces();
  void ChangeOperator();
  void FillRhs();
  void FillRhsFromFile();

  void Transmit();
  void Factor();
  void Solve();
  void Scatter();
  void Measure();

  template <typename Operation>
  double TimeOnReceivers(Operation const& operation);
  void RefuseFault(Fault const& mine) const;
  void SolveHere();
  void KeepSolution(SolveResult& result);

  std::shared_ptr<Comm> mComm;
  SolveProblem const& mProblem;
  GatherOptions const& mOptions;
  int mStep = 0;
  std::vector<SolveStep> mSteps;

  // The order matters: members are destroyed bottom up, and the upper ones are needed longest.
  std::unique_ptr<MemoryPool> mPool = MakePool(*mComm);
  std::unique_ptr<LocalMatrix<T, I>> mLocal;
  std::vector<T> mFormer;   // values of mLocal in the previous step
  std::vector<T> mCurrent;  // values of mLocal, from step 1 on
  std::unique_ptr<DensePiece<T, I>> mB;
  std::unique_ptr<DensePiece<T, I>> mX;
  std::vector<T> mSolution;  // on receivers, in the layout of the gathered right-hand sides
  Aggregator<T, I> mOperator;
  Aggregator<T, I> mRhs;
  std::unique_ptr<SparseLu<T, I>> mLu;  // on receivers
};

template <typename T, typename I>
void SolveRank<T, I>::Run(SolveResult* result) {
  BuildPieces();
  for (mStep = 0; mStep <= mProblem.mOptions.mSteps; ++mStep) {
    if (mStep > 0) ChangeOperator();
    FillRhs();
    mSteps.emplace_back();
    Transmit();
    Factor();
    Solve();
    Scatter();
    Measure();
  }
  if (result != nullptr) KeepSolution(*result);
}

template <typename T, typename I>
void SolveRank<T, I>::BuildPieces() {
  Extent const& whole = mProblem.mSource.Whole();
  Piece const piece = CutPiece(whole, mOptions, mComm->Size(), mComm->Rank());
  mLocal = std::make_unique<LocalMatrix<T, I>>(mProblem.mSource.Cut(piece, {}), piece, whole,
                                               mOptions);
  MatrixBase const& matrix = mLocal->Matrix();
  Extent const mine{matrix.mRows, matrix.mCols, matrix.NNZ()};
  RefuseEmptyPieces(FromEveryRank(*mComm, mine), whole, mOptions);

  Piece const rows = CutRows(whole, mOptions, mComm->Size(), mComm->Rank());
  mB = std::make_unique<DensePiece<T, I>>(rows, whole.mRows, mProblem.mCount, mOptions.mPad);
  mX = std::make_unique<DensePiece<T, I>>(rows, whole.mRows, mProblem.mCount, mOptions.mPad);
}

// Makes the values of the next step in a new array, because the gathered matrix may borrow the
// earlier one until it is updated.
template <typename T, typename I>
void SolveRank<T, I>::ChangeOperator() {
  std::vector<T> const& input = mLocal->Values();
  std::vector<T> next(input.size());
  long const n = mProblem.mUnknowns;
  ForEachElement(Elements<T, I>(mLocal->Matrix()), [&](long row, long col, std::size_t k) {
    Wide<T> const value(input[k]);
    next[k] =
        static_cast<T>(value * CoefficientAt(row, n, mStep) * CoefficientAt(col, n, mStep));
  });
  mFormer = std::move(mCurrent);
  mCurrent = std::move(next);
  mLocal->Matrix().SetValues(mCurrent.data());
}

template <typename T, typename I>
void SolveRank<T, I>::FillRhs() {
  if (mProblem.mRhs) return FillRhsFromFile();
  RowSums<T> sums(mProblem.mUnknowns, mProblem.mCount);
  auto const exact = [this](long row, long column) {
    return ExactSolution<Wide<T>>(mProblem.mGrid, row, column);
  };
  AddProduct<T, I>(mLocal->Matrix(), mProblem.mCount, exact, sums);
  Complete(*mComm, mOptions.mPartition, sums);
  for (long row = mB->Begin(); row < mB->End(); ++row)
    for (long column = 0; column < mProblem.mCount; ++column)
      mB->At(row, column) = static_cast<T>(sums.mProduct[sums.At(row, column)]);
}

template <typename T, typename I>
void SolveRank<T, I>::FillRhsFromFile() {
  for (long row = mB->Begin(); row < mB->End(); ++row)
    for (long column = 0; column < mProblem.mCount; ++column)
      mB->At(row, column) = T{};
  Triplets const rhs = mProblem.mRhs->Rows(mB->Begin(), mB->End());
  for (std::size_t k = 0; k < rhs.Entries(); ++k)
    mB->At(rhs.mRow[k], rhs.mCol[k]) += InputValue<T>(rhs, k);
}

// Gathers in the first step, and updates in the others.
template <typename T, typename I>
void SolveRank<T, I>::Transmit() {
  bool const first = mStep == 0;
  auto const send = [&](Aggregator<T, I>& aggregator, MatrixBase const& local) {
    if (!first) return aggregator.Update(local);
    return mOptions.mToAll ? aggregator.Allgather(mComm, local, true)
                           : aggregator.Gather(mComm, local, true);
  };
  auto const arrived = [&](Aggregator<T, I>& aggregator, MatrixBase const& local) {
    return SumOfAll(*mComm, GatheredBytes<T, I>(aggregator.Target(), local, false, !first));
  };
  MatrixBase const& a = mLocal->Matrix();
  MatrixBase const& b = mB->Matrix();
  SolveStep& step = mSteps.back();
  char const* const what = first ? "the gather" : "the update";
  step.mOperator.mSeconds =
      TimeTogether(*mComm, *mPool, what, [&] { return send(mOperator, a); });
  step.mOperator.mBytes = arrived(mOperator, a);
  step.mRhs.mSeconds = TimeTogether(*mComm, *mPool, what, [&] { return send(mRhs, b); });
  step.mRhs.mBytes = arrived(mRhs, b);
}

template <typename T, typename I>
void SolveRank<T, I>::Factor() {
  SolveStep& step = mSteps.back();
  if (mStep == 0) {
    step.mAnalyseSeconds = TimeOnReceivers([this] {
      mLu = MakeSparseLu<T, I>();
      mLu->Analyse(*mOperator.Target());
    });
  }
  step.mFactorSeconds = TimeOnReceivers([this] { mLu->Factor(*mOperator.Target()); });
}

template <typename T, typename I>
void SolveRank<T, I>::Solve() {
  mSteps.back().mSolveSeconds = TimeOnReceivers([this] { SolveHere(); });
}

// Solves on a receiver. The solutions become the values of the gathered right-hand sides, which
// Scatter sends.
template <typename T, typename I>
void SolveRank<T, I>::SolveHere() {
  Elements<T, I> const b(*mRhs.Target());
  long const ld = b.mLayout.mLd;
  mSolution.assign(static_cast<std::size_t>(ld * b.mCols), T{});
  mLu->Solve(DenseView<T const>{b.mValues, b.mRows, b.mCols, ld},
             DenseView<T>{mSolution.data(), b.mRows, b.mCols, ld});
  bool const finite = std::all_of(mSolution.begin(), mSolution.end(),
                                  [](T value) { return std::isfinite(std::abs(value)); });
  if (!finite) throw JobError(std::string(kSingular) + "the solution is not finite");
  mRhs.Target()->SetValues(mSolution.data());
}

template <typename T, typename I>
void SolveRank<T, I>::Scatter() {
  MatrixDense<T, I>& x = mX->Matrix();
  Transfer& scatter = mSteps.back().mScatter;
  scatter.mSeconds =
      TimeTogether(*mComm, *mPool, "the scatter", [&] { return mRhs.Scatter(x); });
  scatter.mBytes = SumOfAll(*mComm, x.NNZ() * static_cast<long>(sizeof(T)));
}

// Measures the accuracy of the scattered pieces. They are collected on every rank for that.
template <typename T, typename I>
void SolveRank<T, I>::Measure() {
  Aggregator<T, I> solution(mPool.get());
  RequireWithin(*mPool, solution.Allgather(mComm, mX->Matrix(), true),
                "the exchange of the solutions", *mComm);
  Elements<T, I> const x(*solution.Target());
  auto const xAt = [&x](long row, long column) {
    return Wide<T>(x.mValues[x.mLayout.At(row, column)]);
  };
  RowSums<T> sums(mProblem.mUnknowns, mProblem.mCount);
  AddProduct<T, I>(mLocal->Matrix(), mProblem.mCount, xAt, sums);
  Complete(*mComm, mOptions.mPartition, sums);

  std::vector<Maxima> maxima;
  for (long column = 0; column < mProblem.mCount; ++column)
    maxima.push_back(MaximaOf(mProblem, column, sums, *mX, *mB));
  mSteps.back().mAccuracy = Judge(*mComm, maxima);
}

// Sends a failure of one receiver to every rank, so that all end the same way.
template <typename T, typename I>
template <typename Operation>
double SolveRank<T, I>::TimeOnReceivers(Operation const& operation) {
  Require(mComm->Barrier(), "the barrier", *mComm);
  Fault fault;
  Stopwatch const stopwatch;
  auto const keep = [&fault](char const* text) {
    std::strncpy(fault.mText, text, sizeof fault.mText - 1);
  };
  try {
    if (mOperator.Target() != nullptr) operation();
  } catch (JobError const& error) {
    keep(error.what());
  } catch (std::bad_alloc const&) {
    keep(kNoMemory);
  }
  double const seconds = stopwatch.Seconds();
  RefuseFault(fault);
  return LargestOfAll(*mComm, seconds);
}

template <typename T, typename I>
void SolveRank<T, I>::RefuseFault(Fault const& mine) const {
  for (Fault const& fault : FromEveryRank(*mComm, mine)) {
    if (fault.mText[0] == '\0') continue;
    throw JobError((mStep > 0 ? "step " + std::to_string(mStep) + ": " : "") + fault.mText);
  }
}

template <typename T, typename I>
void SolveRank<T, I>::KeepSolution(SolveResult& result) {
  result.mReport.mMode = mOperator.Mode();
  result.mReport.mSolver = mLu->Name();
  result.mReport.mReading = mLu->Reading();
  result.mReport.mSteps = std::move(mSteps);
  long const n = mProblem.mUnknowns;
  for (long row = 0; row < n; ++row)
    result.mSolution.push_back(
        static_cast<double>(std::real(mSolution[static_cast<std::size_t>(row)])));
  if (!mOptions.mOutput.empty())
    result.mOutput = WriteGathered<T, I>(mOptions.mOutput, *mRhs.Target());
}

}  // namespace Pavex::Tool
