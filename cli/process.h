#pragma once

namespace sds_cli {

/// Makes the process fit for work; called once, before anything is opened.
///
/// A standard stream that the program was started without is held by one that fails, so that no file takes its place.
/// A signal that ends programs ends this one at once, whatever it is at: temporary files are removed, "sds:
/// interrupted" is printed, and the exit code is exit_signal and the signal's number. Signals that the program was
/// started to ignore stay ignored. A file beyond the size that the process may write fails like a full disk. An
/// exception that no one could catch ends the process with exit_failure and its reason.
void prepare_process();

}  // namespace sds_cli
