// A look at the board's own libraries: they are not known to tell a second program anything while the
// service is connected, so only what they use is looked at.

#include "cec/port/places.h"
#include "tools/doctor/files.h"
#include "tools/doctor/television.h"

#include <unistd.h>

namespace {

adapter_state state_of_device() {
    if (!is_there(cec_videocore_device)) {
        return adapter_state::missing;
    }
    return access(cec_videocore_device, R_OK | W_OK) == 0 ? adapter_state::open
                                                          : adapter_state::forbidden;
}

} // namespace

adapter_probe probe_adapter() {
    return {state_of_device(), cec_videocore_device};
}

findings look_beside_service(const process *service) {
    television_view view;
    view.adapter = state_of_device();
    view_notes notes;
    notes.adapter = cec_videocore_device;
    notes.limit = "the board's libraries are left to the service: --stop-service asks in its place";
    findings found = grade_television(view, notes);
    found.push_back(grade_holding(service, cec_videocore_device));
    return found;
}

// What the board's libraries call the reasons is not told apart.
bool is_unacknowledged(std::uint8_t /*result*/) {
    return true;
}
