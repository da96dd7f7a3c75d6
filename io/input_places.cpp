#include "io/input_places.h"

#include <filesystem>
#include <mutex>
#include <set>
#include <utility>

namespace sds_io {

namespace {

struct Table {
    std::mutex lock;
    InputPlaces places;
    std::set<std::string> located;
    bool is_set = false;  // without a table nothing is kept of the names
};

Table& get_table() {
    static Table table;
    return table;
}

}  // namespace

void set_input_places(InputPlaces places) {
    Table& table = get_table();
    const std::lock_guard lock(table.lock);
    table.places = std::move(places);
    table.located.clear();
    table.is_set = true;
}

std::string locate_input(const std::string& name) {
    if (name == "-") return name;
    Table& table = get_table();
    const std::lock_guard lock(table.lock);
    if (!table.is_set) return name;
    table.located.insert(name);
    if (const auto found = table.places.places.find(name); found != table.places.places.end()) return found->second;
    return table.places.folder.empty() ? name : (std::filesystem::path(table.places.folder) / name).string();
}

std::vector<std::string> get_located_inputs() {
    Table& table = get_table();
    const std::lock_guard lock(table.lock);
    return {table.located.begin(), table.located.end()};
}

}  // namespace sds_io
