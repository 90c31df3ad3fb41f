#include "tools/gatewayctl/records.h"

#include "hdtv/protocol.h"
#include "tools/gatewayctl/text.h"

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
