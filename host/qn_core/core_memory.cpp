#include "qn_core/core_memory.h"

#include <algorithm>
#include <bit>
#include <mutex>
#include <new>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace {

#ifdef MADV_HUGEPAGE
constexpr size_t large_page = size_t{1} << 21;

// Whole large pages; a last one that is filled by three quarters counts.
size_t get_large_size(size_t size) { return (size + large_page / 4) / large_page * large_page; }

void ask_for_large_pages(void* block, size_t size) { madvise(block, size, MADV_HUGEPAGE); }
#else
constexpr size_t large_page = 1;

size_t get_large_size(size_t) { return 0; }

void ask_for_large_pages(void*, size_t) {}
#endif

// From here on the system may take the block's whole pages, until they are written again. False where it cannot.
bool lend_pages([[maybe_unused]] void* block, [[maybe_unused]] size_t size) {
#ifdef MADV_FREE
    constexpr size_t page = 65536;  // or a divisor of it
    return madvise(block, size / page * page, MADV_FREE) == 0;
#else
    return false;
#endif
}

std::align_val_t get_alignment(size_t large_size, size_t alignment) {
    return std::align_val_t{large_size != 0 ? std::max(large_page, alignment) : alignment};
}

constexpr size_t min_kept_block = size_t{1} << 16, max_kept_block = size_t{1} << 28;
// Asking the system for what it left of a block costs as much as a small build has to gain.
constexpr size_t max_held_block = size_t{1} << 23;

bool is_held_size(size_t size) { return size <= max_held_block; }
bool is_kept_size(size_t size) { return size >= min_kept_block && size <= max_kept_block; }

// Sizes that may be kept come in sixteen steps from one power of two to the next, so that what a freed block may be
// used for follows from its size.
size_t round_size(size_t size) {
    if (!is_kept_size(size)) return size;
    const size_t step = std::bit_floor(size) / 16;
    return (size + step - 1) / step * step;
}

struct Block {
    void* data;
    size_t size;
    std::align_val_t alignment;

    void free() const noexcept { ::operator delete(data, alignment); }
};

// Freed blocks, first those that were freed first.
class KeptBlocks {
public:
    explicit KeptBlocks(size_t max_size) : m_max_size(max_size) {}

    // Null where there is none.
    void* take(size_t size, std::align_val_t alignment) noexcept {
        const std::lock_guard lock(m_mutex);
        for (size_t i = m_count; i-- > 0;)
            if (m_blocks[i].size == size && m_blocks[i].alignment == alignment) {
                void* const data = m_blocks[i].data;
                drop(i);
                return data;
            }
        return nullptr;
    }
    void give(const Block& block) noexcept {
        const std::lock_guard lock(m_mutex);
        while (m_count == max_count || m_size + block.size > m_max_size) {
            m_blocks[0].free();
            drop(0);
        }
        m_blocks[m_count++] = block;
        m_size += block.size;
    }
    void release() noexcept {
        const std::lock_guard lock(m_mutex);
        for (size_t i = 0; i < m_count; ++i) m_blocks[i].free();
        m_count = m_size = 0;
    }
    size_t get_size() noexcept {
        const std::lock_guard lock(m_mutex);
        return m_size;
    }

private:
    static constexpr size_t max_count = 128;

    void drop(size_t i) noexcept {
        m_size -= m_blocks[i].size;
        std::copy(m_blocks + i + 1, m_blocks + m_count, m_blocks + i);
        --m_count;
    }

    const size_t m_max_size;
    std::mutex m_mutex;
    size_t m_count = 0, m_size = 0;
    Block m_blocks[max_count];
};

// Never destroyed: arrays may outlive everything.
KeptBlocks& held_blocks() {
    static KeptBlocks& blocks = *new KeptBlocks(CoreMemory::max_kept_size);
    return blocks;
}
KeptBlocks& lent_blocks() {
    static KeptBlocks& blocks = *new KeptBlocks(CoreMemory::max_lent_size);
    return blocks;
}
KeptBlocks& kept_blocks(size_t size) { return is_held_size(size) ? held_blocks() : lent_blocks(); }

// Checkers of memory see every block come and go.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool keeps_blocks = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
constexpr bool keeps_blocks = false;
#else
constexpr bool keeps_blocks = true;
#endif
#else
constexpr bool keeps_blocks = true;
#endif

}  // namespace

void* CoreMemory::allocate(const size_t& size, const size_t& alignment) {
    const size_t rounded = round_size(size), large_size = get_large_size(rounded);
    const std::align_val_t aligned = get_alignment(large_size, alignment);
    if (keeps_blocks && is_kept_size(rounded))
        if (void* const kept = kept_blocks(rounded).take(rounded, aligned); kept != nullptr) return kept;
    void* block = ::operator new(std::max(rounded, large_size), aligned, std::nothrow);
    if (block == nullptr) {
        // Under a limit of addresses what is kept may be what is missing.
        if (get_kept_size() == 0) throw std::bad_alloc();
        release_kept();
        block = ::operator new(std::max(rounded, large_size), aligned);
    }
    if (large_size != 0) ask_for_large_pages(block, large_size);
    return block;
}

void CoreMemory::free(void* block, const size_t& size, const size_t& alignment) noexcept {
    if (block == nullptr) return;
    const size_t rounded = round_size(size);
    const std::align_val_t aligned = get_alignment(get_large_size(rounded), alignment);
    if (keeps_blocks && is_kept_size(rounded) && (is_held_size(rounded) || lend_pages(block, rounded)))
        kept_blocks(rounded).give({block, rounded, aligned});
    else
        ::operator delete(block, aligned);
}

size_t CoreMemory::get_kept_size() noexcept { return held_blocks().get_size() + lent_blocks().get_size(); }
void CoreMemory::release_kept() noexcept {
    held_blocks().release();
    lent_blocks().release();
}
