#include "tools/gatewayctl/records.h"

#include "hdtv/protocol.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/text.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int backlog = 64;
constexpr std::size_t most_arrivals = 64; // the oldest makes room, so that silent peers do no harm
constexpr std::size_t most_bytes = 64;    // more than any record has

[[noreturn]] void fail_to_listen() {
    const std::string port = "port " + std::to_string(protocol::record_port);
    if (errno == EADDRINUSE) {
        throw run_failure(port + " is taken: another gateway runs on this machine");
    }
    throw run_failure("no unit can be heard on " + port + ": " +
                      std::strerror(errno)); // NOLINT(concurrency-mt-unsafe): there is one thread
}

} // namespace

std::optional<unit_record> parse_record(std::span<const std::uint8_t> bytes) {
    namespace reply = protocol::rollcall_reply;
    namespace request = protocol::request;
    unit_record record;
    if (bytes.size() == reply::size && bytes[0] == reply::code) {
        record.type = record_type::rollcall_reply;
        record.version = bytes[reply::version_byte];
    } else if (bytes.size() == request::size && bytes[0] == request::set_date) {
        record.type = record_type::set_date_request;
    } else if (bytes.size() == request::size && bytes[0] == request::hdtv_settings) {
        record.type = record_type::settings_request;
    } else {
        return std::nullopt;
    }
    record.hardware_address = hardware_address_text(
        bytes.subspan(request::hardware_address, protocol::hardware_address_size));
    return record;
}

record_inbox::record_inbox()
    : listening_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const int on = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(protocol::record_port);
    setsockopt(listening_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listening_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listening_.get(), backlog) != 0) {
        fail_to_listen();
    }
}

void record_inbox::serve(std::chrono::milliseconds time, const take_fn &take) {
    const auto end = clock_type::now() + time;
    for (;;) {
        std::vector<pollfd> waiting{{listening_.get(), POLLIN, 0}};
        for (const arrival &coming : arrivals_) {
            waiting.push_back({coming.connection.get(), POLLIN, 0});
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - clock_type::now());
        if (left.count() <= 0 ||
            poll(waiting.data(), waiting.size(), static_cast<int>(left.count())) < 0) {
            return;
        }
        // From the last, so that what is erased moves none that is still to come.
        for (std::size_t i = arrivals_.size(); i-- > 0;) {
            if (waiting[i + 1].revents != 0 && !read_arrival(arrivals_[i], take)) {
                arrivals_.erase(arrivals_.begin() + static_cast<std::ptrdiff_t>(i));
            }
        }
        if (waiting[0].revents != 0) {
            accept_arrival();
        }
    }
}

void record_inbox::accept_arrival() {
    arrival coming;
    socklen_t size = sizeof coming.from;
    coming.connection =
        descriptor_owner(accept4(listening_.get(), reinterpret_cast<sockaddr *>(&coming.from),
                                 &size, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (coming.connection.get() < 0) {
        return;
    }
    if (arrivals_.size() == most_arrivals) {
        arrivals_.erase(arrivals_.begin());
    }
    arrivals_.push_back(std::move(coming));
}

// Whether there is more to come.
bool record_inbox::read_arrival(arrival &coming, const take_fn &take) {
    std::array<std::uint8_t, most_bytes> buffer{};
    const ssize_t count = recv(coming.connection.get(), buffer.data(), buffer.size(), 0);
    if (count > 0) {
        coming.bytes.insert(coming.bytes.end(), buffer.begin(), buffer.begin() + count);
    } else if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return true;
    }
    if (count > 0 && coming.bytes.size() < most_bytes) {
        return true;
    }
    // Taken after the connection is closed: the unit sends nothing else before.
    const sockaddr_in from = coming.from;
    const std::vector<std::uint8_t> bytes = std::move(coming.bytes);
    coming.connection = descriptor_owner();
    if (!bytes.empty()) {
        take(from, bytes);
    }
    return false;
}
