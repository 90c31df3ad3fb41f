#pragma once

/// Where the providers find their bus.

constexpr const char *cec_device = "/dev/cec0";             ///< linux
constexpr const char *cec_bus_socket = "/run/cec-bus.sock"; ///< bus
constexpr const char *cec_videocore_device = "/dev/vchiq";  ///< videocore: what its libraries open
