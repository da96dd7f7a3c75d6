// Progress calls that do nothing without a bar.
#pragma once

#include "qn_app_base/app_progress_bar.h"

namespace sds {

using ProgressTask = AppProgressTask;

inline void progress_value(AppProgressBar* progress, float value) {
    if (progress != nullptr) progress->set_value(value);
}
inline void progress_steps(AppProgressBar* progress, unsigned int count) {
    if (progress != nullptr) progress->set_step_count(count);
}
inline void progress_step(AppProgressBar* progress, unsigned int done) {
    if (progress != nullptr) progress->step(done);
}
// Reports work that is skipped because its result is there already: as `count` steps, or as that of thread tasks.
inline void progress_done(AppProgressBar* progress, unsigned int count, bool is_threaded) {
    if (progress == nullptr) return;
    if (is_threaded) return progress->increment(1.0f);
    progress->set_step_count(count);
    for (unsigned int i = 0; i < count; ++i) progress->step(i + 1);
}
inline void progress_increment(AppProgressBar* progress, float share) {
    if (progress != nullptr) progress->increment(share);
}

}  // namespace sds
