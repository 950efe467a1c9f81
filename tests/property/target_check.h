// Checks whether a gathered matrix is the one that a random round must give.

#pragma once

#include "tests/property/local_matrix.h"
#include "tests/support/ledger_pool.h"

#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace Pavex {

// Keeps the first difference from what is expected.
class Differences {
 public:
  template <typename A, typename B>
  void Equal(std::string const& what, A const& actual, B const& expected) {
    if (actual == expected || !mFirst.empty()) return;
    std::ostringstream text;
    text << what << " is " << actual << ", not " << expected;
    mFirst = text.str();
  }

  std::string const& First() const { return mFirst; }

 private:
  std::string mFirst;
};

// Checks the gathered matrix of one rank: its description, and every array for its owner, its
// length and each element.
template <typename T, typename I>
class TargetCheck {
 public:
  // `indices`: the local matrix that was gathered. `values`: the local matrix whose values came
  // last, in `phase` and with `version`. `moved`: values had to come at all.
  TargetCheck(Round const& round, int rank, LedgerPool const& pool,
              LocalMatrix<T, I> const& indices, LocalMatrix<T, I> const& values, Phase phase,
              long version, bool moved)
      : mRound(round),
        mRank(rank),
        mPool(pool),
        mIndices(indices),
        mValues(values),
        mPhase(phase),
        mVersion(version),
        mMoved(moved),
        mWhole(round.WholeOn(rank)) {}

  // The gathered matrix must own its values, at this address.
  void ExpectValuesAt(void const* address) { mPlace = address; }
  // Does not look at the elements of the values.
  void LeaveOutElementsOfValues() { mWithElements = false; }

  // The first difference; empty if all is right.
  std::string Run(MatrixBase const* target) {
    mIs.Equal("whether there is a gathered matrix", target != nullptr, mRound.Receives(mRank));
    if (target == nullptr || !mIs.First().empty()) return mIs.First();
    CheckDescription(*target);
    ArraysOf<T, I> const arrays(mRound.format, *target);
    if (mRound.IsDense())
      CheckDense(arrays);
    else
      CheckSparse(arrays);
    if (mIs.First().empty() && !mRound.IsDense()) CheckSums(*target, arrays);
    return mIs.First();
  }

  // Bytes of the pool in the arrays that the gathered matrix must own.
  std::size_t OwnedBytes() const { return mOwnedBytes; }

 private:
  void CheckDescription(MatrixBase const& target) {
    Piece const& reference = mRound.Reference();
    mIs.Equal("rows", target.mRows, mWhole.rows);
    mIs.Equal("columns", target.mCols, mWhole.cols);
    mIs.Equal("value type", target.mValueType, ValueTypeOf<T>::kCode);
    mIs.Equal("index type", target.mIndexType, IndexTypeOf<I>::kCode);
    mIs.Equal("pattern", target.mPattern, reference.pattern);
    mIs.Equal("attribute", target.mAttribute, reference.attribute);
    mIs.Equal("global rows", target.mGlobalRows, reference.globalRows);
    mIs.Equal("global columns", target.mGlobalCols, reference.globalCols);
    mIs.Equal("partition type", target.mPartition.type, reference.partition);
    mIs.Equal("partition begin", target.mPartition.begin, reference.begin);
  }

  void CheckDense(ArraysOf<T, I> const& target) {
    Piece const& piece = mRound.PieceOf(mRank);
    bool const view = mRound.holding == Holding::ALL;
    long const packedLd = piece.rowMajor ? mWhole.cols : mWhole.rows;
    mIs.Equal("row-major flag", target.rowMajor, piece.rowMajor);
    mIs.Equal("leading dimension", target.ld, view ? piece.Ld(mPhase) : packedLd);
    bool const borrowed = view || (mRound.HoldsWhole(mRank) && mMoved &&
                                   piece.IsPacked(mPhase) && mPlace == nullptr);
    if (borrowed)
      CheckBorrowed("values", *target.values, *mValues.Arrays().values);
    else
      CheckOwned("values", *target.values, mWhole.rows * mWhole.cols);
    CheckPlace(*target.values);
    if (!mIs.First().empty() || target.values->mSize == 0 || !mWithElements) return;
    if (!view && !mMoved) return CheckUnfilled(*target.values);
    for (std::size_t k = 0; k < mWhole.entries.size(); ++k) {
      std::size_t const at = view ? mValues.DenseIndex(static_cast<long>(k)) : k;
      CheckElement("values", target.values->mData, at,
                   ValueOf<T>(mVersion, mWhole.entries[k].number));
    }
  }

