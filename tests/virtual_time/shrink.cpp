#include "shrink.h"

#include "isolated.h"

#include <algorithm>

namespace virtual_time {

namespace {

constexpr int most_runs = 2000;

// A crash is told without its time.
std::int64_t end_of(const outcome &result, const history &events) {
    const std::int64_t last = events.empty() ? 0 : events.back().at;
    return (result.at > 0 ? result.at : last + hour) + minute;
}

// What was violated, without the details that change with the history.
std::string kind_of(const outcome &result) {
    return result.text.substr(0, result.text.find_first_of("0123456789\""));
}

class shrinker {
  public:
    shrinker(const history &events, const outcome &result)
        : best_{events, result}, kind_(kind_of(result)) {}

    shortest run() {
        drop_after_failure();
        keep_suffix();
        for (std::size_t before = 0; before != best_.events.size();) {
            before = best_.events.size();
            drop_chunks();
            close_gaps();
        }
        return best_;
    }

  private:
    bool try_history(history candidate) {
        if (best_.runs >= most_runs) {
            return false;
        }
        ++best_.runs;
        outcome result = live_isolated(candidate, end_of(best_.result, best_.events));
        if (!result.is_violated || kind_of(result) != kind_) {
            return false;
        }
        best_.events = std::move(candidate);
        best_.result = std::move(result);
        drop_after_failure();
        return true;
    }

    void drop_after_failure() {
        if (best_.result.at > 0) {
            std::erase_if(best_.events,
                          [&](const happening &event) { return event.at > best_.result.at; });
        }
    }

    // Often the last few events are enough, however long the history.
    void keep_suffix() {
        for (std::size_t size = 1; size < best_.events.size(); size *= 2) {
            const auto first = best_.events.end() - static_cast<std::ptrdiff_t>(size);
            history suffix(first, best_.events.end());
            const std::int64_t shift = std::max<std::int64_t>(suffix.front().at - minute, 0);
            for (happening &event : suffix) {
                event.at -= shift;
            }
            if (try_history(suffix)) {
                return;
            }
        }
    }

    // Delta debugging: without each chunk, in ever smaller chunks.
    void drop_chunks() {
        for (std::size_t size = (best_.events.size() + 1) / 2; size > 0; size /= 2) {
            for (std::size_t start = 0; start < best_.events.size();) {
                history rest = best_.events;
                const auto first = rest.begin() + static_cast<std::ptrdiff_t>(start);
                const std::size_t end = std::min(start + size, rest.size());
                rest.erase(first, rest.begin() + static_cast<std::ptrdiff_t>(end));
                start += try_history(rest) ? 0 : size;
            }
        }
    }

    // Everything after a gap happens earlier, if that fails too.
    void close_gaps() {
        for (std::size_t i = 0; i < best_.events.size(); ++i) {
            const std::int64_t before = i == 0 ? 0 : best_.events[i - 1].at;
            for (const std::int64_t gap : {second, minute, hour}) {
                const std::int64_t shift = best_.events[i].at - before - gap;
                if (shift > 0 && try_history(shifted(i, shift))) {
                    break;
                }
            }
        }
    }

    history shifted(std::size_t first, std::int64_t shift) const {
        history earlier = best_.events;
        for (std::size_t i = first; i < earlier.size(); ++i) {
            earlier[i].at -= shift;
        }
        return earlier;
    }

    shortest best_;
    std::string kind_;
};

} // namespace

shortest shrink(const history &failing, const outcome &result) {
    return shrinker(failing, result).run();
}

} // namespace virtual_time
