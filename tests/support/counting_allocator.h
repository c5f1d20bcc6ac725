// The global allocation functions of a test executable, replaced by ones
// that count live blocks and bytes, can fail the n-th allocation, and can
// refuse what would pass a ceiling: what the allocation-failure and
// object-lifetime tests observe. Include it in exactly one file of a test.
#ifndef QZ_TEST_COUNTING_ALLOCATOR_H
#define QZ_TEST_COUNTING_ALLOCATOR_H

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace {

long gLiveBlocks = 0;
long gAllocations = 0;  // blocks ever handed out
long long gLiveBytes = 0;
long long gPeakBytes = 0;
long gFailCountdown = 0;   // the allocation that makes it reach 0 fails; 0: none
bool gFailed = false;      // the countdown has failed its allocation
long long gCapBytes = 0;   // refuse what would pass this many live bytes; 0: none

void* Allocate(std::size_t size) {
    if (gFailCountdown > 0 && --gFailCountdown == 0) {
        gFailed = true;
        throw std::bad_alloc();
    }
    if (gCapBytes != 0 && gLiveBytes + static_cast<long long>(size) > gCapBytes) throw std::bad_alloc();
    void* p = std::malloc(size ? size : 1);
    if (!p) throw std::bad_alloc();
    ++gLiveBlocks;
    ++gAllocations;
    gLiveBytes += static_cast<long long>(malloc_usable_size(p));
    if (gLiveBytes > gPeakBytes) gPeakBytes = gLiveBytes;
    return p;
}

void Release(void* p) noexcept {
    if (!p) return;
    --gLiveBlocks;
    gLiveBytes -= static_cast<long long>(malloc_usable_size(p));
    std::free(p);
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void operator delete(void* p) noexcept { Release(p); }
void operator delete[](void* p) noexcept { Release(p); }
void operator delete(void* p, std::size_t) noexcept { Release(p); }
void operator delete[](void* p, std::size_t) noexcept { Release(p); }

#endif
