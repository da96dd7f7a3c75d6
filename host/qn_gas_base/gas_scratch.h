// Per-thread working memory of the tree traversals.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>

// One block that grows to the largest request and is kept for later calls. Used by one thread at a time.
class GasScratch {
public:
    GasScratch() = default;
    GasScratch(const GasScratch&) = delete;
    GasScratch& operator=(const GasScratch&) = delete;
    ~GasScratch() { release(); }

    // Uninitialized storage for one T, at a cache-line boundary; its content is lost at the next call with a larger
    // type. Throws std::bad_alloc when it has to grow and cannot.
    template <class T>
    T& acquire() {
        m_kept = nullptr;
        return *static_cast<T*>(reserve<T>());
    }

    // One T, made by its default constructor at the first call, that stays as it is from call to call until the scratch
    // is used for another type. Throws as `acquire` does.
    template <class T>
    T& keep() {
        static const char mark = 0;
        void* block = reserve<T>();
        if (m_kept != &mark) {
            ::new (block) T;
            m_kept = &mark;
        }
        return *static_cast<T*>(block);
    }

private:
    static constexpr size_t alignment = 64;

    template <class T>
    void* reserve() {
        static_assert(std::is_trivially_destructible_v<T> && alignof(T) <= alignment);
        if (sizeof(T) > m_size) grow(sizeof(T));
        return m_block;
    }
    void grow(size_t size) {
        void* block = ::operator new (size, std::align_val_t{alignment});
        release();
        m_block = block;
        m_size = size;
        m_kept = nullptr;
    }
    void release() {
        if (m_block != nullptr) ::operator delete (m_block, std::align_val_t{alignment});
    }

    void* m_block = nullptr;
    size_t m_size = 0;
    const void* m_kept = nullptr;  // a mark of the type that was kept last
};
