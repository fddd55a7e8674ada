#include "support/heap.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "simulator/phone.h"

#ifdef SPECTRAL_SANITIZED

long heap::live_blocks() { return -1; }
long heap::allocations() { return -1; }
bool heap::fail_allocation(int) { return false; }

#else

// Makes a function replace libc's for every library of the process.
#define STANDS_FOR_LIBC __attribute__((visibility("default")))

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

std::atomic<long> g_blocks{0};
std::atomic<long> g_allocations{0};

#ifdef SPECTRAL_WITHOUT_SIMULATOR
bool is_in_simulator() { return false; }
#else
bool is_in_simulator() { return spectralsim::Phone::is_inside(); }
#endif

void count_allocation() {
  if (!is_in_simulator()) g_allocations.fetch_add(1, std::memory_order_relaxed);
}

std::atomic<int> g_until_failure{0};
std::atomic<bool> g_has_failed{false};

// Whether this allocation is the one that is to fail.
bool fails_now() {
  if (g_until_failure.load(std::memory_order_relaxed) == 0) return false;
  if (is_in_simulator() || g_until_failure.fetch_sub(1) != 1) return false;
  g_has_failed = true;
  return true;
}

void* counted(void* block) {
  if (block != nullptr) g_blocks.fetch_add(1, std::memory_order_relaxed);
  count_allocation();
  return block;
}

}  // namespace

extern "C" {

STANDS_FOR_LIBC void* malloc(std::size_t size) {
  return fails_now() ? nullptr : counted(__libc_malloc(size));
}
STANDS_FOR_LIBC void* calloc(std::size_t count, std::size_t size) {
  return counted(__libc_calloc(count, size));
}
STANDS_FOR_LIBC void* memalign(std::size_t alignment, std::size_t size) {
  return counted(__libc_memalign(alignment, size));
}
STANDS_FOR_LIBC void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return memalign(alignment, size);
}
STANDS_FOR_LIBC int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block != nullptr ? 0 : ENOMEM;
}

STANDS_FOR_LIBC void* realloc(void* old, std::size_t size) {
  if (old != nullptr && size == 0) {
    free(old);
    return nullptr;
  }
  void* block = __libc_realloc(old, size);
  if (old == nullptr) return counted(block);
  count_allocation();
  return block;
}

STANDS_FOR_LIBC void free(void* block) {
  if (block != nullptr) g_blocks.fetch_sub(1, std::memory_order_relaxed);
  __libc_free(block);
}
}

long heap::live_blocks() { return g_blocks.load(std::memory_order_relaxed); }
long heap::allocations() { return g_allocations.load(std::memory_order_relaxed); }

bool heap::fail_allocation(int nth) {
  g_until_failure = nth;
  return g_has_failed.exchange(false);
}

#endif
