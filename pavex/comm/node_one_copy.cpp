#include "pavex/comm/node_one_copy.h"

#include <atomic>
#include <cstring>

namespace Pavex {

// What the first process of the group tells the others.
struct NodeOneCopy::Offer {
  std::uint64_t generation = 0;  // 0: no window
  std::uint64_t known = 0;       // 1: the block of this process shows it already
  std::uint64_t begin = 0;       // of the array in the file
  std::uint64_t layout = 0;
  NodeFileId file;  // of a new window
};

namespace {

std::uint64_t NextGeneration() {
  static std::atomic<std::uint64_t> generation{0};
  return ++generation;
}

}  // namespace

NodeOneCopy::NodeOneCopy(NodeLinks& links, NodeExchange& exchange, std::vector<NodeVote>& votes,
                         NodeOperation operation, std::uint64_t sequence,
                         NodePieces const& pieces, NodeRegion const& array, bool able)
    : mLinks(links),
      mExchange(exchange),
      mVotes(votes),
      mOperation(operation),
      mSequence(sequence),
      mPieces(pieces),
      mArray(array) {
  mView.array = {mLinks.Arena().OffsetOf(array.data, array.Bytes()), array.Bytes()};
  mView.group = mLinks.Number();
  mAble = able && mView.array.offset != NodeArena::kOutside && NodeWindow::FitsPages();
}

char const* NodeOneCopy::Agree() {
  char const* const failure = AgreeOn(true);
  return failure != nullptr || mAgreed || !mKnown ? failure : AgreeOn(false);
}

// `known`: whether a window may be offered that has served before.
char const* NodeOneCopy::AgreeOn(bool known) {
  Offer offer;
  if (mLinks.Rank() == mLinks.Group().front()) offer = MakeOffer(known);
  char const* const untold = TellOffer(&offer);
  bool const told = untold == nullptr;
  if (told) Take(offer);
  mVotes[static_cast<std::size_t>(mLinks.Rank())] = VoteOf(mLinks.Rank());
  char const* const failure = TellVotes(Step::VOTE, told);
  mAgreed = told && failure == nullptr && AllAgree();
  if (!mAgreed) mView.window.reset();
  return failure != nullptr ? failure : untold;
}

char const* NodeOneCopy::TellOffer(Offer* offer) {
  int const first = mLinks.Group().front();
  NodeRegion const told = NodeRegion::Of(offer, sizeof *offer);
  Begin(Step::OFFER, true);
  if (mLinks.Rank() != first) mExchange.Receive(first, told, DATATYPE_BYTE);
  for (int const rank : mLinks.Group()) {
    if (mLinks.Rank() == first && rank != first) mExchange.Send(rank, told, DATATYPE_BYTE);
  }
  return mExchange.Run();
}

NodeOneCopy::Offer NodeOneCopy::MakeOffer(bool known) {
  Offer offer;
  if (!mAble || mLinks.Arena().Views().IsOverwritten(mView.array)) return offer;
  offer.layout = Layout();
  offer.begin = mView.array.offset % NodeHugePages::kBytes;
  if (known) offer.generation = mLinks.Arena().Views().Generation(mView.array, mView.group);
  if (offer.generation != 0) {
    offer.known = 1;
    return offer;
  }
  mView.window = NodeWindow::Make(offer.begin, mView.array.bytes);
  if (mView.window == nullptr) return offer;
  offer.generation = NextGeneration();
  offer.file = mView.window->Id();
  return offer;
}

// The same on processes that are in the same operation and know the same sizes.
std::uint64_t NodeOneCopy::Layout() const {
  return mPieces.Layout(mLinks.Size()) ^ static_cast<std::uint64_t>(mOperation);
}

// Opens the window that was offered, unless this process has made it.
void NodeOneCopy::Take(Offer const& offer) {
  mView.generation = offer.generation;
  mKnown = offer.known != 0;
  bool const pagesMeet = (mView.array.offset - offer.begin) % NodeWindow::kPageBytes == 0;
  bool const fits = pagesMeet && offer.layout == Layout();
  if (offer.generation == 0 || !mAble || !fits)
    mView.window.reset();
  else if (mKnown)
    mView.window = mLinks.Arena().Views().Find(mView);
  else if (mView.window == nullptr)
    mView.window = NodeWindow::Open(offer.file, offer.begin, mView.array.bytes);
}

// What this process expects rank `rank` to say.
NodeVote NodeOneCopy::VoteOf(int rank) const {
  NodeRegion const piece = mPieces.Of(rank);
  std::uint64_t const agrees = mView.window != nullptr ? 1 : 0;
  if (piece.Bytes() == 0) return {agrees, 0, 0};
  return {agrees, static_cast<std::uint64_t>(piece.data - mArray.data), piece.Bytes()};
}

// Every process of the group to every other one. If the offer has not come, the first process
// is in another operation: then it does not vote either.
char const* NodeOneCopy::TellVotes(Step step, bool complete) {
  bool const isAlone = step == Step::VOTE && !complete;
  auto const vote = [&](int rank) {
    return NodeRegion::Of(&mVotes[static_cast<std::size_t>(rank)], sizeof(NodeVote));
  };
  Begin(step, complete);
  for (int const rank : mLinks.Group()) {
    if (rank == mLinks.Rank()) continue;
    mExchange.Send(rank, vote(mLinks.Rank()), DATATYPE_BYTE);
    if (!isAlone || rank != mLinks.Group().front())
      mExchange.Receive(rank, vote(rank), DATATYPE_BYTE);
  }
  return mExchange.Run();
}

bool NodeOneCopy::AllAgree() const {
  for (int const rank : mLinks.Group()) {
    NodeVote const& vote = mVotes[static_cast<std::size_t>(rank)];
    NodeVote const expected = VoteOf(rank);
    if (vote.agrees == 0 || vote.offset != expected.offset || vote.bytes != expected.bytes)
      return false;
  }
  return true;
}

// A step that one process takes as another one than the others is a failure of all.
void NodeOneCopy::Begin(Step step, bool complete) {
  mExchange.Begin(NodeOperation::ONE_COPY, mSequence,
                  complete ? static_cast<int>(step) : NodeExchange::kFailed,
                  NodeCopier::SENDER);
}

NodePieces NodeOneCopy::Window() const {
  NodePieces const pieces = mPieces.Moved(mArray.data, mView.window->Array());
  NodeRegion const own = pieces.Of(mLinks.Rank());
  // What has no bytes may be named by an address outside the window.
  if (!mKnown && own.Bytes() > 0) mView.window->Back(own.data, own.Bytes());
  return pieces;
}

char const* NodeOneCopy::WaitForAll(bool complete) {
  return TellVotes(Step::STORED, complete);
}

void NodeOneCopy::Show(bool complete) {
  NodeArena& arena = mLinks.Arena();
  bool const shows = complete && (mKnown ? arena.Views().Refresh(mView) : arena.Show(mView));
  // A piece that is in its place already has no other copy that counts.
  NodeSpan const lost{mView.array.offset, complete ? mView.array.bytes : 0};
  if (!shows) arena.Views().MakeOrdinary(mView.array, lost);
  if (complete && !shows) std::memcpy(mArray.data, mView.window->Array(), mArray.Bytes());
  mView.window->CloseFile();
}

}  // namespace Pavex
