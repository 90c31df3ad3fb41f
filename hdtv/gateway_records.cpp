#include "hdtv/gateway_records.h"

#include "hdtv/descriptor.h"
#include "hdtv/hdtv.h"
#include "hdtv/network_identity.h"
#include "hdtv/protocol.h"

#include <netinet/in.h>
#include <span>
#include <sys/socket.h>
#include <tuple>
#include <unistd.h>

namespace {

using request_record = std::array<std::uint8_t, protocol::request::size>;

request_record make_request(std::uint8_t code) {
    request_record record{};
    record[0] = code;
    get_mac_address(&record[protocol::request::hardware_address]);
    return record;
}

bool send_record(const message_sender &to, std::span<const std::uint8_t> record) {
    const int ofd = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(ofd, reinterpret_cast<const sockaddr *>(&to.address), to.size) < 0) {
        // The socket stays open, known and kept; at least no child inherits it.
        set_close_on_exec(ofd);
        return false;
    }
    std::ignore = write(ofd, record.data(), record.size());
    close(ofd);
    return true;
}

} // namespace

rollcall_reply_record make_rollcall_reply() {
    namespace layout = protocol::rollcall_reply;
    rollcall_reply_record record{};
    record[0] = layout::code;
    get_mac_address(&record[layout::hardware_address]);
    record[layout::fixed_byte] = layout::fixed_byte_value;
    record[layout::version_byte] = protocol::version;
    return record;
}

void answer_rollcall(message_sender sender) {
    sender.address.sin_port = htons(protocol::record_port);
    if (!send_record(sender, make_rollcall_reply())) {
        return;
    }
    if (!got_set_date_packet && !send_record(sender, make_request(protocol::request::set_date))) {
        return;
    }
    if (!got_hdtv_settings_packet) {
        send_record(sender, make_request(protocol::request::hdtv_settings));
    }
}
