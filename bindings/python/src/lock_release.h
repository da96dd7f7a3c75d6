// The interpreter's lock, given back while the module works.
#pragma once

#include <pybind11/pybind11.h>

#include <optional>

namespace sds_python {

/// Counts a thread that works without the interpreter's lock while it lives.
class LocklessWork {
public:
    LocklessWork();
    ~LocklessWork();
    LocklessWork(const LocklessWork&) = delete;
    LocklessWork& operator=(const LocklessWork&) = delete;
};

/// Gives the interpreter's lock back while it lives, on a thread that holds it. When the interpreter has ended
/// meanwhile, the thread stops here for good: it may neither touch Python again nor be unwound through code that does
/// not expect it, and the process is about to exit.
class LockRelease {
public:
    LockRelease();
    ~LockRelease();
    LockRelease(const LockRelease&) = delete;
    LockRelease& operator=(const LockRelease&) = delete;

private:
    std::optional<LocklessWork> m_work;
    PyThreadState* m_thread;
};

/// Makes a process that exits while such work goes on end there and then, with its own status. To be called once, when
/// the scheduler's library is loaded: what that library takes down at exit is what the work stands on.
void watch_process_exit();

}  // namespace sds_python
