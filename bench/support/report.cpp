#include "bench/support/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

namespace sds_bench {

namespace {

std::string get_floor_text(const std::optional<Floor>& floor) {
    return floor ? (floor->at_most ? "at most " : "") + to_text(floor->value) : "";
}

std::string get_verdict(const Row& row) {
    if (!row.floor) return "";
    return row.floor->is_met(row.ratio) ? "yes" : "no";
}

std::vector<std::string> get_cells(const Row& row) {
    const std::string spread = std::isnan(row.spread) ? "" : to_text(100 * row.spread) + " %";
    return {row.work,          row.cage, row.unit, to_text(row.ours), spread, row.opponent_name, to_text(row.opponent),
            to_text(row.ratio)};
}

const std::vector<std::string> row_header{"work", "cage", "unit", "ours", "spread", "opponent", "its figure", "ratio"};

void write_line(std::ostream& out, const std::vector<std::string>& cells) {
    for (const std::string& cell : cells) out << "| " << cell << ' ';
    out << "|\n";
}

void write_table(std::ostream& out, const Table& table) {
    out << "\n## " << table.title << "\n\n";
    write_line(out, table.header);
    for (size_t i = 0; i < table.header.size(); ++i) out << "|---";
    out << "|\n";
    for (const auto& cells : table.rows) write_line(out, cells);
}

void print_table(std::ostream& out, const Table& table) {
    std::vector<size_t> widths;
    for (const std::string& cell : table.header) widths.push_back(cell.size());
    for (const auto& cells : table.rows)
        for (size_t i = 0; i < cells.size(); ++i) widths[i] = std::max(widths[i], cells[i].size());
    const auto print = [&](const std::vector<std::string>& cells) {
        for (size_t i = 0; i < cells.size(); ++i)
            out << std::left << std::setw(static_cast<int>(widths[i])) << cells[i] << "  ";
        out << '\n';
    };
    out << "\n" << table.title << "\n";
    print(table.header);
    for (const auto& cells : table.rows) print(cells);
    out << std::flush;
}

nlohmann::json to_json(double value) { return std::isfinite(value) ? nlohmann::json(value) : nlohmann::json(nullptr); }
double to_double(const nlohmann::json& value) { return value.is_null() ? Row::none : value.get<double>(); }

}  // namespace

std::string to_text(double value) {
    if (!std::isfinite(value)) return "";
    char text[32];
    const double size = std::fabs(value);
    const int decimals = size == 0 || size >= 100 ? 0 : size >= 10 ? 1 : size >= 1 ? 2 : size >= 0.1 ? 3 : 5;
    std::snprintf(text, sizeof(text), "%.*f", decimals, value);
    return text;
}

void Report::add(const Row& row) {
    m_rows.push_back(row);
    std::cout << std::left << std::setw(44) << (row.suite + ": " + row.work) << ' ' << std::setw(8) << row.cage << ' '
              << std::right << std::setw(9) << to_text(row.ours) << ' ' << std::left << std::setw(12) << row.unit;
    if (!std::isnan(row.opponent)) std::cout << row.opponent_name << ' ' << to_text(row.opponent) << "  ";
    if (!std::isnan(row.ratio)) std::cout << "ratio " << to_text(row.ratio);
    if (row.floor)
        std::cout << "  floor " << get_floor_text(row.floor) << (row.floor->is_met(row.ratio) ? "" : "  MISSED");
    std::cout << std::endl;
}

void Report::add(const Check& check) {
    m_checks.push_back(check);
    if (!check.is_good) std::cout << "CHECK FAILED  " << check.what << ": " << check.detail << std::endl;
}

void Report::add(const Table& table) {
    m_tables.push_back(table);
    print_table(std::cout, table);
}

bool Report::has_failed_checks() const {
    return std::any_of(m_checks.begin(), m_checks.end(), [](const Check& check) { return !check.is_good; });
}

Table Report::make_floors_table() const {
    Table table{"Ratios and their floors", {"work", "cage", "ours", "opponent", "unit", "ratio", "floor", "met"}, {}};
    for (const Row& row : m_rows)
        if (row.floor)
            table.rows.push_back({row.suite + ": " + row.work, row.cage, to_text(row.ours), to_text(row.opponent),
                                  row.unit, to_text(row.ratio), get_floor_text(row.floor), get_verdict(row)});
    return table;
}

// How far each row is from what the machine allows: its memory touched once, its page faults.
Table Report::make_limits_table() const {
    Table table{"What bounds each row",
                {"work", "cage", "ns a unit", "bytes a unit", "ns to touch them", "page faults per 1000",
                 "ns of faults", "instructions", "cache misses", "bound by"},
                {}};
    const MachineSpeed& speed = get_machine_speed();
    for (const Row& row : m_rows) {
        if (std::isnan(row.unit_count)) continue;
        const double ns = 1e3 / row.ours;  // rates are in millions a second
        const double touch = 1e9 * row.bytes / speed.bytes_per_second;
        const double faults = row.counts.page_faults / row.unit_count, fault_ns = 1e9 * faults * speed.page_fault;
        const char* const bound = fault_ns > 0.4 * ns ? "first touches of pages"
                                  : touch > 0.4 * ns  ? "memory"
                                                      : "instructions";
        table.rows.push_back({row.suite + ": " + row.work, row.cage, to_text(ns), to_text(row.bytes), to_text(touch),
                              to_text(1e3 * faults), to_text(fault_ns),
                              to_text(row.counts.instructions / row.unit_count),
                              to_text(row.counts.cache_misses / row.unit_count), bound});
    }
    return table;
}

void Report::print_floors(std::ostream& out) const { print_table(out, make_floors_table()); }

void Report::write_markdown(std::ostream& out) const {
    out << "# Performance\n\n" << m_title << "\n";
    write_table(out, make_floors_table());
    for (size_t i = 0; i < m_rows.size();) {
        Table table{m_rows[i].suite, row_header, {}};
        const std::string suite = m_rows[i].suite;
        for (; i < m_rows.size() && m_rows[i].suite == suite; ++i) table.rows.push_back(get_cells(m_rows[i]));
        write_table(out, table);
    }
    const MachineSpeed& speed = get_machine_speed();
    write_table(out, make_limits_table());
    out << "\nBytes are those of the arrays that a unit reads and writes, each counted once; the time to touch them is "
           "that of\n"
           "this run's copying speed, "
        << to_text(1e-9 * speed.bytes_per_second)
        << " GB/s of reads and writes outside the caches; a first touch of a page of 4 KB takes "
        << to_text(1e9 * speed.page_fault)
        << " ns.\nInstructions and cache misses stand where the kernel counts them.\n";
    for (const Table& table : m_tables) write_table(out, table);
    Table checks{"Answers compared", {"what", "agrees", "detail"}, {}};
    for (const Check& check : m_checks) checks.rows.push_back({check.what, check.is_good ? "yes" : "no", check.detail});
    write_table(out, checks);
}

void Report::write_json(std::ostream& out) const {
    nlohmann::json json{{"title", m_title},
                        {"rows", nlohmann::json::array()},
                        {"checks", nlohmann::json::array()},
                        {"tables", nlohmann::json::array()}};
    for (const Row& row : m_rows) {
        nlohmann::json entry{{"suite", row.suite},
                             {"work", row.work},
                             {"cage", row.cage},
                             {"unit", row.unit},
                             {"ours", to_json(row.ours)},
                             {"spread", to_json(row.spread)},
                             {"opponent_name", row.opponent_name},
                             {"opponent", to_json(row.opponent)},
                             {"ratio", to_json(row.ratio)},
                             {"unit_count", to_json(row.unit_count)},
                             {"bytes", to_json(row.bytes)},
                             {"page_faults", to_json(row.counts.page_faults)},
                             {"instructions", to_json(row.counts.instructions)},
                             {"cache_misses", to_json(row.counts.cache_misses)}};
        if (row.floor)
            entry.update({{"floor", row.floor->value},
                          {"floor_is_at_most", row.floor->at_most},
                          {"met", row.floor->is_met(row.ratio)}});
        json["rows"].push_back(entry);
    }
    for (const Check& check : m_checks)
        json["checks"].push_back({{"what", check.what}, {"agrees", check.is_good}, {"detail", check.detail}});
    for (const Table& table : m_tables)
        json["tables"].push_back({{"title", table.title}, {"header", table.header}, {"rows", table.rows}});
    out << json.dump(1) << '\n';
}

void Report::read_json(std::istream& in) {
    const nlohmann::json json = nlohmann::json::parse(in);
    for (const nlohmann::json& entry : json.at("rows")) {
        Row row{entry.at("suite"), entry.at("work"), entry.at("cage"), entry.at("unit")};
        row.ours = to_double(entry.at("ours"));
        row.spread = to_double(entry.at("spread"));
        row.opponent_name = entry.at("opponent_name");
        row.opponent = to_double(entry.at("opponent"));
        row.ratio = to_double(entry.at("ratio"));
        if (entry.contains("floor")) row.floor = Floor{entry.at("floor"), entry.at("floor_is_at_most")};
        row.unit_count = to_double(entry.at("unit_count"));
        row.bytes = to_double(entry.at("bytes"));
        row.counts = {to_double(entry.at("page_faults")), to_double(entry.at("instructions")),
                      to_double(entry.at("cache_misses"))};
        m_rows.push_back(row);
    }
    for (const nlohmann::json& entry : json.at("checks"))
        m_checks.push_back({entry.at("what"), entry.at("agrees"), entry.at("detail")});
    for (const nlohmann::json& entry : json.at("tables"))
        m_tables.push_back({entry.at("title"), entry.at("header"), entry.at("rows")});
}

}  // namespace sds_bench
