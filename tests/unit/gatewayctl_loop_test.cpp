// The parts of gatewayctl's event loop, with sockets on this machine's loopback.

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/exchange.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/poll_set.h"
#include "tools/gatewayctl/shortage.h"
#include "tools/gatewayctl/socket.h"

#include "gatewayctl_test.h"
#include "loopback_unit.h"

#include <cerrno>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <utility>
#include <vector>

namespace {

constexpr std::chrono::seconds long_time(60);

exchange exchange_with(const loopback_unit &unit, const bytes &message,
                       clock_type::duration patience = long_time) {
    return {open_socket(exchange::socket_type), unit.address, message,
            clock_type::now() + patience};
}

// One wait and what follows.
bool advance(exchange &sending) {
    poll_set events(clock_type::now() + long_time);
    sending.watch(events);
    events.wait();
    return sending.advance(events);
}

void start_and_send(exchange &sending) {
    sending.start();
    EXPECT_FALSE(advance(sending)); // connected, and sent
}

std::string failure_of(const std::function<void()> &act) {
    try {
        act();
    } catch (const run_failure &failure) {
        return failure.what();
    }
    return "";
}

std::string failure_of(exchange &sending) {
    return failure_of([&sending] {
        sending.start();
        while (!advance(sending)) {
        }
    });
}

/// Limits the number of descriptors during its lifetime.
class descriptor_limit {
  public:
    explicit descriptor_limit(rlim_t count) {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit now{count, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &now);
    }
    descriptor_limit(const descriptor_limit &) = delete;
    descriptor_limit &operator=(const descriptor_limit &) = delete;
    ~descriptor_limit() {
        setrlimit(RLIMIT_NOFILE, &before_);
    }

