#pragma once

#include "ledger.h"

#include <algorithm>
#include <string_view>

/// The words of a name with blanks between them, cut where there is no room. Numbers that differ
/// from day to day, in a path below /proc, are written as PID.
class site_name {
  public:
    site_name() = default;
    explicit site_name(std::string_view word) {
        append(word);
    }

    void append(std::string_view word) {
        if (word.empty()) {
            return;
        }
        if (size_ > 0) {
            add(" ");
        }
        constexpr std::string_view processes = "/proc/";
        const bool is_process = word.substr(0, processes.size()) == processes;
        add(is_process ? "/proc/PID" : word);
    }

    const char *text() const {
        return text_;
    }

  private:
    void add(std::string_view part) {
        const std::size_t count = std::min(part.size(), longest_site_name - 1 - size_);
        std::copy_n(part.data(), count, text_ + size_);
        size_ += count;
    }

    char text_[longest_site_name] = "";
    std::size_t size_ = 0;
};
