#pragma once

#include "tools/gatewayctl/delivery.h"

#include <cstddef>
#include <string>
#include <vector>

/// What is said about a delivery: a line for each unit as its result comes, and a summary.

enum class report_form {
    one_unit, ///< a single line in words, or why it failed on standard error
    table,    ///< a line for each unit and a summary
    json      ///< a line of JSON for each unit
};

class delivery_report {
  public:
    /// On a terminal (standard error), how far a table has come is shown below it.
    delivery_report(report_form form, const std::vector<inventory_unit> &units, channel via,
                    std::size_t message_size, bool is_on_terminal);

    void add(const delivery_result &result);

    /// Says the summary.
    void finish() const;

    /// Those that have failed, in the order of their results.
    const std::vector<inventory_unit> &failed() const {
        return failed_;
    }

  private:
    void say_one(const delivery_result &result) const;
    void say_line(const delivery_result &result) const;
    void show_progress() const;
    void hide_progress() const;
    std::size_t taken() const {
        return known_ - failed_.size();
    }

    report_form form_;
    channel via_;
    std::size_t message_size_;
    bool shows_progress_;
    std::size_t total_;
    int name_width_ = 0;
    std::size_t known_ = 0;
    std::vector<inventory_unit> failed_;
};
