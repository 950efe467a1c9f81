// The arrays of an arena that are shown by windows. Not installed.

#pragma once

#include "pavex/comm/node_window.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

namespace Pavex {

// A range of the arena, in bytes.
struct NodeSpan {
  std::uint64_t offset = 0;
  std::uint64_t bytes = 0;

  std::uint64_t End() const { return offset + bytes; }
};

// Which array of which processes a window holds. A generation is known to the processes that
// stored it, and to no other ones: `group` is the number of the links through which this
// process took part.
struct NodeView {
  NodeSpan array;
  std::uint64_t group = 0;
  std::uint64_t generation = 0;
  std::shared_ptr<NodeWindow> window;
};

// While an array is a view, the whole pages inside it are private mappings of its window. The
// arena's file has no memory there, and peers see neither what the owner reads nor what it
// writes. The partial pages at both ends stay ordinary. Any thread may call.
class NodeViews {
 public:
  // `base`: where `file`, that of the arena, is mapped. Before any other call.
  void Bind(unsigned char* base, int file);

  // Whether some pages of the span are shown by a window.
  bool Overlap(NodeSpan span) const;

  // The window of a view of exactly this array, group and generation; null if there is none.
  std::shared_ptr<NodeWindow> Find(NodeView const& like) const;
  // The generation that the group's view of this array has; 0 if there is none.
  std::uint64_t Generation(NodeSpan array, std::uint64_t group) const;

  // Whether the owner writes all over an array after it has received it, as the offsets of
  // compressed rows are added up: it has done so to a view of exactly this array, now or
  // earlier. Then each page would be copied when it is written.
  bool IsOverwritten(NodeSpan array);
  // Forgets that, where arrays meet the span: its block serves another purpose.
  void ForgetWrites(NodeSpan span);

  // Makes `view` what its array shows. The caller gives the arena's own pages back. False, and
  // all as before, if the system refuses it.
  bool Show(NodeView const& view);

  // Drops what this process has written to its view of the array: it shows what the window
  // holds now. False if the system refuses it.
  bool Refresh(NodeView const& view);

  // Maps the arena's file again where views meet `span`: they are views no longer. Their
  // contents stay, except inside `lost`, which becomes undefined. False if the system refuses
  // it; what has not been mapped again stays a view.
  bool MakeOrdinary(NodeSpan span, NodeSpan lost);

  // The whole pages inside `array`.
  static NodeSpan PagesOf(NodeSpan array);

 private:
  using ByPage = std::map<std::uint64_t, NodeView>;  // by the offset of the first page

  ByPage::const_iterator First(NodeSpan span) const;
  NodeView const* At(NodeSpan array, std::uint64_t group) const;
  bool HasOwnPage(std::uint64_t page) const;
  bool MakeOrdinaryLocked(NodeSpan span, NodeSpan lost);
  bool Restore(NodeSpan pages, NodeSpan lost) const;
  bool KeepInFile(std::uint64_t from, std::uint64_t end) const;
  void CopyEnds(NodeView const& view) const;

  unsigned char* mBase = nullptr;
  int mFile = -1;
  mutable std::mutex mMutex;
  ByPage mViews;
  std::map<std::uint64_t, std::uint64_t> mOverwritten;  // arrays, offset and bytes
};

}  // namespace Pavex
