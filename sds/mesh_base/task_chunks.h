// Splitting of an index range into thread tasks.
#pragma once

#include <algorithm>

#include "qn_core/core_array.h"
#include "qn_sys/sys_thread.h"
#include "sds/common/progress.h"

namespace sds {

inline constexpr unsigned int min_chunk_size = 16;

// Entries per task when each thread shall get `tasks_per_thread` tasks: at least 16.
inline unsigned int chunk_size(unsigned int count, unsigned int thread_count, unsigned int tasks_per_thread) {
    const unsigned int tasks = thread_count * tasks_per_thread;
    return std::max(min_chunk_size, count / tasks + (count % tasks != 0 ? 1u : 0u));
}

// Runs make_task(begin, end) over the chunks of [0, count) and returns when all are done.
template <class Task, class MakeTask>
void run_chunked(SysThreadTaskManager& manager, unsigned int count, unsigned int tasks_per_thread,
                 MakeTask&& make_task) {
    const unsigned int size = chunk_size(count, manager.get_thread_count(), tasks_per_thread);
    const unsigned int task_count = count / size + (count % size != 0 ? 1u : 0u);
    CoreArray<Task> tasks;
    tasks.reserve(task_count);
    for (unsigned int i = 0; i < task_count; ++i) tasks.add(make_task(i * size, std::min((i + 1) * size, count)));
    for (Task& task : tasks) manager.add_task(task, false, true);
    manager.wait_until_completed();
}

// body(begin, end) over a part of a range.
template <class Body>
class RangeTask : public SysThreadTask {
public:
    RangeTask() = default;
    RangeTask(const Body& body, unsigned int begin, unsigned int end, AppProgressBar* progress, float share)
        : m_body(&body), m_begin(begin), m_end(end), m_progress(progress), m_share(share) {}

    void run(const unsigned int&) override {
        (*m_body)(m_begin, m_end);
        progress_increment(m_progress, static_cast<float>(m_end - m_begin) * m_share);
    }

private:
    const Body* m_body = nullptr;
    unsigned int m_begin = 0;
    unsigned int m_end = 0;
    AppProgressBar* m_progress = nullptr;
    float m_share = 0.0f;
};

// body(begin, end) over the chunks of [0, count), on the manager's threads.
template <class Body>
void run_ranges(SysThreadTaskManager& manager, unsigned int count, AppProgressBar* progress, const Body& body) {
    const float share = 1.0f / static_cast<float>(count);
    run_chunked<RangeTask<Body>>(manager, count, 4, [&](unsigned int begin, unsigned int end) {
        return RangeTask<Body>(body, begin, end, progress, share);
    });
}

}  // namespace sds
