// Log lines with levels.
//
// A line of level L is wanted when the handler's level is at least L: 0 errors, 1 warnings, 2 statistics, 3 details.
// Callers test `is_wanted` (or the level) first and build the text only then. `log` may be called from many threads;
// lines never interleave.
#pragma once

#include <sstream>

#include "qn_core/core_export.h"
#include "qn_core/core_string.h"

class CoreLogStream {
public:
    CoreLogStream() = default;
    explicit CoreLogStream(const CoreString& text) { m_text << text.to_std(); }

    template <class T>
    CoreLogStream& operator<<(const T& value) {
        m_text << value;
        return *this;
    }
    CoreLogStream& operator<<(const CoreString& value) {
        m_text << value.to_std();
        return *this;
    }
    CoreString get_text() const { return CoreString(m_text.str()); }

private:
    std::ostringstream m_text;
};

class QN_EXPORT CoreLogHandler {
public:
    explicit CoreLogHandler(const unsigned int& level) : m_level(level) {}
    virtual ~CoreLogHandler();

    const unsigned int& get_level() const { return m_level; }
    // Not to be called while other threads log.
    void set_level(const unsigned int& level) { m_level = level; }
    bool is_wanted(const unsigned int& level) const { return m_level >= level; }

    // Writes the stream's text when the handler's level reaches `level`.
    void log(const unsigned int& level, const CoreLogStream& stream);

    // The handler of the process; never null. Replace it while no other thread logs; the caller keeps ownership.
    static CoreLogHandler* s_main_log_handler;

protected:
    // Receives whole texts, one call at a time. The default writes to the standard error stream.
    virtual void write(const unsigned int& level, const CoreString& text);

private:
    unsigned int m_level;
};
