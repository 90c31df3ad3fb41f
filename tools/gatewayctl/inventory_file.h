#pragma once

#include "tools/gatewayctl/inventory.h"

#include <string>
#include <vector>

/// An inventory that is written, to be read again. A file is replaced as a whole, with its mode and its
/// owner as far as they can be kept; a device or a pipe is written to.
class inventory_file {
  public:
    /// A run_failure if it cannot be written. Until it is written, nothing changes.
    explicit inventory_file(std::string name);

    /// With a comment above the units, unless it is empty.
    void write(const std::vector<inventory_unit> &units, const std::string &comment) const;

    void write(const std::string &text) const;

  private:
    std::string name_;
};
