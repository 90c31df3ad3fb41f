// The parts of the doctor that need no machine.

#include "tools/doctor/browser.h"
#include "tools/doctor/files.h"
#include "tools/doctor/machine.h"
#include "tools/doctor/processes.h"
#include "tools/doctor/report.h"
#include "tools/doctor/run_program.h"
#include "tools/doctor/sections.h"
#include "tools/doctor/shipped_headers.h"
#include "tools/doctor/sockets.h"
#include "tools/doctor/stopped_service.h"
#include "tools/doctor/watch.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <string>
#include <unistd.h>

namespace {

process make_process(int pid, int parent, const std::string &name, char state = 'S') {
    process made;
    made.pid = pid;
    made.parent = parent;
    made.name = name;
    made.state = state;
    return made;
}

finding about_service(std::vector<process> all) {
    return look_at_service(make_snapshot(std::move(all))).front();
}

const std::string sockets_table =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
    "   0: 00000000:0FA0 00000000:0000 0A 00000000:00000003 00:00000000 00000000     0        0 777 1\n"
    "   1: 3221570A:0FA0 1421570A:C350 06 00000000:00000000 03:00000E1E 00000000     0        0 0 3\n"
    "   2: 00000000:1388 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 778 1\n"
    "   nonsense\n";

} // namespace

TEST(doctor_processes, reads_any_name) {
    const auto found = parse_process("12 (a) R) b) Z 3 12 12 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 99 0");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->pid, 12);
    EXPECT_EQ(found->name, "a) R) b");
    EXPECT_EQ(found->state, 'Z');
    EXPECT_EQ(found->parent, 3);
    EXPECT_EQ(found->started, 99U);
    EXPECT_FALSE(parse_process(""));
    EXPECT_FALSE(parse_process(") 1 ("));
}

// A child that is about to become a program still has the service's name.
TEST(doctor_processes, knows_the_service_from_its_children) {
    const snapshot taken =
        make_snapshot({make_process(5, 1, "hdtv"), make_process(6, 5, "hdtv"),
                       make_process(7, 5, "udhcpc"), make_process(8, 1, "hdtv", 'Z')});
    ASSERT_EQ(taken.services.size(), 1U);
    EXPECT_EQ(taken.service()->pid, 5);
}

TEST(doctor_processes, grades_the_service) {
    EXPECT_EQ(about_service({}).result, grade::fail);
    EXPECT_EQ(about_service({make_process(5, 1, "hdtv")}).result, grade::ok);
    EXPECT_EQ(about_service({make_process(5, 1, "hdtv", 'T')}).result, grade::fail);
    EXPECT_EQ(about_service({make_process(5, 1, "hdtv"), make_process(9, 1, "hdtv")}).evidence,
              "more than one hdtv process: 5, 9");
}

TEST(doctor_sockets, reads_the_kernels_table) {
    const auto found = parse_sockets(sockets_table, 4000);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_TRUE(is_served(protocol_kind::tcp, found[0]));
    EXPECT_FALSE(is_served(protocol_kind::udp, found[0]));
    EXPECT_EQ(found[0].waiting, 3U);
    EXPECT_EQ(descriptor_name(found[0]), "socket:[777]");
    EXPECT_EQ(describe(found[1], {}), "TIME-WAIT, of a connection with 10.87.33.20");
    EXPECT_EQ(describe(found, {}), "LISTEN; TIME-WAIT, of a connection with 10.87.33.20");
    EXPECT_TRUE(parse_sockets("", 4000).empty());
}

TEST(doctor_grades, liveness) {
    EXPECT_EQ(grade_liveness(0, 1000).result, grade::ok);
    EXPECT_EQ(grade_liveness(60, 1000).result, grade::ok);
    EXPECT_EQ(grade_liveness(61, 1000).result, grade::fail);
    EXPECT_NE(grade_liveness(301, 1000).evidence.find("no longer"), std::string::npos);
    EXPECT_EQ(grade_liveness(-5, 1000).result, grade::cannot_tell);
    EXPECT_EQ(grade_liveness(std::nullopt, 1000).result, grade::fail);
    EXPECT_EQ(grade_liveness(std::nullopt, 10).result, grade::cannot_tell);
    EXPECT_EQ(grade_liveness(400, std::nullopt).result, grade::cannot_tell);
    // A former service's page has left it.
    EXPECT_EQ(grade_liveness(400, 10).result, grade::cannot_tell);
    EXPECT_EQ(grade_liveness(12, 10).result, grade::cannot_tell);
    EXPECT_EQ(grade_liveness(11, 10).result, grade::ok); // either may be rounded
    EXPECT_EQ(grade_liveness(400, 60).result, grade::fail);
}

