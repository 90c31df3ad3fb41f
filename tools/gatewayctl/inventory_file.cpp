#include "tools/gatewayctl/inventory_file.h"

#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/socket.h"

#include <cerrno>
#include <fstream>
#include <utility>

inventory_file::inventory_file(std::string name) : name_(std::move(name)) {
    if (!std::ofstream(name_, std::ios::app)) {
        throw run_failure("cannot write " + name_ + ": " + reason(errno));
    }
}

void inventory_file::write(const std::vector<inventory_unit> &units,
                           const std::string &comment) const {
    std::ofstream file(name_);
    if (!comment.empty()) {
        file << "# " << comment << "\n";
    }
    for (const inventory_unit &unit : units) {
        file << to_text(unit) << "\n";
    }
    file.close();
    if (!file) {
        throw run_failure("cannot write " + name_ + ": " + reason(errno));
    }
}