  private:
    rlimit before_{};
};

TEST(exchange, ends_when_the_unit_has_read_and_closed) {
    loopback_unit unit;
    unit.listen();
    exchange sending = exchange_with(unit, {1, 2, 3});
    start_and_send(sending);
    descriptor_owner connection = unit.accept();
    char bytes[8];
    EXPECT_EQ(recv(connection.get(), bytes, sizeof bytes, 0), 3);
    poll_set nothing(clock_type::now());
    sending.watch(nothing);
    nothing.wait();
    EXPECT_FALSE(sending.advance(nothing)); // read, but not closed
    connection = descriptor_owner();
    EXPECT_FALSE(advance(sending)); // closed, but a reset may follow
    EXPECT_TRUE(sending.is_ended());
    EXPECT_TRUE(advance(sending));
}

TEST(exchange, sleeps_until_the_unit_has_read) {
    loopback_unit unit;
    unit.listen();
    exchange sending = exchange_with(unit, {1});
    start_and_send(sending);
    const auto end = clock_type::now() + std::chrono::milliseconds(20);
    poll_set events(end);
    sending.watch(events);
    events.wait();
    EXPECT_GE(clock_type::now(), end);
    EXPECT_FALSE(sending.advance(events));
}

// Starts sending, and lets the peer do something once the message is on its way.
template <class function> std::string failure_with(const bytes &message, function &&act) {
    loopback_unit unit;
    const int small = 1; // the system's least instead
    setsockopt(unit.socket_fd.get(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    unit.listen();
    exchange sending = exchange_with(unit, message);
    start_and_send(sending);
    descriptor_owner connection = unit.accept();
    act(connection);
    std::string failure = failure_of([&] {
        while (!advance(sending)) {
        }
    });
    const std::string address = to_text(unit.address);
    return failure.replace(failure.find(address), address.size(), "UNIT");
}

TEST(exchange, is_not_taken_by_a_peer_that_answers) {
    EXPECT_EQ(failure_with({1},
                           [](descriptor_owner &connection) {
                               EXPECT_EQ(send(connection.get(), "?", 1, 0), 1);
                           }),
              "something else than a unit is listening at UNIT: it answers, which no unit does");
}

TEST(exchange, is_not_taken_by_a_peer_that_reads_a_part) {
    const std::string cut_off =
        "UNIT has closed the connection before it had read the whole message";
    EXPECT_EQ(failure_with({1, 2, 3},
                           [](descriptor_owner &connection) { connection = descriptor_owner(); }),
              cut_off)
        << "closed with bytes that have not been read";
    EXPECT_EQ(failure_with({1, 2, 3},
                           [](descriptor_owner &connection) {
                               char byte = 0;
                               EXPECT_EQ(recv(connection.get(), &byte, 1, 0), 1);
                               EXPECT_EQ(shutdown(connection.get(), SHUT_RDWR), 0);
                               connection = descriptor_owner();
                           }),
              cut_off)
        << "ended, and then closed with bytes that have not been read";
    EXPECT_EQ(failure_with(bytes(20000),
                           [](descriptor_owner &connection) {
                               EXPECT_EQ(shutdown(connection.get(), SHUT_WR), 0);
                           }),
              cut_off)
        << "ended while bytes were still on their way";
}

void expect_reset(const loopback_unit &unit) {
    const descriptor_owner connection = unit.accept();
    char bytes[2];
    while (recv(connection.get(), bytes, sizeof bytes, 0) > 0) {
    }
    EXPECT_EQ(errno, ECONNRESET);
}

TEST(exchange, takes_back_what_is_not_read_in_time) {
    loopback_unit unit;
    unit.listen();
    exchange sending = exchange_with(unit, {1}, std::chrono::milliseconds(20));
    EXPECT_NE(failure_of(sending), "");
    { const exchange ended(std::move(sending)); }
    expect_reset(unit);
}

TEST(exchange, is_not_taken_by_a_peer_that_is_reset_after_its_end) {
    loopback_unit unit;
    unit.listen();
    exchange sending = exchange_with(unit, {1, 2, 3});
    start_and_send(sending);
    descriptor_owner connection = unit.accept();
    EXPECT_EQ(shutdown(connection.get(), SHUT_RDWR), 0);
    EXPECT_FALSE(advance(sending)); // its end
    connection = descriptor_owner();
    EXPECT_NE(failure_of([&sending] { advance(sending); }), "");
}

TEST(exchange, takes_back_what_is_given_up) {
    loopback_unit unit;
    unit.listen();
    {
        exchange sending = exchange_with(unit, {1});
        EXPECT_FALSE(sending.give_up()) << "nothing is sent yet";
        start_and_send(sending);
        EXPECT_TRUE(sending.give_up());
    }
    expect_reset(unit);
}

TEST(exchange, tells_why_it_fails) {
    loopback_unit unit;
    exchange refused = exchange_with(unit, {1});
    EXPECT_EQ(failure_of(refused),
              "cannot connect to " + to_text(unit.address) +
                  ": Connection refused (the machine is up, but the service is not running)");
    unit.listen();
    exchange untaken = exchange_with(unit, {1}, std::chrono::milliseconds(20));
    EXPECT_TRUE(
        failure_of(untaken).starts_with("the message was sent, but " + to_text(unit.address)));
}

TEST(poll_set, tells_who_has_an_event) {
    int ends[2][2];
    for (auto &pair : ends) {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    }
    const descriptor_owner owners[] = {descriptor_owner(ends[0][0]), descriptor_owner(ends[0][1]),
                                       descriptor_owner(ends[1][0]), descriptor_owner(ends[1][1])};
    EXPECT_EQ(send(owners[1].get(), "?", 1, 0), 1);
    poll_set events(clock_type::now() + long_time);
    events.watch(owners[0].get(), POLLIN);
    events.watch(owners[2].get(), POLLIN);
    EXPECT_TRUE(events.wait());
    EXPECT_TRUE(events.has_event(owners[0].get()));
    EXPECT_FALSE(events.has_event(owners[2].get()));
    EXPECT_FALSE(events.has_event(owners[1].get())); // not watched
}

TEST(poll_set, wakes_by_the_earliest_time_and_not_before) {
    const auto early = clock_type::now() + std::chrono::milliseconds(5);
    poll_set events(clock_type::now() + long_time);
    events.wake_by(early);
    events.wake_by(early + long_time);
    EXPECT_TRUE(events.wait());
    EXPECT_GE(clock_type::now(), early);
    EXPECT_LT(clock_type::now(), early + long_time / 2);
}

TEST(poll_set, is_ended_by_a_signal) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, &before);
    const itimerval soon{{0, 1000}, {0, 1000}}; // repeatedly, as the first may come too early
    const itimerval never{};
    setitimer(ITIMER_REAL, &soon, nullptr);
    poll_set events(clock_type::now() + long_time);
    EXPECT_FALSE(events.wait());
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
}

// The system refuses to wait for more descriptors than a process may have.
TEST(poll_set, rests_where_it_cannot_wait) {
    const descriptor_owner one = open_socket(SOCK_STREAM);
    poll_set events(clock_type::now() + long_time);
    events.watch(one.get(), POLLIN);
    const auto begin = clock_type::now();
    {
        const descriptor_limit none(0);
        EXPECT_TRUE(events.wait());
    }
    EXPECT_GE(clock_type::now() - begin, std::chrono::milliseconds(50));
    EXPECT_FALSE(events.has_event(one.get()));
}

TEST(socket, tells_a_shortage_from_other_failures) {
    {
        const descriptor_limit none(0);
        EXPECT_LT(try_socket(SOCK_STREAM).get(), 0);
        EXPECT_TRUE(is_shortage(errno));
    }
    try {
        open_socket(-1);
        FAIL();
    } catch (const run_failure &failure) {
        EXPECT_EQ(failure.what(), "cannot create a socket: " + reason(EINVAL));
    }
    EXPECT_FALSE(is_shortage(EINVAL));
}

TEST(shortage, rests_and_says_so_once) {
    int begins = 0;
    shortage lack([&begins] { ++begins; });
    EXPECT_FALSE(lack.is_resting());
    for (int i = 0; i < 3; ++i) {
        lack.note();
        EXPECT_TRUE(lack.is_resting());
        poll_set rest(lack.rest_end());
        rest.wait();
        EXPECT_FALSE(lack.is_resting());
    }
    EXPECT_EQ(begins, 1);
}

} // namespace
