// Terminal front of the progress bar: a bar with percentage and remaining time on a terminal, a plain line per ended
// stage otherwise.
#pragma once

#include <chrono>
#include <cstdio>
#include <mutex>

#include "qn_app_base/app_progress_bar.h"

class QN_EXPORT AppTerminalProgress : public AppProgressBar {
public:
    // Writes to `stream`, which the caller keeps open. `title` leads every line.
    AppTerminalProgress(std::FILE* stream, const CoreString& title);
    // Ends the line.
    ~AppTerminalProgress() override;

protected:
    void changed() override;

private:
    void draw(float position, double seconds);

    std::FILE* m_stream;
    CoreString m_title;
    bool m_is_terminal;
    std::mutex m_mutex;
    std::chrono::steady_clock::time_point m_begin;
    std::chrono::steady_clock::time_point m_last_draw;
    int m_last_percent = -1;
};
