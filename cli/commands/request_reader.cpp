#include "cli/commands/request_reader.h"

#include "cli/program.h"
#include "io/atomic_file.h"

#include <unistd.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <thread>
#include <utility>

namespace sds_cli {

namespace {

[[noreturn]] void leave(int code) {
    sds_io::remove_temporary_files();
    _exit(code);
}

}  // namespace

RequestReader::RequestReader() {
    std::thread([this] { read_all(); }).detach();  // until the process ends
}

Request RequestReader::next() {
    std::unique_lock lock(m_lock);
    m_has_request.wait(lock, [this] { return !m_requests.empty(); });
    Request request = std::move(m_requests.front());
    m_requests.pop_front();
    return request;
}

void RequestReader::read_all() {
    for (;;) {
        std::size_t end = 0;
        while ((end = m_buffer.find('\n')) == std::string::npos) read_more();
        Request request;
        request.head = take(end + 1);
        const nlohmann::json head = nlohmann::json::parse(request.head, nullptr, false);
        if (!head.is_object()) leave(exit_refused);  // and no telling where the next one begins
        const auto size = head.find("bytes");
        if (size != head.end() && size->is_number_unsigned()) request.bytes = take(size->get<std::size_t>());
        const std::lock_guard lock(m_lock);
        m_requests.push_back(std::move(request));
        m_has_request.notify_one();
    }
}

void RequestReader::read_more() {
    constexpr std::size_t block = std::size_t{1} << 16;
    const std::size_t have = m_buffer.size();
    m_buffer.resize(have + block);
    const ssize_t got = read(STDIN_FILENO, m_buffer.data() + have, block);
    m_buffer.resize(have + static_cast<std::size_t>(got > 0 ? got : 0));
    if (got == 0) leave(0);
    if (got < 0 && errno != EINTR) leave(exit_failure);
}

std::string RequestReader::take(std::size_t size) {
    while (m_buffer.size() < size) read_more();
    std::string taken = m_buffer.substr(0, size);
    m_buffer.erase(0, size);
    return taken;
}

}  // namespace sds_cli
