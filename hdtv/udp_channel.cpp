#include "hdtv/udp_channel.h"

#include "hdtv/dispatch.h"
#include "hdtv/protocol.h"

#include <netinet/in.h>
#include <sys/socket.h>

void rollcall_fn(int fd, short /*event*/, void * /*arg*/) {
    message_sender sender;
    gateway_message buf;
    const auto msg_sz =
        static_cast<int>(recvfrom(fd, buf.receive_area(), protocol::message_capacity, 0,
                                  reinterpret_cast<sockaddr *>(&sender.address), &sender.size));
    if (msg_sz < 0) {
        return;
    }
    buf.set_size(msg_sz);
    dispatch_message(buf, channel::udp, sender);
}
