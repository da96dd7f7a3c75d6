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
        selected_ = true;
        current_ = name.empty() ? "default" : name;
        number_ = unnumbered;
    }

    /// Puts the next polygon into the current group.
    void assign_polygon() {
        if (number_ == unnumbered) {
            number_ = numbers_.try_emplace(current_, static_cast<std::uint32_t>(names_.size())).first->second;
            if (number_ == names_.size()) names_.push_back(current_);
        }
        polygons_.push_back(number_);
    }

    bool was_selected() const { return selected_; }
    std::vector<std::uint32_t>& polygons() { return polygons_; }  ///< group of every polygon, < names().size()
    std::vector<std::string>& names() { return names_; }

private:
    static constexpr std::uint32_t unnumbered = 0xFFFFFFFFu;

    std::unordered_map<std::string, std::uint32_t> numbers_;
    std::vector<std::string> names_;
    std::vector<std::uint32_t> polygons_;
    std::string current_ = "default";
    std::uint32_t number_ = unnumbered;
    bool selected_ = false;
};

}  // namespace sds_io
