// How the processes of a node agree to keep an array that all of them receive once. Not
// installed.

#pragma once

#include "pavex/comm/node_exchange.h"
#include "pavex/comm/node_links.h"
#include "pavex/comm/node_pieces.h"
#include "pavex/comm/node_views.h"

#include <cstdint>
#include <vector>

namespace Pavex {

#ifdef PAVEX_NODE_LEAST_KEPT_ONCE
constexpr std::uint64_t kLeastKeptOnce = PAVEX_NODE_LEAST_KEPT_ONCE;
#else
constexpr std::uint64_t kLeastKeptOnce = std::uint64_t{4} << 20;
#endif

// What a process says of a window that it was offered.
struct NodeVote {
  std::uint64_t agrees = 0;
  std::uint64_t offset = 0;  // of its piece in the array
  std::uint64_t bytes = 0;   // of its piece
};

// One collective whose array may be kept in one window. The first process of the group offers a
// new window, or the one that its block shows already; none if it writes all over that array
// each time it has received it. Each process opens it and tells all others whether it could.
// Only if all of them could, and receive the same pieces, does any of them store: they come to
// the same result, also if the system refuses something to one of them. A window serves again
// only if it is what the block of every process of the group shows. No process reads it then:
// all of them are about to overwrite that block.
class NodeOneCopy {
 public:
  // Fewer bytes are cheaper to store for each process. An array has whole pages, and its block
  // is not a small one.
  static constexpr std::uint64_t kLeast = kLeastKeptOnce;

  // `votes`: one for each rank. `array`: all `pieces` together. `able`: whether they are one
  // array here, and this process can store its piece.
  NodeOneCopy(NodeLinks& links, NodeExchange& exchange, std::vector<NodeVote>& votes,
              NodeOperation operation, std::uint64_t sequence, NodePieces const& pieces,
              NodeRegion const& array, bool able);

  // Finds whether the processes of the group agree on a window; the same on all of them.
  // Collective over the group. Null, or the first reason of a failure.
  char const* Agree();
  bool Agreed() const { return mAgreed; }

  // Where the pieces go, with huge pages for that of this process. Only if all have agreed.
  NodePieces Window() const;

  // Waits until all have stored. `complete`: whether this process has; if not, all fail.
  // Collective over the group. Null, or the first reason of a failure.
  char const* WaitForAll(bool complete);

  // Keeps the window's memory until the process ends: something may still arrive there. Local.
  void KeepMapped() { mView.window->StayMapped(); }

  // Makes the array show what has been stored. Where the system refuses that, copies it. After
  // a failure the array is ordinary memory with undefined contents, except for a piece that was
  // in its place already. Local.
  void Show(bool complete);

 private:
  struct Offer;
  enum class Step : int { OFFER, VOTE, STORED };

  char const* AgreeOn(bool known);
  char const* TellOffer(Offer* offer);
  Offer MakeOffer(bool known);
  void Take(Offer const& offer);
  std::uint64_t Layout() const;
  NodeVote VoteOf(int rank) const;
  char const* TellVotes(Step step, bool complete);
  bool AllAgree() const;
  void Begin(Step step, bool complete);

  NodeLinks& mLinks;
  NodeExchange& mExchange;
  std::vector<NodeVote>& mVotes;
  NodeOperation mOperation;
  std::uint64_t mSequence;
  NodePieces const& mPieces;
  NodeRegion mArray;
  bool mAble;
  NodeView mView;
  bool mKnown = false;  // the window that was offered has served before
  bool mAgreed = false;
};

}  // namespace Pavex
