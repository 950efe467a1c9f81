#include "tests/property/property.h"

#include "pavex/aggregator/aggregator.h"
#include "tests/property/target_check.h"

#include <array>
#include <complex>
#include <cstdlib>
#include <map>

namespace Pavex {

namespace {

constexpr std::size_t kRecordBytes = 72;

// One rank of one case.
template <typename T, typename I>
class CaseOf {
 public:
  CaseOf(std::shared_ptr<Comm> const& comm, MemoryPool* source) : mComm(comm), mPool(source) {}

  std::string Run(Rng& rng) {
    for (mRoundIndex = 0; mRoundIndex < 2; ++mRoundIndex) {
      Round const round = MakeRound(rng, mComm->Size());
      bool const clear = rng.OneIn(3);
      bool const intoNew = rng.Coin();
      std::string const difference = RunRound(round, intoNew);
      if (!difference.empty()) return Describe(round) + ": " + difference;
      if (clear && !Cleared()) return "memory is left behind by Clear";
    }
    return "";
  }

 private:
  using Local = LocalMatrix<T, I>;

  // The version of the values of a phase. It differs from those of all other phases.
  long Version(Phase phase) const { return 3 * mRoundIndex + phase + 1; }

  std::string RunRound(Round const& round, bool intoNew) {
    Piece const& piece = round.PieceOf(mRank);
    Local gathered(round, mRank, GATHERED, piece.hasValues, Version(GATHERED));
    std::vector<T> const sent = gathered.Values();
    PavexStatus const status =
        round.toAll ? mAggregator.Allgather(mComm, gathered.Matrix(), piece.withValues)
                    : mAggregator.Gather(mComm, gathered.Matrix(), piece.withValues);
    if (round.flaw != RoundFlaw::NONE) return CheckRefusal(round, status);
    if (status != STATUS_OK) return "status of the gather is " + std::to_string(status);
    CountMetadata(round);
    bool const moved = round.Reference().withValues;
    std::string difference = CheckTarget(round, gathered, gathered, GATHERED, moved);
    if (!difference.empty()) return "after the gather: " + difference;

    Local updated(round, mRank, UPDATED, true, Version(UPDATED));
    PavexStatus const updateStatus = mAggregator.Update(updated.Matrix());
    if (updateStatus != STATUS_OK)
      return "status of the update is " + std::to_string(updateStatus);
    difference = CheckTarget(round, gathered, updated, UPDATED, true);
    if (!difference.empty()) return "after the update: " + difference;
    if (gathered.Values() != sent) return "the values of the matrix gathered have changed";

    Local fresh(round, mRank, SCATTERED, true, Version(GATHERED));
    difference = round.IsDense() ? CheckScatter(round, intoNew ? fresh : updated)
                                 : CheckNoScatter(updated);
    // The arrays that the gathered matrix borrows are destroyed at the end of this round.
    if (!difference.empty()) return "after the scatter: " + difference;
    return "";
  }

  std::string CheckRefusal(Round const& round, PavexStatus status) {
    Differences is;
    if (round.flaw == RoundFlaw::CROSS_EXTENT || round.flaw == RoundFlaw::WRONG_AXIS)
      CountMetadata(round);  // seen only when the metadata are complete
    is.Equal("status of the flawed gather", status, STATUS_INCONSISTENT);
    is.Equal("whether there is a gathered matrix", mAggregator.Target() != nullptr, false);
    is.Equal("bytes taken from the pool", mPool.OutstandingBytes(), MetadataBytes());
    return is.First();
  }

  std::string CheckTarget(Round const& round, Local const& indices, Local const& values,
                          Phase phase, bool moved) {
    TargetCheck<T, I> check(round, mRank, mPool, indices, values, phase, Version(phase), moved);
    std::string const difference = check.Run(mAggregator.Target());
    if (!difference.empty()) return difference;
    Differences is;
    is.Equal("communicator", mAggregator.GetComm(), mComm);
    is.Equal("bytes taken from the pool", mPool.OutstandingBytes(),
             MetadataBytes() + check.OwnedBytes());
    return is.First();
  }

  // Gives the gathered matrix new values, scatters them, and checks each at its place.
  std::string CheckScatter(Round const& round, Local& local) {
    FillTarget(round);
    std::vector<T> const expected = ExpectedAfterScatter(round, local);
    std::vector<T> const target = TargetValues();

    PavexStatus const status = mAggregator.Scatter(local.Matrix());

    Differences is;
    is.Equal("status of the scatter", status, STATUS_OK);
    for (std::size_t k = 0; k < expected.size(); ++k)
      is.Equal("local value " + std::to_string(k), local.Values()[k], expected[k]);
    is.Equal("whether the gathered matrix is as before", TargetValues() == target, true);
    return is.First();
  }

  std::string CheckNoScatter(Local& local) {
    std::vector<T> const before = local.Values();
    Differences is;
    is.Equal("status of the scatter", mAggregator.Scatter(local.Matrix()),
             STATUS_NOT_SUPPORTED);
    is.Equal("whether the local values are as before", local.Values() == before, true);
    return is.First();
  }

