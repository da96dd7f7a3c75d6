// Work on a range of entries: on the calling thread, or in chunks as thread tasks.
#pragma once

#include <algorithm>
#include <type_traits>

#include "qn_core/core_array.h"
#include "qn_sys/sys_thread.h"
#include "sds/common/progress.h"

namespace sds {

inline constexpr unsigned int min_chunk_size = 16;

// Entries per task when each thread shall get `thread_tasks` tasks: at least 16.
inline unsigned int chunk_size(unsigned int count, unsigned int thread_count, unsigned int thread_tasks) {
    const unsigned int tasks = thread_count * thread_tasks;
    return std::max(min_chunk_size, count / tasks + (count % tasks != 0 ? 1u : 0u));
}

// Tasks per thread for a pass over quads or vertices. Many, so that threads end together; of a smaller mesh few, since
// what neighboring tasks share is worked out by both.
inline unsigned int tasks_per_thread(unsigned int count) { return count < 262144 ? 4 : 16; }

// The entries [begin, end), on the worker with this index (0 for the calling thread).
struct WorkRange {
    unsigned int begin;
    unsigned int end;
    unsigned int worker;
    AppProgressBar*
        steps;  // hears of every entry; null without a bar and in a task, which reports its range at its end

    // Entry i is done.
    void step(unsigned int i) const { progress_step(steps, i + 1); }
    // The four half-edges of quad q are.
    void step_quad(unsigned int q) const {
        if (steps == nullptr) return;
        for (unsigned int e = 4 * q; e < 4 * q + 4; ++e) step(e);
    }
};

// W is a callable work(range), const because tasks share it.
template <class W>
class RangeTask : public SysThreadTask {
public:
    using Work = W;

    RangeTask() = default;
    RangeTask(const Work& work, unsigned int begin, unsigned int end, AppProgressBar* progress, float share)
        : m_work(&work), m_begin(begin), m_end(end), m_progress(progress), m_share(share) {}

    void run(const unsigned int& worker) override {
        (*m_work)(WorkRange{m_begin, m_end, worker, nullptr});
        progress_increment(m_progress, static_cast<float>(m_end - m_begin) * m_share);
    }

private:
    const Work* m_work = nullptr;
    unsigned int m_begin = 0;
    unsigned int m_end = 0;
    AppProgressBar* m_progress = nullptr;
    float m_share = 0.0f;
};

struct NoWork {
    void operator()() const {}
};

// Calls work() as a task.
template <class W>
class LoneTask : public SysThreadTask {
public:
    explicit LoneTask(const W& work) : m_work(work) {}
    void run(const unsigned int&) override { m_work(); }

private:
    const W& m_work;
};

// Does work on [0, count) and returns when all is done: in chunks on the manager's threads, without a manager in one
// piece on the calling thread. `beside()` is other work, which one thread does meanwhile.
template <class Task, class Beside = NoWork>
void run_tasks(SysThreadTaskManager* manager, unsigned int count, unsigned int thread_tasks, AppProgressBar* progress,
               const typename Task::Work& work, const Beside& beside = {}) {
    if (manager == nullptr) {
        beside();
        progress_steps(progress, count);
        work(WorkRange{0, count, 0, progress});
        return;
    }
    const unsigned int size = chunk_size(count, manager->get_thread_count(), thread_tasks);
    const unsigned int task_count = count / size + (count % size != 0 ? 1u : 0u);
    const float share = 1.0f / static_cast<float>(count);
    CoreArray<Task> tasks;
    tasks.reserve(task_count);
    for (unsigned int i = 0; i < task_count; ++i)
        tasks.add(Task(work, i * size, std::min((i + 1) * size, count), progress, share));
    LoneTask<Beside> lone(beside);
    if constexpr (!std::is_same_v<Beside, NoWork>) manager->add_task(lone, false, true);
    for (Task& task : tasks) manager->add_task(task, false, true);
    manager->wait_until_completed();
}

// use(i) for every entry of [0, count).
template <class Use>
void for_each_entry(SysThreadTaskManager* manager, unsigned int count, AppProgressBar* progress, const Use& use) {
    const auto work = [&use](const WorkRange& range) {
        for (unsigned int i = range.begin; i < range.end; ++i) {
            use(i);
            range.step(i);
        }
    };
    run_tasks<RangeTask<decltype(work)>>(manager, count, 4, progress, work);
}

inline constexpr size_t min_shared_bytes = size_t{1} << 21;

// Calls use(begin, end) for parts of an array of `count` T, of a large one on all threads of the arena, which share
// the first touch of its pages.
template <class T, class Use>
void for_each_part(unsigned int count, const Use& use) {
    if (sizeof(T) * count < min_shared_bytes) return use(0u, count);
    const auto work = [&](const WorkRange& range) { use(range.begin, range.end); };
    SysThreadTaskManager manager;
    run_tasks<RangeTask<decltype(work)>>(&manager, count, 2, nullptr, work);
}

// `count` elements; they do not overlap.
template <class T>
void copy_elements(const T* from, unsigned int count, T* to) {
    for_each_part<T>(count,
                     [=](unsigned int begin, unsigned int end) { std::copy(from + begin, from + end, to + begin); });
}

template <class T>
void copy_array(const CoreBasicArray<T>& from, CoreArray<T>& to) {
    if (sizeof(T) * from.get_count() < min_shared_bytes) {
        to = from;
        return;
    }
    to.resize(0);
    to.resize(from.get_count());
    copy_elements(from.get_data(), from.get_count(), to.get_data());
}

}  // namespace sds
