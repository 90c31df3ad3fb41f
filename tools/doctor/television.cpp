#include "tools/doctor/television.h"

#include "cec/cec_codes.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr std::uint16_t no_address = 0xFFFF;
constexpr std::uint16_t televisions_own = 0x0000; // nobody else can have it
constexpr const char *stays_asleep =
    "look in the television's menus for CEC, or the brand's name for it, and for auto power on";

// "1.0.0.0"
std::string dotted(std::uint16_t address) {
    char text[16];
    std::snprintf(text, sizeof text, "%x.%x.%x.%x", address >> 12 & 0xFU, address >> 8 & 0xFU,
                  address >> 4 & 0xFU, address & 0xFU);
    return text;
}

bool has_link(const television_view &view) {
    return view.physical_address && *view.physical_address != no_address &&
           *view.physical_address != televisions_own;
}

finding about_adapter(const television_view &view, const view_notes &notes) {
    constexpr const char *link = "adapter";
    switch (view.adapter) {
    case adapter_state::missing:
        return has_failed(link, notes.adapter + ": there is none",
                          "the kernel has no CEC device: check the driver or the device tree",
                          chapter::no_wake);
    case adapter_state::busy:
        return has_failed(link, notes.adapter + " cannot be joined: " + notes.said,
                          "end the other program on the bus, such as cec-follower",
                          chapter::no_wake);
    case adapter_state::broken:
        return has_failed(link, notes.adapter + " is not a CEC adapter that can play",
                          "another device has taken its name: check the drivers", chapter::no_wake);
    case adapter_state::silent:
        return cannot_tell(link, notes.adapter + " does not answer: " + notes.said,
                           "look into the kernel's log (dmesg), and restart the unit",
                           chapter::no_wake);
    case adapter_state::forbidden:
    case adapter_state::open:
        break;
    }
    return is_ok(link, notes.adapter);
}

finding about_permission(const television_view &view, const view_notes &notes) {
    constexpr const char *link = "permission";
    if (view.adapter == adapter_state::forbidden) {
        return is_root() ? has_failed(link, notes.adapter + " may not be opened, even by root",
                                      "what confines this program, and so perhaps the service?",
                                      chapter::no_wake)
                         : cannot_tell(link, "only root may open " + notes.adapter);
    }
    if (view.adapter == adapter_state::silent) {
        return cannot_tell(link, "the adapter does not answer");
    }
    if (view.adapter == adapter_state::missing) {
        return cannot_tell(link, "there is no adapter");
    }
    return is_ok(link, "granted");
}

finding about_link(const television_view &view, const view_notes &notes) {
    constexpr const char *link = "link";
    if (!view.physical_address) {
        return cannot_tell(link, notes.limit);
    }
    if (!has_link(view)) {
        return has_failed(
            link, "physical address " + dotted(*view.physical_address) + ": no television is found",
            "check the HDMI cable, and that the television has mains power", chapter::no_wake);
    }
    return is_ok(link, "physical address " + dotted(*view.physical_address));
}

finding about_logical_address(const television_view &view, const view_notes &notes) {
    constexpr const char *link = "logical address";
    if (view.physical_address && !has_link(view)) {
        return cannot_tell(link, "without a link there is none");
    }
    if (!view.logical_address) {
        return cannot_tell(link, notes.address.empty() ? notes.limit : notes.address);
    }
    if (*view.logical_address == cec_logical_address::unregistered) {
        return has_failed(link, "none is claimed",
                          "are there three players on the bus already? Else restart the service",
                          chapter::no_wake);
    }
    return is_ok(link, std::to_string(*view.logical_address));
}

// Why nothing is known of what only an answer would tell.
std::string reason(const television_view &view, const view_notes &notes) {
    return view.physical_address && !has_link(view) ? "there is no link" : notes.limit;
}

finding about_answer(const television_view &view, const view_notes &notes) {
    constexpr const char *link = "television answers";
    if (!view.is_answered) {
        return cannot_tell(link, reason(view, notes));
    }
    if (!*view.is_answered) {
        return has_failed(link, "no device acknowledges messages to the television",
                          "switch CEC on in the television's menus; try another HDMI input",
                          chapter::no_wake);
    }
    return is_ok(link, "it acknowledges messages");
}

std::string power_text(std::uint8_t status) {
    constexpr const char *names[] = {"on", "in standby", "waking", "going to standby"};
    return status < std::size(names) ? names[status] : "unknown, " + std::to_string(status);
}

finding about_power_status(const television_view &view, const view_notes &notes) {
    constexpr const char *link = "power status";
    constexpr const char *consequence = ": the service takes it for awake, and never wakes it";
    switch (view.power) {
    case power_answer::told:
        return is_ok(link, power_text(view.power_status));
    case power_answer::refused:
        return has_failed(link, std::string("the television refuses to tell it") + consequence,
                          stays_asleep, chapter::no_wake);
    case power_answer::none:
        break;
    }
    if (view.is_answered.value_or(false)) {
        return has_failed(link, std::string("the television does not tell it") + consequence,
                          stays_asleep, chapter::no_wake);
    }
    return cannot_tell(link, view.is_answered ? "nobody answers" : reason(view, notes));
}

finding about_active_source(const television_view &view, const view_notes &notes) {
    constexpr const char *link = "active source";
    if (view.active_source) {
        const bool is_own = view.active_source == view.physical_address;
        const bool is_television = *view.active_source == televisions_own;
        return is_ok(link,
                     dotted(*view.active_source) + (is_own          ? ", this unit"
                                                    : is_television ? ", the television itself"
                                                                    : ", another device"));
    }
    if (view.power != power_answer::told) {
        return cannot_tell(link, view.is_answered ? "the television does not answer"
                                                  : reason(view, notes));
    }
    return cannot_tell(link, "nobody says so: this unit itself, or an input without CEC");
}

} // namespace

findings grade_television(const television_view &view, const view_notes &notes) {
    return {about_adapter(view, notes),      about_permission(view, notes),
            about_link(view, notes),         about_logical_address(view, notes),
            about_answer(view, notes),       about_power_status(view, notes),
            about_active_source(view, notes)};
}

finding grade_holding(const process *service, const std::string &descriptor) {
    constexpr const char *link = "service's adapter";
    if (service == nullptr) {
        return cannot_tell(link, "the service is not running");
    }
    const auto files = open_files(service->pid);
    if (!files) {
        return cannot_tell(link, "only root sees what the service has open");
    }
    if (std::ranges::find(*files, descriptor) == files->end()) {
        return has_failed(link, "the service does not have " + descriptor + " open",
                          "restart the service: the adapter came after its start, or was taken",
                          chapter::no_wake);
    }
    return is_ok(link, "the service has " + descriptor + " open");
}
