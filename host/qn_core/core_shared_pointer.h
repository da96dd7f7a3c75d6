// Reference-counted pointer. `Counter` holds the count: CoreSharedCounter is thread-safe.
#pragma once

#include <atomic>
#include <utility>

class CoreSharedCounter {
public:
    void acquire() { m_count.fetch_add(1, std::memory_order_relaxed); }
    // True when the last share went.
    bool release() { return m_count.fetch_sub(1, std::memory_order_acq_rel) == 1; }
    unsigned int get_count() const { return m_count.load(std::memory_order_relaxed); }

private:
    std::atomic<unsigned int> m_count{1};
};

template <class T, class Counter = CoreSharedCounter>
class CoreSharedPointer {
public:
    CoreSharedPointer() = default;
    // Takes ownership of `object`; when the counter has no memory, the object is deleted and std::bad_alloc goes on.
    explicit CoreSharedPointer(T* object) : m_object(object) {
        if (object == nullptr) return;
        try {
            m_counter = new Counter;
        } catch (...) {
            delete object;
            throw;
        }
    }
    CoreSharedPointer(const CoreSharedPointer& other) : m_object(other.m_object), m_counter(other.m_counter) {
        if (m_counter != nullptr) m_counter->acquire();
    }
    CoreSharedPointer(CoreSharedPointer&& other) noexcept
        : m_object(std::exchange(other.m_object, nullptr)), m_counter(std::exchange(other.m_counter, nullptr)) {}
    CoreSharedPointer& operator=(CoreSharedPointer other) noexcept {
        std::swap(m_object, other.m_object);
        std::swap(m_counter, other.m_counter);
        return *this;
    }
    ~CoreSharedPointer() { reset(); }

    void reset() {
        if (m_counter != nullptr && m_counter->release()) {
            delete m_object;
            delete m_counter;
        }
        m_object = nullptr;
        m_counter = nullptr;
    }

    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }
    unsigned int get_share_count() const { return m_counter != nullptr ? m_counter->get_count() : 0; }

private:
    T* m_object = nullptr;
    Counter* m_counter = nullptr;
};