TEST(doctor_grades, browser) {
    const process service = make_process(5, 1, "hdtv");
    process shown = make_process(6, 5, "kiosk");
    shown.arguments = {"kiosk", "-u", "http://127.0.0.1/station_web/"};
    EXPECT_EQ(grade_browser(make_snapshot({shown})).result, grade::cannot_tell);
    EXPECT_EQ(grade_browser(make_snapshot({service, shown})).result, grade::ok);
    // A gateway may have blanked the page, and other programs end, too.
    EXPECT_EQ(grade_browser(make_snapshot({service})).result, grade::cannot_tell);
    for (const char *name : {"wget", "aplay", "date", "S40network", "sh", "hdtv"}) {
        const snapshot taken = make_snapshot({service, make_process(7, 5, name, 'Z')});
        EXPECT_EQ(grade_browser(taken).result, grade::cannot_tell) << name;
    }
    for (const char *name : {"qt-webkit-kiosk", "chromium"}) {
        const snapshot taken = make_snapshot({service, make_process(7, 5, name, 'Z')});
        EXPECT_EQ(grade_browser(taken).result, grade::fail) << name;
    }
    const snapshot others = make_snapshot({service, make_process(7, 1, "chromium", 'Z')});
    EXPECT_EQ(grade_browser(others).result, grade::cannot_tell);
}

TEST(doctor_grades, clock) {
    EXPECT_EQ(grade_clock(86400, true).result, grade::fail);
    EXPECT_NE(grade_clock(86400, true).evidence.find("1970-01-02"), std::string::npos);
    EXPECT_EQ(grade_clock(1800000000, true).result, grade::ok);
    EXPECT_EQ(grade_clock(1800000000, false).result, grade::cannot_tell);
}

TEST(doctor_grades, root_file_system) {
    EXPECT_EQ(grade_root(false, true).result, grade::ok);
    EXPECT_EQ(grade_root(true, true).result, grade::fail);
    EXPECT_EQ(grade_root(true, true).chapter, chapter::debian);
    EXPECT_EQ(grade_root(true, false).result, grade::fail);
    EXPECT_EQ(grade_root(true, false).chapter, chapter::image);
}

TEST(doctor_grades, watchdog_timeout) {
    EXPECT_EQ(grade_watchdog_timeout({"board", 15, "active", true}).result, grade::ok);
    EXPECT_EQ(grade_watchdog_timeout({"", 60, "active", true}).result, grade::fail);
    EXPECT_EQ(grade_watchdog_timeout({"", 15, "inactive", true}).result, grade::fail);
    // Nobody has set it yet, or this user does not see who has.
    EXPECT_EQ(grade_watchdog_timeout({"", 15, "inactive", false}).result, grade::cannot_tell);
    EXPECT_EQ(grade_watchdog_timeout({"", 60, "active", false}).result, grade::cannot_tell);
}

TEST(doctor_grades, audio_control) {
    constexpr const char *card = " 0 [ALSA           ]: bcm2835 - bcm2835 ALSA\n";
    EXPECT_EQ(grade_audio(true, card).result, grade::ok);
    EXPECT_EQ(grade_audio(false, card).result, grade::fail);
    EXPECT_EQ(grade_audio(false, "--- no soundcards ---\n").result, grade::cannot_tell);
    EXPECT_EQ(grade_audio(false, "").result, grade::cannot_tell);
}

TEST(doctor_grades, space) {
    EXPECT_EQ(grade_space("/tmp", 999, 1000).result, grade::fail);
    EXPECT_EQ(grade_space("/tmp", 1000, 1000).result, grade::ok);
}

TEST(doctor_headers, are_those_of_the_configuration) {
    const header_list headers = shipped_headers();
    ASSERT_EQ(headers.size(), 4U);
    EXPECT_EQ(headers[0], std::pair(std::string("Cache-Control"), std::string("no-store")));
    EXPECT_NE(headers[2].second.find("; script-src 'self' 'sha256-"), std::string::npos);
    EXPECT_EQ(headers[3].first, "X-Frame-Options");
    EXPECT_TRUE(headers_set_in("server.port = 80").empty());
}

TEST(doctor_stop, leaves_an_alert_alone) {
    const std::string alert =
        R"([{"alert_type":"hdtv_alert", "show_turnout_timer":"1", "alert_time":"1709622249", )"
        R"("alert_area":"FIRE", "map_url":"", "units":[]}])";
    EXPECT_TRUE(shows_alert(alert));
    EXPECT_TRUE(shows_alert(R"([{"alert_type":"stop_turnout", "alert_time":"0"}])"));
    EXPECT_FALSE(
        shows_alert(R"([{"alert_type":"display_alert", "alert_time":"0", "alert_area":"x"}])"));
    EXPECT_FALSE(
        shows_alert(R"([{"alert_type":"display_alert", "alert_time":"5", "alert_area":""}])"));
    EXPECT_TRUE(shows_alert("")); // it is being written
    EXPECT_FALSE(shows_alert(std::nullopt));
    EXPECT_THROW(commands_for(make_process(1 << 30, 1, "hdtv")), stop_failure);
}

TEST(doctor_stop, leaves_a_message_that_is_on_its_way_alone) {
    table_socket socket;
    EXPECT_FALSE(is_message_underway({}));
    for (const unsigned state : {TCP_SYN_RECV, TCP_ESTABLISHED, TCP_CLOSE_WAIT}) {
        socket.state = state;
        EXPECT_TRUE(is_message_underway({socket})) << state;
    }
    for (const unsigned state : {TCP_TIME_WAIT, TCP_FIN_WAIT1, TCP_LISTEN}) {
        socket.state = state;
        EXPECT_FALSE(is_message_underway({socket})) << state;
    }
    socket.waiting = 1;
    EXPECT_TRUE(is_message_underway({socket}));
}

