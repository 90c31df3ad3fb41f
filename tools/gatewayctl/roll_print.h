#pragma once

#include "tools/gatewayctl/roll.h"

#include <vector>

/// A roll call's result on standard output: a table, or a line of JSON for each unit.

void print_answers(const std::vector<roll_answer> &answers, bool as_json);

/// With a summary below the table. The answers are all that there are, for their duplicates.
void print_entries(const std::vector<roll_entry> &entries, const std::vector<roll_answer> &answers,
                   bool as_json);
