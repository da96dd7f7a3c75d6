#include "bench/support/stage_times.h"

#include <algorithm>

namespace sds_bench {

void StageTimes::begin_task(const CoreString& label, const float& weight, const bool& hidden) {
    AppProgressBar::begin_task(label, weight, hidden);
    const std::string name = label.to_std();
    const auto found =
        std::find_if(m_stages.begin(), m_stages.end(), [&](const auto& stage) { return stage.first == name; });
    const auto index = static_cast<size_t>(found - m_stages.begin());
    if (found == m_stages.end()) m_stages.emplace_back(name, 0.0);
    m_open.emplace_back(index, get_seconds(Clock::thread_cpu));
}

void StageTimes::end_task() {
    const auto [stage, begin] = m_open.back();
    m_open.pop_back();
    m_stages[stage].second += get_seconds(Clock::thread_cpu) - begin;
    AppProgressBar::end_task();
}

}  // namespace sds_bench
