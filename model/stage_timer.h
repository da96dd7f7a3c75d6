#pragma once

#include "qn_app_base/app_progress_bar.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace sds_model {

/// One task of a build.
struct Stage {
    std::string label;
    unsigned int depth = 0;  ///< 0 for the outermost tasks
    double seconds = 0.0;    ///< with everything inside
};

/// A progress bar that times the tasks and passes everything on to another bar.
class StageTimer : public AppProgressBar {
public:
    /// `front` may be null; it outlives the timer.
    explicit StageTimer(AppProgressBar* front) : m_front(front) {}

    void begin_task(const CoreString& label, const float& weight, const bool& hidden) override;
    void end_task() override;
    void set_value(const float& value) override;
    void set_step_count(const unsigned int& count) override;
    void step(const unsigned int& done) override;
    void increment(const float& share) override;

    /// Tasks in the order in which they began; those still open have 0 seconds.
    const std::vector<Stage>& get_stages() const { return m_stages; }

private:
    struct Open {
        std::size_t stage;
        std::chrono::steady_clock::time_point begin;
    };

    AppProgressBar* m_front;
    std::vector<Stage> m_stages;
    std::vector<Open> m_open;
};

}  // namespace sds_model
