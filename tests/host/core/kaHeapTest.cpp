#include "kaHeap.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cstdlib>
#include <cstring>

namespace {

long minorFaults() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

// Allocates a block, writes every page of it and frees it; returns the page faults taken.
long faultsOfOneUse(size_t bytes) {
    const long before = minorFaults();
    auto* block = static_cast<unsigned char*>(std::malloc(bytes));
    if (!block)
        return -1;
    std::memset(block, 1, bytes);
    // The block escapes: a block written and freed unread would be optimised away.
    asm volatile("" : : "r"(block) : "memory");
    std::free(block);
    return minorFaults() - before;
}

#ifdef KA_SANITIZED_BUILD
// The sanitizers bring their own allocator, which the C library's settings do not reach.
#define SKIP_UNDER_SANITIZERS() GTEST_SKIP() << "the sanitizer's allocator is in use"
#else
#define SKIP_UNDER_SANITIZERS() (void)0
#endif

} // namespace

// A render's buffers are used again and again: the second use of a block of a size renders
// allocate must not fault its pages in again.
TEST(kaHeap, ABlockUsedAgainCostsNoPageFaults) {
    SKIP_UNDER_SANITIZERS();
    ASSERT_TRUE(kaHeap::keepFreedMemoryForReuse());
    const size_t bytes = kaHeap::kMappedFrom - (size_t(1) << 20);
    const long pages = long(bytes / 4096);
    const long first = faultsOfOneUse(bytes);
    ASSERT_GE(first, 0);
    long again = 0;
    for (int i = 0; i < 3; ++i)
        again += faultsOfOneUse(bytes);
    EXPECT_LT(again, pages / 20) << "first use: " << first << " faults";
}

// Pictures are far larger than the blocks kept: freeing one gives its memory back.
TEST(kaHeap, APictureSizedBlockIsGivenBack) {
    SKIP_UNDER_SANITIZERS();
    ASSERT_TRUE(kaHeap::keepFreedMemoryForReuse());
    const size_t bytes = kaHeap::kKeptAtTop + kaHeap::kMappedFrom;
    const long pages = long(bytes / 4096);
    faultsOfOneUse(bytes);
    const long again = faultsOfOneUse(bytes);
    EXPECT_GT(again, pages / 2) << "the second use faults its pages in again: they were returned";
}
