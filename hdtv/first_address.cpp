#include "hdtv/first_address.h"

#include "hdtv/network_identity.h"
#include "hdtv/proxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>

bool has_ip_address;

const char *take_first_address() {
    static char text[INET_ADDRSTRLEN];
    const in_addr address = {get_ip_address()};
    if (address.s_addr == 0) {
        return nullptr;
    }
    inet_ntop(AF_INET, &address, text, sizeof text);
    has_ip_address = true;
    choose_proxy(text);
    return text;
}

void reset_first_address_state() {
    has_ip_address = false;
}
