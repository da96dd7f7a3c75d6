// Threads: locks, tasks and the task manager. The threads behind them come from the scheduler of the calling thread's
// arena, so that whoever limits the arena (SysThreadArena) limits every manager made inside it. Where the system
// refuses threads, work goes on with those there are, at least the caller's.
#pragma once

#include <memory>

#include "qn_core/core_array.h"
#include "qn_core/core_export.h"

class QN_EXPORT SysThreadLock {
public:
    SysThreadLock();
    ~SysThreadLock();
    SysThreadLock(const SysThreadLock&) = delete;
    SysThreadLock& operator=(const SysThreadLock&) = delete;

    void lock();
    void unlock();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

class SysThreadLockGuard {
public:
    explicit SysThreadLockGuard(SysThreadLock& lock) : m_lock(lock) { m_lock.lock(); }
    ~SysThreadLockGuard() { m_lock.unlock(); }
    SysThreadLockGuard(const SysThreadLockGuard&) = delete;
    SysThreadLockGuard& operator=(const SysThreadLockGuard&) = delete;

private:
    SysThreadLock& m_lock;
};

class QN_EXPORT SysThreadTask {
public:
    virtual ~SysThreadTask();
    // `worker` is below the manager's get_max_thread_count(); no two tasks of a manager run with the same worker at the
    // same time.
    virtual void run(const unsigned int& worker) = 0;
};

class QN_EXPORT SysThreadTaskManager {
public:
    SysThreadTaskManager();
    ~SysThreadTaskManager();
    SysThreadTaskManager(const SysThreadTaskManager&) = delete;
    SysThreadTaskManager& operator=(const SysThreadTaskManager&) = delete;

    // Threads that work at once, at least 1.
    unsigned int get_thread_count() const;
    // One more than the largest worker index.
    unsigned int get_max_thread_count() const;

    // Queues a task that the caller owns and keeps until wait_until_completed returns. `owned` asks the manager to
    // delete it afterwards; `enabled` false leaves it out. Called from the thread that made the manager.
    void add_task(SysThreadTask& task, const bool& owned, const bool& enabled);
    // Runs the queued tasks on the arena's threads and the caller's, returns when all are done. The first exception
    // that a task throws is thrown here, after the running ones have ended; tasks not yet begun are then skipped.
    void wait_until_completed();

private:
    struct Entry {
        SysThreadTask* task;
        bool owned;
    };
    void drop_tasks();

    CoreArray<Entry> m_tasks;
};

// Runs work with a limit on its threads. 0 asks for every core.
class QN_EXPORT SysThreadArena {
public:
    explicit SysThreadArena(const unsigned int& thread_count);
    ~SysThreadArena();
    SysThreadArena(const SysThreadArena&) = delete;
    SysThreadArena& operator=(const SysThreadArena&) = delete;

    unsigned int get_thread_count() const;

    // Runs `work` inside the arena on the calling thread and returns when it is done; exceptions pass through.
    template <class Work>
    void execute(Work&& work) {
        run(&call<std::remove_reference_t<Work>>, const_cast<void*>(static_cast<const void*>(&work)));
    }

private:
    template <class Work>
    static void call(void* work) {
        (*static_cast<Work*>(work))();
    }
    void run(void (*function)(void*), void* argument);

    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

// Calls body(i, worker) for i in [0, count) on the calling arena's threads, in any order, and returns when all are
// done.
QN_EXPORT void sys_parallel_for(const unsigned int& count, void (*function)(void*, unsigned int, unsigned int),
                                void* argument);

template <class Body>
void sys_parallel_for(const unsigned int& count, Body&& body) {
    using Plain = std::remove_reference_t<Body>;
    sys_parallel_for(
        count, [](void* argument, unsigned int i, unsigned int worker) { (*static_cast<Plain*>(argument))(i, worker); },
        const_cast<void*>(static_cast<const void*>(&body)));
}

// One more than the largest worker index that sys_parallel_for hands out in the calling thread's arena.
QN_EXPORT unsigned int sys_max_worker_count();
