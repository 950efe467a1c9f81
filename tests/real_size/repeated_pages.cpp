#include "tests/real_size/repeated_pages.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace Pavex {

namespace {

constexpr unsigned char kUnwritten = 0xA5;

void* Checked(void* address) {
  if (address == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
  return address;
}

}  // namespace

MemoryFile::MemoryFile(unsigned char fill) : mDescriptor(memfd_create("pavex_test", 0)) {
  if (mDescriptor < 0 || ftruncate(mDescriptor, static_cast<off_t>(kPeriodBytes)) != 0)
    throw std::system_error(errno, std::generic_category(), "memfd");
  mData =
      Checked(mmap(nullptr, kPeriodBytes, PROT_READ | PROT_WRITE, MAP_SHARED, mDescriptor, 0));
  std::memset(mData, fill, kPeriodBytes);
}

MemoryFile::~MemoryFile() {
  munmap(mData, kPeriodBytes);
  close(mDescriptor);
}

RepeatedPages::RepeatedPages(std::shared_ptr<MemoryFile const> file, std::size_t begin,
                             std::size_t bytes)
    : mFile(std::move(file)) {
  std::size_t const first = begin / kPageBytes;
  mCount = (begin + bytes + kPageBytes - 1) / kPageBytes - first;
  mPages =
      static_cast<char*>(Checked(mmap(nullptr, mCount * kPageBytes, PROT_NONE,
                                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)));
  for (std::size_t page = 0; page < mCount;) {
    std::size_t const inFile = (first + page) % kPeriodPages;
    std::size_t const count = std::min(kPeriodPages - inFile, mCount - page);
    Checked(mmap(mPages + page * kPageBytes, count * kPageBytes, PROT_READ | PROT_WRITE,
                 MAP_SHARED | MAP_FIXED, mFile->Descriptor(),
                 static_cast<off_t>(inFile * kPageBytes)));
    page += count;
  }
  mData = mPages + begin % kPageBytes;
}

RepeatedPages::~RepeatedPages() {
  munmap(mPages, mCount * kPageBytes);
}

void RepeatedPages::OwnSomePages(unsigned char fill) {
  OwnPage(0, fill);
  OwnPage(mCount - 1, fill);
  for (int const power : {33, 34, 35}) {
    std::size_t const page = (std::size_t{1} << power) / kPageBytes;
    if (page >= mCount) break;
    OwnPage(page - 1, fill);
    OwnPage(page, fill);
  }
}

void RepeatedPages::OwnPage(std::size_t page, unsigned char fill) {
  void* const data =
      Checked(mmap(mPages + page * kPageBytes, kPageBytes, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0));
  std::memset(data, fill, kPageBytes);
}

PavexStatus RepeatedPool::Allocate(void** block, std::size_t bytes) {
  if (bytes < kLarge) return MemoryPool::Allocate(block, bytes);
  auto pages =
      std::make_unique<RepeatedPages>(std::make_shared<MemoryFile>(kUnwritten), 0, bytes);
  pages->OwnSomePages(kUnwritten);
  *block = pages->Data();
  mLarge.emplace(*block, std::move(pages));
  return STATUS_OK;
}

void RepeatedPool::Deallocate(void* block, std::size_t bytes) {
  if (mLarge.erase(block) == 0) MemoryPool::Deallocate(block, bytes);
}

}  // namespace Pavex
