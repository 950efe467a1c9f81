// What a NodeComm knows of the processes that it shares memory with. Not installed.

#pragma once

#include "pavex/comm/node_peer.h"
#include "pavex/comm/node_region.h"
#include "pavex/comm/node_ring.h"

#include <cstdint>
#include <memory>
#include <mpi.h>
#include <vector>

namespace Pavex {

// Where this process's messages to and from one rank stand, on one of the two rings.
struct NodeCounters {
  std::uint64_t sent = 0;      // number of the last message offered to that rank
  std::uint64_t received = 0;  // all messages up to this number have been taken
  std::uint32_t early = 0;     // bit i: message received + 1 + i has been taken as well
};

// One rank of the communicator, as seen by this process.
struct NodeLink {
  std::shared_ptr<NodePeer const> peer;  // null: this process, or one that shares no memory
  NodeChannel* in = nullptr;             // from that rank, in this process's arena
  NodeChannel* out = nullptr;            // to that rank, in its arena
  NodeEntry const* entry = nullptr;      // of that rank, in its arena
  NodeCounters collective;
  NodeCounters direct;
  int group = 0;               // the lowest of the ranks that share memory with that rank
  int position = 0;            // of that rank in the list of all, group by group
  int memberCount = 0;         // of the lowest: how many ranks its group has
  std::uint64_t sendPass = 0;  // of NodeExchange: the last pass in which an unoffered message
  std::uint64_t receivePass =
      0;  // (an untaken one) to (from) that rank held up those behind it
};

// The links of one process to all ranks of a communicator. Only the constructor and Leave are
// collective.
class NodeLinks {
 public:
  NodeLinks();
  NodeLinks(NodeLinks const&) = delete;
  NodeLinks& operator=(NodeLinks const&) = delete;

  // Finds the processes of each node and agrees with them on whether they can map each other's
  // arenas: all ranks come to the same result, also if something fails on one of them alone.
  // Works on its own duplicate of `comm`, which lives with the links, and on no other
  // communicator. At most `largest` processes of a node with neighbouring ranks share memory.
  // Collective. Returns MPI's code.
  int Join(MPI_Comm comm, int largest);

  // Tells the peers which operation this process enters. Local.
  void Enter(NodeEntry::Word operation) {
    mEntered = operation;
    if (mControl != nullptr) mEntry->entered.store(operation, std::memory_order_release);
  }
  // Whether that rank, which shares memory with this one, has no part in the operation that
  // this process has entered last, or no longer.
  bool Misses(int rank) {
    return NodeEntry::Misses(To(rank).entry->entered.load(std::memory_order_acquire), mEntered);
  }

  // Waits for all ranks, then gives the control block and the duplicate back. Collective. Waits
  // for none after a failure of Join or the end of a process of the node, and then keeps the
  // control block.
  void Leave();

  // Whether any two processes of the communicator share memory; the same on every rank.
  bool AnyShared() const { return mAnyShared; }
  // Whether this process shares memory with another one.
  bool Shares() const { return mControl != nullptr; }
  // Whether more processes of the communicator run on this node than they have processors.
  bool Crowded() const { return mCrowded; }

  int Rank() const { return mRank; }
  int Size() const { return static_cast<int>(mLinks.size()); }
  NodeLink& To(int rank) { return mLinks[static_cast<std::size_t>(rank)]; }
  // Whether two ranks are the same process or share memory.
  bool Together(int a, int b) { return To(a).group == To(b).group; }
  // The ranks that share memory with `rank`, `rank` included, in order.
  std::vector<int> const& Group() const { return mGroup; }
  // The lowest rank of each group, in order.
  std::vector<int> const& Groups() const { return mGroups; }
  // The rank of another group through which its processes get what `rank` tells all.
  int Representative(int rank, int group) {
    NodeLink const& lowest = To(group);
    int const member = lowest.position + To(rank).position % lowest.memberCount;
    return mMembers[static_cast<std::size_t>(member)];
  }
  MPI_Comm Messages() const { return mComm; }

  // The arena of this process, which it has if it shares memory.
  NodeArena& Arena() const { return *mArena; }
  // No other links of this process have, or had, the same number.
  std::uint64_t Number() const { return mNumber; }

  // Offset of the range in this process's arena, where peers see its contents;
  // NodeArena::kOutside elsewhere.
  std::uint64_t Place(void const* data, std::size_t bytes) const;

  // Makes views that the region meets ordinary memory, if the system lets it. Their contents
  // stay; those of the region itself only if `lost` is false or it has gaps.
  void MakeOrdinary(NodeRegion const& region, bool lost) const;

  // Copies into memory of this process, by huge pages if that lies in its arena.
  void Store(NodeCopy const& copy) const;

  // The rank of a process of this node that has ended; -1 while all live.
  int FindEnded() const;

 private:
  struct Hello;
  struct Tables;

  int Agree(Tables& all, int largest);
  template <typename T>
  int Tell(T const& mine, std::vector<T>* all);
  void GroupByNode(Tables& all, int largest);
  void CountProcessors(Tables const& all);
  Hello Introduce();
  bool TakeControlBlock();
  bool OpenPeers(std::vector<Hello> const& hellos);
  void Dissolve(std::vector<int>& ready);
  void Forget();
  void ListGroups();

  MPI_Comm mComm = MPI_COMM_NULL;
  NodeArena* mArena = nullptr;
  NodeChannel* mControl = nullptr;  // one channel per process of the group, then the entry
  NodeEntry* mEntry = nullptr;
  std::size_t mControlBytes = 0;
  NodeEntry::Word mEntered = 0;
  std::vector<NodeLink> mLinks;
  std::vector<int> mGroup;
  std::vector<int> mGroups;
  std::vector<int> mMembers;  // all ranks, group by group, in order within each
  std::uint64_t mNumber;
  int mRank = -1;
  bool mAnyShared = false;
  bool mCrowded = false;
  bool mJoined = false;  // every rank has come to the end of Join, as far as this one knows
};

}  // namespace Pavex
