// Order between threads that the hierarchy's own task scheduler guarantees and ThreadSanitizer cannot see.
#pragma once

#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>
#endif

namespace sds_render {

// What happens before publish() happens before the code after observe() on the same object. Costs nothing in other
// builds.
class HandOver {
public:
#ifdef __SANITIZE_THREAD__
    void publish() { __tsan_release(this); }
    void observe() { __tsan_acquire(this); }
#else
    void publish() {}
    void observe() {}
#endif
};

}  // namespace sds_render
