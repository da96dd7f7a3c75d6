// What was measured: rows of figures, answer checks and side tables, as text, Markdown and JSON.
#pragma once

#include <iosfwd>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "bench/support/counters.h"

namespace sds_bench {

// What a ratio has to keep to.
struct Floor {
    double value = 0.0;
    bool at_most = false;  // the ratio may be at most, not at least, the value

    bool is_met(double ratio) const { return at_most ? ratio <= value : ratio >= value; }
};

struct Row {
    static constexpr double none = std::numeric_limits<double>::quiet_NaN();

    std::string suite;
    std::string work;
    std::string cage;
    std::string unit;
    double ours = none;
    double spread = none;  // of ours, a share
    std::string opponent_name = {};
    double opponent = none;
    double ratio = none;  // above 1: ours is the better one, unless the work's text says what is divided by what
    std::optional<Floor> floor = std::nullopt;
    // Of one run of ours, where it is known: how many units it does, what it costs, and how many bytes of memory a unit
    // has to touch at least.
    double unit_count = none;
    Counts counts = {};
    double bytes = none;
};

struct Check {
    std::string what;
    bool is_good = false;
    std::string detail;
};

struct Table {
    std::string title;
    std::vector<std::string> header;
    std::vector<std::vector<std::string>> rows;
};

class Report {
public:
    // All three also print what they are given.
    void add(const Row& row);
    void add(const Check& check);
    void add(const Table& table);
    void set_title(const std::string& title) { m_title = title; }

    bool has_failed_checks() const;
    void print_floors(std::ostream& out) const;
    void write_markdown(std::ostream& out) const;
    void write_json(std::ostream& out) const;
    // Adds what another report wrote, without printing it.
    void read_json(std::istream& in);

private:
    Table make_floors_table() const;
    Table make_limits_table() const;

    std::string m_title;
    std::vector<Row> m_rows;
    std::vector<Check> m_checks;
    std::vector<Table> m_tables;
};

// Three significant digits.
std::string to_text(double value);

}  // namespace sds_bench
