#include "pavex/comm/node_links.h"

#include "pavex/comm/node_key.h"
#include "pavex/comm/node_processors.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <numeric>
#include <type_traits>

namespace Pavex {

// What a process tells those of its node.
struct NodeLinks::Hello {
  NodeFileId arena;
  std::uint64_t control = NodeArena::kOutside;  // offset of the control block; outside: none
  NodeProcessors processors;
};

// What every process tells all others, by rank.
struct NodeLinks::Tables {
  std::vector<NodeKey> keys;
  std::vector<Hello> hellos;
  std::vector<int> ready;   // whether it can map the arenas of its group
  std::vector<int> byNode;  // the ranks, node by node
};

NodeLinks::NodeLinks() {
  static std::atomic<std::uint64_t> number{0};
  mNumber = ++number;
}

// Open MPI can give the processes of two hosts communicators that contradict each other, where
// MPI_Comm_split_type should give those of one host the same. So the ranks tell each other
// where they run.
int NodeLinks::Join(MPI_Comm comm, int largest) {
  int code = MPI_Comm_dup(comm, &mComm);
  if (code != MPI_SUCCESS) return code;
  int ranks = 0;
  MPI_Comm_set_errhandler(mComm, MPI_ERRORS_RETURN);
  MPI_Comm_rank(mComm, &mRank);
  MPI_Comm_size(mComm, &ranks);
  auto const size = static_cast<std::size_t>(ranks);
  Tables all;
  int ready = 1;
  try {
    mLinks.resize(size);
    mGroup.reserve(size);
    mGroups.reserve(size);
    mMembers.reserve(size);
    all.keys.resize(size);
    all.hellos.resize(size);
    all.ready.resize(size);
    all.byNode.resize(size);
  } catch (std::bad_alloc const&) {
    ready = 0;
  }
  // Every process needs room for what all of them tell, or none goes on.
  code = MPI_Allreduce(MPI_IN_PLACE, &ready, 1, MPI_INT, MPI_MIN, mComm);
  return code != MPI_SUCCESS || ready == 0 ? code : Agree(all, std::max(largest, 1));
}

int NodeLinks::Agree(Tables& all, int largest) {
  int code = Tell(NodeKey::OfProcess(), &all.keys);
  if (code != MPI_SUCCESS) return code;
  GroupByNode(all, largest);
  code = Tell(Introduce(), &all.hellos);
  if (code != MPI_SUCCESS) return code;
  CountProcessors(all);
  code = Tell(OpenPeers(all.hellos) ? 1 : 0, &all.ready);
  if (code != MPI_SUCCESS) return code;
  Dissolve(all.ready);
  ListGroups();
  mJoined = true;
  return code;
}

template <typename T>
int NodeLinks::Tell(T const& mine, std::vector<T>* all) {
  static_assert(std::is_trivially_copyable_v<T>);
  return MPI_Allgather(&mine, sizeof mine, MPI_BYTE, all->data(), sizeof mine, MPI_BYTE, mComm);
}

// Puts the ranks of each node into groups of neighbours, `largest` at the most.
void NodeLinks::GroupByNode(Tables& all, int largest) {
  auto const keyOf = [&](int rank) -> NodeKey const& {
    return all.keys[static_cast<std::size_t>(rank)];
  };
  std::iota(all.byNode.begin(), all.byNode.end(), 0);
  std::sort(all.byNode.begin(), all.byNode.end(), [&](int a, int b) {
    int const order = keyOf(a).Compare(keyOf(b));
    return order != 0 ? order < 0 : a < b;
  });
  int lowest = -1;
  int members = 0;
  for (int const rank : all.byNode) {
    bool const joins = lowest >= 0 && members < largest && keyOf(rank).IsKnown() &&
                       keyOf(rank).Compare(keyOf(lowest)) == 0;
    if (!joins) {
      lowest = rank;
      members = 0;
    }
    ++members;
    To(rank).group = lowest;
  }
  for (int rank = 0; rank < Size(); ++rank) {
    if (Together(rank, mRank)) mGroup.push_back(rank);
  }
}

void NodeLinks::CountProcessors(Tables const& all) {
  NodeKey const& mine = all.keys[static_cast<std::size_t>(mRank)];
  NodeProcessors processors;
  int processes = 0;
  for (std::size_t rank = 0; rank < all.keys.size(); ++rank) {
    if (all.keys[rank].Compare(mine) != 0) continue;
    processors.Add(all.hellos[rank].processors);
    ++processes;
  }
  mCrowded = processes > processors.Count();
}

NodeLinks::Hello NodeLinks::Introduce() {
  Hello mine;
  mine.processors = NodeProcessors::OfThread();
  if (mGroup.size() < 2 || !TakeControlBlock()) return mine;
  mine.arena = mArena->Id();
  mine.control = mArena->OffsetOf(mControl, mControlBytes);
  return mine;
}

bool NodeLinks::TakeControlBlock() {
  mArena = NodeArena::OfProcess();
  if (mArena == nullptr) return false;
  constexpr std::size_t kPage = 4096;
  std::size_t const bytes = sizeof(NodeChannel) * mGroup.size() + sizeof(NodeEntry);
  mControlBytes = (bytes + kPage - 1) / kPage * kPage;
  void* const block = mArena->TakeShared(mControlBytes);
  if (block == nullptr) return false;
  mControl = static_cast<NodeChannel*>(block);
  // Default initialisation leaves the data of the slots alone: no page of it is touched.
  for (std::size_t i = 0; i < mGroup.size(); ++i)
    new (mControl + i) NodeChannel;
  mEntry = new (mControl + mGroup.size()) NodeEntry;
  return true;
}

// Maps the arenas of the others in the group; false if one of them has none or cannot be
// mapped.
bool NodeLinks::OpenPeers(std::vector<Hello> const& hellos) {
  auto const helloOf = [&](int rank) -> Hello const& {
    return hellos[static_cast<std::size_t>(rank)];
  };
  for (int const rank : mGroup) {
    if (mGroup.size() > 1 && helloOf(rank).control == NodeArena::kOutside) return false;
  }
  std::size_t const channels = sizeof(NodeChannel) * mGroup.size();
  auto const mine =
      static_cast<std::size_t>(std::find(mGroup.begin(), mGroup.end(), mRank) - mGroup.begin());
  for (std::size_t i = 0; i < mGroup.size(); ++i) {
    if (i == mine) continue;
    Hello const& hello = helloOf(mGroup[i]);
    NodeLink& link = To(mGroup[i]);
    link.peer = NodePeer::Open(hello.arena);
    unsigned char* const control =
        link.peer == nullptr ? nullptr
                             : link.peer->At(hello.control, channels + sizeof(NodeEntry));
    if (control == nullptr) return false;
    link.in = mControl + i;
    link.out = reinterpret_cast<NodeChannel*>(control) + mine;
    link.entry = reinterpret_cast<NodeEntry const*>(control + channels);
  }
  return true;
}

// A group in which one process is not ready shares no memory: each of its ranks becomes a group
// of its own.
void NodeLinks::Dissolve(std::vector<int>& ready) {
  auto const isReady = [&](int rank) -> int& { return ready[static_cast<std::size_t>(rank)]; };
  for (int rank = 0; rank < Size(); ++rank) {
    if (isReady(rank) == 0) isReady(To(rank).group) = 0;
  }
  bool const shares = isReady(To(mRank).group) != 0;
  for (int rank = 0; rank < Size(); ++rank) {
    if (isReady(To(rank).group) == 0) To(rank).group = rank;
  }
  if (shares) return;
  Forget();
  mGroup.push_back(mRank);
}

void NodeLinks::ListGroups() {
  for (int rank = 0; rank < Size(); ++rank) {
    int const group = To(rank).group;
    ++To(group).memberCount;
    if (group == rank) mGroups.push_back(rank);
    mAnyShared |= group != rank;
  }
  int next = 0;
  for (int const group : mGroups) {
    To(group).position = next;
    next += To(group).memberCount;
    To(group).memberCount = 0;  // counted again below, up to each rank's place in its group
  }
  mMembers.resize(mLinks.size());
  for (int rank = 0; rank < Size(); ++rank) {
    NodeLink& lowest = To(To(rank).group);
    int const position = lowest.position + lowest.memberCount++;
    To(rank).position = position;
    mMembers[static_cast<std::size_t>(position)] = rank;
  }
}

// From now on this process shares memory with no other.
void NodeLinks::Forget() {
  for (NodeLink& link : mLinks)
    link.peer.reset();
  mGroup.clear();
  if (mControl != nullptr) mArena->GiveBackPages(mControl, mControlBytes);
  mControl = nullptr;
}

void NodeLinks::Leave() {
  int finalized = 0;
  MPI_Finalized(&finalized);
  if (mComm == MPI_COMM_NULL || finalized != 0) return;
  Enter(~NodeEntry::Word{0});
  if (mJoined && FindEnded() < 0) {
    MPI_Barrier(mComm);  // a peer may still look into the control block
    Forget();
  }
  mLinks.clear();
  MPI_Comm_free(&mComm);
}

std::uint64_t NodeLinks::Place(void const* data, std::size_t bytes) const {
  if (mControl == nullptr) return NodeArena::kOutside;
  std::uint64_t const offset = mArena->OffsetOf(data, bytes);
  bool const seen = offset != NodeArena::kOutside && !mArena->Views().Overlap({offset, bytes});
  return seen ? offset : NodeArena::kOutside;
}

void NodeLinks::MakeOrdinary(NodeRegion const& region, bool lost) const {
  if (mControl == nullptr || region.Bytes() == 0) return;
  NodeSpan const span{mArena->OffsetOf(region.data, region.Span()), region.Span()};
  if (span.offset == NodeArena::kOutside) return;
  bool const keepsNothing = lost && region.count == 1;
  mArena->Views().MakeOrdinary(span, {span.offset, keepsNothing ? span.bytes : 0});
}

void NodeLinks::Store(NodeCopy const& copy) const {
  std::uint64_t const place = Place(copy.Target(), copy.Span());
  if (place == NodeArena::kOutside) return copy.CopyAll();
  copy.Store(mArena->HugePages(), place);
}

int NodeLinks::FindEnded() const {
  for (int const rank : mGroup) {
    NodeLink const& link = mLinks[static_cast<std::size_t>(rank)];
    if (link.peer != nullptr && !link.peer->IsAlive()) return rank;
  }
  return -1;
}

}  // namespace Pavex
