// Measures the exchange of the records, the first step of every gather, by the number of
// processes. It runs one process of P over a communicator that delivers P prepared records. One
// thread; the figures do not include a network.

#include "bench/runner.h"
#include "pavex/pavex.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace Pavex::Bench {
namespace {

using Records = std::vector<MatrixLocalInfo>;

// Runs only the first step of a gather.
class RecordStep : public Aggregator<double, int> {
 public:
  using Aggregator::Aggregator;
  using AggregatorBase::InitMetadata;
  using AggregatorBase::mMode;
  using AggregatorBase::mNnz;
};

// The communicator of one process of many. An exchange copies the records of all processes into
// place. It supports no other operation that moves data.
class ScriptedComm : public SelfComm {
 public:
  ScriptedComm(int rank, Records const& records) : mRank(rank), mRecords(records) {}
  int Rank() const override { return mRank; }
  int Size() const override { return static_cast<int>(mRecords.size()); }
  PavexStatus Allgather(void const*, int, Datatype, void* recvbuf, int,
                        Datatype) const override {
    std::memcpy(recvbuf, mRecords.data(), mRecords.size() * sizeof(MatrixLocalInfo));
    return STATUS_OK;
  }

 private:
  int mRank;
  Records const& mRecords;
};

// The piece of one process: two rows with two entries each.
MatrixCSR<double, int> Band(long rank, long processes) {
  static int ptr[] = {0, 2, 4};
  static int col[] = {0, 1, 0, 1};
  static double values[] = {1, 2, 3, 4};
  auto band = MatrixCSR<double, int>::Borrow(2, 2 * processes, ptr, col, values);
  band.PlaceIn(2 * processes, 2 * processes, MatrixPartition::RowWise(2 * rank));
  return band;
}

// The records of all processes, each with its Band.
Records BandRecords(long processes) {
  Records records(static_cast<std::size_t>(processes));
  for (long rank = 0; rank < processes; ++rank)
    records[static_cast<std::size_t>(rank)] = RecordOf(Band(rank, processes), true);
  return records;
}

// One process of the job, whose pool and aggregator stay warm between the runs.
class Process {
 public:
  Process(int rank, Records const& records)
      : mBand(Band(rank, static_cast<long>(records.size()))),
        mStep(&mPool),
        mProcesses(records.size()) {
    mStep.SetComm(std::make_shared<ScriptedComm>(rank, records));
  }

  // Runs the exchange, the decision of the mode, the checks and the metadata of a gather onto
  // rank 0.
  void Run() { mSucceeds &= mStep.InitMetadata(mBand, true, 0) == STATUS_OK; }

  bool IsRight() const {
    return mSucceeds && mStep.mMode == DISTRIBUTED &&
           mStep.mNnz == 4 * static_cast<long>(mProcesses);
  }
  double BytesPerRecord() const {
    return static_cast<double>(mPool.BytesInUse()) / static_cast<double>(mProcesses);
  }

 private:
  MatrixCSR<double, int> mBand;
  MemoryPool mPool;
  RecordStep mStep;
  std::size_t mProcesses;
  bool mSucceeds = true;
};

void Measure(Runner& runner, long processes) {
  Records const records = BandRecords(processes);
  Records copy(records.size());
  Process receiver(0, records);
  Process sender(1, records);
  std::string const label = std::to_string(processes) + " processes";

  runner.Compare(label,
                 {"memcpy of the records",
                  [&] {
                    std::memcpy(copy.data(), records.data(),
                                records.size() * sizeof(MatrixLocalInfo));
                  }},
                 {{"receiver", [&] { receiver.Run(); }}, {"sender", [&] { sender.Run(); }}});
  double const seconds = MedianSeconds(11, [&] { receiver.Run(); });
  runner.Report(label + ", receiver", seconds * 1e9 / static_cast<double>(processes),
                "ns per record");
  runner.Expect(receiver.IsRight() && sender.IsRight(), label + " agree");
  runner.Expect(receiver.BytesPerRecord() == 80 && sender.BytesPerRecord() == 72,
                label + ": 72 bytes per record, on a receiver 8 more");
}

}  // namespace
}  // namespace Pavex::Bench

int main(int argc, char** argv) {
  using namespace Pavex::Bench;
  std::int64_t most = 1000000;
  Runner runner("records", "The exchanged records: mode, checks and metadata, on one process");
  runner.Option("most", most, "the largest number of processes");
  runner.Parse(argc, argv);

  for (long processes = 100; processes <= most; processes *= 10)
    Measure(runner, processes);
  return runner.Finish();
}
