// Terminal front of the progress bar: a bar with percentage and remaining time on a terminal, a plain line every ten
// seconds otherwise.
#pragma once

#include <chrono>
#include <cstdio>
#include <mutex>

#include "qn_app_base/app_progress_bar.h"

class QN_EXPORT AppTerminalProgress : public AppProgressBar {
public:
    // Writes to `stream`, which the caller keeps open. `title` leads every line.
    AppTerminalProgress(std::FILE* stream, const CoreString& title,
                        std::chrono::milliseconds plain_interval = std::chrono::seconds(10));
    // Ends the line. Work that an exception gives up stays where it stood.
    ~AppTerminalProgress() override;

protected:
    void changed() override;

private:
    void draw(float position);

    std::FILE* m_stream;
    CoreString m_title;
    bool m_is_terminal;
    std::mutex m_mutex;
    std::chrono::milliseconds m_interval;  // from line to line, or from one drawing of the bar to the next
    std::chrono::steady_clock::time_point m_begin;
    std::chrono::steady_clock::time_point m_last_draw;
    int m_last_percent = -1;
};
