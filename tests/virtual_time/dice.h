#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace virtual_time {

/// Random numbers that are the same with every library.
class dice {
  public:
    // Mixed: with its steps in between, two seeds would have the same numbers, only shifted.
    explicit dice(std::uint64_t seed) : state_(mix(seed)) {}

    std::uint64_t next() {
        return mix(state_ += 0x9E3779B97F4A7C15U);
    }

    /// From 0 to limit - 1.
    int below(int limit) {
        return static_cast<int>(next() % static_cast<std::uint64_t>(limit));
    }

    bool one_in(int chances) {
        return below(chances) == 0;
    }

    /// An interval of about this length, often much shorter and sometimes much longer.
    std::int64_t around(std::int64_t mean) {
        const double portion = (static_cast<double>(next() >> 11) + 1) / 9007199254740993.0;
        return 1 + static_cast<std::int64_t>(-std::log(portion) * static_cast<double>(mean));
    }

    template <typename list> const auto &pick(const list &from) {
        return from[next() % std::size(from)];
    }

  private:
    static std::uint64_t mix(std::uint64_t z) {
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
        return z ^ (z >> 31);
    }

    std::uint64_t state_;
};

} // namespace virtual_time
