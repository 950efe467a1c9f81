// Part of contract.h: messages between two ranks, for every element type.

#pragma once

#include "tests/comm/contract_ranks.h"

namespace Pavex {

template <typename Case>
class CommMessage : public ::testing::Test {};
TYPED_TEST_SUITE_P(CommMessage);

// The first rank, one in the middle and the last send a message to every other rank.
TYPED_TEST_P(CommMessage, ReachesItsRankAndNoOther) {
  using T = typename TypeParam::Value;
  OnRoots<typename TypeParam::Launcher>([](Comm const& comm, int from) {
    for (int to = 0; to < comm.Size(); ++to) {
      if (to == from) continue;
      bool const receives = comm.Rank() == to;
      std::vector<T> const sent = ElementsOf<T>(from, 3);
      std::vector<T> received(4, T(77));
      PavexStatus status = STATUS_OK;

      if (comm.Rank() == from) status = comm.Send(sent.data(), 3, TypeParam::kType, to, 50);
      if (receives) status = comm.Recv(received.data(), 3, TypeParam::kType, from, 50);

      std::vector<T> expected(4, T(77));
      if (receives) std::copy(sent.begin(), sent.end(), expected.begin());
      EXPECT_EQ(status, STATUS_OK);
      EXPECT_EQ(received, expected);
    }
  });
}

TYPED_TEST_P(CommMessage, OfZeroElementsNeedsNoBuffers) {
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    if (comm.Size() == 1) return;
    int const last = comm.Size() - 1;
    PavexStatus status = STATUS_OK;

    if (comm.Rank() == 0) status = comm.Send(nullptr, 0, TypeParam::kType, last, 50);
    if (comm.Rank() == last) status = comm.Recv(nullptr, 0, TypeParam::kType, 0, 50);

    EXPECT_EQ(status, STATUS_OK);
  });
}

TYPED_TEST_P(CommMessage, OfOneSenderArrivesInOrder) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    if (comm.Size() == 1) return;
    int const last = comm.Size() - 1;
    std::vector<T> const sent = ElementsOf<T>(0, 3);
    std::vector<T> received(3, T(77));

    for (std::size_t i = 0; i < sent.size(); ++i) {
      PavexStatus status = STATUS_OK;
      if (comm.Rank() == 0) status = comm.Send(&sent[i], 1, TypeParam::kType, last, 50);
      if (comm.Rank() == last) status = comm.Recv(&received[i], 1, TypeParam::kType, 0, 50);
      EXPECT_EQ(status, STATUS_OK);
    }

    EXPECT_EQ(received, comm.Rank() == last ? sent : std::vector<T>(3, T(77)));
  });
}

TYPED_TEST_P(CommMessage, ComesFromTheRankThatTheReceiverAsksFor) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    T const mine = Make<T>::Of(comm.Rank(), 0);
    if (comm.Rank() != 0) {
      EXPECT_EQ(comm.Send(&mine, 1, TypeParam::kType, 0, 50), STATUS_OK);
      return;
    }
    for (int r = comm.Size() - 1; r > 0; --r) {
      T received = T(77);
      EXPECT_EQ(comm.Recv(&received, 1, TypeParam::kType, r, 50), STATUS_OK);
      EXPECT_EQ(received, Make<T>::Of(r, 0));
    }
  });
}

TYPED_TEST_P(CommMessage, GoesRoundTheRing) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    int const size = comm.Size();
    if (size == 1) return;
    int const next = (comm.Rank() + 1) % size;
    int const previous = (comm.Rank() + size - 1) % size;
    T const mine = Make<T>::Of(comm.Rank(), 0);
    T received = T(77);
    auto const send = [&] { return comm.Send(&mine, 1, TypeParam::kType, next, 7); };
    auto const receive = [&] { return comm.Recv(&received, 1, TypeParam::kType, previous, 7); };

    PavexStatus const first = comm.Rank() == 0 ? send() : receive();
    PavexStatus const second = comm.Rank() == 0 ? receive() : send();

    EXPECT_EQ(first, STATUS_OK);
    EXPECT_EQ(second, STATUS_OK);
    EXPECT_EQ(received, Make<T>::Of(previous, 0));
  });
}

REGISTER_TYPED_TEST_SUITE_P(CommMessage, ReachesItsRankAndNoOther, OfZeroElementsNeedsNoBuffers,
                            OfOneSenderArrivesInOrder, ComesFromTheRankThatTheReceiverAsksFor,
                            GoesRoundTheRing);

}  // namespace Pavex
