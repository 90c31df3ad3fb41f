#include "tools/gatewayctl/page.h"

#include "hdtv/kiosk.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/text.h"

#include <cstddef>
#include <string_view>

namespace {

// The unit's web server takes requests of 4096 bytes, and a browser says more than the address.
constexpr std::size_t framed_limit = 3000;

bool is_unreserved(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           std::string_view("-._~").find(c) != std::string_view::npos;
}

std::string percent_encoded(const std::string &text) {
    constexpr const char *digits = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (is_unreserved(c)) {
            encoded += c;
        } else {
            encoded += {'%', digits[byte >> 4], digits[byte & 0xf]};
        }
    }
    return encoded;
}

std::string framed_address(const std::string &address) {
    if (!address.starts_with("http://") && !address.starts_with("https://")) {
        throw usage_failure("--framed takes an http:// or https:// address, not " +
                            quoted(address));
    }
    if (is_of_station_page(address)) {
        throw usage_failure("the station page cannot be framed: omit --framed");
    }
    const std::string encoded = percent_encoded(address);
    if (encoded.size() > framed_limit) {
        throw usage_failure("the address has " + bytes_text(encoded.size()) +
                            " when it is percent-encoded; --framed takes at most " +
                            std::to_string(framed_limit));
    }
    return station_page + ("guest.html?u=" + encoded);
}

} // namespace

std::string page_address(const page_settings &settings) {
    const bool has_address = !settings.address.empty();
    if (has_address + settings.is_blank + settings.is_card + settings.is_status != 1) {
        throw usage_failure("page takes one of an address, --blank, --card and --status");
    }
    if (settings.is_framed && !has_address) {
        throw usage_failure("--framed takes an address");
    }
    if (settings.is_card || settings.is_status) {
        return station_page + std::string(settings.is_card ? "card.html" : "status.html");
    }
    return settings.is_framed ? framed_address(settings.address) : settings.address;
}

bool is_of_station_page(const std::string &address) {
    return address.starts_with(station_page);
}
