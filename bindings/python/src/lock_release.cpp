#include "lock_release.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace sds_python {

namespace {

std::atomic<unsigned int> working_count{0};

#ifdef __GLIBC__
void end_at_once(int status, void*) {
    if (working_count == 0) return;
    std::fflush(nullptr);
    _exit(status);
}
#endif

}  // namespace

LocklessWork::LocklessWork() { ++working_count; }
LocklessWork::~LocklessWork() { --working_count; }

LockRelease::LockRelease() : m_work(std::in_place), m_thread(PyEval_SaveThread()) {}

LockRelease::~LockRelease() {
    m_work.reset();
    try {
        PyEval_RestoreThread(m_thread);
    } catch (...) {  // how an ended interpreter ends a thread
        for (;;) pause();
    }
}

void watch_process_exit() {
#ifdef __GLIBC__
    on_exit(&end_at_once, nullptr);
#endif
}

}  // namespace sds_python
