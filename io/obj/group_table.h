#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace sds_io {

/// Names the current group while polygons are read and numbers the groups by their first polygon. Not thread-safe.
class GroupTable {
public:
    /// Makes `name` the group of the polygons to come; an empty name is the group "default", which is current at the
    /// start.
    void select(const std::string& name) {
        m_selected = true;
        m_current = name.empty() ? "default" : name;
        m_number = unnumbered;
    }

    /// Puts the next polygon into the current group.
    void assign_polygon() {
        if (m_number == unnumbered) {
            m_number = m_numbers.try_emplace(m_current, static_cast<std::uint32_t>(m_names.size())).first->second;
            if (m_number == m_names.size()) m_names.push_back(m_current);
        }
        m_polygons.push_back(m_number);
    }

    bool was_selected() const { return m_selected; }
    std::vector<std::uint32_t>& get_polygons() { return m_polygons; }  ///< group of every polygon, < get_names().size()
    std::vector<std::string>& get_names() { return m_names; }

private:
    static constexpr std::uint32_t unnumbered = 0xFFFFFFFFu;

    std::unordered_map<std::string, std::uint32_t> m_numbers;
    std::vector<std::string> m_names;
    std::vector<std::uint32_t> m_polygons;
    std::string m_current = "default";
    std::uint32_t m_number = unnumbered;
    bool m_selected = false;
};

}  // namespace sds_io
