#include "model/stage_timer.h"

namespace sds_model {

void StageTimer::begin_task(const CoreString& label, const float& weight, const bool& hidden) {
    if (front_ != nullptr) front_->begin_task(label, weight, hidden);
    stages_.push_back({label.to_std(), static_cast<unsigned int>(open_.size()), 0.0});
    open_.push_back({stages_.size() - 1, std::chrono::steady_clock::now()});
}

void StageTimer::end_task() {
    if (!open_.empty()) {
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - open_.back().begin;
        stages_[open_.back().stage].seconds = elapsed.count();
        open_.pop_back();
    }
    if (front_ != nullptr) front_->end_task();
}

void StageTimer::set_value(const float& value) {
    if (front_ != nullptr) front_->set_value(value);
}
void StageTimer::set_step_count(const unsigned int& count) {
    if (front_ != nullptr) front_->set_step_count(count);
}
void StageTimer::step(const unsigned int& done) {
    if (front_ != nullptr) front_->step(done);
}
void StageTimer::increment(const float& share) {
    if (front_ != nullptr) front_->increment(share);
}

}  // namespace sds_model
