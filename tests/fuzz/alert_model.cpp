#include "alert_model.h"

#include "config_model.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace {

constexpr const char *station_address = "http://127.0.0.1/station_web/";
constexpr const char *hardware_address = "\x00\x11\x22\xAA\xBB\xCC";

int number_in(const std::string &bytes, int position) {
    const auto at = [&](int i) {
        return i >= 0 && i < 4096 ? static_cast<unsigned char>(bytes[static_cast<std::size_t>(i)])
                                  : 0;
    };
    return at(position) * 256 + at(position + 1);
}

bool is_clip(std::string address) {
    for (char &c : address) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return std::ranges::any_of(std::array{".wav", ".raw"}, [&](const char *ending) {
        const auto found = address.find(ending);
        return found != std::string::npos && found == address.size() - 4;
    });
}

} // namespace

int alert_model::byte(int position) const {
    return number_in(message_, position) / 256;
}

int alert_model::number(int position) const {
    return number_in(message_, position);
}

std::string alert_model::text(int position) const {
    return message_.c_str() + position;
}

expected_actions alert_model::take(const std::string &message, const circumstances &around) {
    around_ = around;
    actions_ = {};
    connects_ = 0;
    message_ = message.substr(0, around.via == channel::tcp ? 4095 : 4096);
    size_ = static_cast<int>(message_.size());
    message_.resize(4097);
    if (around.via == channel::tcp && !gateway) {
        gateway = around.peer;
    }
    act();
    return actions_;
}

void alert_model::act() {
    const bool is_tcp = around_.via == channel::tcp;
    switch (byte(0)) {
    case 1:
        return is_tcp ? void() : answer_roll_call();
    case 3:
        return display();
    case 32:
        return start_child(false);
    case 38:
        timer_ = size_ >= 5 ? static_cast<std::uint32_t>(number(size_ - 5)) : timer_;
        return;
    case 40:
        has_date_ = true;
        return start_child(true);
    case 46:
        if (is_tcp) {
            actions_.document = {.type = "stop_turnout", .timer = timer_};
        }
        return;
    case 48:
        return show_page(text(1));
    case 49:
        return settings();
    case 51:
        return detail();
    case 52:
        return is_tcp && is_active ? show_active(text(1)) : void();
    case 123:
        return control();
    default:
        return;
    }
}

void alert_model::decide_alert(int flag, bool is_empty, bool &is_ignored) {
    is_ignored = flag != 1 && is_active;
    if (flag != 1) {
        return;
    }
    if (is_empty) {
        is_active = false;
        if (is_off_after_alert_) {
            actions_.cec.emplace_back("send 0: 36");
        }
    } else if (!is_active) {
        is_active = true;
        start_ = around_.now;
        is_off_after_alert_ = is_standby;
        if (is_standby) {
            actions_.cec = {"send 0: 04", "send 0: 8F"};
            is_standby = false;
        }
    }
}

void alert_model::display() {
    std::string area = text(6);
    const int length = number(4);
    if (size_ == 6 + length + 2) {
        timer_ = static_cast<std::uint32_t>(number(6 + length));
        area.resize(std::min(area.size(), static_cast<std::size_t>(length)));
    }
    show_station_page();
    bool is_ignored = false;
    decide_alert(byte(1), area.empty(), is_ignored);
    if (!is_ignored) {
        actions_.document = {.type = "display_alert",
                             .flag = byte(1),
                             .time = start_,
                             .timer = timer_,
                             .area = area};
    }
}

void alert_model::detail() {
    timer_ = static_cast<std::uint32_t>(number(532));
    show_station_page();
    last_detail_ = message_;
    const bool was_active = is_active;
    bool is_ignored = false;
    decide_alert(byte(1), number(537) == 0, is_ignored);
    if (is_active && !was_active) {
        end_ = static_cast<std::uint32_t>(number(532));
        zero_ = static_cast<std::uint32_t>(number(534));
        reverse_ = byte(536);
    }
    units_.clear();
    for (int slot = 0; slot < 16; ++slot) {
        if (byte(4 + slot) != 0) {
            units_.emplace_back(text(20 + 32 * slot).substr(0, 31), byte(4 + slot));
        }
    }
    if (is_active && !is_ignored) {
        show_active("");
    } else if (!is_ignored) {
        actions_.document = {.type = "hdtv_alert", .flag = byte(1), .timer = timer_};
    }
}

void alert_model::show_active(const std::string &map_address) {
    actions_.document = {.type = "hdtv_alert",
                         .flag = number_in(last_detail_, 1) / 256,
                         .time = start_,
                         .turnout_end = end_,
                         .turnout_zero = zero_,
                         .turnout_reverse = reverse_,
                         .timer = timer_,
                         .area = last_detail_.c_str() + 539,
                         .map = map_address,
                         .units = units_};
}

void alert_model::start_child(bool is_awaited) {
    actions_.forks += 1;
    actions_.waits += is_awaited ? 1 : 0;
}

void alert_model::start_browser() {
    browser_ = around_.next_pid < 0 ? -1 : around_.next_pid + actions_.forks;
    start_child(false);
}

void alert_model::show_page(const std::string &address) {
    if (browser_ != 0) {
        actions_.killed.push_back(browser_);
    }
    url_ = address;
    if (!url_.empty()) {
        start_browser();
    }
}

void alert_model::show_station_page() {
    if (url_ != station_address) {
        show_page(station_address);
    }
}

void alert_model::settings() {
    has_settings_ = true;
    const int turns = byte(1);
    const std::string stored = std::to_string(turns <= 3 ? 90 * turns : 0);
    const auto changed = config_model::changed(config.value_or(""), "rotation", stored);
    if (changed) {
        start_child(true);
        start_child(true);
        if (config) {
            config = config_model::overwritten(*config, *changed);
        }
    }
    const bool is_turned = rotation_ != 90 * turns;
    rotation_ = 90 * turns;
    if (is_turned && !url_.empty()) {
        show_page(url_);
    }
}

void alert_model::control() {
    const std::string json = text(0);
    const auto clip = config_model::member(json, "play_audio");
    if (clip) {
        start_child(false);
        start_child(false);
        if (is_clip(*clip)) {
            start_child(true);
            start_child(false);
        }
    }
    if (const auto named = config_model::member(json, "comm_gw")) {
        gateway = named;
    }
}

bool alert_model::send(const std::string &record) {
    if (++connects_ == around_.failing_connect) {
        ++actions_.left_open;
        return false;
    }
    actions_.sent.push_back(record);
    return true;
}

void alert_model::answer_roll_call() {
    const std::string address(hardware_address, 6);
    if (!send("\x02" + address + "\x0c\x2f") || (!has_date_ && !send("\x27" + address))) {
        return;
    }
    if (!has_settings_) {
        send("\x2f" + address);
    }
}
