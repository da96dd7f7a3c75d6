// Progress calls that do nothing without a bar.
#pragma once

#include "qn_app_base/app_progress_bar.h"

namespace sds {

// Opens a task on construction and closes it on destruction.
class ProgressTask {
public:
    ProgressTask(AppProgressBar* progress, const char* label, float weight) : m_progress(progress) {
        if (m_progress != nullptr) m_progress->begin_task(label, weight, false);
    }
    ~ProgressTask() {
        if (m_progress != nullptr) m_progress->end_task();
    }
    ProgressTask(const ProgressTask&) = delete;
    ProgressTask& operator=(const ProgressTask&) = delete;

private:
    AppProgressBar* m_progress;
};

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
