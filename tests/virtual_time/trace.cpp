#include "trace.h"

#include "happening.h"
#include "station.h"

namespace virtual_time {

namespace {

const char *name(act what) {
    constexpr const char *names[] = {"print",  "complain", "open",   "read",    "write",   "kick",
                                     "stat",   "unlink",   "fork",   "child",   "kill",    "wait",
                                     "sleep",  "socket",   "bind",   "connect", "send",    "cec",
                                     "notify", "lose",     "popen",  "console", "timeout", "arm",
                                     "accept", "receive",  "sender", "list",    "mac",     "close"};
    return names[static_cast<std::size_t>(what)];
}

} // namespace

entry &trace::add(act what, std::string_view text, long number, long result) {
    if (size_ == entries_.size()) {
        entries_.emplace_back();
    }
    entry &next = entries_[size_++];
    next.what = what;
    next.number = number;
    next.result = result;
    next.at = world.now;
    next.wall = world.wall();
    next.text.assign(text);
    return next;
}

void trace::add_print(act what, std::string_view text) {
    if (size_ > 0) {
        entry &last = entries_[size_ - 1];
        if (last.what == what && last.at == world.now && last.wall == world.wall()) {
            last.text += text;
            return;
        }
    }
    add(what, text);
}

std::string describe(const entry &act) {
    return std::string(name(act.what)) + " " + printable(act.text, 5000);
}

} // namespace virtual_time
