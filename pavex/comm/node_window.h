// One array that all processes of a node have received, in one memory file. Not installed.

#pragma once

#include "pavex/comm/node_file.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Pavex {

// Each process of the node stores its piece into the window once. Then each of them maps the
// pages privately in place of those of its own block: readers share them, and a process that
// writes gets its own copy of a page. Nothing is stored once the collective has ended. The file
// goes with its last mapping; no page of it is ever given back alone.
class NodeWindow {
 public:
  static constexpr std::size_t kPageBytes = 4096;

  // Whether the pages of the system have that size. Only then can an array be shown.
  static bool FitsPages();

  // Of `bytes` bytes that begin at `begin` of the file: where an array begins within a huge
  // page of its block, so that its pages and those of the file coincide. Null if the system
  // refuses a file or a mapping.
  static std::shared_ptr<NodeWindow> Make(std::uint64_t begin, std::uint64_t bytes);

  // The window that another process has made and holds open.
  static std::shared_ptr<NodeWindow> Open(NodeFileId const& id, std::uint64_t begin,
                                          std::uint64_t bytes);

  // Has no file and no mapping yet.
  NodeWindow(std::uint64_t begin, std::uint64_t bytes);
  NodeWindow(NodeWindow const&) = delete;
  NodeWindow& operator=(NodeWindow const&) = delete;
  ~NodeWindow();

  // Where all processes store and see each other's stores.
  unsigned char* Array() const { return mBase + mBegin; }
  std::uint64_t Bytes() const { return mBytes; }

  // Huge pages for `bytes` bytes of the array from `from` on, before this process stores there.
  void Back(unsigned char const* from, std::uint64_t bytes) const;

  // Maps the array's bytes from `from` on, whole pages, privately over those at `pages`, as
  // MapMemoryFile does. False if the system refuses it.
  bool ShowAt(unsigned char* pages, std::uint64_t from, std::size_t bytes) const;

  // Leaves the mapping to the process: MPI may still store into it.
  void StayMapped() { mStaysMapped = true; }

  // For others to open the file, and for ShowAt.
  NodeFileId const& Id() const { return mId; }
  void CloseFile();

 private:
  bool Map();

  int mFile = -1;
  NodeFileId mId;
  std::int64_t mOwner;  // the process that made this; a child of it does not have the mapping
  std::uint64_t mBegin;
  std::uint64_t mBytes;
  unsigned char* mBase = nullptr;
  bool mStaysMapped = false;
};

}  // namespace Pavex
