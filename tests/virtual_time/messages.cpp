#include "messages.h"

#include "../unit/wire.h"

#include <cstdio>

namespace virtual_time {

namespace {

constexpr const char *texts[] = {"STRUCTURE FIRE 12 MAIN ST",
                                 "EMS <chest pain> \"ALPHA\" & transport", "a/b\\c\td\re\nf\bg\f",
                                 "\x01\x80\xFF", "X"};
constexpr const char *units[] = {"E1", "L3", "BC 2", "MEDIC-7", "ENGINE COMPANY NUMBER ELEVEN ABC"};

std::string random_text(dice &random) {
    if (random.one_in(20)) {
        return std::string(static_cast<std::size_t>(random.below(3000)), '"');
    }
    return random.pick(texts);
}

int random_flag(dice &random) {
    return random.one_in(4) ? random.below(256) : 1;
}

} // namespace

std::string random_display_alert(dice &random) {
    const std::string text = random_text(random);
    return random.one_in(2) ? wire::display_alert_with_turnout(text, random.below(65536))
                            : wire::display_alert(text, random_flag(random));
}

std::string random_detail_alert(dice &random) {
    wire::detail_alert alert;
    alert.flag = random_flag(random);
    alert.text = random_text(random);
    for (int slot = random.below(4); slot < 16; slot += 1 + random.below(8)) {
        alert.units[slot] = {random.pick(units), random.below(256)};
    }
    alert.turnout_end = random.below(65536);
    alert.turnout_zero = random.below(300);
    alert.turnout_reverse = random.below(3);
    alert.text_length = random.one_in(10) ? random.below(5000) : -1;
    return alert.bytes();
}

std::string random_map(dice &random) {
    return wire::map_address("http://10.87.33.20/map?id=" + std::to_string(random.below(100)));
}

std::string random_end(dice &random) {
    wire::detail_alert end;
    end.text = "";
    return random.one_in(2) ? wire::display_alert("") : end.bytes();
}

std::string random_date(dice &random) {
    // In braces they are rolled in order, whatever the compiler.
    const int parts[] = {24 + random.below(5), 1 + random.below(12), 1 + random.below(28),
                         random.below(24),     random.below(60),     random.below(60)};
    char text[80];
    std::snprintf(text, sizeof text, "20%02d-%02d-%02d %02d:%02d:%02d", parts[0], parts[1],
                  parts[2], parts[3], parts[4], parts[5]);
    return wire::set_date(random.one_in(8) ? "never" : text);
}

std::string random_page(dice &random) {
    constexpr const char *pages[] = {"http://10.87.33.20/board", "",
                                     "http://127.0.0.1/station_web/",
                                     "http://127.0.0.1/station_web/?a=b"};
    return wire::page_address(random.pick(pages));
}

std::string random_control(dice &random) {
    constexpr const char *clips[] = {"http://h/a.wav", "http://h/a.WAV", "http://h/b.raw",
                                     "http://h/c.mp3", "http://h/a.wav?x=.wav"};
    std::string json = "{";
    if (!random.one_in(3)) {
        json += "\"play_audio\":\"" + std::string(random.pick(clips)) + "\",";
    }
    if (random.one_in(3)) {
        json += "\"comm_gw\":\"10.87.33.2" + std::to_string(random.below(2)) + "\",";
    }
    if (random.one_in(2)) {
        json += "\"device\":\"headphones\",\"volume\":\"75\",";
    }
    if (random.one_in(2)) {
        json += "\"channels\":\"2\", \"rate\": \"44100\",\"sample_format\":\"U8\"";
    }
    return json + "}";
}

std::string random_hdtv_alert(dice &random) {
    return wire::hdtv_alert("HELLO", random.below(65536));
}

std::string random_garbage(dice &random) {
    std::string bytes =
        random.one_in(2) ? random_detail_alert(random) : random_display_alert(random);
    switch (random.below(4)) {
    case 0:
        return bytes.substr(0,
                            static_cast<std::size_t>(random.below(static_cast<int>(bytes.size()))));
    case 1:
        bytes.resize(4000 + static_cast<std::size_t>(random.below(200)), 'Z');
        return bytes;
    case 2:
        return "";
    default:
        break;
    }
    for (char &c : bytes) {
        c = static_cast<char>(random.below(256));
    }
    // A reboot is no garbage.
    bytes[0] = bytes[0] == ' ' ? '!' : bytes[0];
    return bytes;
}

std::string random_cec(dice &random) {
    constexpr unsigned char opcodes[] = {0x80, 0x82, 0x82, 0x85, 0x90, 0x90, 0x00, 0x47};
    constexpr unsigned char addresses[] = {0x00, 0x10, 0x20, 0x30};
    std::string message = {random.one_in(2) ? '\x0F' : '\x84',
                           static_cast<char>(random.pick(opcodes))};
    const int operands = random.one_in(2) ? 2 : random.below(15);
    for (int i = 0; i < operands; ++i) {
        message +=
            static_cast<char>(random.one_in(2) ? random.pick(addresses)
                                               : static_cast<unsigned char>(random.below(4)));
    }
    return message;
}

} // namespace virtual_time
