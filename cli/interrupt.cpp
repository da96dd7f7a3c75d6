#include "cli/interrupt.h"

#include "qn_app_base/app_progress_bar.h"

#include <atomic>
#include <csignal>
#include <iterator>

namespace sds_cli {

namespace {

constexpr int signals[] = {SIGINT, SIGTERM};
struct sigaction former[std::size(signals)];
unsigned int depth = 0;

std::atomic<int> asked{0};
static_assert(std::atomic<int>::is_always_lock_free, "written by a signal handler");

extern "C" void ask_to_stop(int signal) { asked = signal; }

}  // namespace

InterruptScope::InterruptScope() {
    if (depth++ > 0) return;
    struct sigaction ask {};
    ask.sa_handler = ask_to_stop;
    ask.sa_flags = static_cast<int>(SA_RESETHAND);
    for (std::size_t i = 0; i < std::size(signals); ++i) {
        sigaction(signals[i], nullptr, &former[i]);
        if (former[i].sa_handler != SIG_IGN) sigaction(signals[i], &ask, nullptr);
    }
}

InterruptScope::~InterruptScope() {
    if (--depth > 0) return;
    for (std::size_t i = 0; i < std::size(signals); ++i) sigaction(signals[i], &former[i], nullptr);
}

int get_interrupt() { return asked; }

void throw_if_interrupted() {
    if (get_interrupt() != 0) throw AppCancelled();
}

}  // namespace sds_cli
