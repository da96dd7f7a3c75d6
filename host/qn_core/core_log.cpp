#include "qn_core/core_log.h"

#include <cstdio>
#include <mutex>

namespace {

std::mutex& log_mutex() {
    static std::mutex mutex;
    return mutex;
}

CoreLogHandler* default_handler() {
    static CoreLogHandler handler(1);
    return &handler;
}

}  // namespace

CoreLogHandler* CoreLogHandler::s_main_log_handler = default_handler();

CoreLogHandler::~CoreLogHandler() = default;

void CoreLogHandler::log(const unsigned int& level, const CoreLogStream& stream) {
    if (!is_wanted(level)) return;
    const CoreString text = stream.get_text();
    const std::lock_guard guard(log_mutex());
    write(level, text);
}

void CoreLogHandler::write(const unsigned int&, const CoreString& text) {
    std::fwrite(text.get_data(), 1, text.get_count(), stderr);
}
