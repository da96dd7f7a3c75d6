// All benchmarks: opponents and ourselves in turn, a process to each comparison, answers compared.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <thread>

#include "bench/support/session.h"

namespace {

std::string get_processor() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);)
        if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
    return "unknown processor";
}

// Writes beside the file and moves it there, so that a run that dies leaves the former page.
template <class Write>
void write_file(const std::string& path, Write&& write) {
    if (path.empty()) return;
    const std::string beside = path + ".part";
    {
        std::ofstream out(beside);
        write(out);
        out.flush();
        if (!out) throw std::runtime_error("cannot write " + beside);
    }
    if (std::rename(beside.c_str(), path.c_str()) != 0) throw std::runtime_error("cannot write " + path);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Builds, samples and rays, beside OpenSubdiv and Embree");
    bool is_quick = false;
    sds_bench::Session session;
    std::string json_path, markdown_path;
    app.add_flag("--quick", is_quick, "about a minute: car, bishop, 28k; the default");
    app.add_flag("--full", session.is_full, "all levels and rates, a million quads and ten")->excludes("--quick");
    app.add_option("--filter", session.filter, "only what has this in its name, such as rays/car or build");
    app.add_option("--json", json_path, "write all figures to this file");
    app.add_option("--markdown", markdown_path, "write the page to this file");
    CLI11_PARSE(app, argc, argv);

    try {
        session.report.set_title("`make bench` wrote this page: a " + std::string(session.is_full ? "full" : "quick") +
                                 " run on " + get_processor() + ", " +
                                 std::to_string(std::thread::hardware_concurrency()) +
                                 " threads, g++ " __VERSION__
                                 ". Opponent and self took turns in one process, a new one for each comparison; single "
                                 "thread by processor time unless the row says otherwise; medians, spread is between "
                                 "the quartiles. Rows of builds and animation ran with small pages of memory on both "
                                 "sides.");
        for (const auto suite : {&sds_bench::bench_build, &sds_bench::bench_animation, &sds_bench::bench_refined,
                                 &sds_bench::bench_memory, &sds_bench::bench_samples, &sds_bench::bench_rays,
                                 &sds_bench::bench_moving_rays, &sds_bench::bench_scaling, &sds_bench::bench_threads})
            suite(session);
        session.report.print_floors(std::cout);
        write_file(json_path, [&](std::ostream& out) { session.report.write_json(out); });
        write_file(markdown_path, [&](std::ostream& out) { session.report.write_markdown(out); });
    } catch (const std::exception& error) {
        std::cerr << "bench_all: " << error.what() << '\n';
        return 1;
    }
    return session.report.has_failed_checks() ? 1 : 0;
}
