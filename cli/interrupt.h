#pragma once

namespace sds_cli {

/// While one lives, SIGINT and SIGTERM only ask the program to stop, which it does at the next point of progress or
/// write, with everything cleaned up; a second one ends it at once. Signals that the program was started to ignore stay
/// ignored. Scopes nest; made and destroyed on one thread.
class InterruptScope {
public:
    InterruptScope();
    ~InterruptScope();
    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;
};

/// The signal that asked to stop; 0 when none did. Any thread.
int get_interrupt();

/// Throws AppCancelled when a signal has asked to stop.
void throw_if_interrupted();

/// Calls write(throw_if_interrupted) within an InterruptScope, so that a signal leaves no temporary file behind.
template <class Write>
void write_interruptibly(const Write& write) {
    const InterruptScope interrupts;
    write(throw_if_interrupted);
}

}  // namespace sds_cli
