// MpiComm with at most 48 bytes in a message: 6 doubles, 12 ints. This binary defines the MPI
// functions that move data and checks what they are given.

#include "tests/comm/contract.h"
#include "tests/comm/mpi_fixture.h"

#include <algorithm>
#include <limits>
#include <map>
#include <new>
#include <numeric>
#include <string>
#include <sys/mman.h>
#include <vector>

namespace Pavex {
namespace {

constexpr int kMostBytes = 48;

struct Watched {
  std::map<std::string, int> calls;  // by name
  int largest = 0;                   // bytes of the largest message or call
};
Watched gWatched;

void Watch(char const* name, long count, MPI_Datatype type) {
  int bytes = 0;
  PMPI_Type_size(type, &bytes);
  ++gWatched.calls[name];
  gWatched.largest = std::max(gWatched.largest, static_cast<int>(count) * bytes);
}

}  // namespace
}  // namespace Pavex

#define PAVEX_WATCHED extern "C" __attribute__((visibility("default")))

PAVEX_WATCHED int MPI_Send(void const* buf, int count, MPI_Datatype type, int dest, int tag,
                           MPI_Comm comm) {
  Pavex::Watch("Send", count, type);
  return PMPI_Send(buf, count, type, dest, tag, comm);
}
PAVEX_WATCHED int MPI_Recv(void* buf, int count, MPI_Datatype type, int source, int tag,
                           MPI_Comm comm, MPI_Status* status) {
  Pavex::Watch("Recv", count, type);
  return PMPI_Recv(buf, count, type, source, tag, comm, status);
}
PAVEX_WATCHED int MPI_Bcast(void* buf, int count, MPI_Datatype type, int root, MPI_Comm comm) {
  Pavex::Watch("Bcast", count, type);
  return PMPI_Bcast(buf, count, type, root, comm);
}
PAVEX_WATCHED int MPI_Gatherv(void const* sendbuf, int sendcount, MPI_Datatype sendtype,
                              void* recvbuf, int const* recvcounts, int const* displs,
                              MPI_Datatype recvtype, int root, MPI_Comm comm) {
  if (sendbuf != MPI_IN_PLACE) Pavex::Watch("Gatherv", sendcount, sendtype);
  return PMPI_Gatherv(sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype, root,
                      comm);
}
PAVEX_WATCHED int MPI_Scatterv(void const* sendbuf, int const* sendcounts, int const* displs,
                               MPI_Datatype sendtype, void* recvbuf, int recvcount,
                               MPI_Datatype recvtype, int root, MPI_Comm comm) {
  Pavex::Watch("Scatterv", recvcount, recvtype);
  return PMPI_Scatterv(sendbuf, sendcounts, displs, sendtype, recvbuf, recvcount, recvtype,
                       root, comm);
}
PAVEX_WATCHED int MPI_Allgatherv(void const* sendbuf, int sendcount, MPI_Datatype sendtype,
                                 void* recvbuf, int const* recvcounts, int const* displs,
                                 MPI_Datatype recvtype, MPI_Comm comm) {
  int size = 0;
  MPI_Comm_size(comm, &size);
  Pavex::Watch("Allgatherv", std::accumulate(recvcounts, recvcounts + size, 0L), recvtype);
  return PMPI_Allgatherv(sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype,
                         comm);
}

namespace Pavex {

PAVEX_COMM_CONTRACT(MpiRanks);

namespace {

// Bytes of address space that take memory where they are touched.
class ReservedBytes {
 public:
  explicit ReservedBytes(std::size_t bytes)
      : mBytes(bytes),
        mData(mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {
    if (mData == MAP_FAILED) throw std::bad_alloc();
  }
  ReservedBytes(ReservedBytes const&) = delete;
  ReservedBytes& operator=(ReservedBytes const&) = delete;
  ~ReservedBytes() { munmap(mData, mBytes); }

  unsigned char* Data() const { return static_cast<unsigned char*>(mData); }

 private:
  std::size_t mBytes;
  void* mData;
};

class MpiSplitTest : public MpiCommTest {
 protected:
  void SetUp() override {
    MpiCommTest::SetUp();
    gWatched = Watched();
  }
  // 20 + r doubles on rank r, of which element k is 1000 r + k.
  static std::vector<double> Piece(int rank) {
    std::vector<double> piece(static_cast<std::size_t>(20 + rank));
    std::iota(piece.begin(), piece.end(), 1000.0 * rank);
    return piece;
  }
  // Where the pieces begin, three elements apart.
  void Place() {
    for (int r = 0, place = 3; r < mSize; ++r) {
      mCounts.push_back(20 + r);
      mDispls.push_back(place);
      place += 20 + r + 3;
    }
    mWhole.assign(static_cast<std::size_t>(mDispls.back() + mCounts.back() + 3), -1);
    mExpected = mWhole;
    for (int r = 0; r < mSize; ++r) {
      std::vector<double> const piece = Piece(r);
      std::copy(piece.begin(), piece.end(),
                mExpected.begin() + mDispls[static_cast<std::size_t>(r)]);
    }
  }
  void ExpectSmallMessages() const { EXPECT_LE(gWatched.largest, kMostBytes); }

