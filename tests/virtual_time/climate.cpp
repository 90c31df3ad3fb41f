#include "climate.h"

#include "dice.h"
#include "messages.h"

#include "../unit/wire.h"

#include <algorithm>
#include <utility>

namespace virtual_time {

namespace {

struct weather {
    dice random;
    history events = {};
    std::int64_t duration;

    void add(std::int64_t at, kind what, int number = 0, int more = 0, std::string text = {}) {
        if (at < duration) {
            events.push_back({at, what, number, more, std::move(text)});
        }
    }
    /// It begins, and ends after about this time.
    void spell(std::int64_t at, kind what, std::int64_t length, int on = 1, int off = 0) {
        add(at, what, on);
        add(at + random.around(length), what, off);
    }
    int gateway() {
        return random.one_in(6) ? 1 + random.below(2) : 0;
    }
    void send(std::int64_t at, const std::string &message) {
        const bool is_udp = random.one_in(4);
        const int delay = random.one_in(50) ? random.below(20000) : 0;
        add(at, is_udp ? kind::udp_message : kind::tcp_message, gateway(), is_udp ? 0 : delay,
            message);
    }
};

void roll_call(weather &w, std::int64_t at) {
    w.add(at, kind::udp_message, w.gateway(), 0, wire::roll_call());
}

void incident(weather &w, std::int64_t at) {
    const int updates = w.random.below(4);
    for (int i = 0; i <= updates; ++i) {
        w.send(at,
               w.random.one_in(2) ? random_detail_alert(w.random) : random_display_alert(w.random));
        if (w.random.one_in(2)) {
            w.send(at + w.random.around(2 * second), random_map(w.random));
        }
        at += w.random.around(minute);
    }
    if (w.random.one_in(3)) {
        w.send(at, wire::stop_turnout());
    }
    if (!w.random.one_in(5)) {
        w.send(at + w.random.around(10 * minute), random_end(w.random));
    }
}

void date(weather &w, std::int64_t at) {
    w.send(at, random_date(w.random));
}

void page(weather &w, std::int64_t at) {
    w.send(at, random_page(w.random));
}

void settings(weather &w, std::int64_t at) {
    w.send(at, wire::settings(w.random.one_in(10) ? w.random.below(256) : w.random.below(4)));
}

void control(weather &w, std::int64_t at) {
    w.send(at, random_control(w.random));
}

void odd_message(weather &w, std::int64_t at) {
    w.send(at, w.random.one_in(3) ? random_hdtv_alert(w.random) : random_garbage(w.random));
}

void broken_connection(weather &w, std::int64_t at) {
    w.add(at, kind::tcp_failure, w.gateway(), w.random.one_in(3) ? w.random.below(20000) : 0);
}

void reboot(weather &w, std::int64_t at) {
    w.send(at, wire::reboot());
}

void gateway_trouble(weather &w, std::int64_t at) {
    const int gateway = w.gateway();
    const int mode = w.random.one_in(5) ? 3 : 1 + w.random.below(2);
    w.add(at, kind::gateway, gateway, mode);
    const std::int64_t length = w.random.one_in(5) ? 5 * day : 2 * hour;
    w.add(at + w.random.around(length), kind::gateway, gateway, 0);
}

void proxy_trouble(weather &w, std::int64_t at) {
    w.add(at, kind::proxy, 0, 1 + w.random.below(3));
    w.add(at + w.random.around(12 * hour), kind::proxy, 0, 0);
}

void cable(weather &w, std::int64_t at) {
    w.spell(at, kind::cable, 20 * minute, 0, 1);
}

void lease(weather &w, std::int64_t at) {
    constexpr const char *addresses[] = {"10.87.33.50", "10.87.33.51", "192.168.7.4",
                                         "110.87.33.4"};
    w.add(at, kind::address);
    w.add(at + w.random.around(20 * minute), kind::address, 0, 0, w.random.pick(addresses));
}

void interface(weather &w, std::int64_t at) {
    w.add(at, kind::usb, w.random.below(3) - 1);
    w.spell(at, kind::interface, 10 * minute, 0, 1);
}

void listing(weather &w, std::int64_t at) {
    w.spell(at, kind::list_failure, 5 * minute);
}

void television_switch(weather &w, std::int64_t at) {
    w.add(at, kind::tv_power, w.random.one_in(3) ? w.random.below(4) : w.random.below(2));
}

void television_input(weather &w, std::int64_t at) {
    w.add(at, kind::tv_says, 0, 0, random_cec(w.random));
}

void television_trouble(weather &w, std::int64_t at) {
    w.add(at, kind::tv_manner, w.random.below(3), w.random.below(8000));
    w.add(at + w.random.around(hour), kind::tv_manner, 0, 200);
    if (w.random.one_in(3)) {
        w.spell(at, kind::tv_echo, 2 * hour);
    }
    if (w.random.one_in(20)) {
        w.add(at, kind::tv_lost);
    }
}

void browser(weather &w, std::int64_t at) {
    if (w.random.one_in(2)) {
        w.add(at, kind::browser_dies);
    } else {
        w.spell(at, kind::browser_hangs, 10 * minute);
    }
}

void clock_jump(weather &w, std::int64_t at) {
    const int range = w.random.one_in(3) ? 100000 : 600;
    w.add(at, kind::clock_jump, w.random.below(2 * range) - range);
}

void full_disk(weather &w, std::int64_t at) {
    w.spell(at, kind::full_disk, hour, 1 + w.random.below(7));
}

void shortage(weather &w, std::int64_t at) {
    w.spell(at, w.random.one_in(2) ? kind::no_descriptors : kind::no_forks, 2 * minute);
}

void programs(weather &w, std::int64_t at) {
    if (w.random.one_in(3)) {
        return w.spell(at, kind::exec_failure, 10 * minute);
    }
    w.add(at, kind::slow_tools, 0, w.random.below(6000));
    w.add(at + w.random.around(hour), kind::slow_tools);
}

void display(weather &w, std::int64_t at) {
    constexpr const char *answers[] = {
        "state 0x120006 [DVI DMT (16) RGB full 4:3], 640x480 @ 60Hz, progressive\n",
        "state 0x120006 [PAL], 720x480 @ 60Hz\nstate 0x1 [x], 1920x1080 @ 60Hz\n", "nonsense\n",
        "state 0x120006, 12345678901 x\n", "state 0x12, 640X480 x\n"};
    w.add(at, kind::display, 0, 0, w.random.pick(answers));
    w.add(at + w.random.around(5 * minute), kind::display, 0, 0,
          "state 0x120006 [CEA (16)], 1920x1080 @ 60Hz, progressive\n");
}

void power_cut(weather &w, std::int64_t at) {
    w.add(at, kind::power_cut);
    if (w.random.one_in(5)) {
        w.add(at - 1, kind::no_watchdog, w.random.below(2));
    }
    if (w.random.one_in(5)) {
        w.add(at - 1, kind::no_cec, w.random.below(3));
    }
}

void config(weather &w, std::int64_t at) {
    constexpr const char *files[] = {"{\"comm_gw\":\"10.87.33.20\",\"rotation\":\"90\"}",
                                     "{}",
                                     "",
                                     "{\"log_alerts\":\"false\"}",
                                     "{\"a\":\"{}\",\"rotation\":\"180\"}",
                                     "{\"comm_gw\":\"nobody\",\"rotation\":\"45\"}"};
    w.add(at, kind::config, 0, 0, w.random.pick(files));
}

constexpr std::int64_t never_in_a_year = 10000 * day;

enum class temper { habit, event, trouble };

struct source {
    void (*happen)(weather &, std::int64_t);
    std::int64_t interval; ///< between two of them, on average
    temper how = temper::event;
};

constexpr source sources[] = {{roll_call, 5 * minute, temper::habit},
                              {incident, 3 * hour},
                              {date, 12 * hour},
                              {page, 24 * hour},
                              {settings, 12 * hour},
                              {control, 8 * hour},
                              {odd_message, 6 * hour},
                              {broken_connection, 12 * hour, temper::trouble},
                              {reboot, 10 * day},
                              {gateway_trouble, 2 * day, temper::trouble},
                              {proxy_trouble, 3 * day, temper::trouble},
                              {cable, 3 * day, temper::trouble},
                              {lease, 3 * day, temper::trouble},
                              {interface, 5 * day, temper::trouble},
                              {listing, 5 * day, temper::trouble},
                              {television_switch, 3 * hour},
                              {television_input, 2 * hour},
                              {television_trouble, day, temper::trouble},
                              {browser, 8 * hour, temper::trouble},
                              {clock_jump, 2 * day, temper::trouble},
                              {full_disk, 3 * day, temper::trouble},
                              {shortage, 3 * day, temper::trouble},
                              {programs, 2 * day, temper::trouble},
                              {display, day, temper::trouble},
                              {power_cut, 7 * day, temper::trouble},
                              {config, 2 * day, temper::trouble}};

// How often, in this climate: never, seldom, as usual, often. Nothing works without the habits.
std::int64_t stretch(dice &random, const source &from, int calm) {
    if (from.how == temper::habit) {
        return random.one_in(20) ? never_in_a_year : from.interval / (1 + random.below(3));
    }
    const std::int64_t interval = from.interval * (from.how == temper::trouble ? calm : 1);
    switch (random.below(8)) {
    case 0:
        return never_in_a_year;
    case 1:
        return interval * 4;
    case 2:
    case 3:
        return std::max(interval / 6, minute);
    default:
        return interval;
    }
}

// Habits are regular.
std::int64_t pause(dice &random, const source &from, std::int64_t interval) {
    return from.how == temper::habit ? interval + random.below(5000) : random.around(interval);
}

} // namespace

history make_history(std::uint64_t seed, std::int64_t duration) {
    constexpr int calms[] = {1, 1, 5, 30};
    weather w{.random = dice(seed), .duration = duration};
    const int calm = w.random.pick(calms);
    // A shorter time has the events of a whole day.
    const double hurry = std::min(1.0, static_cast<double>(duration) / static_cast<double>(day));
    config(w, 0);
    display(w, 0);
    for (const source &source : sources) {
        const auto interval =
            static_cast<std::int64_t>(static_cast<double>(stretch(w.random, source, calm)) * hurry);
        for (std::int64_t at = w.random.around(interval); at < duration;
             at += pause(w.random, source, interval)) {
            source.happen(w, at);
        }
    }
    std::stable_sort(w.events.begin(), w.events.end(),
                     [](const happening &a, const happening &b) { return a.at < b.at; });
    return std::move(w.events);
}

} // namespace virtual_time
