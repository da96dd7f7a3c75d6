// Log lines whose text is built only when somebody wants it.
#pragma once

#include "qn_core/core_log.h"

namespace sds {

inline constexpr unsigned int log_level_warning = 1;
inline constexpr unsigned int log_level_statistics = 2;

template <class... Items>
void log_line(unsigned int level, const Items&... items) {
    CoreLogHandler* handler = CoreLogHandler::s_main_log_handler;
    if (handler == nullptr || handler->get_level() < level) return;
    CoreLogStream stream{CoreString()};
    (stream << ... << items);
    handler->log(level, stream);
}

}  // namespace sds
