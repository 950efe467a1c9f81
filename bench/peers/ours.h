// The contestants of Pavex.

#pragma once

#include "bench/peers/others.h"
#include "pavex/aggregator/aggregator.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "pavex/interop/hypre.h"
#include "pavex/interop/petsc.h"

namespace Peers {

using Values = Pavex::Aggregator<double, int>;
using Csr = Pavex::MatrixCSR<double, int>;

// The communicators live as long as the job: those of PETSc do so too.
struct OverMpi {
  using Pool = Pavex::MemoryPool;
  static std::shared_ptr<Pavex::Comm> Comm() {
    static auto& comm =
        *new std::shared_ptr<Pavex::Comm>(std::make_shared<Pavex::MpiComm>(MPI_COMM_WORLD));
    return comm;
  }
};
struct OverNode {
  using Pool = Pavex::NodePool;
  static std::shared_ptr<Pavex::Comm> Comm() {
    static auto& comm =
        *new std::shared_ptr<Pavex::Comm>(std::make_shared<Pavex::NodeComm>(MPI_COMM_WORLD));
    return comm;
  }
};

inline PavexStatus Attach(Pavex::PetscRows& rows, Problem const& problem) {
  return rows.Attach(problem.mMat);
}
inline PavexStatus Attach(Pavex::HypreRows& rows, Problem const& problem) {
  return rows.Attach(problem.ParCsr());
}

// The matrix to rank 0, or to all.
template <typename Way, typename Rows, bool toAll>
class Gather : public Contestant {
 public:
  explicit Gather(Problem& problem) : mProblem(problem) {}
  void First() override {
    PEERS_CHECK(Attach(mRows, mProblem));
    PEERS_CHECK(toAll ? mValues.Allgather(Way::Comm(), mRows.Piece(), true)
                      : mValues.Gather(Way::Comm(), mRows.Piece(), true));
  }
  void Again() override {
    PEERS_CHECK(mRows.Refresh());
    PEERS_CHECK(mValues.UpdateInPlace(mRows.Piece()));
  }
  bool IsRight() override {
    Csr const* const whole = mValues.TargetAs<Csr>();
    if (whole == nullptr) return !toAll && mProblem.mRank != 0;
    return mProblem.mGrid.IsWhole(whole->mRows, whole->mRowPtr.mData, whole->mColIdx.mData,
                                  whole->mValues.mData, mProblem.mScale);
  }

 private:
  Problem& mProblem;
  typename Way::Pool mPool;
  Rows mRows{&mPool};
  Values mValues{&mPool};
};

// A vector to rank 0; again, also back into another vector.
template <typename Way>
class Vectors : public Contestant {
 public:
  explicit Vectors(Problem& problem) : mProblem(problem) {}
  void First() override { Bring(mProblem.mX, true); }
  void Again() override {
    Bring(mProblem.mX, false);
    TakeBack(mProblem.mY);
  }
  bool IsRight() override { return AreEqual(mProblem.mX, mProblem.mY); }

 private:
  void Bring(Vec vec, bool first) {
    PEERS_CHECK(mBand.Borrow(vec, Pavex::PetscAccess::READ));
    PEERS_CHECK(first ? mValues.Gather(Way::Comm(), mBand.Piece(), true)
                      : mValues.UpdateInPlace(mBand.Piece()));
    PEERS_CHECK(mBand.Return());
  }
  void TakeBack(Vec vec) {
    PEERS_CHECK(mBand.Borrow(vec, Pavex::PetscAccess::WRITE));
    PEERS_CHECK(mValues.Scatter(mBand.Piece()));
    PEERS_CHECK(mBand.Return());
  }

  Problem& mProblem;
  typename Way::Pool mPool;
  Values mValues{&mPool};
  Pavex::PetscBand mBand;
};

// The preconditioner of the plugin. Without a solution the one inside multiplies with the
// gathered matrix, which takes no set-up and shows what the matrix is.
class Plugin : public Preconditioner {
 public:
  using Preconditioner::Preconditioner;
  bool IsRight() override {
    if (mSolves) return IsSolved(mProblem);
    Vec product = nullptr;
    PEERS_CHECK(VecDuplicate(mProblem.mX, &product));
    PEERS_CHECK(MatMult(mProblem.mMat, mProblem.mX, product));
    PEERS_CHECK(PCApply(mPc, mProblem.mX, mProblem.mY));
    bool const right = AreEqual(product, mProblem.mY);  // all numbers are exact
    PEERS_CHECK(VecDestroy(&product));
    return right;
  }
};

template <bool solves, bool overNode>
std::unique_ptr<Contestant> MakePlugin(Problem& problem) {
  std::string options = "-own_pc_type pavex";
  if (!solves) options += " -own_pavex_pc_type mat";
  if (overNode) options += " -own_pavex_node";
  return std::make_unique<Plugin>(problem, options, solves);
}

}  // namespace Peers
