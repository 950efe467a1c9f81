#include "pavex/comm/node_links.h"

#include <algorithm>
#include <climits>
#include <new>
#include <type_traits>

namespace Pavex {

// What the processes of a node tell each other.
struct NodeLinks::Hello {
  NodeArenaId arena;
  std::uint64_t control = NodeArena::kOutside;  // offset of the control block
  std::int64_t rank = -1;
  std::int64_t ready = 0;
};

namespace {

// The processes of this node with consecutive ranks, `largest` at the most.
int SplitNode(MPI_Comm comm, int largest, MPI_Comm* node) {
  int code = MPI_Comm_split_type(comm, MPI_COMM_TYPE_SHARED, 0, MPI_INFO_NULL, node);
  if (code != MPI_SUCCESS || largest == INT_MAX) return code;
  MPI_Comm whole = *node;
  int rank = 0;
  MPI_Comm_rank(whole, &rank);
  code = MPI_Comm_split(whole, rank / largest, rank, node);
  MPI_Comm_free(&whole);
  return code;
}

}  // namespace

int NodeLinks::Join(MPI_Comm comm, int largest) {
  int size = 0;
  int code = MPI_Comm_dup(comm, &mComm);
  if (code != MPI_SUCCESS) return code;
  MPI_Comm_set_errhandler(mComm, MPI_ERRORS_RETURN);
  MPI_Comm_rank(mComm, &mRank);
  MPI_Comm_size(mComm, &size);
  MPI_Comm node = MPI_COMM_NULL;
  code = SplitNode(mComm, std::max(largest, 1), &node);
  if (code == MPI_SUCCESS) {
    MPI_Comm_set_errhandler(node, MPI_ERRORS_RETURN);
    code = Agree(node);
    MPI_Comm_free(&node);
  }
  return code;
}

int NodeLinks::Agree(MPI_Comm node) {
  int size = 0;
  int processes = 0;
  MPI_Comm_size(mComm, &size);
  MPI_Comm_size(node, &processes);
  std::vector<Hello> hellos;
  std::vector<int> groups;
  int ready = 1;
  try {
    mLinks.resize(static_cast<std::size_t>(size));
    groups.resize(static_cast<std::size_t>(size));
    hellos.resize(static_cast<std::size_t>(processes));
    mGroup.reserve(static_cast<std::size_t>(processes));
    mGroups.reserve(static_cast<std::size_t>(size));
    mMembers.reserve(static_cast<std::size_t>(size));
  } catch (std::bad_alloc const&) {
    ready = 0;
  }
  // Every process needs room for what all of them tell, or none goes on.
  int code = MPI_Allreduce(MPI_IN_PLACE, &ready, 1, MPI_INT, MPI_MIN, mComm);
  if (code != MPI_SUCCESS || ready == 0) return code;

  Hello mine;
  mine.rank = mRank;
  if (processes > 1 && TakeControlBlock(processes)) {
    mine.arena = mArena->Id();
    mine.control = mArena->OffsetOf(mControl, mControlBytes);
    mine.ready = 1;
  }
  static_assert(std::is_trivially_copyable_v<Hello>);
  code =
      MPI_Allgather(&mine, sizeof mine, MPI_BYTE, hellos.data(), sizeof mine, MPI_BYTE, node);
  if (code != MPI_SUCCESS) return code;
  ready = OpenPeers(hellos) ? 1 : 0;
  code = MPI_Allreduce(MPI_IN_PLACE, &ready, 1, MPI_INT, MPI_MIN, node);
  if (code != MPI_SUCCESS) return code;
  if (ready == 0) {
    Forget();
    mGroup.push_back(mRank);
  }

  int const group = mGroup.front();
  code = MPI_Allgather(&group, 1, MPI_INT, groups.data(), 1, MPI_INT, mComm);
  if (code != MPI_SUCCESS) return code;
  ListGroups(groups);
  mJoined = true;
  return code;
}

// `groupOf`: the group of each rank.
void NodeLinks::ListGroups(std::vector<int> const& groupOf) {
  for (int rank = 0; rank < Size(); ++rank) {
    int const group = groupOf[static_cast<std::size_t>(rank)];
    To(rank).group = group;
    ++To(group).memberCount;
    if (group == rank) mGroups.push_back(rank);
    mAnyShared |= group != rank;
  }
  for (int const group : mGroups) {
    To(group).firstMember = static_cast<int>(mMembers.size());
    for (int rank = group; rank < Size(); ++rank) {
      if (To(rank).group == group) mMembers.push_back(rank);
    }
  }
}

bool NodeLinks::TakeControlBlock(int processes) {
  mArena = NodeArena::OfProcess();
  if (mArena == nullptr) return false;
  constexpr std::size_t kPage = 4096;
  std::size_t const bytes = sizeof(NodeChannel) * static_cast<std::size_t>(processes);
  mControlBytes = (bytes + kPage - 1) / kPage * kPage;
  void* const block = mArena->TakePages(mControlBytes, false);
  if (block == nullptr) return false;
  mControl = static_cast<NodeChannel*>(block);
  // Default initialisation leaves the data of the slots alone: no page of it is touched.
  for (int i = 0; i < processes; ++i)
    new (mControl + i) NodeChannel;
  return true;
}

// Maps the arenas of the others, unless one of the processes is not ready.
bool NodeLinks::OpenPeers(std::vector<Hello> const& hellos) {
  std::size_t mine = 0;
  bool ready = true;
  for (std::size_t i = 0; i < hellos.size(); ++i) {
    mGroup.push_back(static_cast<int>(hellos[i].rank));
    if (hellos[i].rank == mRank) mine = i;
    ready = ready && hellos[i].ready != 0;
  }
  std::size_t const channels = sizeof(NodeChannel) * hellos.size();
  for (std::size_t i = 0; ready && i < hellos.size(); ++i) {
    if (i == mine) continue;
    NodeLink& link = To(mGroup[i]);
    link.peer = NodePeer::Open(hellos[i].arena);
    unsigned char* const control =
        link.peer == nullptr ? nullptr : link.peer->At(hellos[i].control, channels);
    if (control == nullptr) return false;
    link.in = mControl + i;
    link.out = reinterpret_cast<NodeChannel*>(control) + mine;
  }
  return ready;
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
  if (mJoined && FindEnded() < 0) {
    MPI_Barrier(mComm);  // a peer may still look into the control block
    Forget();
  }
  mLinks.clear();
  MPI_Comm_free(&mComm);
}

std::uint64_t NodeLinks::Place(void const* data, std::size_t bytes) const {
  return mControl == nullptr ? NodeArena::kOutside : mArena->OffsetOf(data, bytes);
}

void NodeLinks::Back(void const* data, std::size_t bytes) const {
  std::uint64_t const place = Place(data, bytes);
  if (place != NodeArena::kOutside) mArena->HugePages().Back(place, bytes);
}

int NodeLinks::FindEnded() const {
  for (int const rank : mGroup) {
    NodeLink const& link = mLinks[static_cast<std::size_t>(rank)];
    if (link.peer != nullptr && !link.peer->IsAlive()) return rank;
  }
  return -1;
}

}  // namespace Pavex
