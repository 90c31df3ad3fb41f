#include "hdtv/kiosk.h"

#include "service_test.h"

#include "bstrlib/bstr_owner.h"
#include "hdtv/proxy.h"

#include <csignal>
#include <netinet/in.h>
#include <netinet/tcp.h>

namespace {

using fake::state;

class kiosk : public service_test {
  protected:
    /// The browser's command line and what its child did before it, for the current url.
    static std::vector<std::string> child_calls() {
        state.next_pid = 0;
        state.calls.clear();
        kiosk_pid = 0;
        EXPECT_CHILD_ENDS(set_url_w_rotation(url));
        return state.calls;
    }
    static std::string command_line() {
        child_calls();
        return state.executed().back();
    }
};

TEST_F(kiosk, first_start_signals_nobody) {
    have_url("http://a/");
    set_url_w_rotation(url);
    EXPECT_EQ(state.calls, std::vector<std::string>{"fork"});
    EXPECT_EQ(kiosk_pid, 100);
}

TEST_F(kiosk, later_start_kills_and_reaps_the_browser_by_its_own_pid) {
    have_url("http://a/");
    set_url_w_rotation(url);
    set_url_w_rotation(url);
    EXPECT_EQ(state.calls,
              (std::vector<std::string>{"fork", "kill 100 9", "waitpid 100 0", "fork"}));
    EXPECT_EQ(kiosk_pid, 101);
}

TEST_F(kiosk, browser_that_is_gone_already_is_no_obstacle) {
    have_url("http://a/");
    kiosk_pid = 77;
    state.failing = {"kill", "waitpid"};
    set_url_w_rotation(url);
    EXPECT_EQ(kiosk_pid, 100);
}

TEST_F(kiosk, failed_fork_leaves_minus_1_and_the_next_start_signals_it) {
    have_url("http://a/");
    state.failing = {"fork"};
    set_url_w_rotation(url);
    EXPECT_EQ(kiosk_pid, -1);
    state.failing.clear();
    set_url_w_rotation(url);
    EXPECT_EQ(state.calls, (std::vector<std::string>{"fork", "kill -1 9", "waitpid -1 0", "fork"}));
    EXPECT_EQ(kiosk_pid, 100);
}

TEST_F(kiosk, stored_address_itself_restarts_the_page_without_a_copy) {
    have_url("http://a/");
    const bstring record = url;
    set_url_w_rotation(url);
    EXPECT_EQ(url, record);
}

TEST_F(kiosk, other_record_is_copied_and_stays_the_callers) {
    have_url("http://a/");
    const bstr_owner other(bfromcstr("http://a/"));
    set_url_w_rotation(other.get());
    EXPECT_NE(url, other.get());
    EXPECT_EQ(biseqcstr(url, "http://a/"), 1);
    EXPECT_EQ(biseqcstr(other.get(), "http://a/"), 1);
}

TEST_F(kiosk, null_or_empty_address_stops_the_browser_and_drops_the_stored_one) {
    const bstr_owner empty(bfromcstr(""));
    for (bstring address : {static_cast<bstring>(nullptr), empty.get()}) {
        have_url("http://a/");
        kiosk_pid = 77;
        state.calls.clear();
        set_url_w_rotation(address);
        EXPECT_EQ(url, nullptr);
        EXPECT_EQ(state.calls, (std::vector<std::string>{"kill 77 9", "waitpid 77 0"}));
        EXPECT_EQ(kiosk_pid, 77);
    }
    EXPECT_EQ(empty->slen, 0);
}

TEST_F(kiosk, stored_address_that_is_empty_is_dropped_once) {
    have_url("");
    set_url_w_rotation(url);
    EXPECT_EQ(url, nullptr);
    set_url_w_rotation(url);
    EXPECT_EQ(url, nullptr);
    EXPECT_TRUE(state.calls_of("fork").empty());
}

TEST_F(kiosk, bare_address_without_rotation) {
    have_url("http://127.0.0.1/station_web/");
    EXPECT_EQ(command_line(),
              "/usr/bin/qt-webkit-kiosk: qt-webkit-kiosk -u http://127.0.0.1/station_web/");
}

TEST_F(kiosk, rotation_is_appended_to_the_launch_address_only) {
    have_url("http://a/");
    rotation = 270;
    EXPECT_EQ(command_line(),
              "/usr/bin/qt-webkit-kiosk: qt-webkit-kiosk -u http://a/?rotation=270");
    EXPECT_EQ(biseqcstr(url, "http://a/"), 1);
    rotation = 360;
    EXPECT_TRUE(command_line().ends_with("?rotation=360"));
    rotation = 0;
    EXPECT_TRUE(command_line().ends_with("-u http://a/"));
}

TEST_F(kiosk, rotation_is_appended_with_a_second_question_mark) {
    have_url("http://a/?b=c");
    rotation = 90;
    EXPECT_TRUE(command_line().ends_with("-u http://a/?b=c?rotation=90"));
}

TEST_F(kiosk, command_line_with_the_proxy) {
    have_url("http://a/");
    use_oru_proxy = true;
    EXPECT_EQ(command_line(), "/usr/bin/qt-webkit-kiosk: qt-webkit-kiosk -c "
                              "/usr/etc/xdg/QtWebkitKiosk/proxy.ini -u http://a/");
}

TEST_F(kiosk, child_dies_with_the_service_says_how_it_starts_and_exits_with_0_without_exec) {
    have_url("http://a/");
    const std::vector<std::string> without_proxy = child_calls();
    EXPECT_EQ(without_proxy,
              (std::vector<std::string>{
                  "fork", "prctl 1 9", "write 1 Starting qt-webkit-kiosk without proxy\n",
                  "signal 13 default",
                  "execv /usr/bin/qt-webkit-kiosk: qt-webkit-kiosk -u http://a/", "_exit 0"}));
    use_oru_proxy = true;
    EXPECT_EQ(child_calls()[2], "write 1 Starting qt-webkit-kiosk using proxy\n");
}

// The proxy test.

class proxy : public service_test {};

TEST_F(proxy, that_answers_is_found) {
    EXPECT_TRUE(detect_proxy());
    EXPECT_EQ(output(), "Proxy listening on 10.87.33.1:3128\n");
    EXPECT_EQ(state.calls, (std::vector<std::string>{"socket tcp",
                                                     "setsockopt " + std::to_string(IPPROTO_TCP) +
                                                         " " + std::to_string(TCP_SYNCNT) + " 2",
                                                     "connect 10.87.33.1:3128", "close 1000"}));
    EXPECT_FALSE(use_oru_proxy);
    EXPECT_TRUE(state.sent.empty());
}

TEST_F(proxy, that_refuses_is_not_found) {
    state.failing = {"connect"};
    EXPECT_FALSE(detect_proxy());
    EXPECT_EQ(output(),
              "Unable to connect to proxy at 10.87.33.1:3128.  Disabling proxy support\n");
    EXPECT_EQ(state.calls.back(), "close 1000");
}

TEST_F(proxy, test_without_a_socket_goes_on_and_fails) {
    state.failing = {"socket tcp"};
    EXPECT_FALSE(detect_proxy());
    EXPECT_EQ(output(),
              "Unable to connect to proxy at 10.87.33.1:3128.  Disabling proxy support\n");
}

TEST_F(proxy, test_on_descriptor_0_is_skipped) {
    state.next_descriptor = 0;
    EXPECT_FALSE(detect_proxy());
    EXPECT_EQ(output(), "");
    EXPECT_EQ(state.calls, std::vector<std::string>{"socket tcp"});
}

TEST_F(proxy, is_chosen_on_the_gateway_network_only) {
    choose_proxy("10.87.33.50");
    EXPECT_TRUE(use_oru_proxy);
    for (const char *address : {"110.87.33.4", "10.87.3.4", "192.168.10.87", "10.87.34.1"}) {
        state.calls.clear();
        choose_proxy(address);
        EXPECT_FALSE(use_oru_proxy) << address;
        EXPECT_TRUE(state.calls.empty()) << address;
    }
}

TEST_F(proxy, that_does_not_answer_is_not_chosen) {
    use_oru_proxy = true;
    state.failing = {"connect"};
    choose_proxy("10.87.33.50");
    EXPECT_FALSE(use_oru_proxy);
}

} // namespace
