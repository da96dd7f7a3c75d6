#include "qn_app_base/app_terminal_progress.h"

#include <unistd.h>

#include <exception>

namespace {

constexpr int bar_width = 32;
constexpr std::chrono::milliseconds redraw_interval(50);

}  // namespace

AppTerminalProgress::AppTerminalProgress(std::FILE* stream, const CoreString& title,
                                         std::chrono::milliseconds plain_interval)
    : m_stream(stream),
      m_title(title),
      m_is_terminal(isatty(fileno(stream)) != 0),
      m_interval(m_is_terminal ? redraw_interval : plain_interval),
      m_begin(std::chrono::steady_clock::now()),
      m_last_draw(m_begin) {}

AppTerminalProgress::~AppTerminalProgress() {
    if (m_last_percent < 0) return;
    if (std::uncaught_exceptions() == 0) draw(get_position());
    if (m_is_terminal) std::fputc('\n', m_stream);
}

void AppTerminalProgress::changed() {
    const std::unique_lock guard(m_mutex, std::try_to_lock);
    if (!guard.owns_lock()) return;  // another thread is drawing; its successor shows this change
    // Tasks that an exception leaves behind end without having been done.
    if (std::uncaught_exceptions() > 0) return;
    const float position = get_position();
    const auto now = std::chrono::steady_clock::now();
    const int percent = static_cast<int>(position * 100.0f);
    if (now - m_last_draw < m_interval || percent == m_last_percent) return;
    m_last_draw = now;
    m_last_percent = percent;
    draw(position);
}

void AppTerminalProgress::draw(float position) {
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_begin).count();
    const double remaining =
        position > 0.0f ? seconds * (1.0 - static_cast<double>(position)) / static_cast<double>(position) : 0.0;
    const int percent = static_cast<int>(position * 100.0f);
    if (!m_is_terminal) {
        std::fprintf(m_stream, "%s: %d%% after %.1f s, %.1f s left\n", m_title.get_data(), percent, seconds, remaining);
        return;
    }
    char bar[bar_width + 1];
    const int filled = static_cast<int>(position * bar_width);
    for (int i = 0; i < bar_width; ++i) bar[i] = i < filled ? '#' : '.';
    bar[bar_width] = '\0';
    std::fprintf(m_stream, "\r%s [%s] %3d%%  %.1f s, %.1f s left \033[K", m_title.get_data(), bar, percent, seconds,
                 remaining);
    std::fflush(m_stream);
}
