// Immutable-style text value of the host framework.
#pragma once

#include <string>
#include <string_view>
#include <utility>

class CoreString {
public:
    CoreString() = default;
    CoreString(const char* text) : m_text(text != nullptr ? text : "") {}
    CoreString(std::string text) : m_text(std::move(text)) {}

    // Zero-terminated bytes, valid until the string changes.
    const char* get_data() const { return m_text.c_str(); }
    // Bytes without the terminating zero.
    unsigned int get_count() const { return static_cast<unsigned int>(m_text.size()); }
    bool is_empty() const { return m_text.empty(); }
    const std::string& to_std() const { return m_text; }

    friend bool operator==(const CoreString& a, const CoreString& b) { return a.m_text == b.m_text; }
    friend bool operator<(const CoreString& a, const CoreString& b) { return a.m_text < b.m_text; }

private:
    std::string m_text;
};
