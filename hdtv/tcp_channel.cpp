#include "hdtv/tcp_channel.h"

#include "hdtv/descriptor.h"
#include "hdtv/dispatch.h"
#include "hdtv/gateway_address.h"
#include "hdtv/protocol.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

void connect_fn(int fd, short /*event*/, void * /*arg*/) {
    message_sender peer;
    gateway_message buf;
    const int cfd = accept(fd, reinterpret_cast<sockaddr *>(&peer.address), &peer.size);
    if (cfd < 0) {
        return;
    }
    const auto msg_sz =
        static_cast<int>(read(cfd, buf.receive_area(), protocol::tcp_message_limit));
    if (msg_sz < 0) {
        // Deliberately left open, see architecture.md; at least no child inherits it.
        set_close_on_exec(cfd);
        return;
    }
    shutdown(cfd, SHUT_RDWR);
    close(cfd);
    buf.set_size(msg_sz);
    learn_gateway(peer.address.sin_addr);
    dispatch_message(buf, channel::tcp, peer);
}
