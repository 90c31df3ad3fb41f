#include "station.h"

#include <algorithm>
#include <utility>

#include "cec/cec_port.h"

namespace virtual_time {

station world;

namespace {

constexpr std::int64_t boot_time = 20 * second;

void change_network(const happening &event) {
    switch (event.what) {
    case kind::gateway:
        world.gateways[event.number] = static_cast<answer_mode>(event.more);
        break;
    case kind::proxy:
        world.proxy = static_cast<answer_mode>(event.more);
        break;
    case kind::cable:
        world.is_cable_in = event.number != 0;
        break;
    case kind::address:
        world.address = event.text;
        break;
    case kind::interface:
        world.has_interface = event.number != 0;
        break;
    case kind::usb:
        world.usb = event.number;
        break;
    default:
        world.is_listing_failing = event.number != 0;
        break;
    }
}

void change_television(const happening &event) {
    switch (event.what) {
    case kind::tv_power:
        return switch_television(event.number);
    case kind::tv_wakes:
        return switch_television(0);
    case kind::tv_manner:
        world.tv.manner = static_cast<television_manner>(event.number);
        world.tv.delay = event.more;
        break;
    case kind::tv_echo:
        world.tv.echoes = event.number != 0;
        break;
    case kind::no_cec:
        world.tv.missing = event.number;
        break;
    case kind::tv_lost:
        if (!world.tv.is_lost) {
            world.tv.is_lost = true;
            world.acts.add(act::lost, "");
            cec_television_lost();
        }
        break;
    default:
        notify(event);
        break;
    }
}

void change_shortage(const happening &event) {
    switch (event.what) {
    case kind::exec_failure:
        world.is_exec_failing = event.number != 0;
        break;
    case kind::full_disk:
        world.full_disks = event.number;
        break;
    case kind::no_descriptors:
        world.has_no_descriptors = event.number != 0;
        break;
    case kind::no_forks:
        world.is_fork_failing = event.number != 0;
        break;
    case kind::slow_tools:
        world.tool_delay = event.more;
        break;
    default:
        world.is_watchdog_missing = event.number != 0;
        break;
    }
}

void change_machine(const happening &event) {
    switch (event.what) {
    case kind::browser_dies:
        return end_process(world.browser_pid);
    case kind::process_end:
        return end_process(event.number);
    case kind::browser_hangs:
        touch_page();
        world.page.hangs = event.number != 0;
        break;
    case kind::clock_jump:
        touch_page();
        world.offset += event.number * second;
        break;
    case kind::display:
        world.display_answer = event.text;
        break;
    case kind::config:
        world.files["/var/www/config.json"] = event.text;
        break;
    default:
        change_shortage(event);
        break;
    }
}

} // namespace

void station::power_up() {
    consequences = {};
    connections.clear();
    datagrams.clear();
    children.clear();
    running_browsers = 0;
    descriptors = {};
    open_descriptors = 0;
    for (int fd = 0; fd < 3; ++fd) {
        descriptors[static_cast<std::size_t>(fd)].what = descriptor_kind::file;
    }
    std::erase_if(files, [](const auto &file) { return file.first != "/var/www/config.json"; });
    has_no_descriptors = is_fork_failing = is_root_writable = false;
    page = {};
    reset_at = never;
    watched.clear();
    tv.is_lost = false;
    advance(now + boot_time);
    acts.clear();
}

std::int64_t station::next_at() const {
    const std::int64_t event = next_event < events->size() ? (*events)[next_event].at : never;
    const std::int64_t consequence = consequences.empty() ? never : consequences.top().at;
    return std::min({event, consequence, reset_at});
}

void station::advance(std::int64_t until) {
    for (std::int64_t next = next_at(); next <= until; next = next_at()) {
        now = std::max(now, next);
        if (now >= reset_at) {
            ++counts.watchdog_resets;
            end_boot(reset);
        }
        if (!consequences.empty() && consequences.top().at == next) {
            const happening event = consequences.top();
            consequences.pop();
            happen(event);
        } else {
            happen((*events)[next_event++]);
        }
    }
    now = std::max(now, until);
}

void station::end_boot(int reason) {
    std::longjmp(boot_end, reason);
}

void station::after(std::int64_t delay, kind what, int number, std::string text) {
    consequences.push({now + delay, what, number, 0, std::move(text)});
}

void station::happen(const happening &event) {
    switch (event.what) {
    case kind::end:
        end_boot(finished);
    case kind::power_cut:
    case kind::reboot:
        end_boot(reset);
    case kind::tcp_message:
    case kind::tcp_failure:
    case kind::udp_message:
        return deliver(event);
    case kind::gateway:
    case kind::proxy:
    case kind::cable:
    case kind::address:
    case kind::interface:
    case kind::usb:
    case kind::list_failure:
        return change_network(event);
    case kind::tv_power:
    case kind::tv_manner:
    case kind::tv_says:
    case kind::tv_echo:
    case kind::tv_lost:
    case kind::no_cec:
    case kind::notification:
    case kind::tv_wakes:
        return change_television(event);
    default:
        return change_machine(event);
    }
}

} // namespace virtual_time
