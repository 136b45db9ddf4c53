// Freed memory the heap cannot trim from its top goes back to the system.
#include "heaptrim.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// Sanitizers bring allocators of their own, which keep freed memory in
// quarantine and do not trim on request.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitizerAllocator = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
constexpr bool kSanitizerAllocator = true;
#else
constexpr bool kSanitizerAllocator = false;
#endif
#else
constexpr bool kSanitizerAllocator = false;
#endif

long residentKb() {
    long pages = 0, resident = 0;
    if (FILE* f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(f);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

// A renderer's frame of small blocks, freed, with one block made after it
// still alive: the hole sits below the heap's top, so free() keeps it
// resident until the heap is trimmed.
TEST(ReleaseFreeHeap, GivesBackAHoleBelowALiveBlock) {
    if (kSanitizerAllocator) GTEST_SKIP() << "the sanitizer's allocator does not trim";
    constexpr size_t kBlock = 64 << 10;  // below the threshold at which malloc maps blocks of their own
    constexpr int kBlocks = 512;         // 32 MB
    std::vector<char*> frame;
    for (int i = 0; i < kBlocks; ++i) {
        frame.push_back(static_cast<char*>(std::malloc(kBlock)));
        std::memset(frame.back(), i, kBlock);
    }
    // Larger than any block freed so far, so it comes from the top, after the frame.
    char* pin = static_cast<char*>(std::malloc(kBlock + 4096));
    std::memset(pin, 1, 64);
    int sum = 0;
    for (char* b : frame) sum += b[kBlock - 1];
    for (char* b : frame) std::free(b);
    const long before = residentKb();
    EXPECT_TRUE(releaseFreeHeap());
    const long after = residentKb();
    EXPECT_GT(before - after, 24 * 1024) << "resident " << before << " kB before, " << after << " kB after (" << sum
                                         << ")";
    std::free(pin);
}

// Once an 8 MB mapped block has been freed, glibc's own rule would grow the
// heap for every block up to 8 MB; with the threshold fixed, a frame-sized
// block the heap has no room for is mapped on its own (and leaves no hole
// when freed) while a smaller one still comes from the heap. malloc takes
// large blocks from free heap space when it has some, so this runs in a fresh
// process whose heap has none.
TEST(KeepLargeBlocksMapped, FrameSizedBlocksDoNotGrowTheHeap) {
    if (kSanitizerAllocator) GTEST_SKIP() << "the sanitizer's allocator maps by its own rules";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            keepLargeBlocksMapped();
            // Through volatile pointers, so the compiler keeps the pairs of malloc and free.
            void* volatile big = std::malloc(8 << 20);
            std::free(big);
            const size_t before = mallinfo2().hblks;
            void* volatile frame = std::malloc(2 << 20);
            const size_t afterFrame = mallinfo2().hblks;
            void* volatile small = std::malloc(kMappedBlockBytes / 2);
            const size_t afterSmall = mallinfo2().hblks;
            std::free(small);
            std::free(frame);
            const size_t afterFree = mallinfo2().hblks;
            std::fprintf(stderr, "mapped blocks: %zu, %zu with the frame, %zu with the small one, %zu freed\n",
                         before, afterFrame, afterSmall, afterFree);
            std::exit(afterFrame == before + 1 && afterSmall == afterFrame && afterFree == before ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
