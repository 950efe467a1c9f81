#include "pavex/comm/node_pool.h"

#include "pavex/comm/node_arena.h"

namespace Pavex {

namespace {

BlockSource& SharedOrSystem() {
  NodeArena* const arena = NodeArena::OfProcess();
  return arena == nullptr ? BlockSource::System() : *arena;
}

}  // namespace

NodePool::NodePool() : MemoryPool(SharedOrSystem()) {}

NodePool::~NodePool() = default;

bool NodePool::Active() const {
  return NodeArena::OfProcess() != nullptr;
}

}  // namespace Pavex
