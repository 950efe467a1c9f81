#include "pavex/comm/node_pieces.h"

namespace Pavex {

NodeRegion NodePieces::Of(int rank) const {
  if (runs != nullptr) return NodeRegion::Of(data, runs[rank], type);
  long const begin = counts == nullptr ? long{rank} * count : long{displs[rank]};
  long const elements = counts == nullptr ? count : counts[rank];
  return NodeRegion::Of(data, {begin, elements, 1, elements}, type);
}

std::uint64_t NodePieces::Bytes(int ranks) const {
  std::uint64_t bytes = 0;
  for (int rank = 0; rank < ranks; ++rank)
    bytes += Of(rank).Bytes();
  return bytes;
}

NodeRegion NodePieces::Together(int ranks) const {
  NodeRegion all = NodeRegion::Of(data, 0);
  for (int rank = 0; rank < ranks; ++rank) {
    NodeRegion const piece = Of(rank);
    if (piece.Bytes() == 0) continue;
    if (all.length == 0) all.data = piece.data;
    if (piece.count != 1 || piece.data != all.data + all.length) return NodeRegion::Of(data, 0);
    all.length += piece.length;
  }
  all.stride = all.length;
  return all;
}

std::uint64_t NodePieces::Layout(int ranks) const {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;
  std::uint64_t layout = 0;
  for (int rank = 0; rank < ranks; ++rank) {
    layout = (layout ^ (Of(rank).Bytes() + 1)) * kFactor;
    layout ^= layout >> 32;
  }
  return layout;
}

NodePieces NodePieces::Moved(unsigned char const* from, unsigned char* to) const {
  NodePieces moved = *this;
  moved.data = to - (from - static_cast<unsigned char const*>(data));
  return moved;
}

}  // namespace Pavex
