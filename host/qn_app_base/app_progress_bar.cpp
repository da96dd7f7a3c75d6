#include "qn_app_base/app_progress_bar.h"

#include <algorithm>

AppCancelled::~AppCancelled() = default;
const char* AppCancelled::what() const noexcept { return "cancelled"; }

AppProgressBar::~AppProgressBar() = default;

void AppProgressBar::check_cancelled() {
    if (is_cancelled()) throw AppCancelled();
}

AppProgressBar::Task& AppProgressBar::current() {
    if (m_tasks.is_empty()) m_tasks.add(Task{});
    return m_tasks[m_tasks.get_count() - 1];
}

void AppProgressBar::move_to(double position) {
    m_position.store(position, std::memory_order_relaxed);
    changed();
}

void AppProgressBar::begin_task(const CoreString& label, const float& weight, const bool& hidden) {
    check_cancelled();
    const double span = current().span * static_cast<double>(weight);
    if (!hidden) m_label = label;
    m_tasks.add(Task{m_position.load(std::memory_order_relaxed), span, 0, m_label});
    changed();
}

void AppProgressBar::end_task() {
    if (m_tasks.get_count() < 2) return;
    const Task ended = m_tasks[m_tasks.get_count() - 1];
    m_tasks.resize(m_tasks.get_count() - 1);
    m_label = current().label;
    move_to(ended.begin + ended.span);
}

void AppProgressBar::set_value(const float& value) {
    check_cancelled();
    const Task& task = current();
    move_to(task.begin + task.span * static_cast<double>(value));
}

void AppProgressBar::set_step_count(const unsigned int& count) { current().step_count = count; }

void AppProgressBar::step(const unsigned int& done) {
    check_cancelled();
    const Task& task = current();
    if (task.step_count == 0) return;
    const double fraction = static_cast<double>(done) / static_cast<double>(task.step_count);
    move_to(task.begin + task.span * std::min(fraction, 1.0));
}

void AppProgressBar::increment(const float& share) {
    check_cancelled();
    // Not current(), which would make the outermost task on many threads at once.
    const double span = m_tasks.is_empty() ? 1.0 : m_tasks[m_tasks.get_count() - 1].span;
    const double amount = span * static_cast<double>(share);
    double position = m_position.load(std::memory_order_relaxed);
    while (!m_position.compare_exchange_weak(position, position + amount, std::memory_order_relaxed)) {
    }
    changed();
}

float AppProgressBar::get_position() const {
    return static_cast<float>(std::clamp(m_position.load(std::memory_order_relaxed), 0.0, 1.0));
}
