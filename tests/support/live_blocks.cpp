#include "tests/support/live_blocks.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

#ifdef SPECTRAL_SANITIZED

long sweep::live_blocks() { return -1; }

#else

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);
void free(void* block);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

std::atomic<long> g_blocks{0};

void* counted(void* block) {
  if (block != nullptr) g_blocks.fetch_add(1, std::memory_order_relaxed);
  return block;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) { return counted(__libc_malloc(size)); }
void* calloc(std::size_t count, std::size_t size) { return counted(__libc_calloc(count, size)); }
void* memalign(std::size_t alignment, std::size_t size) {
  return counted(__libc_memalign(alignment, size));
}
void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }
int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block != nullptr ? 0 : ENOMEM;
}

void* realloc(void* old, std::size_t size) {
  if (old != nullptr && size == 0) {
    free(old);
    return nullptr;
  }
  void* block = __libc_realloc(old, size);
  return old == nullptr ? counted(block) : block;
}

void free(void* block) {
  if (block != nullptr) g_blocks.fetch_sub(1, std::memory_order_relaxed);
  __libc_free(block);
}
}

long sweep::live_blocks() { return g_blocks.load(std::memory_order_relaxed); }

#endif
