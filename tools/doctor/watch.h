#pragma once

#include "tools/doctor/report.h"

#include <chrono>
#include <csignal>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// Looks again and again, for somebody who moves cables.

/// The lines of those links whose grade is new since the last round; all of them in the first one.
class change_log {
  public:
    std::string take(const std::vector<section> &sections, const report_style &style,
                     const std::string &time);

  private:
    std::map<std::pair<std::string, std::string>, std::vector<grade>> known_;
};

/// Until the flag is set: on a terminal the whole report in place, else a line for each change. The
/// last round's sections.
std::vector<section> watch(const std::function<std::vector<section>()> &look,
                           const report_style &style, std::chrono::milliseconds pause,
                           const volatile std::sig_atomic_t &is_over);
