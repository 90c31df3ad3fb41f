#include "hdtv/control.h"

#include "service_test.h"

namespace {

using fake::state;

class json_control : public service_test {
  protected:
    void SetUp() override {
        service_test::SetUp();
        have_address("10.87.33.50");
        state.keeps_children = true;
    }

    static std::vector<std::string> control(const std::string &json) {
        state.calls.clear();
        handle_json_control(read_json_control(wire::message_of(json)));
        return state.executed();
    }
};

const std::vector<std::string> default_mixer = {"/usr/bin/amixer: amixer cset numid=3 0",
                                                "/usr/bin/amixer: amixer set PCM 90%"};

std::vector<std::string> after_default_mixer(const std::vector<std::string> &rest) {
    std::vector<std::string> all = default_mixer;
    all.insert(all.end(), rest.begin(), rest.end());
    return all;
}

TEST_F(json_control, wav_clip_in_upper_case_takes_all_defaults) {
    EXPECT_EQ(control(R"({"play_audio":"http://h/CLIP.WAV"})"),
              after_default_mixer({"/usr/bin/wget: wget -O /tmp/play.wav -T 1 http://h/CLIP.WAV",
                                   "/usr/bin/aplay: aplay /tmp/play.wav"}));
}

TEST_F(json_control, only_the_download_is_waited_for_and_the_old_clip_removed_before_it) {
    control(R"({"play_audio":"http://h/c.wav"})");
    std::vector<std::string> order;
    for (const std::string &call : state.calls) {
        if (call == "fork" || call == "wait" || call.starts_with("unlink")) {
            order.push_back(call);
        }
    }
    EXPECT_EQ(order, (std::vector<std::string>{"fork", "fork", "unlink /tmp/play.wav", "fork",
                                               "wait", "fork"}));
}

TEST_F(json_control, raw_clip_takes_its_defaults) {
    EXPECT_EQ(control(R"({"play_audio":"http://h/c.Raw"})"),
              after_default_mixer({"/usr/bin/wget: wget -O /tmp/play.raw -T 1 http://h/c.Raw",
                                   "/usr/bin/aplay: aplay -c 1 -r 22050 -f S16_LE /tmp/play.raw"}));
    EXPECT_EQ(state.calls_of("unlink"), std::vector<std::string>{"unlink /tmp/play.raw"});
}

TEST_F(json_control, raw_clip_takes_what_the_message_says) {
    EXPECT_EQ(
        control(R"({"play_audio":"c.raw","channels":"2","rate":"44100","sample_format":"U8"})")
            .back(),
        "/usr/bin/aplay: aplay -c 2 -r 44100 -f U8 /tmp/play.raw");
}

TEST_F(json_control, routing_knows_headphones_exactly) {
    const auto routing = [](const char *device) {
        return control(std::string(R"({"play_audio":"x","device":")") + device + R"("})").front();
    };
    EXPECT_EQ(routing("headphones"), "/usr/bin/amixer: amixer cset numid=3 1");
    for (const char *device : {"Headphones", "headphones ", "hdmi", ""}) {
        EXPECT_EQ(routing(device), "/usr/bin/amixer: amixer cset numid=3 0") << device;
    }
}

TEST_F(json_control, percent_sign_is_appended_unconditionally) {
    const auto volume = [](const char *value) {
        return control(std::string(R"({"play_audio":"x","volume":")") + value + R"("})")[1];
    };
    EXPECT_EQ(volume("75"), "/usr/bin/amixer: amixer set PCM 75%");
    EXPECT_EQ(volume("75%"), "/usr/bin/amixer: amixer set PCM 75%%");
    EXPECT_EQ(volume(""), "/usr/bin/amixer: amixer set PCM %");
}

TEST_F(json_control, key_with_a_blank_is_not_found_and_takes_its_default) {
    EXPECT_EQ(control(R"({"play_audio":"x","volume": "75","device": "headphones"})"),
              default_mixer);
    EXPECT_TRUE(control(R"({"play_audio": "c.wav"})").empty());
    EXPECT_TRUE(control(R"({"play_audio":75})").empty());
}

TEST_F(json_control, other_ending_starts_only_the_mixer) {
    EXPECT_EQ(control(R"({"play_audio":"http://h/c.mp3"})"), default_mixer);
    EXPECT_EQ(control(R"({"play_audio":""})"), default_mixer);
}

TEST_F(json_control, ending_that_occurs_earlier_too_is_not_recognised) {
    EXPECT_EQ(control(R"({"play_audio":"http://h/c.wav?f=c.wav"})"), default_mixer);
    EXPECT_EQ(control(R"({"play_audio":"http://h/c.wav?f=c.wav.raw"})").size(), 4U);
}

TEST_F(json_control, comm_gw_replaces_the_gateway_also_behind_the_proxy) {
    use_oru_proxy = true;
    current_gateway = bfromcstr("10.87.33.20");
    EXPECT_TRUE(control(R"({"comm_gw":"10.87.33.7"})").empty());
    EXPECT_EQ(biseqcstr(current_gateway, "10.87.33.7"), 1);
    EXPECT_EQ(output(), "Setting Gateway Address: 10.87.33.7\n");
    EXPECT_EQ(state.files["/dev/shm/current_gateway"],
              R"({"gateway_addr": "10.87.33.7", "mac_addr": "001122AABBCC"})");
    EXPECT_FALSE(state.files.contains("/var/www/config.json"));
}

TEST_F(json_control, comm_gw_is_not_checked) {
    control(R"({"comm_gw":"not an address"})");
    EXPECT_EQ(biseqcstr(current_gateway, "not an address"), 1);
    control(R"({"comm_gw":""})");
    EXPECT_EQ(biseqcstr(current_gateway, ""), 1);
}

TEST_F(json_control, audio_comes_before_the_gateway) {
    control(R"({"comm_gw":"10.87.33.7","play_audio":"c.wav"})");
    const auto last_fork = std::find(state.calls.rbegin(), state.calls.rend(), "fork");
    EXPECT_TRUE(std::any_of(state.calls.rbegin(), last_fork, [](const std::string &call) {
        return call.starts_with("open /dev/shm/current_gateway");
    }));
    EXPECT_EQ(state.calls_of("fork").size(), 4U);
}

TEST_F(json_control, text_of_a_full_buffer_ends_at_its_end) {
    const std::string start = R"({"play_audio":")";
    EXPECT_TRUE(control(start + std::string(4096 - start.size(), 'x')).empty());
    EXPECT_TRUE(control("{").empty());
}

} // namespace
