// Outputs caught for inspection: log lines and progress calls.
#pragma once

#include <atomic>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "qn_app_base/app_progress_bar.h"
#include "qn_core/core_log.h"

namespace sds_test {

// Stands in for the process's log handler while it lives.
class LogCapture : public CoreLogHandler {
public:
    explicit LogCapture(unsigned int level) : CoreLogHandler(level), m_former(s_main_log_handler) {
        s_main_log_handler = this;
    }
    ~LogCapture() override { s_main_log_handler = m_former; }

    struct Line {
        unsigned int level;
        std::string text;
        friend bool operator==(const Line&, const Line&) = default;
        friend void PrintTo(const Line& line, std::ostream* out) { *out << line.level << ": " << line.text; }
    };
    std::vector<Line> lines;

protected:
    void write(const unsigned int& level, const CoreString& text) override { lines.push_back({level, text.to_std()}); }

private:
    CoreLogHandler* m_former;
};

// A progress bar that remembers who called it.
class RecordingProgress : public AppProgressBar {
public:
    struct Task {
        std::string label;
        float weight;
        size_t depth;  // tasks open around it
        unsigned int step_count = 0;
        unsigned int steps = 0;
        unsigned int last_step = 0;
        std::atomic<unsigned int> increments{0};
        std::atomic<double> shares{0.0};

        Task(std::string name, float w, size_t d) : label(std::move(name)), weight(w), depth(d) {}
    };

    // In the order in which they were opened; tasks[0] stands for calls outside any task.
    std::deque<Task> tasks;
    std::vector<float> values;  // given outside any task
    size_t open = 0;

    RecordingProgress() { tasks.emplace_back("", 1.0f, 0); }

    // Labels and weights of the tasks at one depth.
    std::vector<std::pair<std::string, float>> at_depth(size_t depth) const {
        std::vector<std::pair<std::string, float>> found;
        for (size_t i = 1; i < tasks.size(); ++i)
            if (tasks[i].depth == depth) found.emplace_back(tasks[i].label, tasks[i].weight);
        return found;
    }
    const Task* find(const std::string& label) const {
        for (const Task& task : tasks)
            if (task.label == label) return &task;
        return nullptr;
    }

    void begin_task(const CoreString& label, const float& weight, const bool& hidden) override {
        m_stack.push_back(tasks.size());
        tasks.emplace_back(label.to_std(), weight, open++);
        AppProgressBar::begin_task(label, weight, hidden);
    }
    void end_task() override {
        --open;
        m_stack.pop_back();
        AppProgressBar::end_task();
    }
    void set_value(const float& value) override {
        if (open == 0) values.push_back(value);
        AppProgressBar::set_value(value);
    }
    void set_step_count(const unsigned int& count) override {
        current().step_count = count;
        AppProgressBar::set_step_count(count);
    }
    void step(const unsigned int& done) override {
        ++current().steps;
        current().last_step = done;
        AppProgressBar::step(done);
    }
    void increment(const float& share) override {
        ++current().increments;
        current().shares.fetch_add(static_cast<double>(share));
        AppProgressBar::increment(share);
    }

private:
    Task& current() { return tasks[m_stack.empty() ? 0 : m_stack.back()]; }
    std::vector<size_t> m_stack;
};

}  // namespace sds_test
