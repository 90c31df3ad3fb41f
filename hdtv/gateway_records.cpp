#include "hdtv/gateway_records.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "hdtv/config_store.h"
#include "hdtv/descriptor.h"
#include "hdtv/network_identity.h"
#include "hdtv/protocol.h"

#include <arpa/inet.h>
#include <cstdio>
#include <netinet/in.h>
#include <span>
#include <sys/socket.h>
#include <tuple>
#include <unistd.h>

bool got_set_date_packet;
bool got_hdtv_settings_packet;

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
        // Deliberately left open, see architecture.md; at least no child inherits it.
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

void send_gratuitous_rollcall_reply() {
    const bstr_owner comm_gw(get_config_option(config_file, config_key::comm_gw));
    if (!comm_gw) {
        return;
    }
    const char *address = bstr_text(comm_gw.get());
    std::printf("Extracted comm_gw: %s, sending gratuitous rollcall reply\n", address);
    const rollcall_reply_record datagram = make_rollcall_reply();
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(protocol::record_port);
    // A text that is not an address leaves 0.0.0.0.
    inet_pton(AF_INET, address, &sa.sin_addr);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&sa), sizeof sa) >= 0) {
        std::ignore = write(fd, datagram.data(), datagram.size());
    }
    close(fd);
}

void note_date_arrived() {
    got_set_date_packet = true;
}

void note_settings_arrived() {
    got_hdtv_settings_packet = true;
}

void reset_gateway_records_state() {
    got_set_date_packet = got_hdtv_settings_packet = false;
}