  void CheckSparse(ArraysOf<T, I> const& target) {
    int const part = mRound.Reference().part;
    mIs.Equal("part code", target.part, part > 2 ? 2 : part);
    CheckIndices(target);
    auto const entries = static_cast<long>(mWhole.entries.size());
    if (mRound.HoldsWhole(mRank)) {
      CheckBorrowed("values", *target.values, *mValues.Arrays().values);
      if (target.values->mSize == 0) return;
    } else if (mMoved) {
      CheckOwned("values", *target.values, entries);
    } else {
      CheckEmpty("values", *target.values);
      return;
    }
    CheckPlace(*target.values);
    if (!mWithElements) return;
    for (std::size_t k = 0; mIs.First().empty() && k < mWhole.entries.size(); ++k)
      CheckElement("values", target.values->mData, k,
                   ValueOf<T>(mVersion, mWhole.entries[k].number));
  }

  void CheckIndices(ArraysOf<T, I> const& target) {
    std::vector<I> first = mRound.IsCompressed() ? ExpectedOffsets() : std::vector<I>();
    std::vector<I> second;
    for (Entry const& entry : mWhole.entries) {
      auto const row = static_cast<I>(entry.row + mRound.indexBase);
      auto const col = static_cast<I>(entry.col + mRound.indexBase);
      if (!mRound.IsCompressed()) first.push_back(row);
      second.push_back(mRound.format == Format::CSC ? row : col);
    }
    bool const whole = mRound.HoldsWhole(mRank);
    bool const madeOffsets =
        whole && mRound.IsCompressed() && !mRound.PieceOf(mRank).hasOffsets && OffsetsTravel();
    CheckArray("first index array", *target.first, *mIndices.Arrays().first, first,
               whole && !madeOffsets);
    CheckArray("second index array", *target.second, *mIndices.Arrays().second, second, whole);
  }

  // Whether the offsets of a holder go to another rank. Missing ones are then replaced by
  // zeros.
  bool OffsetsTravel() const {
    return mRound.holding == Holding::ONE && (mRound.toAll || mRound.holder != 0);
  }

  std::vector<I> ExpectedOffsets() const {
    bool const verbatim = mRound.holding != Holding::PIECES;
    Piece const& source =
        mRound.PieceOf(mRound.holding == Holding::ONE ? mRound.holder : mRank);
    if (verbatim && !source.hasOffsets && !OffsetsTravel()) return {};
    long const count = mRound.CompressedCount(mWhole.rows, mWhole.cols);
    long const base = verbatim && source.hasOffsets ? source.offsetBase : 0;
    std::vector<I> offsets(static_cast<std::size_t>(count) + 1, static_cast<I>(base));
    for (Entry const& entry : mWhole.entries) {
      long const k = mRound.Compressed(entry) - mWhole.firstCompressed;
      for (auto i = static_cast<std::size_t>(k) + 1; i < offsets.size(); ++i)
        ++offsets[i];
    }
    return offsets;
  }

  void CheckArray(std::string const& name, Buffer<I> const& array, Buffer<I> const& local,
                  std::vector<I> const& expected, bool borrowed) {
    if (borrowed)
      CheckBorrowed(name, array, local);
    else
      CheckOwned(name, array, static_cast<long>(expected.size()));
    for (std::size_t k = 0; mIs.First().empty() && k < expected.size(); ++k)
      CheckElement(name, array.mData, k, expected[k]);
  }

