#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>

namespace sds_cli {

/// One line of JSON, and as many bytes behind it as its member "bytes" says.
struct Request {
    std::string head, bytes;
};

/// Reads requests from standard input on a thread of its own. When the input ends, who asked is gone: the process ends
/// at once, whatever it is at, and leaves no temporary file. One for the process.
class RequestReader {
public:
    RequestReader();

    /// Waits for the next request.
    Request next();

private:
    void read_all();
    void read_more();
    std::string take(std::size_t size);

    std::mutex m_lock;
    std::condition_variable m_has_request;
    std::deque<Request> m_requests;
    std::string m_buffer;  ///< read and not yet taken, of the thread's
};

}  // namespace sds_cli
