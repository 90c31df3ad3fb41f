#include "tools/gatewayctl/commands/commands.h"

void add_commands(CLI::App &app) {
    add_display_alert(app);
    add_detail_alert(app);
    add_map(app);
    add_stop_turnout(app);
    add_end_alert(app);
    add_turnout_timer(app);
    add_set_date(app);
    add_page(app);
    add_rotation(app);
    add_reboot(app);
    add_play_audio(app);
    add_set_gateway(app);
    add_raw(app);
    add_roll_call(app);
    add_serve(app);
    add_decode(app);
}
