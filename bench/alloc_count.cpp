// Heap allocation counter: the malloc family replaced by versions that count
// and forward to the C library's own implementation.
#include "alloc_count.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* pointer);
}

namespace {
std::atomic<uint64_t> gAllocations{0};
void Count() { gAllocations.fetch_add(1, std::memory_order_relaxed); }
}  // namespace

uint64_t qzbench::Allocations() { return gAllocations.load(std::memory_order_relaxed); }

extern "C" {

void* malloc(size_t size) {
    Count();
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    Count();
    return __libc_calloc(count, size);
}

void* realloc(void* pointer, size_t size) {
    if (size != 0) Count();  // a realloc to 0 only frees
    return __libc_realloc(pointer, size);
}

void free(void* pointer) { __libc_free(pointer); }

void* memalign(size_t alignment, size_t size) {
    Count();
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    Count();
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** out, size_t alignment, size_t size) {
    Count();
    void* p = __libc_memalign(alignment, size);
    if (!p) return ENOMEM;
    *out = p;
    return 0;
}

}  // extern "C"
