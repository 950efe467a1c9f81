// The lines of an assembly in which one array is refused.

#include "pavex/assembly/assembler.h"
#include "pavex/comm/local_comm.h"
#include "pavex/runtime/self_comm.h"
#include "tests/assembly/small_case.h"
#include "tests/support/outcome.h"

#include <algorithm>
#include <array>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace Pavex {
namespace {

constexpr PavexStatus kRefused = STATUS_OUT_OF_MEMORY;

// The lines of a refusal on which the processes agree: what process `process` says by itself,
// the reason, and what the callers of the agreement say.
std::string Agreed(int before, int callers, int process = 0) {
  return StatusLines(before, kRefused) + "[ERROR] Process " + std::to_string(process) +
         " got no memory from its pool: " + PavexStatusStr(kRefused) + "; give it more.\n" +
         StatusLines(callers, kRefused);
}

// One process and its assembler.
struct Alone {
  LedgerPool pool;
  Assembler<double, int> assembler{&pool};

  PavexStatus Gather(Own const& own, AssemblyRequest const& request) {
    return assembler.Gather(std::make_shared<SelfComm>(), own, request);
  }
};

using Operation = std::function<PavexStatus(Alone& process)>;

// What `operation` prints if its first allocation is refused, if its second one is, and so on
// until none is. Equal outputs in a row are listed once. `prepare` comes first.
std::vector<std::string> LinesOfRefusals(Operation const& operation,
                                         Operation const& prepare = nullptr) {
  std::vector<std::string> lines;
  for (int nth = 1; nth < 50; ++nth) {
    Alone process;
    if (prepare != nullptr) {
      EXPECT_EQ(prepare(process), STATUS_OK);
    }
    process.pool.Fail(Fault::Once(nth, kRefused));
    Outcome const outcome = Watch([&] { return operation(process); });
    if (!process.pool.FaultStruck()) {
      ExpectOutcome(outcome, STATUS_OK, "");
      return lines;
    }
    EXPECT_EQ(outcome.status, kRefused);
    if (lines.empty() || lines.back() != outcome.output) lines.push_back(outcome.output);
  }
  ADD_FAILURE() << "it never succeeds";
  return lines;
}

std::vector<std::string> LinesOfGather(Own const& own, AssemblyRequest const& request) {
  return LinesOfRefusals([&](Alone& process) { return process.Gather(own, request); });
}

// What a gather of one process prints.
std::string const kRecords = StatusLines(2, kRefused);  // no room for the records of all
std::string const kPiece = Agreed(1, 1);                // none to prepare what it sends
std::string const kList = StatusLines(4, kRefused);     // none for the lists of rows
std::string const kStack = StatusLines(3, kRefused);    // none for the rows of all pieces
std::string const kWhole = Agreed(3, 3);                // none for the rows of the whole
std::string const kValues = Agreed(0, 3);               // none for its values

using Lines = std::vector<std::string>;

TEST(LinesOfARefusedArray, AreThoseOfTheStepWhereRowsAreSentAsTheyAre) {
  std::vector<int> const offsets = {0, 1, 2};
  std::vector<int> const cols = {2, 0};
  std::vector<double> const values = {1, 2};
  auto const own = Own::Band(1, 2).Csr(offsets.data(), cols.data(), values.data());

  EXPECT_EQ(LinesOfGather(own, Square(4)), (Lines{kRecords, kStack, kWhole, kValues}));
}

TEST(LinesOfARefusedArray, AreThoseOfTheStepWhereARowMayRepeatAColumn) {
  std::vector<int> const offsets = {0, 2, 3};
  std::vector<int> const cols = {2, 0, 1};
  std::vector<double> const values = {1, 2, 3};
  auto const own = Own::Band(0, 2).Csr(offsets.data(), cols.data(), values.data());
  AssemblyRequest request = Square(3);
  request.mSortColumns = false;

  EXPECT_EQ(LinesOfGather(own, request), (Lines{kRecords, kPiece, kStack, kWhole, kValues}));
}

// Two blocks with a map each.
struct TwoBlocks {
  std::vector<int> rows = {2, 0};
  std::vector<int> offsets = {0, 1, 3};
  std::vector<int> cols = {0, 1, 1};
  std::vector<int> map = {3, 1};
  std::vector<double> values = {1, 2, 3};

