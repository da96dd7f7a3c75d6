// Splitting of an index range into thread tasks.
#pragma once

#include <algorithm>

#include "qn_core/core_array.h"
#include "qn_sys/sys_thread.h"

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

}  // namespace sds