TEST(doctor_programs, are_waited_for) {
    EXPECT_EQ(run_and_wait({"/bin/sh", "-c", "exit 3"}), 3);
    EXPECT_EQ(run_and_wait({"/bin/sh", "-c", "kill -9 $$"}), std::nullopt);
    EXPECT_EQ(run_and_wait({"/nowhere/at/all"}).value_or(127), 127);
}

TEST(doctor_programs, are_killed_with_what_they_have_started) {
    const std::chrono::minutes enough(1);
    const std::chrono::milliseconds little(20);
    EXPECT_EQ(run_and_wait({"/bin/sh", "-c", "exit 3"}, {.limit = enough}), 3);
    EXPECT_EQ(run_and_wait({"/bin/sh", "-c", "sleep 600; true"}, {.limit = little}), std::nullopt);
    EXPECT_EQ(ask_in_child([] { return std::string("all"); }, enough), "all");
    EXPECT_EQ(ask_in_child([]() -> std::string { _exit(1); }, enough), std::nullopt);
    const auto hanging = [] {
        return std::string(std::system("sleep 600; true") == 0 ? "" : "no");
    };
    EXPECT_EQ(ask_in_child(hanging, little), std::nullopt);
}

// Whoever waits for the pipe's end waits for the program, too, and for nothing that comes after it.
TEST(doctor_programs, have_a_descriptor_that_is_lent_to_them) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const std::string look = "[ -e /proc/self/fd/" + std::to_string(ends[1]) + " ]";
    EXPECT_EQ(run_and_wait({"/bin/sh", "-c", look}, {.lent = ends[1]}), 0);
    EXPECT_EQ(run_and_wait({"/bin/sh", "-c", look}), 1);
    close(ends[0]);
    close(ends[1]);
}

TEST(doctor_programs, have_a_process_group_of_their_own) {
    EXPECT_EQ(run_and_wait({"/bin/sh", "-c", "[ $(cut -d' ' -f5 /proc/$$/stat) = $$ ]"}), 0);
}

TEST(doctor_report, has_a_line_for_each_link) {
    const std::vector<section> sections = {
        {"network", {is_ok("eth0", "up"), has_failed("address", "none\x1b[2J", "look", "Trouble")}},
        {"machine", {cannot_tell("clock", "it may be right")}}};
    EXPECT_EQ(to_text(sections, {}), "network\n"
                                     "  ok           eth0: up\n"
                                     "  FAIL         address: none\\x1b[2J\n"
                                     "               next: look (\"Trouble\")\n"
                                     "machine\n"
                                     "  cannot tell  clock: it may be right\n"
                                     "\n"
                                     "1 ok, 1 FAIL, 1 cannot tell\n"
                                     "The chapters in quotation marks are those of "
                                     "docs/operations.md.\n");
    EXPECT_TRUE(has_failure(sections));
    EXPECT_NE(to_text(sections, {false, true}).find("\033[1;31mFAIL\033[0m         address"),
              std::string::npos);
    EXPECT_EQ(to_text({sections[1]}, {true, false}),
              "{\"section\": \"machine\", \"link\": \"clock\", \"grade\": \"cannot tell\", "
              "\"evidence\": \"it may be right\"}\n");
    EXPECT_FALSE(has_failure({sections[1]}));
}

TEST(doctor_report, json_is_json_whatever_the_evidence) {
    EXPECT_EQ(to_text("s", cannot_tell("l", "a \"b\" \\ \x1b \xff"), {true, false}),
              R"({"section": "s", "link": "l", "grade": "cannot tell", )"
              R"("evidence": "a \"b\" \\ \u001b \ufffd"})"
              "\n");
}

TEST(doctor_watch, tells_each_change_once) {
    change_log changes;
    const section good = {"network", {is_ok("eth0", "up")}};
    const section bad = {"network", {has_failed("eth0", "down", "look", "Trouble")}};
    EXPECT_EQ(changes.take({good}, {}, "12:00:00"), "12:00:00  ok           eth0: up\n");
    EXPECT_EQ(changes.take({good}, {}, "12:00:02"), "");
    EXPECT_TRUE(changes.take({bad}, {}, "12:00:04").starts_with("12:00:04  FAIL         eth0"));
    EXPECT_EQ(changes.take({good}, {true, false}, "12:00:06").substr(0, 20),
              "{\"time\": \"12:00:06\",");
}

TEST(doctor_texts, sizes_and_durations) {
    EXPECT_EQ(size_text(17), "17 bytes");
    EXPECT_EQ(size_text(2000000), "2000 kB");
    EXPECT_EQ(size_text(268000000), "268 MB");
    EXPECT_EQ(duration_text(119), "119 s");
    EXPECT_EQ(duration_text(120), "2 min");
    EXPECT_EQ(duration_text(7200), "2 h");
    EXPECT_EQ(duration_text(172800), "2 days");
}
