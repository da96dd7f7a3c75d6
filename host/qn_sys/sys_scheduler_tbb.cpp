// The scheduler of builds with threads: oneTBB.
#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <optional>

#include "qn_sys/sys_hand_over.h"
#include "qn_sys/sys_thread.h"
#include "qn_sys/sys_workers.h"

namespace {

// At the end of a scope, by an exception too.
struct PublishAtEnd {
    SysHandOver& hand_over;
    ~PublishAtEnd() { hand_over.publish(); }
};
struct ObserveAtEnd {
    SysHandOver& hand_over;
    ~ObserveAtEnd() { hand_over.observe(); }
};

}  // namespace

unsigned int SysThreadTaskManager::get_thread_count() const {
    const int count = tbb::this_task_arena::max_concurrency();
    return count > 0 ? static_cast<unsigned int>(count) : 1;
}

struct SysThreadArena::Impl {
    // More threads than cores are to be had only while the process allows them.
    explicit Impl(unsigned int threads) : arena(static_cast<int>(threads)) {
        if (threads > static_cast<unsigned int>(tbb::info::default_concurrency()))
            allowance.emplace(tbb::global_control::max_allowed_parallelism, size_t{threads});
    }
    std::optional<tbb::global_control> allowance;
    tbb::task_arena arena;
};

namespace {

unsigned int get_available_threads(unsigned int wanted) {
    const auto cores = static_cast<unsigned int>(tbb::info::default_concurrency());
    return 1 + sys_prepare_workers((wanted == 0 ? cores : wanted) - 1);
}

}  // namespace

SysThreadArena::SysThreadArena(const unsigned int& thread_count)
    : m_impl(std::make_unique<Impl>(get_available_threads(thread_count))) {}
SysThreadArena::~SysThreadArena() = default;
unsigned int SysThreadArena::get_thread_count() const {
    return static_cast<unsigned int>(m_impl->arena.max_concurrency());
}
void SysThreadArena::run(void (*function)(void*), void* argument) {
    SysHandOver started, finished;
    const ObserveAtEnd observe{finished};
    started.publish();
    m_impl->arena.execute([&] {
        const PublishAtEnd publish{finished};
        started.observe();
        function(argument);
    });
}

void sys_parallel_for(const unsigned int& count, void (*function)(void*, unsigned int, unsigned int), void* argument) {
    if (count == 0) return;
    sys_prepare_workers(sys_max_worker_count() - 2);
    SysHandOver started, finished;
    const ObserveAtEnd observe{finished};
    started.publish();
    // Isolated: a thread that waits here takes no foreign task, which could come back with the same worker index.
    tbb::this_task_arena::isolate([&] {
        tbb::parallel_for(
            tbb::blocked_range<unsigned int>(0, count, 1),
            [&](const tbb::blocked_range<unsigned int>& range) {
                const PublishAtEnd publish{finished};
                started.observe();
                const auto worker = static_cast<unsigned int>(tbb::this_task_arena::current_thread_index());
                for (unsigned int i = range.begin(); i != range.end(); ++i) function(argument, i, worker);
            },
            tbb::simple_partitioner());
    });
}

unsigned int sys_max_worker_count() {
    const int count = tbb::this_task_arena::max_concurrency();
    return count > 0 ? static_cast<unsigned int>(count) + 1 : 2;
}