  void FillTarget(Round const& round) {
    if (mAggregator.Target() == nullptr) return;
    auto& target = dynamic_cast<MatrixDense<T, I>&>(*mAggregator.Target());
    long const length = target.mRowMajor ? target.mCols : target.mRows;
    auto const entries = static_cast<long>(round.WholeOn(mRank).entries.size());
    for (long k = 0; k < entries; ++k)
      target.mValues.mData[k / length * target.mLd + k % length] = Scattered(mRank, k);
  }

  // The new value of element k, counted run by run, in the gathered matrix of `rank`.
  T Scattered(int rank, long k) const {
    return ValueOf<T>(Version(SCATTERED), kNumbersPerRank * rank + k);
  }

  // Call it when the gathered matrix has its values, because that may be a view of `local`.
  std::vector<T> ExpectedAfterScatter(Round const& round, Local const& local) const {
    std::vector<T> expected = local.Values();
    if (round.holding == Holding::ONE && !round.HoldsWhole(mRank)) return expected;
    std::map<long, long> places;  // in the whole, by the number of the element
    for (Entry const& entry : round.WholeOn(mRank).entries)
      places.emplace(entry.number, static_cast<long>(places.size()));
    int const sender = round.toAll ? mRank : 0;
    std::vector<Entry> const& entries = round.PieceOf(mRank).entries;
    for (std::size_t k = 0; k < entries.size(); ++k)
      expected[local.DenseIndex(static_cast<long>(k))] =
          Scattered(sender, places.at(entries[k].number));
    return expected;
  }

  std::vector<T> TargetValues() {
    if (mAggregator.Target() == nullptr) return {};
    auto const& target = dynamic_cast<MatrixDense<T, I> const&>(*mAggregator.Target());
    return {target.mValues.mData, target.mValues.mData + target.mValues.mSize};
  }

  // Adds up the metadata that stay in use: the records until the next gather, counts and
  // displacements until the next gather of pieces that this rank receives.
  void CountMetadata(Round const& round) {
    if (round.holding == Holding::PIECES && round.Receives(mRank)) mHasCounts = true;
  }
  std::size_t MetadataBytes() const {
    auto const ranks = static_cast<std::size_t>(mComm->Size());
    return ranks * (kRecordBytes + (mHasCounts ? 2 * sizeof(int) : 0));
  }

  bool Cleared() {
    mAggregator.Clear();
    return mAggregator.Target() == nullptr && mPool.OutstandingBytes() == MetadataBytes();
  }

  std::shared_ptr<Comm> const& mComm;
  int const mRank = mComm->Rank();
  LedgerPool mPool;
  Aggregator<T, I> mAggregator{&mPool};
  bool mHasCounts = false;
  long mRoundIndex = 0;
};

template <typename T, typename I>
std::string RunCaseOf(Rng& rng, std::shared_ptr<Comm> const& comm, MemoryPool* source) {
  return CaseOf<T, I>(comm, source).Run(rng);
}

using RunFunction = std::string (*)(Rng&, std::shared_ptr<Comm> const&, MemoryPool*);

struct NamedInstance {
  char const* name;
  RunFunction run;
};

constexpr std::array<NamedInstance, 8> kInstances{{
    {"float, int", RunCaseOf<float, int>},
    {"float, long", RunCaseOf<float, long>},
    {"double, int", RunCaseOf<double, int>},
    {"double, long", RunCaseOf<double, long>},
    {"complex float, int", RunCaseOf<std::complex<float>, int>},
    {"complex float, long", RunCaseOf<std::complex<float>, long>},
    {"complex double, int", RunCaseOf<std::complex<double>, int>},
    {"complex double, long", RunCaseOf<std::complex<double>, long>},
}};

long FromEnvironmentOr(char const* name, long value) {
  char const* const text = std::getenv(name);
  return text == nullptr ? value : std::atol(text);
}

}  // namespace

PropertyOptions PropertyOptions::FromEnvironment(long defaultCases) {
  PropertyOptions options;
  options.seed = static_cast<std::uint64_t>(FromEnvironmentOr("PAVEX_PROPERTY_SEED", 1));
  options.first = FromEnvironmentOr("PAVEX_PROPERTY_FIRST", 0);
  options.cases = FromEnvironmentOr("PAVEX_PROPERTY_CASES", defaultCases);
  return options;
}

std::string RunCase(Rng& rng, std::shared_ptr<Comm> const& comm, MemoryPool* source) {
  NamedInstance const& instance = kInstances[static_cast<std::size_t>(rng.Between(0, 7))];
  std::string const difference = instance.run(rng, comm, source);
  if (difference.empty()) return "";
  return "rank " + std::to_string(comm->Rank()) + " of " + std::to_string(comm->Size()) + ", " +
         instance.name + ", " + difference;
}

std::string RunCase(std::uint64_t seed, long number, std::shared_ptr<Comm> const& comm,
                    MemoryPool* source) {
  Rng rng(seed, static_cast<std::uint64_t>(number));
  std::string const difference = RunCase(rng, comm, source);
  if (difference.empty()) return "";
  return difference + "\nAgain: PAVEX_PROPERTY_SEED=" + std::to_string(seed) +
         " PAVEX_PROPERTY_FIRST=" + std::to_string(number) + " PAVEX_PROPERTY_CASES=1";
}

}  // namespace Pavex
