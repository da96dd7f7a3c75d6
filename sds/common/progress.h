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
inline void progress_increment(AppProgressBar* progress, float share) {
    if (progress != nullptr) progress->increment(share);
}

}  // namespace sds