  Own Pass() const {
    return Own::Rows(2, rows.data())
        .Csr(offsets.data(), cols.data(), values.data())
        .Columns(map.data(), 2)
        .Csr(offsets.data(), cols.data(), values.data())
        .Columns(map.data(), 2);
  }
};

TEST(LinesOfARefusedArray, AreThoseOfTheStepWhereBlocksAreMerged) {
  EXPECT_EQ(LinesOfGather(TwoBlocks().Pass(), Square(4)),
            (Lines{kRecords, kPiece, kList, kStack, kWhole, kValues}));
}

// Entries in two neighbouring rows, and in two rows with many between them.
struct Entries {
  std::vector<int> list = {5, 4};
  std::vector<int> near = {0, 1, 0};
  std::vector<int> far = {30, 2, 30};
  std::vector<int> cols = {0, 1, 0};
  std::vector<double> values = {1, 2, 3};
};

TEST(LinesOfARefusedArray, AreThoseOfTheStepWhereEntriesAreSorted) {
  Entries const some;
  auto const own = Own::Rows(2, some.list.data())
                       .LocalCoo(3, some.near.data(), some.cols.data(), some.values.data());

  EXPECT_EQ(LinesOfGather(own, Square(6)),
            (Lines{kRecords, kPiece, kList, kStack, kWhole, kValues}));
}

TEST(LinesOfARefusedArray, AreThoseOfTheStepWhereMostRowsAreEmpty) {
  Entries const some;
  auto const own = Own().Coo(3, some.far.data(), some.cols.data(), some.values.data());

  EXPECT_EQ(LinesOfGather(own, Square(40)),
            (Lines{kRecords, kPiece, kList, kStack, kWhole, kValues}));
}

TEST(LinesOfARefusedArray, AreThoseOfTheStepWhereThereIsNothing) {
  // No rows are moved, so fewer steps report than for those of a whole with entries.
  EXPECT_EQ(LinesOfGather(Own(), Square(4)), (Lines{kRecords, Agreed(2, 2)}));
}

TEST(LinesOfARefusedArray, NameTheReasonInAnUpdate) {
  TwoBlocks const blocks;
  auto const gather = [&](Alone& process) { return process.Gather(blocks.Pass(), Square(4)); };
  double const* const values = blocks.values.data();
  auto const update = [&](Alone& process) { return process.assembler.Update(values, values); };
  auto const inPlace = [&](Alone& process) {
    return process.assembler.UpdateInPlace(values, values);
  };

  EXPECT_EQ(LinesOfRefusals(update, gather), (Lines{Agreed(0, 2)}));
  EXPECT_EQ(LinesOfRefusals(inPlace, gather), (Lines{Agreed(0, 2)}));
}

TEST(LinesOfARefusedArray, DoNotAskForMemoryIfThePoolFailsForAnotherReason) {
  constexpr PavexStatus kOther = 4711;
  TwoBlocks const blocks;
  double const* const values = blocks.values.data();
  Alone process;
  ASSERT_EQ(process.Gather(blocks.Pass(), Square(4)), STATUS_OK);
  process.pool.Fail(Fault::Once(1, kOther));

  ExpectOutcome(Watch([&] { return process.assembler.Update(values, values); }), kOther,
                "[ERROR] Process 0 got no memory from its pool: Unknown status; look there.\n" +
                    StatusLines(2, kOther));
}

TEST(LinesOfARefusedArray, NameTheReasonInACollect) {
  TwoBlocks const blocks;
  auto const gather = [&](Alone& process) { return process.Gather(blocks.Pass(), Square(4)); };
  auto const collect = [](Alone& process) {
    std::vector<double> own(6);
    std::vector<double> whole(8);
    auto const padded = MatrixDense<double, int>::Borrow(2, 2, false, 3, own.data());
    auto all = MatrixDense<double, int>::Borrow(4, 2, false, 4, whole.data());
    return process.assembler.Collect(padded, Overlap::ADD, all);
  };

  EXPECT_EQ(LinesOfRefusals(collect, gather), (Lines{Agreed(0, 2)}));
}

std::vector<std::string> Sorted(std::string const& lines) {
  std::vector<std::string> sorted;
  std::istringstream stream(lines);
  for (std::string line; std::getline(stream, line);)
    sorted.push_back(line);
  std::sort(sorted.begin(), sorted.end());
  return sorted;
}

// What three ranks did when an allocation of rank 1 was refused.
struct Together {
  std::array<PavexStatus, 3> status{};
  std::size_t calls = 0;  // of the communicator, on rank 1
  std::string output;
};

Together GatherOnThree(int nth) {
  Together result;
  TwoBlocks const blocks;
  result.output = CaptureStdout([&] {
    LocalComm::Run(3, [&](std::shared_ptr<Comm> const& comm) {
      LedgerPool pool;
      auto const traced = std::make_shared<TraceComm>(comm);
      Assembler<double, int> assembler(&pool);
      if (comm->Rank() == 1) pool.Fail(Fault::Once(nth, kRefused));
      result.status[static_cast<std::size_t>(comm->Rank())] =
          assembler.Gather(traced, blocks.Pass(), Square(4));
      if (comm->Rank() == 1) result.calls = traced->DataTexts().size();
    });
  });
  return result;
}

TEST(LinesOfARefusedArray, NameItsProcessOnEveryProcess) {
  constexpr int kForRecords = 3;
  int refused = 0;
  for (Together result = GatherOnThree(kForRecords + 1); result.calls == 1;
       result = GatherOnThree(kForRecords + 1 + refused)) {
    ++refused;
    EXPECT_EQ(result.status, (std::array<PavexStatus, 3>{kRefused, kRefused, kRefused}));
    EXPECT_EQ(Sorted(result.output),
              Sorted(Agreed(1, 1, 1) + Agreed(0, 1, 1) + Agreed(0, 1, 1)));
  }
  EXPECT_GE(refused, 4) << "columns, offsets, slots, merged columns";
}

}  // namespace
}  // namespace Pavex
