// Order between threads that a task scheduler guarantees and ThreadSanitizer cannot see.
#pragma once

// QN_THREAD_SANITIZER marks the files of an instrumented build that are not instrumented themselves.
#if defined(__SANITIZE_THREAD__) || defined(QN_THREAD_SANITIZER)
#include <sanitizer/tsan_interface.h>
#define SYS_HAND_OVER_TOLD 1
#endif

// What happens before publish() happens before the code after observe() on the same object. Costs nothing in other
// builds.
class SysHandOver {
public:
#ifdef SYS_HAND_OVER_TOLD
    void publish() { __tsan_release(this); }
    void observe() { __tsan_acquire(this); }
#else
    void publish() {}
    void observe() {}
#endif
};

#undef SYS_HAND_OVER_TOLD
