#include "model/stage_timer.h"

namespace sds_model {

void StageTimer::begin_task(const CoreString& label, const float& weight, const bool& hidden) {
    if (m_front != nullptr) m_front->begin_task(label, weight, hidden);
    m_stages.push_back({label.to_std(), static_cast<unsigned int>(m_open.size()), 0.0});
    m_open.push_back({m_stages.size() - 1, std::chrono::steady_clock::now()});
}

void StageTimer::end_task() {
    if (!m_open.empty()) {
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - m_open.back().begin;
        m_stages[m_open.back().stage].seconds = elapsed.count();
        m_open.pop_back();
    }
    if (m_front != nullptr) m_front->end_task();
}

void StageTimer::set_value(const float& value) {
    if (m_front != nullptr) m_front->set_value(value);
}
void StageTimer::set_step_count(const unsigned int& count) {
    if (m_front != nullptr) m_front->set_step_count(count);
}
void StageTimer::step(const unsigned int& done) {
    if (m_front != nullptr) m_front->step(done);
}
void StageTimer::increment(const float& share) {
    if (m_front != nullptr) m_front->increment(share);
}

}  // namespace sds_model
