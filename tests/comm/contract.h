// The contract that every communicator meets, with any kind of ranks. To test a communicator,
// write a launcher, and in one of its test files the lines
//
//   #include "tests/comm/contract.h"
//   PAVEX_COMM_CONTRACT(ShmRanks);
//
// inside namespace Pavex. A launcher starts the ranks and has these members:
//
//   struct ShmRanks {
//     // The status of an operation that is refused on every rank.
//     static constexpr PavexStatus kRefused = STATUS_INVALID_VALUE;
//     // The numbers of ranks to test: 1, 2, 3, 4, 7, or the one that this job has.
//     static std::vector<int> Sizes();
//     // Runs `body` on each of `size` ranks, in this process or in others, with the rank's
//     // communicator, and returns when the ranks of this process have returned.
//     static void Run(int size, std::function<void(Comm const& comm)> const& body);
//     // Calls Split of `comm`, which is a communicator of this launcher.
//     static std::shared_ptr<Comm> Split(Comm const& comm, int color, int key);
//   };
//
// Each rank checks what it has received. The tests are in contract_collective.h and
// contract_runs.h (for every element type), contract_message.h, contract_refusal.h and
// contract_split.h.

#pragma once

#include "tests/comm/contract_collective.h"
#include "tests/comm/contract_message.h"
#include "tests/comm/contract_refusal.h"
#include "tests/comm/contract_runs.h"
#include "tests/comm/contract_split.h"

// Tests the communicator of `Launcher` against the whole contract.
#define PAVEX_COMM_CONTRACT(Launcher)                                                    \
  INSTANTIATE_TYPED_TEST_SUITE_P(Launcher, CommCollective, AllElementsOver<Launcher>, ); \
  INSTANTIATE_TYPED_TEST_SUITE_P(Launcher, CommOrderedReduction,                         \
                                 OrderedElementsOver<Launcher>, );                       \
  INSTANTIATE_TYPED_TEST_SUITE_P(Launcher, CommMessage, AllElementsOver<Launcher>, );    \
  INSTANTIATE_TYPED_TEST_SUITE_P(Launcher, CommRuns, AllElementsOver<Launcher>, );       \
  INSTANTIATE_TYPED_TEST_SUITE_P(Launcher, CommGroup, ::testing::Types<Launcher>, );     \
  INSTANTIATE_TYPED_TEST_SUITE_P(Launcher, CommRefusal, ::testing::Types<Launcher>, );   \
  INSTANTIATE_TYPED_TEST_SUITE_P(Launcher, CommSplit, ::testing::Types<Launcher>, )
