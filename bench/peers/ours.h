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
using Dense = Pavex::MatrixDense<double, int>;

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

 protected:
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
  // The whole vector on rank 0.
  double* Whole() { return mValues.template TargetAs<Dense>()->mValues.mData; }

 private:
  Problem& mProblem;
  typename Way::Pool mPool;
  Values mValues{&mPool};
  Pavex::PetscBand mBand;
};

// The matrix to rank 0, as the operator of a solver of PETSc there. With `solves` the solver is
// UMFPACK's LU, and the work includes one solution.
template <typename Way, bool solves>
class SolverOnRoot : public Gather<Way, Pavex::PetscRows, false> {
 public:
  using Base = Gather<Way, Pavex::PetscRows, false>;
  explicit SolverOnRoot(Problem& problem) : Base(problem), mVectors(problem) {}
  ~SolverOnRoot() override {
    PEERS_CHECK(KSPDestroy(&mSolver));
    PEERS_CHECK(MatDestroy(&mMat));
  }
  void First() override {
    Base::First();
    if (this->mProblem.mRank == 0) MakeSolver();
    Work(true);
  }
  void Again() override {
    Base::Again();  // in place: the Mat has the new values
    if (this->mProblem.mRank == 0) {
      PEERS_CHECK(MatAssemblyBegin(mMat, MAT_FINAL_ASSEMBLY));
      PEERS_CHECK(MatAssemblyEnd(mMat, MAT_FINAL_ASSEMBLY));
    }
    Work(false);
  }
  bool IsRight() override { return Base::IsRight() && (!solves || IsSolved(this->mProblem)); }

 private:
  void MakeSolver() {
    Csr const* const whole = this->mValues.template TargetAs<Csr>();
    int const rows = static_cast<int>(whole->mRows);
    PC inner = nullptr;
    PEERS_CHECK(MatCreateSeqAIJWithArrays(MPI_COMM_SELF, rows, rows, whole->mRowPtr.mData,
                                          whole->mColIdx.mData, whole->mValues.mData, &mMat));
    PEERS_CHECK(KSPCreate(MPI_COMM_SELF, &mSolver));
    PEERS_CHECK(KSPSetType(mSolver, KSPPREONLY));
    PEERS_CHECK(KSPGetPC(mSolver, &inner));
    PEERS_CHECK(PCSetType(inner, solves ? PCLU : PCNONE));
    if (solves) PEERS_CHECK(PCFactorSetMatSolverType(inner, MATSOLVERUMFPACK));
    PEERS_CHECK(KSPSetOperators(mSolver, mMat, mMat));
  }
  void Work(bool first) {
    bool const isRoot = this->mProblem.mRank == 0;
    if (isRoot) PEERS_CHECK(KSPSetUp(mSolver));
    if (!solves) return;
    mVectors.Bring(this->mProblem.mX, first);
    if (isRoot) Solve();
    mVectors.TakeBack(this->mProblem.mY);
  }
  void Solve() {
    Vec right = nullptr;
    Vec solution = nullptr;
    PEERS_CHECK(VecCreateSeqWithArray(MPI_COMM_SELF, 1, this->mProblem.mGrid.Rows(),
                                      mVectors.Whole(), &right));
    PEERS_CHECK(VecDuplicate(right, &solution));
    PEERS_CHECK(KSPSolve(mSolver, right, solution));
    PEERS_CHECK(VecCopy(solution, right));
    PEERS_CHECK(VecDestroy(&right));
    PEERS_CHECK(VecDestroy(&solution));
  }

  Vectors<Way> mVectors;
  Mat mMat = nullptr;
  KSP mSolver = nullptr;
};

}  // namespace Peers
