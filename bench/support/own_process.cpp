#include "bench/support/own_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace sds_bench {

namespace {

void write_all(int file, const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t count = write(file, text.data() + done, text.size() - done);
        if (count <= 0) throw std::runtime_error("cannot pass figures on");
        done += static_cast<size_t>(count);
    }
}

std::string read_all(int file) {
    std::string text;
    char buffer[4096];
    for (ssize_t count; (count = read(file, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<size_t>(count));
    return text;
}

[[noreturn]] void run_and_exit(const std::function<void(Report&)>& work, int out) {
    int status = 0;
    try {
        Report report;
        work(report);
        std::ostringstream text;
        report.write_json(text);
        write_all(out, text.str());
    } catch (const std::exception& error) {
        std::cerr << "bench_all: " << error.what() << std::endl;
        status = 1;
    }
    std::cout << std::flush;
    _exit(status);
}

}  // namespace

void run_in_own_process(Report& report, const std::function<void(Report&)>& work) {
    std::cout << std::flush;
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe for a process of its own");
    const pid_t process = fork();
    if (process < 0) throw std::runtime_error("no process of its own");
    if (process == 0) {
        close(ends[0]);
        run_and_exit(work, ends[1]);
    }
    close(ends[1]);
    std::istringstream text(read_all(ends[0]));
    close(ends[0]);
    int status = 0;
    if (waitpid(process, &status, 0) != process || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("a benchmark ended early");
    report.read_json(text);
}

}  // namespace sds_bench
