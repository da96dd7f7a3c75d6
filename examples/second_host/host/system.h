// Threads, progress, the evaluation context, the module's entry.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

#include "host/core.h"
#include "host/math.h"

using SysThreadLock = std::mutex;
using SysThreadLockGuard = std::lock_guard<std::mutex>;

template <class T>
class SysLazySlots {
public:
    using Pointer = typename std::unique_ptr<T>::pointer;

    explicit SysLazySlots(unsigned int count) : m_slots(count) {}
    unsigned int get_count() const { return static_cast<unsigned int>(m_slots.size()); }
    Pointer find(unsigned int i) const {
        const std::lock_guard guard(m_lock);
        return m_slots[i].get();
    }
    template <class Make, class Stored>
    Pointer get(unsigned int i, SysThreadLock& lock, const Make& make, const Stored& stored) const {
        const std::lock_guard guard(lock);
        if (const Pointer found = find(i)) return found;
        std::unique_ptr<T> made = make();
        {
            const std::lock_guard slots_guard(m_lock);
            m_slots[i] = std::move(made);
        }
        stored();
        return find(i);
    }

private:
    mutable std::mutex m_lock;
    mutable std::vector<std::unique_ptr<T>> m_slots;
};

class SysThreadTask {
public:
    virtual ~SysThreadTask() = default;
    virtual void run(const unsigned int& worker) = 0;
};

// Starts its threads when somebody waits.
class SysThreadTaskManager {
public:
    unsigned int get_thread_count() const { return 2; }
    unsigned int get_max_thread_count() const { return get_thread_count(); }
    void add_task(SysThreadTask& task, const bool& owned, const bool& enabled);
    void wait_until_completed();

private:
    std::vector<SysThreadTask*> m_tasks;
    std::vector<std::unique_ptr<SysThreadTask>> m_owned;
};

// Hands each finished stretch to a function; `increment` comes from several threads.
class AppProgressBar {
public:
    std::function<void(const std::string& task)> ended;

    void begin_task(const CoreString& label, const float&, const bool&) { m_labels.push_back(label); }
    void end_task() {
        if (ended) ended(m_labels.back());
        m_labels.pop_back();
    }
    void set_value(const float&) {}
    void set_step_count(const unsigned int&) {}
    void step(const unsigned int&) {}
    void increment(const float& share) { m_shares.fetch_add(share); }

private:
    std::vector<std::string> m_labels;
    std::atomic<float> m_shares{0.0f};
};

class AppProgressTask {
public:
    AppProgressTask(AppProgressBar* progress, const char* label, float weight) : m_progress(progress) {
        if (m_progress != nullptr) m_progress->begin_task(label, weight, false);
    }
    ~AppProgressTask() {
        if (m_progress != nullptr) m_progress->end_task();
    }
    AppProgressTask(const AppProgressTask&) = delete;
    AppProgressTask& operator=(const AppProgressTask&) = delete;

private:
    AppProgressBar* m_progress;
};

class CtxMotionBlur {
public:
    const GMathTimeSampling& get_time_sampling() const { return m_sampling; }

private:
    GMathTimeSampling m_sampling;
};

struct CtxShader {
    const CtxMotionBlur& get_motion_blur() const { return motion_blur; }
    CtxMotionBlur motion_blur;
};

// Working memory of one thread: a block that grows to the largest record asked for.
class GasScratch {
public:
    template <class T>
    T& acquire() {
        if (m_blocks.size() * sizeof(Block) < sizeof(T))
            m_blocks.resize((sizeof(T) + sizeof(Block) - 1) / sizeof(Block));
        return *reinterpret_cast<T*>(m_blocks.data());
    }
    // Used for one type only.
    template <class T>
    T& keep() {
        if (m_blocks.empty()) new (&acquire<T>()) T;
        return *reinterpret_cast<T*>(m_blocks.data());
    }

private:
    struct alignas(64) Block {
        unsigned char bytes[64];
    };
    std::vector<Block> m_blocks;
};

struct CtxThread {
    GasScratch& get_scratch() { return scratch; }
    GasScratch& get_kept_scratch() { return kept_scratch; }
    GasScratch scratch, kept_scratch;
};

class CtxEval {
public:
    explicit CtxEval(const CtxShader& shader, CtxThread* thread = nullptr) : m_shader(&shader), m_thread(thread) {}
    const CtxShader* get_shader_ctx() const { return m_shader; }
    CtxThread* get_thread() const { return m_thread; }

private:
    const CtxShader* m_shader;
    CtxThread* m_thread;
};
