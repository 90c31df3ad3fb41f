#pragma once

#include "tools/doctor/processes.h"
#include "tools/gatewayctl/descriptor_owner.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <vector>

/// The service is not stopped; the text says why. It goes on.
struct stop_failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// How the service was started, and so how it is stopped and started again.
struct service_commands {
    std::vector<std::string> stop;
    std::vector<std::string> start;
};

/// Of this process; a stop_failure if it was started by neither systemd nor the init script.
service_commands commands_for(const process &service);

/// Whether the alert document shows an alert: a time and a text, or a stopped turnout timer. An empty
/// one is just being written; nothing: there is none.
bool shows_alert(const std::optional<std::string> &document);

/// Stops the service for as long as this lives. It is started again in any case, even if this program
/// is killed: a keeper waits for its end, and for that of the command that stops the service.
class stopped_service {
  public:
    /// A stop_failure if there is an alert on the page or on its way, or if the service does not stop.
    explicit stopped_service(const process &service);
    stopped_service(const stopped_service &) = delete;
    stopped_service &operator=(const stopped_service &) = delete;
    ~stopped_service();

    /// Waits until it has been started again. Whether that worked.
    bool start_again();

  private:
    descriptor_owner alive_; // closed with this program, whatever ends it
    pid_t keeper_ = -1;
};
