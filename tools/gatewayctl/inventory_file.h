#pragma once

#include "tools/gatewayctl/inventory.h"

#include <string>
#include <vector>

/// An inventory that is written, to be read again.
class inventory_file {
  public:
    /// A run_failure if the file cannot be written. What it holds stays until it is written.
    explicit inventory_file(std::string name);

    /// With a comment above the units, unless it is empty.
    void write(const std::vector<inventory_unit> &units, const std::string &comment) const;

  private:
    std::string name_;
};
