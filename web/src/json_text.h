#pragma once

#include <concepts>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace sds_page {

/// JSON, written from front to back: objects and arrays are opened and closed by hand, commas come by themselves.
class JsonText {
public:
    void open(char bracket) {
        separate();
        m_text += bracket;
        m_is_first = true;
    }
    void close(char bracket) {
        m_text += bracket;
        m_is_first = false;
    }
    void name(std::string_view key) {
        separate();
        put_quoted(key);
        m_text += ':';
        m_is_first = true;
    }

    void put(std::string_view text) {
        separate();
        put_quoted(text);
    }
    void put(const char* text) { put(std::string_view(text)); }
    void put(bool value) {
        separate();
        m_text += value ? "true" : "false";
    }
    void put_null() {
        separate();
        m_text += "null";
    }
    /// Every number reads back as it is; what is not finite becomes null.
    void put(double value) {
        separate();
        char text[40];
        std::snprintf(text, sizeof(text), "%.17g", value);
        m_text += value - value == 0.0 ? text : "null";
    }
    template <std::integral T>
    void put(T value) {
        separate();
        m_text += std::to_string(value);
    }
    template <class T>
    void put(std::string_view key, const T& value) {
        name(key);
        put(value);
    }

    const std::string& get_text() const { return m_text; }

private:
    void separate() {
        if (!m_is_first) m_text += ',';
        m_is_first = false;
    }
    void put_quoted(std::string_view text) {
        m_text += '"';
        for (const char c : text) {
            if (c == '"' || c == '\\') m_text += '\\';
            if (static_cast<unsigned char>(c) < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned int>(c));
                m_text += escaped;
            } else {
                m_text += c;
            }
        }
        m_text += '"';
    }

    std::string m_text;
    bool m_is_first = true;
};

}  // namespace sds_page