  // Adds up the values at each position, which it reads from the gathered arrays alone.
  // Compares them with the sums over the entries of the model.
  void CheckSums(MatrixBase const& target, ArraysOf<T, I> const& arrays) {
    if (!mWithElements || arrays.values->mSize == 0 ||
        (mRound.IsCompressed() && arrays.first->mSize == 0))
      return;
    std::map<std::pair<long, long>, T> expected;
    for (Entry const& entry : mWhole.entries)
      expected[{entry.row, entry.col}] += ValueOf<T>(mVersion, entry.number);

    std::map<std::pair<long, long>, T> sums;
    auto const add = [&](long row, long col, long k) {
      sums[{row, col}] += arrays.values->mData[k];
    };
    if (mRound.format == Format::COO) {
      for (long k = 0; k < target.NNZ(); ++k)
        add(arrays.first->mData[k] - mRound.indexBase,
            arrays.second->mData[k] - mRound.indexBase, k);
    } else {
      long const count = mRound.CompressedCount(target.mRows, target.mCols);
      for (long i = 0; i < count; ++i) {
        for (long k = arrays.first->mData[i]; k < arrays.first->mData[i + 1]; ++k) {
          long const at = k - arrays.first->mData[0];
          long const other = arrays.second->mData[at] - mRound.indexBase;
          long const own = mWhole.firstCompressed + i;
          mRound.format == Format::CSR ? add(own, other, at) : add(other, own, at);
        }
      }
    }
    mIs.Equal("whether the matrix is the whole one", sums == expected, true);
  }

  template <typename E>
  void CheckBorrowed(std::string const& name, Buffer<E> const& array, Buffer<E> const& local) {
    mIs.Equal("address of borrowed " + name, array.mData, local.mData);
    mIs.Equal("size of borrowed " + name, array.mSize, local.mSize);
    mIs.Equal("capacity of borrowed " + name, array.mCapacity, local.mSize);
    mIs.Equal("whether borrowed " + name + " has an owner", array.mAllocator != nullptr, false);
    mIs.Equal("aux of borrowed " + name, array.mAux, 0U);
  }

  template <typename E>
  void CheckOwned(std::string const& name, Buffer<E> const& array, long count) {
    mIs.Equal("size of owned " + name, array.mSize, count);
    mIs.Equal("capacity of owned " + name, array.mCapacity, count);
    mIs.Equal("whether the pool owns " + name, mPool.Owns(array.mData), true);
    mIs.Equal("bytes of owned " + name, mPool.SizeOf(array.mData),
              static_cast<std::size_t>(count) * sizeof(E));
    mIs.Equal("owner of " + name, static_cast<Allocator const*>(array.mAllocator),
              static_cast<Allocator const*>(&mPool));
    mIs.Equal("aux of owned " + name, array.mAux, 0U);
    mOwnedBytes += static_cast<std::size_t>(count) * sizeof(E);
  }

  void CheckPlace(Buffer<T> const& values) {
    if (mPlace == nullptr) return;
    mIs.Equal("address of the values", static_cast<void const*>(values.mData), mPlace);
  }

  template <typename E>
  void CheckEmpty(std::string const& name, Buffer<E> const& array) {
    mIs.Equal("whether there are " + name, array.mData != nullptr, false);
    mIs.Equal("size of no " + name, array.mSize, 0);
    mIs.Equal("capacity of no " + name, array.mCapacity, 0);
    mIs.Equal("whether no " + name + " have an owner", array.mAllocator != nullptr, false);
  }

  void CheckUnfilled(Buffer<T> const& array) {
    auto const bytes = static_cast<std::size_t>(array.mSize) * sizeof(T);
    mIs.Equal("whether values are as the pool gave them",
              LedgerPool::Untouched(array.mData, bytes), true);
  }

  template <typename E>
  void CheckElement(char const* name, E const* array, std::size_t at, E const& expected) {
    if (array[at] == expected) return;
    mIs.Equal(std::string(name) + "[" + std::to_string(at) + "]", array[at], expected);
  }
  template <typename E>
  void CheckElement(std::string const& name, E const* array, std::size_t at,
                    E const& expected) {
    CheckElement(name.c_str(), array, at, expected);
  }

  Round const& mRound;
  int mRank;
  LedgerPool const& mPool;
  LocalMatrix<T, I> const& mIndices;
  LocalMatrix<T, I> const& mValues;
  Phase mPhase;
  long mVersion;
  bool mMoved;
  bool mWithElements = true;
  void const* mPlace = nullptr;
  Whole const& mWhole;
  std::size_t mOwnedBytes = 0;
  Differences mIs;
};

}  // namespace Pavex
