#include "pavex/comm/node_pool.h"

#include "pavex/comm/node_arena.h"

namespace Pavex {

namespace {

BlockSource& SharedOrSystem() {
  NodeArena* const arena = NodeArena::OfProcess();
  if (arena != nullptr) return *arena;
  return BlockSource::System();
}

}  // namespace

NodePool::NodePool() : MemoryPool(SharedOrSystem()) {}

NodePool::~NodePool() = default;

bool NodePool::Active() const {
  return NodeArena::OfProcess() != nullptr;
}

}  // namespace Pavex
