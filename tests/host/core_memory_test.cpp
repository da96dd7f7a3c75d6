#include "qn_core/core_memory.h"

#include <gtest/gtest.h>
#ifdef __linux__
#include <sys/resource.h>
#include <unistd.h>
#endif

#include <cstdint>
#include <cstring>
#include <fstream>
#include <new>
#include <utility>
#include <vector>

namespace {

bool keeps_blocks() {
    CoreMemory::release_kept();
    CoreMemory::free(CoreMemory::allocate(1u << 20, 64), 1u << 20, 64);
    return CoreMemory::get_kept_size() != 0;
}

TEST(CoreMemory, KeepsFreedBlocksForTheirSizeWithinABound) {
    if (!keeps_blocks()) GTEST_SKIP() << "a checker of memory is at work";
    CoreMemory::release_kept();
    ASSERT_EQ(CoreMemory::get_kept_size(), 0u);
    std::vector<size_t> sizes{70000, size_t{1} << 20, size_t{5} << 20};
#ifdef __linux__
    sizes.push_back(size_t{50} << 20);  // its pages are the system's to take
#endif
    for (const size_t size : sizes) {
        void* const block = CoreMemory::allocate(size, 64);
        CoreMemory::free(block, size, 64);
        EXPECT_GE(CoreMemory::get_kept_size(), size);
        void* const other = CoreMemory::allocate(2 * size, 64);
        EXPECT_NE(other, block);
        // Every size that rounds to the same one fits.
        void* const again = CoreMemory::allocate(size - 1, 64);
        EXPECT_EQ(again, block);
        std::memset(again, 1, size - 1);
        CoreMemory::free(again, size - 1, 64);
        CoreMemory::free(other, 2 * size, 64);
        CoreMemory::release_kept();
    }
    const size_t largest = sizes.back();
    for (const auto& [size, bound] :
         {std::pair{size_t{4} << 20, CoreMemory::max_kept_size}, std::pair{largest, CoreMemory::max_lent_size}}) {
        std::vector<void*> blocks;
        for (unsigned int i = 0; i < 30; ++i) blocks.push_back(CoreMemory::allocate(size, 64));
        for (void* const block : blocks) CoreMemory::free(block, size, 64);
        EXPECT_LE(CoreMemory::get_kept_size(), bound);
        EXPECT_EQ(CoreMemory::allocate(size, 64), blocks.back()) << "what was freed last is warm";
        CoreMemory::free(blocks.back(), size, 64);
        CoreMemory::release_kept();
    }
}

TEST(CoreMemory, BlocksAreAlignedAndApart) {
    std::vector<std::pair<unsigned char*, size_t>> blocks;
    for (size_t size = 1; size < (size_t{1} << 25); size = size * 3 / 2 + 1) {
        auto* const block = static_cast<unsigned char*>(CoreMemory::allocate(size, 64));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 64, 0u) << size;
        block[0] = block[size - 1] = static_cast<unsigned char>(blocks.size());
        blocks.emplace_back(block, size);
    }
    for (size_t i = 0; i < blocks.size(); ++i) {
        const auto [block, size] = blocks[i];
        EXPECT_EQ(block[0], static_cast<unsigned char>(i));
        EXPECT_EQ(block[size - 1], static_cast<unsigned char>(i));
        CoreMemory::free(block, size, 64);
    }
    CoreMemory::free(nullptr, 100, 64);
    CoreMemory::release_kept();
}

#ifdef __linux__
TEST(CoreMemory, GivesBackWhatItKeepsWhereAddressesRunOut) {
    if (!keeps_blocks()) GTEST_SKIP() << "a checker of memory is at work";
    constexpr size_t mebibyte = size_t{1} << 20, kept = 200 * mebibyte, wanted = 240 * mebibyte;
    CoreMemory::free(CoreMemory::allocate(kept, 64), kept, 64);
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    rlimit tight = before;
    tight.rlim_cur = pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) + wanted - kept + 64 * mebibyte;
    ASSERT_EQ(setrlimit(RLIMIT_AS, &tight), 0);
    void* block = nullptr;
    EXPECT_NO_THROW(block = CoreMemory::allocate(wanted, 64));
    // Emulators of processors do not know the limit.
    void* const beyond = ::operator new(4 * wanted, std::nothrow);
    const bool is_limited = beyond == nullptr;
    ::operator delete(beyond);
    if (is_limited) {
        EXPECT_THROW(CoreMemory::allocate(4 * wanted, 64), std::bad_alloc);
    }
    EXPECT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    CoreMemory::free(block, wanted, 64);
    CoreMemory::release_kept();
}
#endif

}  // namespace
