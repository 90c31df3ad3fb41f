#include "hdtv/gateway_address.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "hdtv/descriptor.h"
#include "hdtv/network_identity.h"
#include "hdtv/proxy.h"

#include <arpa/inet.h>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

bstring current_gateway;

namespace {

constexpr mode_t file_mode = 0777;

void write_gateway_file() {
    unsigned char mac[7] = {};
    get_mac_address(mac);
    const bstr_owner json(
        bformat("{\"gateway_addr\": \"%s\", \"mac_addr\": \"%02X%02X%02X%02X%02X%02X\"}",
                bstr_text(current_gateway), mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]));
    const int fd = open(gateway_file, O_WRONLY | O_CREAT | O_TRUNC, file_mode);
    if (json) {
        write_once(fd, {bstr_text(json.get()), static_cast<std::size_t>(json->slen)});
    }
    close(fd);
}

} // namespace

void learn_gateway(in_addr peer) {
    if (!use_oru_proxy && current_gateway == nullptr) {
        set_gateway(inet_ntoa(peer));
    }
}

void set_gateway(const char *address) {
    bdestroy(current_gateway);
    current_gateway = bfromcstr(address);
    std::printf("Setting Gateway Address: %s\n", bstr_text(current_gateway));
    write_gateway_file();
}

void reset_gateway_address_state() {
    bdestroy(current_gateway);
    current_gateway = nullptr;
}
