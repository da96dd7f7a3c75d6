// Progress of a long operation as a tree of weighted tasks.
//
// The bar runs from 0 to 1. A task covers `weight` of its parent's span, beginning where the parent stands; its own
// value also runs from 0 to 1 inside that span. begin_task, end_task, set_step_count, step and set_value belong to the
// thread that drives the operation; increment may be called from many threads at once.
//
// A bar can cancel the operation: where is_cancelled says so, begin_task, set_value, step and increment throw
// AppCancelled, which goes through the operation, its worker threads included, to whoever started it. What was being
// built then holds nothing of use until it is built anew. A task whose begin_task throws was not opened. end_task and
// set_step_count never throw it.
#pragma once

#include <atomic>
#include <exception>

#include "qn_core/core_array.h"
#include "qn_core/core_export.h"
#include "qn_core/core_string.h"

class QN_EXPORT AppCancelled : public std::exception {
public:
    ~AppCancelled() override;
    const char* what() const noexcept override;
};

class QN_EXPORT AppProgressBar {
public:
    AppProgressBar() = default;
    AppProgressBar(const AppProgressBar&) = delete;
    AppProgressBar& operator=(const AppProgressBar&) = delete;
    virtual ~AppProgressBar();

    // Opens a task. `hidden` asks fronts not to show its label.
    virtual void begin_task(const CoreString& label, const float& weight, const bool& hidden);
    // Closes the innermost task and stands at its end.
    virtual void end_task();
    // Value of the innermost open task, in [0, 1].
    virtual void set_value(const float& value);
    virtual void set_step_count(const unsigned int& count);
    // `done` steps of the innermost task are over.
    virtual void step(const unsigned int& done);
    // Adds `share` of the innermost task's span.
    virtual void increment(const float& share);

    // Position of the whole operation in [0, 1].
    float get_position() const;
    // Label of the innermost visible task.
    const CoreString& get_label() const { return m_label; }

protected:
    // Called after every change of the position, from whichever thread made it.
    virtual void changed() {}
    // Whether the operation shall end here; asked by any of its threads.
    virtual bool is_cancelled() { return false; }

private:
    struct Task {
        double begin = 0.0;
        double span = 1.0;
        unsigned int step_count = 0;
        CoreString label;
    };
    void check_cancelled();
    Task& current();
    void move_to(double position);

    CoreArray<Task> m_tasks;
    CoreString m_label;
    std::atomic<double> m_position{0.0};
};

// Opens a task of a bar that may be null on construction, and closes it on destruction.
class AppProgressTask {
public:
    AppProgressTask(AppProgressBar* progress, const char* label, float weight) : m_progress(progress) {
        if (m_progress != nullptr) m_progress->begin_task(label, weight, false);
    }
    ~AppProgressTask() {
        if (m_progress != nullptr) m_progress->end_task();
    }
    AppProgressTask(const AppProgressTask&) = delete;
    AppProgressTask& operator=(const AppProgressTask&) = delete;

private:
    AppProgressBar* m_progress;
};
