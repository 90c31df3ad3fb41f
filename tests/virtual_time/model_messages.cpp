#include "model.h"

#include <cctype>

namespace virtual_time {

namespace {

// Only the first occurrence counts.
bool ends_with(std::string text, const std::string &ending) {
    for (char &c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text.size() >= ending.size() && text.find(ending) == text.size() - ending.size();
}

} // namespace

void model::check_connection(const trace &acts, bool is_interrupted) {
    check(acts, is_interrupted, [&] {
        const entry &accepted = take(act::accepted);
        if (accepted.result < 0) {
            return;
        }
        ++descriptors;
        const entry &received = take(act::received);
        if (received.result < 0) {
            return; // the connection stays open
        }
        --descriptors;
        if (!has_proxy && !gateway) {
            learn(accepted.text);
        }
        dispatch(true, accepted.text, received.text);
    });
}

void model::check_datagram(const trace &acts, bool is_interrupted) {
    check(acts, is_interrupted, [&] {
        const entry &sender = take(act::from);
        dispatch(false, sender.text, take(act::received).text);
    });
}

void model::dispatch(bool is_tcp, const std::string &sender, std::string received) {
    const int size = static_cast<int>(received.size());
    received.resize(4097, '\0');
    act_on(byte_at(received, 0), is_tcp, sender, received, size);
    refill();
}

void model::act_on(int type, bool is_tcp, const std::string &sender, std::string &bytes, int size) {
    if (type == 1 && !is_tcp) {
        answer_rollcall(sender);
    } else if (type == 3) {
        take_display_alert(bytes, size);
    } else if (type == 32) {
        start_program({"/sbin/reboot", "reboot"});
    } else if (type == 38 && size >= 5) {
        turnout = number_at(bytes, static_cast<std::size_t>(size - 5));
    } else if (type == 40) {
        has_date = true;
        run_program({"/bin/date", "date", "-s", text_at(bytes, 1)});
    } else if (type == 46 && is_tcp) {
        write_document({.type = "stop_turnout"});
    } else if (type == 48) {
        show(text_at(bytes, 1));
    } else if (type == 49) {
        take_settings(byte_at(bytes, 1));
    } else if (type == 51) {
        turnout = number_at(bytes, 532);
        take_detail_alert(bytes);
    } else if (type == 52 && is_tcp) {
        take_map(text_at(bytes, 1));
    } else if (type == '{') {
        take_control(text_at(bytes, 0));
    }
}

bool model::change_alert(int flag, bool is_empty) {
    if (flag != 1) {
        return false;
    }
    if (is_empty) {
        hand_back();
        is_active = false;
        return false;
    }
    if (is_active) {
        return false;
    }
    wake_television();
    is_active = true;
    start = static_cast<std::uint32_t>(wall());
    return true;
}

void model::take_display_alert(std::string &bytes, int size) {
    if (size - number_at(bytes, 4) - 6 == 2) {
        turnout = number_at(bytes, static_cast<std::size_t>(size - 2));
        bytes[static_cast<std::size_t>(size - 2)] = '\0';
    }
    show_station_page();
    const std::string text = text_at(bytes, 6);
    const int flag = byte_at(bytes, 1);
    print(std::to_string(text.size()) + "\n");
    change_alert(flag, text.empty());
    if (flag == 1 || !is_active) {
        write_document({.type = "display_alert", .flag = flag, .time = start, .area = text});
    }
}

void model::list_units(const std::string &bytes) {
    units.clear();
    for (std::size_t slot = 0; slot < 16; ++slot) {
        const int color = byte_at(bytes, 4 + slot);
        if (color != 0) {
            const std::string name = text_at(bytes, 20 + 32 * slot).substr(0, 31);
            print("Unit: " + name + " " + std::to_string(color) + "\n");
            units += std::string(units.empty() ? "" : ",") + R"({"unit":")" + name +
                     R"(","color":")" + std::to_string(color) + R"("})";
        }
    }
}

void model::take_detail_alert(const std::string &bytes) {
    show_station_page();
    detail = bytes;
    const int flag = byte_at(bytes, 1);
    if (change_alert(flag, number_at(bytes, 537) == 0)) {
        end = number_at(bytes, 532);
        zero = number_at(bytes, 534);
        reverse = byte_at(bytes, 536);
    }
    list_units(bytes);
    if (flag != 1 && is_active) {
        return;
    }
    if (is_active) {
        write_detail(bytes, "");
    } else {
        write_document({.type = "hdtv_alert", .flag = flag});
    }
}

void model::take_map(const std::string &address) {
    if (is_active) {
        write_detail(detail, address);
    }
}

void model::take_settings(int quarter_turns) {
    has_settings = true;
    const int previous = rotation;
    rotation = 90 * quarter_turns;
    const bool is_storable = rotation <= 270;
    set_config_option("rotation", is_storable ? std::to_string(rotation) : "0");
    if (rotation != previous) {
        restart_browser();
    }
}

void model::take_control(const std::string &json) {
    const auto clip = json_value(json, "play_audio");
    const auto address = json_value(json, "comm_gw");
    if (clip) {
        play(*clip, json);
    }
    if (address) {
        learn(*address);
    }
}

void model::play(const std::string &clip, const std::string &json) {
    const bool has_headphones = json_value(json, "device") == "headphones";
    start_program({"/usr/bin/amixer", "amixer", "cset", "numid=3", has_headphones ? "1" : "0"});
    const std::string volume = json_value(json, "volume").value_or("90") + "%";
    start_program({"/usr/bin/amixer", "amixer", "set", "PCM", volume});
    const bool is_wav = ends_with(clip, ".wav");
    if (!is_wav && !ends_with(clip, ".raw")) {
        return;
    }
    const std::string file = is_wav ? "/tmp/play.wav" : "/tmp/play.raw";
    take(act::removed, file);
    run_program({"/usr/bin/wget", "wget", "-O", file, "-T", "1", clip});
    if (is_wav) {
        return start_program({"/usr/bin/aplay", "aplay", file});
    }
    start_program({"/usr/bin/aplay", "aplay", "-c", json_value(json, "channels").value_or("1"),
                   "-r", json_value(json, "rate").value_or("22050"), "-f",
                   json_value(json, "sample_format").value_or("S16_LE"), file});
}

void model::answer_rollcall(const std::string &sender) {
    if (send_record(sender, 2) && (has_date || send_record(sender, 39)) && !has_settings) {
        send_record(sender, 47);
    }
}

bool model::send_record(const std::string &sender, char code) {
    const std::string hardware = hardware_address();
    const bool has_socket = take_socket("tcp");
    if (take(act::connected, sender + ":5000").result < 0) {
        descriptors += has_socket; // stays open
        return false;
    }
    take(act::sent, code + hardware + (code == 2 ? "\x0C\x2F" : ""));
    return true;
}

void model::refill() {
    if (!has_address) {
        return;
    }
    const entry &looked = take(act::looked, "/dev/shm/web_watchdog");
    if (looked.result != 0 || looked.number + 300 >= looked.wall) {
        budget = 900;
    }
}

void model::learn(const std::string &address) {
    gateway = address;
    print("Setting Gateway Address: " + address + "\n");
    std::string hexadecimal;
    for (const char c : hardware_address()) {
        hexadecimal += format("%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
    }
    write_file("/dev/shm/current_gateway", gateway_file,
               R"({"gateway_addr": ")" + address + R"(", "mac_addr": ")" + hexadecimal + "\"}");
}

} // namespace virtual_time
