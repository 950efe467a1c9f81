// Part of contract.h: operations that all ranks call wrongly in the same way are refused on
// every rank and move nothing, and the next operations work. Communicators differ in what they
// log, and in what happens if one rank alone is wrong; the tests of each communicator show
// that.

#pragma once

#include "tests/comm/contract_ranks.h"

#include <climits>

namespace Pavex {

// The arguments of wrong calls, and a call that shows whether the ranks are still in step.
struct WrongCall {
  explicit WrongCall(Comm const& comm)
      : mComm(comm),
        mOnes(static_cast<std::size_t>(comm.Size()), 1),
        mZeros(mOnes.size(), 0),
        mReceived(mOnes.size() + 1, -1) {}

  // `values` with `last` in place of the last number.
  static std::vector<int> LastIs(int last, std::vector<int> values) {
    values.back() = last;
    return values;
  }

  void ExpectNothingReceived() const {
    EXPECT_EQ(mReceived, std::vector<int>(mReceived.size(), -1));
  }

  void ExpectInStep() {
    int const mine = mComm.Rank();
    std::vector<int> ranks(mOnes.size(), -1);
    EXPECT_EQ(mComm.Allgather(&mine, 1, DATATYPE_INT, ranks.data(), 1, DATATYPE_INT),
              STATUS_OK);
    EXPECT_EQ(ranks.back(), mComm.Size() - 1);
  }

