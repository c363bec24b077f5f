// The heap of the test program, watched and restricted.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// The operators are weak: a test file may bring its own in their place, and then heap.blocks and
// heap.largest stand still, which heapIsWatched tells.
#include "Problem.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>

problem::Heap problem::heap;

bool problem::heapIsWatched() {
  const std::size_t before = heap.blocks;
  ::operator delete(::operator new(1));
  return heap.blocks > before;
}

namespace {

void* takeBlock(std::size_t size) noexcept {
  if (size >= problem::heap.refuse_from) return nullptr;
  ++problem::heap.blocks;
  problem::heap.largest = std::max(problem::heap.largest, size);
  return std::malloc(std::max<std::size_t>(size, 1));
}

}  // namespace

[[gnu::weak]] void* operator new(std::size_t size) {
  if (void* const block = takeBlock(size)) return block;
  throw std::bad_alloc();
}

[[gnu::weak]] void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return takeBlock(size);
}

[[gnu::weak]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::weak]] void operator delete(void* block, std::size_t /*size*/) noexcept { std::free(block); }
[[gnu::weak]] void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
  std::free(block);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  int& left = problem::heap.arrays_until_refusal;
  if (left == 0) return nullptr;
  if (left > 0) --left;
  try {
    return ::operator new[](size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
