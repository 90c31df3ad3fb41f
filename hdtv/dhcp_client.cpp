#include "hdtv/dhcp_client.h"

#include "hdtv/child_process.h"
#include "hdtv/programs.h"

pid_t udhcpc_pid;

void setup_dhcp_background_process() {
    run_program(programs::killall, {"killall", "-9", "udhcpc"});
    // 30 discovery requests, 30 seconds between rounds, exit once there is an address.
    udhcpc_pid = start_program(programs::udhcpc, {"udhcpc", "-t", "30", "-A", "30", "-q"});
}

void reset_dhcp_client_state() {
    udhcpc_pid = 0;
}
