#include "qn_sys/sys_workers.h"

#include <pthread.h>
#include <sys/resource.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace {

bool is_address_space_limited() {
    rlimit limit{};
    return getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
}

// What a thread takes of the address space: the scheduler's stack and, where that space is limited, what the allocator
// sets aside for a thread that allocates; the rest of the process needs some of it too.
size_t get_thread_space() {
    constexpr size_t stack = size_t{4} << 20, heap = size_t{128} << 20;
    return is_address_space_limited() ? stack + heap : stack;
}

// Threads that wait for each other, so that all are there at once.
class Trial {
public:
    // The number of threads that could be made, all ended again.
    unsigned int count(unsigned int wanted) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, get_thread_space());
        std::vector<pthread_t> threads;
        threads.reserve(wanted);
        for (pthread_t thread{}; threads.size() < wanted; threads.push_back(thread))
            if (pthread_create(&thread, &attributes, &Trial::wait, this) != 0) break;
        pthread_attr_destroy(&attributes);
        {
            const std::scoped_lock lock(m_mutex);
            m_is_over = true;
        }
        m_over.notify_all();
        for (const pthread_t thread : threads) pthread_join(thread, nullptr);
        return static_cast<unsigned int>(threads.size());
    }

private:
    static void* wait(void* trial) {
        auto& self = *static_cast<Trial*>(trial);
        std::unique_lock lock(self.m_mutex);
        self.m_over.wait(lock, [&] { return self.m_is_over; });
        return nullptr;
    }

    std::mutex m_mutex;
    std::condition_variable m_over;
    bool m_is_over = false;
};

// Work that occupies every worker until all have come, or a moment has passed: on a busy machine some come late.
void call_workers(unsigned int count) {
    constexpr auto longest = std::chrono::milliseconds(50);
    const int threads = static_cast<int>(count) + 1;
    const tbb::global_control allowance(tbb::global_control::max_allowed_parallelism, static_cast<size_t>(threads));
    const auto end = std::chrono::steady_clock::now() + longest;
    std::atomic<int> present{0};
    tbb::task_arena(threads).execute([&] {
        tbb::parallel_for(
            0, threads,
            [&](int) {
                ++present;
                while (present < threads && std::chrono::steady_clock::now() < end) std::this_thread::yield();
            },
            tbb::simple_partitioner());
    });
}

}  // namespace

unsigned int sys_prepare_workers(unsigned int wanted) {
    static std::atomic<unsigned int> prepared{0}, most{~0u};
    static std::mutex mutex;
    if (std::min<unsigned int>(wanted, most) <= prepared) return std::min<unsigned int>(wanted, prepared);
    const std::scoped_lock lock(mutex);
    if (std::min<unsigned int>(wanted, most) <= prepared) return std::min<unsigned int>(wanted, prepared);
    const unsigned int count = Trial().count(wanted);
    if (count < wanted) {
        // The least of all such limits holds, whatever others allow; this one is never lifted.
        new tbb::global_control(tbb::global_control::max_allowed_parallelism, size_t{count} + 1);
        most = count;
    }
    // What is allocated meanwhile could leave no space for threads that come later.
    if (count > 0 && (count < wanted || is_address_space_limited())) call_workers(count);
    prepared = count;
    return count;
}
