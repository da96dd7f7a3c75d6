#include "cli/process.h"

#include "cli/program.h"
#include "io/atomic_file.h"

#include <fcntl.h>
#include <unistd.h>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>

namespace sds_cli {

namespace {

constexpr int signals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, SIGXCPU, SIGALRM, SIGUSR1, SIGUSR2};

/// Only what a signal handler may call.
void say(const char* text) { [[maybe_unused]] const ssize_t n = write(STDERR_FILENO, text, std::strlen(text)); }

bool ends_line = false;  // of a progress bar, on a terminal

extern "C" void end_by_signal(int signal) {
    sds_io::remove_temporary_files();
    if (ends_line) say("\n");
    if (signal != SIGPIPE) say("sds: interrupted\n");  // who reads no more wants no message either
    _exit(exit_signal + signal);
}

void end_by_exception() {
    sds_io::remove_temporary_files();
    try {
        if (std::current_exception()) throw;
    } catch (const std::bad_alloc&) {
        say("sds: out of memory\n");
        _exit(exit_failure);
    } catch (const std::exception& error) {
        say("sds: ");
        say(error.what());
        say("\n");
        _exit(exit_failure);
    } catch (...) {
    }
    std::abort();
}

/// Reading fails from what can only be written, and the other way round.
void hold_standard_streams() {
    for (int stream = 0; stream <= 2; ++stream)
        if (fcntl(stream, F_GETFD) < 0) [[maybe_unused]]
            const int held = open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

void watch_signals() {
    ends_line = isatty(STDERR_FILENO) != 0;
    struct sigaction end {};
    end.sa_handler = end_by_signal;
    sigfillset(&end.sa_mask);
    for (const int signal : signals) {
        struct sigaction former {};
        sigaction(signal, nullptr, &former);
        if (former.sa_handler != SIG_IGN) sigaction(signal, &end, nullptr);
    }
    std::signal(SIGXFSZ, SIG_IGN);  // the write fails instead
}

}  // namespace

void prepare_process() {
    hold_standard_streams();
    watch_signals();
    std::set_terminate(end_by_exception);
}

}  // namespace sds_cli
