#include "hdtv/audio.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "hdtv/child_process.h"
#include "hdtv/config_store.h"
#include "hdtv/programs.h"

#include <initializer_list>
#include <unistd.h>
#include <utility>

namespace {

constexpr const char *wav_clip = "/tmp/play.wav";
constexpr const char *raw_clip = "/tmp/play.raw";

void start_mixer(std::initializer_list<const char *> arguments) {
    start_program(programs::amixer, arguments);
}

void start_player(std::initializer_list<const char *> arguments) {
    start_program(programs::aplay, arguments);
}

void set_routing(const_bstring device) {
    const bool is_headphones = biseqcstr(device, "headphones") == 1;
    start_mixer({"amixer", "cset", "numid=3", is_headphones ? "1" : "0"});
}

// The percent sign is always appended, whatever the value ends with.
void set_volume(bstring volume) {
    if (volume != nullptr) {
        bconchar(volume, '%');
    }
    start_mixer({"amixer", "set", "PCM", volume != nullptr ? bstr_text(volume) : "90%"});
}

void fetch(const_bstring address, const char *clip) {
    unlink(clip);
    run_program(programs::wget, {"wget", "-O", clip, "-T", "1", bstr_text(address)});
}

bstr_owner value_or(const_bstring json, const char *key, const char *fallback) {
    bstr_owner value(get_from_json(json, key));
    return value ? std::move(value) : bstr_owner(bfromcstr(fallback));
}

void play_wav(const_bstring address) {
    fetch(address, wav_clip);
    start_player({"aplay", wav_clip});
}

void play_raw(const_bstring address, const_bstring json) {
    const bstr_owner channels = value_or(json, "channels", "1");
    const bstr_owner rate = value_or(json, "rate", "22050");
    const bstr_owner format = value_or(json, "sample_format", "S16_LE");
    fetch(address, raw_clip);
    start_player({"aplay", "-c", bstr_text(channels.get()), "-r", bstr_text(rate.get()), "-f",
                  bstr_text(format.get()), raw_clip});
}

} // namespace

void play_audio(const_bstring address, const_bstring json) {
    const bstr_owner device(get_from_json(json, "device"));
    const bstr_owner volume(get_from_json(json, "volume"));
    set_routing(device.get());
    set_volume(volume.get());
    if (bstring_endswith_caseless(address, ".wav")) {
        play_wav(address);
    } else if (bstring_endswith_caseless(address, ".raw")) {
        play_raw(address, json);
    }
}
