#include "bench/support/counters.h"

#include <linux/perf_event.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "bench/support/timing.h"
#include "qn_core/core_memory.h"

namespace sds_bench {

namespace {

// A counter of the kernel, or none.
class EventCounter {
public:
    explicit EventCounter(unsigned long long event) {
        perf_event_attr attributes{};
        attributes.type = PERF_TYPE_HARDWARE;
        attributes.size = sizeof(attributes);
        attributes.config = event;
        attributes.exclude_kernel = 1;
        attributes.exclude_hv = 1;
        attributes.inherit = 1;
        m_file = static_cast<int>(syscall(SYS_perf_event_open, &attributes, 0, -1, -1, 0));
    }
    ~EventCounter() {
        if (m_file >= 0) close(m_file);
    }
    EventCounter(const EventCounter&) = delete;
    EventCounter& operator=(const EventCounter&) = delete;

    double read() const {
        unsigned long long value = 0;
        if (m_file < 0 || ::read(m_file, &value, sizeof value) != static_cast<ssize_t>(sizeof value))
            return std::numeric_limits<double>::quiet_NaN();
        return static_cast<double>(value);
    }

private:
    int m_file = -1;
};

// Memory of its own pages, small ones.
class Mapping {
public:
    explicit Mapping(size_t size) : m_size(size) {
        void* const data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (data == MAP_FAILED) return;
        madvise(data, size, MADV_NOHUGEPAGE);
        m_data = static_cast<char*>(data);
    }
    ~Mapping() {
        if (m_data != nullptr) munmap(m_data, m_size);
    }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    char* get_data() const { return m_data; }

private:
    size_t m_size;
    char* m_data = nullptr;
};

MachineSpeed measure_machine() {
    constexpr size_t size = size_t{128} << 20, page = 4096;
    MachineSpeed speed;
    const Mapping from(size), to(size);
    if (from.get_data() == nullptr || to.get_data() == nullptr) return speed;
    double begin = get_seconds(Clock::thread_cpu);
    for (size_t i = 0; i < size; i += page) from.get_data()[i] = 1;
    speed.page_fault = (get_seconds(Clock::thread_cpu) - begin) / (size / page);
    std::memset(to.get_data(), 2, size);
    double best = 1e30;
    for (unsigned int round = 0; round < 5; ++round) {
        begin = get_seconds(Clock::thread_cpu);
        std::memcpy(to.get_data(), from.get_data(), size);
        keep(to.get_data()[size / 2]);
        best = std::min(best, get_seconds(Clock::thread_cpu) - begin);
    }
    speed.bytes_per_second = 2.0 * static_cast<double>(size) / best;
    return speed;
}

}  // namespace

Counts read_counts() {
    static const EventCounter instructions(PERF_COUNT_HW_INSTRUCTIONS), misses(PERF_COUNT_HW_CACHE_MISSES);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return {static_cast<double>(usage.ru_minflt), instructions.read(), misses.read()};
}

Counts operator-(const Counts& a, const Counts& b) {
    return {a.page_faults - b.page_faults, a.instructions - b.instructions, a.cache_misses - b.cache_misses};
}

const MachineSpeed& get_machine_speed() {
    static const MachineSpeed speed = measure_machine();
    return speed;
}

void give_back_freed_memory() {
    CoreMemory::release_kept();
    malloc_trim(0);
}

SmallPages::SmallPages() : m_was_off(prctl(PR_GET_THP_DISABLE, 0, 0, 0, 0) == 1) {
    CoreMemory::release_kept();
    prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0);
}
SmallPages::~SmallPages() {
    CoreMemory::release_kept();
    if (!m_was_off) prctl(PR_SET_THP_DISABLE, 0, 0, 0, 0);
}

}  // namespace sds_bench
