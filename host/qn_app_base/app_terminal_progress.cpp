#include "qn_app_base/app_terminal_progress.h"

#include <unistd.h>

namespace {

constexpr int bar_width = 32;
constexpr std::chrono::milliseconds redraw_interval(50);
constexpr int plain_line_percent = 25;  // off a terminal, one line per quarter

}  // namespace

AppTerminalProgress::AppTerminalProgress(std::FILE* stream, const CoreString& title)
    : m_stream(stream),
      m_title(title),
      m_is_terminal(isatty(fileno(stream)) != 0),
      m_begin(std::chrono::steady_clock::now()),
      m_last_draw(m_begin) {}

AppTerminalProgress::~AppTerminalProgress() {
    if (m_is_terminal && m_last_percent >= 0) {
        draw(get_position(), std::chrono::duration<double>(std::chrono::steady_clock::now() - m_begin).count());
        std::fputc('\n', m_stream);
    }
}

void AppTerminalProgress::changed() {
    const std::unique_lock guard(m_mutex, std::try_to_lock);
    if (!guard.owns_lock()) return;  // another thread is drawing; its successor shows this change
    const float position = get_position();
    const auto now = std::chrono::steady_clock::now();
    const int percent = static_cast<int>(position * 100.0f);
    const double seconds = std::chrono::duration<double>(now - m_begin).count();
    if (m_is_terminal) {
        if (now - m_last_draw < redraw_interval || percent == m_last_percent) return;
        m_last_draw = now;
        m_last_percent = percent;
        draw(position, seconds);
    } else if (percent / plain_line_percent > m_last_percent / plain_line_percent) {
        m_last_percent = percent;
        std::fprintf(m_stream, "%s: %d%% after %.1f s\n", m_title.get_data(), percent, seconds);
    }
}

void AppTerminalProgress::draw(float position, double seconds) {
    char bar[bar_width + 1];
    const int filled = static_cast<int>(position * bar_width);
    for (int i = 0; i < bar_width; ++i) bar[i] = i < filled ? '#' : '.';
    bar[bar_width] = '\0';
    const double remaining =
        position > 0.0f ? seconds * (1.0 - static_cast<double>(position)) / static_cast<double>(position) : 0.0;
    std::fprintf(m_stream, "\r%s [%s] %3d%%  %.1f s, %.1f s left \033[K", m_title.get_data(), bar,
                 static_cast<int>(position * 100.0f), seconds, remaining);
    std::fflush(m_stream);
}
