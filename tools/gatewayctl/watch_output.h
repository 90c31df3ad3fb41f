#pragma once

#include "tools/gatewayctl/fleet.h"

#include <string>

/// Where the watch tells what it sees: a table that is redrawn in place, lines with the time, or lines of
/// JSON.
class watch_output {
  public:
    /// A table where standard output is a terminal that can show one.
    explicit watch_output(bool as_json);

    void tell(const fleet_change &change, bool has_names);

    /// Something else that a reader of lines should know; the table has its own ways to tell it.
    void note(const std::string &who, const std::string &what) const;

    /// What went wrong: it stays above the table until it is replaced; empty: all is well again.
    void complain(const std::string &what);

    /// Redraws the table if it has changed or a second has passed. A run_failure if nobody can read the
    /// output any more.
    void show(const fleet &units, moment now, clock_type::time_point next_call);

  private:
    enum class form { table, lines, json };

    void draw(const fleet &units, moment now, clock_type::time_point next_call) const;

    form form_;
    std::string complaint_;
    bool is_changed_ = true;
    clock_type::time_point drawn_;
};