  Comm const& mComm;
  std::vector<int> const mOnes;
  std::vector<int> const mZeros;
  std::vector<int> const mSent = std::vector<int>(mOnes.size() + 1, 5);
  std::vector<int> mReceived;
};

template <typename Launcher>
class CommRefusal : public ::testing::Test {
 protected:
  // Runs `calls(call, refused)` on the ranks of groups of every size; `refused(status)` checks
  // the status of one wrong call. Nothing may have been received, and the ranks go on in step.
  template <typename Calls>
  void ExpectRefusals(Calls calls) {
    LogLevel const silent(LOG_FATAL);
    OnRanks<Launcher>([&](Comm const& comm) {
      WrongCall call(comm);
      calls(call, [](PavexStatus status) { EXPECT_EQ(status, Launcher::kRefused); });
      call.ExpectNothingReceived();
      call.ExpectInStep();
    });
  }
};
TYPED_TEST_SUITE_P(CommRefusal);

constexpr Datatype kInt = DATATYPE_INT;

TYPED_TEST_P(CommRefusal, OfNegativeCounts) {
  this->ExpectRefusals([](WrongCall& call, auto refused) {
    Comm const& comm = call.mComm;
    int const* const sent = call.mSent.data();
    int* const received = call.mReceived.data();
    int const* const zeros = call.mZeros.data();
    std::vector<int> const counts = WrongCall::LastIs(-1, call.mOnes);
    int const peer = (comm.Rank() + 1) % comm.Size();
    for (int const count : {-1, INT_MIN}) {
      refused(comm.Rank() % 2 == 0 ? comm.Send(sent, count, kInt, peer, 50)
                                   : comm.Recv(received, count, kInt, peer, 50));
      refused(comm.Gatherv(sent, count, kInt, received, counts.data(), zeros, kInt, 0));
      refused(comm.Scatterv(sent, counts.data(), zeros, kInt, received, count, kInt, 0));
      refused(comm.Allgather(sent, count, kInt, received, count, kInt));
      refused(comm.Allgatherv(sent, count, kInt, received, call.mOnes.data(), zeros, kInt));
      refused(comm.Allreduce(sent, received, count, kInt, REDUCE_SUM));
      refused(comm.Bcast(received, count, kInt, 0));
    }
    refused(comm.Allgatherv(sent, 1, kInt, received, counts.data(), zeros, kInt));
    refused(comm.Alltoallv(sent, counts.data(), zeros, kInt, received, call.mOnes.data(), zeros,
                           kInt));
    refused(comm.Alltoallv(sent, call.mOnes.data(), zeros, kInt, received, counts.data(), zeros,
                           kInt));
  });
}

TYPED_TEST_P(CommRefusal, OfNegativeDisplacements) {
  this->ExpectRefusals([](WrongCall& call, auto refused) {
    Comm const& comm = call.mComm;
    int const* const sent = call.mSent.data();
    int* const received = call.mReceived.data() + 1;
    int const* const ones = call.mOnes.data();
    std::vector<int> const displs = WrongCall::LastIs(-1, call.mZeros);

    refused(comm.Allgatherv(sent, 1, kInt, received, ones, displs.data(), kInt));
    refused(comm.Alltoallv(sent + 1, ones, displs.data(), kInt, received, ones,
                           call.mZeros.data(), kInt));
    refused(comm.Alltoallv(sent, ones, call.mZeros.data(), kInt, received, ones, displs.data(),
                           kInt));
  });
}

TYPED_TEST_P(CommRefusal, OfMissingCountsAndDisplacements) {
  this->ExpectRefusals([](WrongCall& call, auto refused) {
    Comm const& comm = call.mComm;
    int const* const sent = call.mSent.data();
    int* const received = call.mReceived.data();
    int const* const ones = call.mOnes.data();
    int const* const zeros = call.mZeros.data();

    refused(comm.Allgatherv(sent, 1, kInt, received, nullptr, zeros, kInt));
    refused(comm.Allgatherv(sent, 1, kInt, received, ones, nullptr, kInt));
    refused(comm.Allgatherv(nullptr, 0, kInt, nullptr, zeros, nullptr, kInt));
    refused(comm.Alltoallv(sent, nullptr, zeros, kInt, received, ones, zeros, kInt));
    refused(comm.Alltoallv(sent, ones, zeros, kInt, received, ones, nullptr, kInt));
  });
}

TYPED_TEST_P(CommRefusal, OfUnknownElementTypes) {
  this->ExpectRefusals([](WrongCall& call, auto refused) {
    Comm const& comm = call.mComm;
    int const* const sent = call.mSent.data();
    int* const received = call.mReceived.data();
    int const* const ones = call.mOnes.data();
    int const* const zeros = call.mZeros.data();
    int const peer = (comm.Rank() + 1) % comm.Size();
    for (int const number : {-1, 7}) {
      auto const type = static_cast<Datatype>(number);
      refused(comm.Rank() % 2 == 0 ? comm.Send(sent, 1, type, peer, 50)
                                   : comm.Recv(received, 1, type, peer, 50));
      refused(comm.Gatherv(sent, 1, type, received, ones, zeros, type, 0));
      refused(comm.Scatterv(sent, ones, zeros, type, received, 1, type, 0));
      refused(comm.Alltoallv(sent, ones, zeros, type, received, ones, zeros, type));
      refused(comm.Allgather(sent, 1, type, received, 1, type));
      refused(comm.Allgather(sent, 1, type, received, 1, kInt));
      refused(comm.Allgatherv(sent, 1, kInt, received, ones, zeros, type));
      refused(comm.Allreduce(sent, received, 1, type, REDUCE_SUM));
      refused(comm.Bcast(received, 1, type, 0));
    }
  });
}

TYPED_TEST_P(CommRefusal, OfUnknownReductions) {
  this->ExpectRefusals([](WrongCall& call, auto refused) {
    refused(call.mComm.Allreduce(call.mSent.data(), call.mReceived.data(), 1, kInt,
                                 static_cast<ReduceOp>(3)));
    refused(call.mComm.Allreduce(call.mSent.data(), call.mReceived.data(), 1, kInt,
                                 static_cast<ReduceOp>(-1)));
  });
}

TYPED_TEST_P(CommRefusal, OfRanksOutsideTheGroup) {
  this->ExpectRefusals([](WrongCall& call, auto refused) {
    Comm const& comm = call.mComm;
    int const* const sent = call.mSent.data();
    int* const received = call.mReceived.data();
    int const* const ones = call.mOnes.data();
    int const* const zeros = call.mZeros.data();
    for (int const outside : {-4, -3, -2, -1, comm.Size(), INT_MAX}) {
      refused(comm.Send(sent, 1, kInt, outside, 50));
      refused(comm.Recv(received, 1, kInt, outside, 50));
      refused(comm.Gatherv(sent, 1, kInt, received, ones, zeros, kInt, outside));
      refused(comm.Scatterv(sent, ones, zeros, kInt, received, 1, kInt, outside));
      refused(comm.Bcast(received, 1, kInt, outside));
    }
  });
}

TYPED_TEST_P(CommRefusal, OfTheInPlaceMarkerWhereItHasNoMeaning) {
  this->ExpectRefusals([](WrongCall& call, auto refused) {
    Comm const& comm = call.mComm;
    int const* const sent = call.mSent.data();
    int* const received = call.mReceived.data();
    int const* const ones = call.mOnes.data();
    int const* const zeros = call.mZeros.data();
    auto* const marker = const_cast<std::int32_t*>(&Comm::IN_PLACE_OBJ);
    int const peer = (comm.Rank() + 1) % comm.Size();

    refused(comm.Rank() % 2 == 0 ? comm.Send(marker, 1, kInt, peer, 50)
                                 : comm.Recv(marker, 1, kInt, peer, 50));
    refused(comm.Scatterv(sent, ones, zeros, kInt, marker, 1, kInt, 0));
    refused(comm.Alltoallv(sent, ones, zeros, kInt, marker, ones, zeros, kInt));
    refused(comm.Allgather(sent, 1, kInt, marker, 1, kInt));
    refused(comm.Allgatherv(sent, 1, kInt, marker, ones, zeros, kInt));
    refused(comm.Allreduce(sent, marker, 1, kInt, REDUCE_SUM));
    refused(comm.Bcast(marker, 1, kInt, 0));
    // Only the root may pass the marker to Gatherv, and only as the send buffer.
    bool const isRoot = comm.Rank() == 0;
    refused(comm.Gatherv(isRoot ? sent : marker, 1, kInt, isRoot ? marker : received, ones,
                         zeros, kInt, 0));
  });
}

TYPED_TEST_P(CommRefusal, OfWrongRuns) {
  this->ExpectRefusals([](WrongCall& call, auto refused) {
    Comm const& comm = call.mComm;
    if (!comm.Strided()) return;
    int const* const sent = call.mSent.data();
    int* const received = call.mReceived.data();
    std::vector<Runs> const ones(call.mOnes.size(), Runs{0, 1, 1, 1});
    auto* const marker = const_cast<std::int32_t*>(&Comm::IN_PLACE_OBJ);
    auto const unknown = static_cast<Datatype>(7);
    for (Runs const& wrong :
         {Runs{-1, 1, 1, 1}, Runs{0, -1, 1, 1}, Runs{0, 1, -1, 1}, Runs{0, 1, 1, -1}}) {
      refused(comm.GatherRuns(sent, wrong, received, ones.data(), kInt, 0));
      refused(comm.ScatterRuns(sent, ones.data(), received, wrong, kInt, 0));
    }
    for (int const outside : {-2, comm.Size(), INT_MAX}) {
      refused(comm.GatherRuns(sent, ones[0], received, ones.data(), kInt, outside));
      refused(comm.ScatterRuns(sent, ones.data(), received, ones[0], kInt, outside));
    }
    refused(comm.ScatterRuns(sent, ones.data(), received, ones[0], kInt, -1));
    refused(comm.GatherRuns(sent, ones[0], received, nullptr, kInt, -1));
    refused(comm.GatherRuns(sent, ones[0], received, ones.data(), unknown, 0));
    refused(comm.ScatterRuns(sent, ones.data(), received, ones[0], unknown, 0));
    refused(comm.GatherRuns(marker, ones[0], received, ones.data(), kInt, 0));
    refused(comm.ScatterRuns(sent, ones.data(), marker, ones[0], kInt, 0));
  });
}

REGISTER_TYPED_TEST_SUITE_P(CommRefusal, OfNegativeCounts, OfNegativeDisplacements,
                            OfMissingCountsAndDisplacements, OfUnknownElementTypes,
                            OfUnknownReductions, OfRanksOutsideTheGroup,
                            OfTheInPlaceMarkerWhereItHasNoMeaning, OfWrongRuns);

}  // namespace Pavex