  std::vector<int> mCounts;
  std::vector<int> mDispls;
  std::vector<double> mWhole;
  std::vector<double> mExpected;
};

TEST_F(MpiSplitTest, GathervMovesTheRestOfEachPieceByMessages) {
  Place();
  std::vector<double> const own = Piece(mRank);
  int const root = mSize - 1;

  ASSERT_EQ(mComm.Gatherv(own.data(), 20 + mRank, DATATYPE_DOUBLE, mWhole.data(),
                          mCounts.data(), mDispls.data(), DATATYPE_DOUBLE, root),
            STATUS_OK);

  if (mRank == root) {
    EXPECT_EQ(mWhole, mExpected);
  }
  if (mRank != root) {
    EXPECT_EQ(gWatched.calls["Send"], (20 + mRank - 6 + 5) / 6);
    EXPECT_EQ(gWatched.calls["Gatherv"], 1);
  }
  ExpectSmallMessages();
}

TEST_F(MpiSplitTest, GathervLeavesThePieceOfARootInItsPlace) {
  Place();
  std::vector<double> const own = Piece(mRank);
  if (mRank == 0) std::copy(own.begin(), own.end(), mWhole.begin() + mDispls[0]);

  ASSERT_EQ(
      mComm.Gatherv(mRank == 0 ? &Comm::IN_PLACE_OBJ : static_cast<void const*>(own.data()),
                    20 + mRank, DATATYPE_DOUBLE, mWhole.data(), mCounts.data(), mDispls.data(),
                    DATATYPE_DOUBLE, 0),
      STATUS_OK);

  if (mRank == 0) {
    EXPECT_EQ(mWhole, mExpected);
  }
  ExpectSmallMessages();
}

TEST_F(MpiSplitTest, ScattervMovesTheRestOfEachPieceByMessages) {
  Place();
  std::vector<double> own(static_cast<std::size_t>(20 + mRank), -1);

  ASSERT_EQ(mComm.Scatterv(mExpected.data(), mCounts.data(), mDispls.data(), DATATYPE_DOUBLE,
                           own.data(), 20 + mRank, DATATYPE_DOUBLE, 0),
            STATUS_OK);

  EXPECT_EQ(own, Piece(mRank));
  EXPECT_EQ(gWatched.calls["Scatterv"], 1);
  ExpectSmallMessages();
}

TEST_F(MpiSplitTest, AllgathervBroadcastsEachLargePiece) {
  Place();
  std::vector<double> const own = Piece(mRank);

  ASSERT_EQ(mComm.Allgatherv(own.data(), 20 + mRank, DATATYPE_DOUBLE, mWhole.data(),
                             mCounts.data(), mDispls.data(), DATATYPE_DOUBLE),
            STATUS_OK);

  EXPECT_EQ(mWhole, mExpected);
  int calls = 0;
  for (int const count : mCounts)
    calls += (count + 5) / 6;
  EXPECT_EQ(gWatched.calls["Bcast"], calls);
  EXPECT_EQ(gWatched.calls["Allgatherv"], 0);
  ExpectSmallMessages();
}

// Four elements of each process: one piece in a call. Two of each: three pieces.
TEST_F(MpiSplitTest, AllgathervKeepsThePiecesOfACallSmallTogether) {
  for (int const each : {4, 2}) {
    gWatched = Watched();
    std::vector<double> const own(static_cast<std::size_t>(each), mRank + 0.5);
    std::vector<int> const counts(static_cast<std::size_t>(mSize), each);
    std::vector<int> displs;
    std::vector<double> whole(static_cast<std::size_t>(mSize * each), -1);
    std::vector<double> expected = whole;
    for (int r = 0; r < mSize; ++r) {
      displs.push_back((mSize - 1 - r) * each);
      std::fill_n(expected.begin() + displs.back(), each, r + 0.5);
    }

    ASSERT_EQ(mComm.Allgatherv(own.data(), each, DATATYPE_DOUBLE, whole.data(), counts.data(),
                               displs.data(), DATATYPE_DOUBLE),
              STATUS_OK);

    EXPECT_EQ(whole, expected);
    int const together = 6 / each;
    EXPECT_EQ(gWatched.calls["Allgatherv"], (mSize + together - 1) / together);
    EXPECT_EQ(gWatched.calls["Bcast"], 0);
    ExpectSmallMessages();
  }
}

// Rank 0 puts the pieces where an int counts their first places alone, the others put them at
// the beginning. All must make the same calls.
TEST_F(MpiSplitTest, AllgathervSplitsByTheCountsAlone) {
  constexpr int kEach = 60;
  constexpr int kLast = std::numeric_limits<int>::max();
  std::vector<unsigned char> const own(kEach, static_cast<unsigned char>(mRank + 1));
  std::vector<int> const counts(static_cast<std::size_t>(mSize), kEach);
  std::vector<int> displs;
  for (int r = 0; r < mSize; ++r)
    displs.push_back(mRank == 0 ? kLast - r * kEach : r * kEach);
  ReservedBytes const whole(mRank == 0 ? std::size_t{kLast} + kEach
                                       : static_cast<std::size_t>(mSize) * kEach);

  ASSERT_EQ(mComm.Allgatherv(own.data(), kEach, DATATYPE_BYTE, whole.Data(), counts.data(),
                             displs.data(), DATATYPE_BYTE),
            STATUS_OK);

  for (int r = 0; r < mSize; ++r) {
    unsigned char const* const piece = whole.Data() + displs[static_cast<std::size_t>(r)];
    EXPECT_EQ(std::vector<unsigned char>(piece, piece + kEach),
              std::vector<unsigned char>(kEach, static_cast<unsigned char>(r + 1)));
  }
  EXPECT_EQ(gWatched.calls["Bcast"], 2 * mSize);
  ExpectSmallMessages();
}

TEST_F(MpiSplitTest, AllgathervTakesEachPieceFromItsPlace) {
  Place();
  auto const self = static_cast<std::size_t>(mRank);
  std::vector<double> const own = Piece(mRank);
  std::copy(own.begin(), own.end(), mWhole.begin() + mDispls[self]);

  ASSERT_EQ(mComm.Allgatherv(&Comm::IN_PLACE_OBJ, 0, DATATYPE_DOUBLE, mWhole.data(),
                             mCounts.data(), mDispls.data(), DATATYPE_DOUBLE),
            STATUS_OK);

  EXPECT_EQ(mWhole, mExpected);
  ExpectSmallMessages();
}

TEST_F(MpiSplitTest, BcastMovesItsArrayInSmallCalls) {
  std::vector<double> array = mRank == 0 ? Piece(0) : std::vector<double>(20);

  ASSERT_EQ(mComm.Bcast(array.data(), 20, DATATYPE_DOUBLE, 0), STATUS_OK);

  EXPECT_EQ(array, Piece(0));
  EXPECT_EQ(gWatched.calls["Bcast"], 4);
  ExpectSmallMessages();
}

TEST_F(MpiSplitTest, SendAndRecvMoveTheirArrayInSmallMessages) {
  if (mSize < 2 || mRank > 1) return;
  std::vector<double> array = mRank == 0 ? Piece(0) : std::vector<double>(20);

  PavexStatus const status = mRank == 0 ? mComm.Send(array.data(), 20, DATATYPE_DOUBLE, 1, 50)
                                        : mComm.Recv(array.data(), 20, DATATYPE_DOUBLE, 0, 50);

  ASSERT_EQ(status, STATUS_OK);
  EXPECT_EQ(array, Piece(0));
  EXPECT_EQ(gWatched.calls[mRank == 0 ? "Send" : "Recv"], 4);
  ExpectSmallMessages();
}

// The sender has no third message for the receiver to wait for.
TEST_F(MpiSplitTest, RecvEndsWithTheFirstShortMessage) {
  if (mSize < 2 || mRank > 1) return;
  std::vector<double> array = mRank == 0 ? Piece(0) : std::vector<double>(20, -1);
  PavexStatus status = STATUS_OK;

  std::string const log = CaptureStdout([&] {
    status = mRank == 0 ? mComm.Send(array.data(), 8, DATATYPE_DOUBLE, 1, 50)
                        : mComm.Recv(array.data(), 20, DATATYPE_DOUBLE, 0, 50);
  });

  if (mRank == 0) {
    EXPECT_EQ(status, STATUS_OK);
  } else {
    EXPECT_EQ(status, STATUS_COMM_FAILED);
    EXPECT_EQ(log, FailureLine("Recv", "peer 0, 0 out, 20 in",
                               "the message is shorter than asked for"));
    EXPECT_EQ(gWatched.calls["Recv"], 2);
    EXPECT_EQ(array[7], 7);
    EXPECT_EQ(array[8], -1);
  }
}

}  // namespace
}  // namespace Pavex
