#pragma once

#include "tools/gatewayctl/fleet.h"

#include <chrono>
#include <string>
#include <vector>

/// A fleet in a test's own time, which begins at 2026-11-22 04:00:00 UTC, and the names of what changed.
struct fleet_story {
    static constexpr std::uint32_t alpha = 0x0a573332; // 10.87.51.50
    static constexpr std::uint32_t beta = 0x0a573333;

    struct told_change {
        change_kind kind;
        fleet_unit unit;
        wall_time time;
        wall_time before;

        fleet_change as_change() const {
            return {kind, unit, time, before};
        }
    };

    moment now{clock_type::time_point(std::chrono::hours(1)),
               wall_time(std::chrono::seconds(1795320000))};
    std::vector<told_change> changes;
    fleet units;

    explicit fleet_story(const std::vector<unit_identity> &named = {})
        : units(named, now.wall, [this](const fleet_change &change) {
              changes.push_back({change.kind, change.unit, change.time, change.before});
          }) {}

    void pass(std::chrono::milliseconds time) {
        now.steady += time;
        now.wall += time;
    }
    void call() {
        units.judge(now);
        units.note_call(now);
    }
    bool answer(std::uint32_t address, record_type type = record_type::rollcall_reply,
                const std::string &hardware_address = "02:00:0a:57:21:32", int version = 47) {
        return units.note_record(address, {type, hardware_address, version}, now);
    }
    /// What has changed since the last time.
    std::vector<change_kind> take_kinds() {
        std::vector<change_kind> kinds;
        for (const told_change &change : changes) {
            kinds.push_back(change.kind);
        }
        changes.clear();
        return kinds;
    }
};
