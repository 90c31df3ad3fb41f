#pragma once

#include "tools/gatewayctl/descriptor_owner.h"
#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/poll_set.h"

#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>

/// One message on its way to a unit, over a connection of its own. It never blocks: its owner does
/// the waiting. All failures are run_failure.
class exchange {
  public:
    static constexpr int socket_type = SOCK_STREAM | SOCK_NONBLOCK;

    /// Takes a new socket. The unit has to have read the message by the end.
    exchange(descriptor_owner connection, const sockaddr_in &unit, message_bytes message,
             clock_type::time_point end);

    void start();

    /// Adds what it is waiting for.
    void watch(poll_set &set) const;

    /// Proceeds after a wait. True when the peer has taken the whole message and closed the
    /// connection without a word, as a unit does that has read it. A peer that answers is no unit,
    /// and one that closes early has read a part at most: both are failures.
    bool advance(const poll_set &events);

    /// Whether the peer has ended the connection, and only its proof is waited for. It is free.
    bool is_ended() const {
        return ended_.has_value();
    }

    /// Ends it early. What has been sent and is not known to be read is taken back: the kernel would
    /// go on trying, and the message could arrive after a newer one. Whether there was any.
    bool give_up();

  private:
    void finish_connecting() const;
    void send_message();
    void look_for_end();
    bool is_proven() const;
    bool is_all_received() const;
    [[noreturn]] void fail_to_connect(int error) const;
    [[noreturn]] void fail_cut_off() const;
    [[noreturn]] void fail_in_time();

    descriptor_owner connection_;
    sockaddr_in unit_;
    message_bytes message_;
    clock_type::time_point end_;
    bool is_sent_ = false;
    std::optional<clock_type::time_point> ended_; // when the peer has ended the connection
};
