// The ranks on which the contract of a communicator is tested.

#pragma once

#include "tests/comm/elements.h"
#include "tests/support/log_level.h"

#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

namespace Pavex {

// A launcher, and the type of the elements that are moved.
template <typename L, typename E>
struct Over {
  using Launcher = L;
  using Value = typename E::Value;
  static constexpr Datatype kType = E::kType;
};

template <typename L>
using AllElementsOver =
    ::testing::Types<Over<L, ByteElement>, Over<L, Element<int>>, Over<L, Element<long>>,
                     Over<L, Element<float>>, Over<L, Element<double>>,
                     Over<L, Element<std::complex<float>>>,
                     Over<L, Element<std::complex<double>>>>;
template <typename L>
using OrderedElementsOver =
    ::testing::Types<Over<L, ByteElement>, Over<L, Element<int>>, Over<L, Element<long>>,
                     Over<L, Element<float>>, Over<L, Element<double>>>;

// Runs `body(comm)` on the ranks of groups of every size that `Launcher` offers. A failure
// names the rank that found it.
template <typename Launcher, typename Body>
void OnRanks(Body body) {
  for (int const size : Launcher::Sizes())
    Launcher::Run(size, [&](Comm const& comm) {
      SCOPED_TRACE("rank " + std::to_string(comm.Rank()) + " of " + std::to_string(size));
      EXPECT_EQ(comm.Size(), size);
      body(comm);
    });
}

// Runs `body(comm, root)` on the ranks of groups of every size. The root is first the first
// rank, then one in the middle, then the last.
template <typename Launcher, typename Body>
void OnRoots(Body body) {
  OnRanks<Launcher>([&](Comm const& comm) {
    for (int const root : std::set<int>{0, comm.Size() / 2, comm.Size() - 1}) {
      SCOPED_TRACE("root " + std::to_string(root));
      body(comm, root);
    }
  });
}

constexpr Layout kLayouts[] = {Layout::CLOSE_UP, Layout::BACKWARDS_WITH_GAPS};

}  // namespace Pavex
