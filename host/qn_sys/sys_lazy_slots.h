// Values that are made when they are first asked for.
#pragma once

#include <atomic>
#include <memory>

#include "qn_sys/sys_thread.h"

// A fixed number of slots, each empty until its value is complete and unchanged from then on. T is an object type or an
// array of unknown bound, as with std::unique_ptr. Any number of threads may ask; they wait for each other only while a
// value is being made.
template <class T>
class SysLazySlots {
public:
    using Pointer = typename std::unique_ptr<T>::pointer;

    SysLazySlots() = default;
    explicit SysLazySlots(unsigned int count)
        : m_count(count), m_slots(std::make_unique<std::atomic<Pointer>[]>(count)) {}
    ~SysLazySlots() { clear(); }
    SysLazySlots(const SysLazySlots&) = delete;
    SysLazySlots& operator=(const SysLazySlots&) = delete;

    unsigned int get_count() const { return m_count; }
    // Null as long as the slot is empty.
    Pointer find(unsigned int i) const { return m_slots[i].load(std::memory_order_acquire); }
    // The value of a slot. Where it is empty, make() returns the value as a std::unique_ptr<T> and stored() is called
    // once it can be found, both under the lock. What make() throws leaves the slot empty.
    template <class Make, class Stored>
    Pointer get(unsigned int i, SysThreadLock& lock, const Make& make, const Stored& stored) const {
        if (const Pointer found = find(i)) return found;
        const SysThreadLockGuard guard(lock);
        if (const Pointer found = m_slots[i].load(std::memory_order_relaxed)) return found;
        const Pointer made = std::unique_ptr<T>(make()).release();
        m_slots[i].store(made, std::memory_order_release);
        stored();
        return made;
    }

    // Empties all slots and has `count` of them from now on. Not concurrent with readers.
    void reset(unsigned int count) {
        clear();
        m_count = 0;
        m_slots = std::make_unique<std::atomic<Pointer>[]>(count);
        m_count = count;
    }

private:
    void clear() {
        for (unsigned int i = 0; i < m_count; ++i) std::unique_ptr<T>(m_slots[i].exchange(nullptr)).reset();
    }

    unsigned int m_count = 0;
    std::unique_ptr<std::atomic<Pointer>[]> m_slots;
};
