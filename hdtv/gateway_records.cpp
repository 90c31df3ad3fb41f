#include "hdtv/gateway_records.h"

#include "hdtv/network_identity.h"
#include "hdtv/protocol.h"

rollcall_reply_record make_rollcall_reply() {
    namespace layout = protocol::rollcall_reply;
    rollcall_reply_record record{};
    record[0] = layout::code;
    get_mac_address(&record[layout::hardware_address]);
    record[layout::fixed_byte] = layout::fixed_byte_value;
    record[layout::version_byte] = protocol::version;
    return record;
}
