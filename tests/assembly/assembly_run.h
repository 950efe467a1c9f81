// Runs random assemblies over any communicator, and compares result and cost.

#pragma once

#include "tests/assembly/assembly_case.h"
#include "tests/assembly/assembly_reference.h"
#include "tests/support/strided_comm.h"
#include "tests/support/trace_comm.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <tuple>
#include <vector>

namespace Pavex {

// How the calls that `comm` has recorded differ from what `cost` says; empty if they do not.
inline std::string CompareCost(TraceComm const& comm, AssemblyCost const& cost) {
  AssemblyCost seen;
  long const processes = comm.Size();
  for (CommCall const& call : comm.Calls()) {
    if (call.op == CommOp::RANK || call.op == CommOp::SIZE) continue;
    long const each = static_cast<long>(DatatypeSize(call.sendtype));
    auto const sum = [](std::vector<int> const& counts) {
      return std::accumulate(counts.begin(), counts.end(), 0L);
    };
    bool const scatters = call.op == CommOp::SCATTERV;
    long const received = scatters                       ? call.recvcount
                          : call.op == CommOp::ALLGATHER ? call.recvcount * processes
                                                         : sum(call.recvcountsRead);
    ++seen.mCalls;
    seen.mBytesOut += (scatters ? sum(call.sendcountsRead) : call.sendcount) * each;
    seen.mBytesIn += received * static_cast<long>(DatatypeSize(call.recvtype));
  }
  auto const numbers = [](AssemblyCost const& some) {
    return std::tuple(some.mCalls, some.mBytesOut, some.mBytesIn);
  };
  if (numbers(seen) == numbers(cost)) return {};
  auto const text = [](AssemblyCost const& some) {
    return std::to_string(some.mCalls) + " calls, " + std::to_string(some.mBytesOut) +
           " bytes out, " + std::to_string(some.mBytesIn) + " in";
  };
  std::string calls;
  for (std::string const& call : comm.DataTexts())
    calls += "\n  " + call;
  return text(seen) + "; expected " + text(cost) + calls;
}

// Scatters and collects dense matrices over `comm`; what is wrong is returned.
template <typename T, typename I>
std::string CheckDense(AssemblyCase<T, I> const& expected, Rng& rng, TraceComm& comm,
                       Assembler<T, I>& assembler) {
  int const rank = comm.Rank();
  AssemblyRequest const& request = expected.request;
  bool const receives = request.mReceiver == kEverybody || request.mReceiver == rank;
  auto const& rows = expected.pieces[static_cast<std::size_t>(rank)].ownRows;
  long const count = static_cast<long>(rows.size());
  long const columns = rng.Between(1, 3);
  auto const overlap = rng.Coin() ? Overlap::ADD : Overlap::ONCE;
  Rng mine(static_cast<std::uint64_t>(rng.Between(0, 1L << 40)),
           static_cast<std::uint64_t>(rank));
  CaseDense<T, I> own(count, columns, mine.Coin(), mine.Between(0, 2));
  CaseDense<T, I> whole(receives ? request.mRows : 0, columns, mine.Coin(), mine.Between(0, 2));
  MatrixDense<T, I> nothing;
  MatrixDense<T, I>& passed = receives || mine.Coin() ? whole.matrix : nothing;

  if (receives)
    for (long i = 0; i < request.mRows; ++i)
      for (long j = 0; j < columns; ++j)
        whole.At(i, j) = DenseValue<T>(9, i, j);
  bool const several = expected.pieces.size() > 1;
  bool const tooMuch = expected.RowsOfAll() * columns > kMostOfACall;
  auto const statusIf = [tooMuch](bool moves) {
    return moves && tooMuch ? STATUS_NOT_SUPPORTED : STATUS_OK;
  };
  PavexStatus const scatters = statusIf(several && request.mReceiver != kEverybody);
  comm.ForgetCalls();
  if (assembler.Scatter(passed, own.matrix) != scatters) return "status of the scatter";
  std::string cost = CompareCost(comm, assembler.CostOfScatter(columns));
  if (scatters == STATUS_OK && !cost.empty()) return "scatter: " + cost;
  for (long i = 0; i < (scatters == STATUS_OK ? count : 0); ++i)
    for (long j = 0; j < columns; ++j)
      if (own.At(i, j) != DenseValue<T>(9, rows[static_cast<std::size_t>(i)], j))
        return "scattered row " + std::to_string(i);

  for (long i = 0; i < count; ++i)
    for (long j = 0; j < columns; ++j)
      own.At(i, j) = DenseValue<T>(rank, i, j);
  comm.ForgetCalls();
  PavexStatus const collects = statusIf(several);
  if (assembler.Collect(own.matrix, overlap, passed) != collects)
    return "status of the collect";
  if (collects != STATUS_OK) return {};
  cost = CompareCost(comm, assembler.CostOfCollect(columns));
  if (!cost.empty()) return "collect: " + cost;
  return receives ? CheckCollected(expected, overlap, whole) : std::string();
}

// What is wrong with a gather that was refused because of its size; empty if nothing is.
// `made`: the calls of the communicator.
template <typename T, typename I>
std::string CheckTooLarge(AssemblyCase<T, I> const& expected,
                          std::vector<std::string> const& made,
                          Assembler<T, I> const& assembler) {
  if (expected.SendsFew()) return "a small gather is refused";
  if (assembler.Describe().rfind("Up to process ", 0) != 0)
    return "refused: " + assembler.Describe();
  if (assembler.Whole() != nullptr) return "a whole without a gather";
  std::size_t const exchanges = expected.pieces.size() > 1 ? 1 : 0;
  return made.size() == exchanges ? "" : "something has moved";
}

// What is wrong in a round of updates of the case `name`.
inline std::string InRound(std::string const& name, int round, std::string const& where,
                           std::string const& difference) {
  return name + "round " + std::to_string(round) + ", " + where + ": " + difference;
}

// Runs the case that `rng` chooses, the same on every process. Empty if all is right here.
// `number` is the name of the case, and chooses which values are updated in place.
template <typename T, typename I>
std::string RunAssemblyCase(Rng& rng, long number, std::shared_ptr<Comm> const& comm,
                            MemoryPool& pool) {
  int const rank = comm->Rank();
  AssemblyCase<T, I> expected(rng, comm->Size());
  AssemblyRequest const& request = expected.request;
  bool const receives = request.mReceiver == kEverybody || request.mReceiver == rank;
  std::string const name = "case " + std::to_string(number) + ", rank " + std::to_string(rank) +
                           " of " + std::to_string(comm->Size()) + ": ";

  Assembler<T, I> assembler(&pool);
  bool const strided = number % 2 == 1;  // then processes send offsets in place of lengths
  std::shared_ptr<TraceComm> const counted =
      strided ? std::make_shared<StridedComm>(comm) : std::make_shared<TraceComm>(comm);
  auto const& piece = expected.pieces[static_cast<std::size_t>(rank)];
  PavexStatus status = assembler.Gather(counted, piece.Pass(request.mWithValues), request);
  if (status == STATUS_NOT_SUPPORTED) {
    std::string const difference = CheckTooLarge(expected, counted->DataTexts(), assembler);
    return difference.empty() ? difference : name + difference;
  }
  if (status != STATUS_OK) return name + "status of the gather";
  if (expected.SendsTooMuch()) return name + "a gather that no call counts is not refused";
  std::string cost = CompareCost(*counted, assembler.CostOfGather());
  if (!cost.empty()) return name + "gather: " + cost;
  if ((assembler.Whole() != nullptr) != receives) return name + "receiver";
  for (int round = 0; round < 3; ++round) {
    bool const withValues = request.mWithValues || (round > 0 && expected.HasEntries());
    if (receives) {
      std::string const difference = CheckWhole(expected, withValues, *assembler.Whole());
      if (!difference.empty()) return InRound(name, round, assembler.Describe(), difference);
    }
    expected.Revalue(rng);
    counted->ForgetCalls();
    // Processes choose on their own whether their array stays.
    bool const stays = withValues && (number + round + rank) % 2 == 0;
    auto const address = [&] { return receives ? assembler.Whole()->mValues.mData : nullptr; };
    T const* const before = address();
    status = stays ? assembler.UpdateInPlace(piece.Values(0), piece.Values(1))
                   : assembler.Update(piece.Values(0), piece.Values(1));
    if (status != STATUS_OK) return name + "status of the update";
    if (stays && address() != before) return name + "address of the values";
    cost = CompareCost(*counted, assembler.CostOfUpdate());
    if (!cost.empty()) return InRound(name, round, "update", cost);
  }
  std::string const difference = CheckDense(expected, rng, *counted, assembler);
  return difference.empty() ? difference : name + difference;
}

// Runs case `number` of `seed` as the function above does.
template <typename T, typename I>
std::string RunAssemblyCase(std::uint64_t seed, long number, std::shared_ptr<Comm> const& comm,
                            MemoryPool& pool) {
  Rng rng(seed, static_cast<std::uint64_t>(number));
  return RunAssemblyCase<T, I>(rng, number, comm, pool);
}

}  // namespace Pavex
