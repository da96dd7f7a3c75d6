// Processor time per task of a build, by the labels of its progress bar.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "bench/support/timing.h"
#include "qn_app_base/app_progress_bar.h"

namespace sds_bench {

// Times the tasks that the calling thread opens; one label's tasks add up.
class StageTimes : public AppProgressBar {
public:
    void begin_task(const CoreString& label, const float& weight, const bool& hidden) override;
    void end_task() override;

    // Seconds by label, in order of first use. A task's time includes what it opened.
    const std::vector<std::pair<std::string, double>>& get_stages() const { return m_stages; }

private:
    std::vector<std::pair<std::string, double>> m_stages;
    std::vector<std::pair<size_t, double>> m_open;  // stage and begin
};

}  // namespace sds_bench
