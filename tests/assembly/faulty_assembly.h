// The operations of an assembler as steps that tests of faults let fail, and one rank that runs
// them.

#pragma once

#include "pavex/assembly/assembler.h"
#include "tests/assembly/assembly_case.h"
#include "tests/assembly/assembly_reference.h"
#include "tests/support/ledger_pool.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace Pavex {

enum class Step { GATHER, UPDATE, UPDATE_IN_PLACE, SCATTER, COLLECT };

constexpr Step kSteps[] = {Step::GATHER, Step::UPDATE, Step::UPDATE_IN_PLACE, Step::SCATTER,
                           Step::COLLECT};
constexpr PavexStatus kInjected = 4711;

// A random assembly, and the same with the values that an update brings.
struct FaultyCase {
  using Case = AssemblyCase<double, int>;

  Case first;
  Case later;

  FaultyCase(std::uint64_t seed, std::uint64_t number, int ranks)
      : FaultyCase(Rng(seed, number), ranks) {}

  // Whether every rank has entries with values.
  bool IsRich() const {
    bool rich = first.request.mWithValues;
    for (auto const& piece : first.pieces)
      rich = rich && !piece.blocks.empty() && !piece.blocks[0].values.empty();
    return rich;
  }

  bool Receives(int rank) const {
    return first.request.mReceiver == kEverybody || first.request.mReceiver == rank;
  }

 private:
  FaultyCase(Rng rng, int ranks) : first(rng, ranks), later(first) { later.Revalue(rng); }
};

// One rank of a run over a communicator `C`, which lets calls fail.
template <typename C>
struct FaultyRank {
  LedgerPool pool;
  std::shared_ptr<C> comm;
  Assembler<double, int> assembler{&pool};
  FaultyCase const& all;
  CaseDense<double, int> own;
  CaseDense<double, int> whole;

  // `source`: see LedgerPool.
  FaultyRank(std::shared_ptr<C> over, FaultyCase const& faulty, MemoryPool* source = nullptr)
      : pool(source),
        comm(std::move(over)),
        all(faulty),
        own(static_cast<long>(PieceOf(faulty.first).ownRows.size()), 2, true, 1),
        whole(faulty.first.request.mRows, 2, false, 0) {}

  PavexStatus Run(Step step) {
    auto const& later = PieceOf(all.later);
    switch (step) {
      case Step::GATHER:
        return assembler.Gather(comm, PieceOf(all.first).Pass(true), all.first.request);
      case Step::UPDATE:
        return assembler.Update(later.Values(0), later.Values(1));
      case Step::UPDATE_IN_PLACE:
        return assembler.UpdateInPlace(later.Values(0), later.Values(1));
      case Step::SCATTER:
        return assembler.Scatter(whole.matrix, own.matrix);
      case Step::COLLECT:
        return assembler.Collect(own.matrix, Overlap::ADD, whole.matrix);
    }
    return 1;
  }

  // What is wrong with the whole after `step` has returned `status`; empty if nothing is. A
  // failed update in place of bands may leave any values.
  std::string CheckAfter(Step step, PavexStatus status) const {
    bool const keeps = step != Step::GATHER || status == STATUS_OK;
    bool const expects = keeps && all.Receives(comm->Rank());
    if ((assembler.Whole() != nullptr) != expects) return "whether there is a whole";
    if (!expects) return {};
    bool const updates = step == Step::UPDATE || step == Step::UPDATE_IN_PLACE;
    if (status == STATUS_OK)
      return CheckWhole(updates ? all.later : all.first, true, *assembler.Whole());
    bool const any = step == Step::UPDATE_IN_PLACE && assembler.Path() == AssemblyPath::BANDS;
    return any ? "" : CheckWhole(all.first, true, *assembler.Whole());
  }

 private:
  CasePiece<double, int> const& PieceOf(AssemblyCase<double, int> const& some) const {
    return some.pieces[static_cast<std::size_t>(comm->Rank())];
  }
};

}  // namespace Pavex
