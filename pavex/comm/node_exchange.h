// The messages of one operation of NodeComm, all under way at the same time. Not installed.

#pragma once

#include "pavex/comm/node_links.h"
#include "pavex/comm/node_region.h"
#include "pavex/runtime/datatype.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mpi.h>
#include <vector>

namespace Pavex {

enum class NodeOperation : std::int32_t {
  MESSAGE,
  GATHERV,
  SCATTERV,
  ALLTOALLV,
  ALLGATHER,
  ALLGATHERV,
  BCAST,
  OVER_MPI,  // MPI alone moves the data
  GATHER_RUNS,
  ALLGATHER_RUNS,
  SCATTER_RUNS,
  ONE_COPY  // a step of NodeOneCopy, which the label names
};

// The side that copies large data where the arena of either holds it.
enum class NodeCopier { SENDER, RECEIVER };

// Begin an operation, name its messages with Send, Receive and Keep, then Run. Data is copied
// once, by the sender into the receiver's memory or by the receiver out of the sender's. Ranks
// that share no memory with this one use MPI, and so do pairs of ranks neither of which has its
// data in its arena. Messages of no elements are left out on both sides, except where all ranks
// of a node tell each other their pieces: there a rank waits for all others in any case, and
// learns so that it has expected more. Messages between two ranks keep their order.
class NodeExchange {
 public:
  explicit NodeExchange(NodeLinks& links) : mLinks(links) {}

  // Makes room for the messages of any operation of NodeComm on `ranks` ranks, so that none
  // fails for want of memory. False if there is no memory.
  bool Reserve(int ranks);

  // `sequence`: how many collectives this rank has entered on the communicator, 0 for a
  // message; `label`: the root of a collective, the tag of a message.
  void Begin(NodeOperation operation, std::uint64_t sequence, int label, NodeCopier copier);

  // The label of the messages named from now on, in place of that of the operation: it tells
  // apart what several pieces between two ranks are. kFailed of a piece that could not be had:
  // both sides then fail.
  static constexpr int kFailed = -1;
  void Label(int label);

  // `type`: of the elements that the region consists of.
  void Send(int to, NodeRegion const& region, Datatype type);
  void Receive(int from, NodeRegion const& region, Datatype type);

  // This rank's own piece, from one place to another.
  void Keep(NodeRegion const& from, NodeRegion const& to);

  // Moves everything. Null if that has succeeded, otherwise the first reason of a failure,
  // valid until another Run fails. What can be moved is moved in any case, unless a process of
  // the node has ended.
  char const* Run();

  // Whether MPI may still store into what the last Run was to receive, although it has ended.
  bool MayStillReceive() const { return mMayStillReceive; }

 private:
  enum class Phase {
    WAITING,   // not offered, or not yet seen
    OFFERED,   // sender: waits for the receiver's answer
    CLAIMED,   // sender: copies at the end of the pass
    GRANTED,   // receiver: the sender may store
    OVER_MPI,  // waits for MPI
    DONE
  };

  struct Message {
    bool out;
    Phase phase;
    int peer;
    NodeRegion region;
    Datatype type;
    NodeTerms terms;
    std::uint64_t number;  // on its ring, once it is known
    NodeCopy copy;         // CLAIMED: into the receiver's memory
    std::uint64_t target;  // CLAIMED: where that begins in the receiver's arena
    MPI_Request request;   // OVER_MPI: of a part
    std::uint64_t moved;   // OVER_MPI: bytes of the parts before it
    bool missed;           // its peer has no part in the operation
  };

  void Add(bool out, int peer, NodeRegion const& region, Datatype type);
  bool TellsAll() const;
  bool IsLarge(Message const& message) const;
  NodeRing& Incoming(Message const& message);
  NodeRing& Outgoing(Message const& message);
  NodeCounters& Counters(Message const& message);

  bool Pass();
  bool Step(Message& message);
  bool Wait();

  bool StepSend(Message& message);
  bool Offer(Message& message);
  static bool IsUnanswered(Message const& message);
  bool FollowAnswer(Message& message);
  bool Claim(Message& message, NodeNote& answer, NodeNote::Word word);
  void CopyKept();
  void CopyClaimed();
  void CopyInTurn();
  NodeHugePages const& PagesOf(Message const& message);

  bool StepReceive(Message& message);
  void GrantEarly(Message& message);
  NodeNote* FindOffer(Message& message, NodeNote::Word* word);
  bool Accept(Message& message, NodeNote& offer, NodeNote::Word word);
  bool Place(Message& message, NodeNote& offer, NodeNote::Word word, NodePlace const& source);
  bool Pull(Message& message, NodeNote& offer, NodeNote::Word word, NodePlace const& source);
  NodePlace PlaceOf(Message const& message) const;
  static bool RunsFit(Message const& message, NodePlace const& place);
  bool Reach(Message const& message, NodePlace const& place, NodeRegion* region);
  void Answer(Message& message, NodeState state,
              NodePlace const& place = {NodeArena::kOutside});
  bool Take(Message& message, NodeState state);
  void Consume(Message& message);

  bool StartMpi(Message& message);
  bool StepMpi(Message& message);
  static std::uint64_t MpiPart(Message const& message);

  bool Finish(Message& message);
  bool Fail(Message& message, char const* reason);
  bool FailOffered(Message& message, char const* reason);
  bool FailMpi(Message& message, int code);
  bool FindMissed();
  void FailMissed();
  void Abandon(int ended);
  void AbandonOffer(Message& message);
  void AbandonGrant(Message& message);

  NodeLinks& mLinks;
  NodeOperation mOperation = NodeOperation::MESSAGE;
  std::uint64_t mSequence = 0;
  int mLabel = 0;
  NodeCopier mCopier = NodeCopier::SENDER;
  std::vector<Message> mMessages;
  NodeCopy mKept;
  std::uint64_t mPass = 0;  // never starts again, so that marks of an earlier pass do not count
  std::size_t mOpen = 0;    // messages that are not done
  std::uint64_t mWaits = 0;                           // since something has moved
  std::chrono::steady_clock::time_point mProgressed;  // when this wait last let MPI work,
  std::chrono::steady_clock::time_point mWatched;     // and looked at the processes
  bool mFailed = false;
  bool mMayStillReceive = false;
  char mReason[MPI_MAX_ERROR_STRING + 1] = "";
};

}  // namespace Pavex
