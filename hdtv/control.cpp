#include "hdtv/control.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "hdtv/audio.h"
#include "hdtv/config_store.h"
#include "hdtv/gateway_address.h"

void handle_json_control(const json_control &control) {
    const bstr_owner json(blk2bstr(control.text.data(), static_cast<int>(control.text.size())));
    const bstr_owner clip(get_from_json(json.get(), "play_audio"));
    const bstr_owner comm_gw(get_from_json(json.get(), "comm_gw"));
    if (clip) {
        play_audio(clip.get(), json.get());
    }
    if (comm_gw) {
        set_gateway(bstr_text(comm_gw.get()));
    }
}
