#include "cec/cec.h"
#include "cec/cec_port.h"

#include "captured_output.h"

#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>
#include <optional>
#include <pthread.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

// The provider's end of the bus is one of a pair of sockets, and its thread can fail to start.
namespace {
int provider_end = -1;
int thread_error;
pthread_t provider_thread;
std::atomic<unsigned> pauses;
} // namespace

extern "C" {
int __wrap_socket(int /*family*/, int /*type*/, int /*protocol*/) {
    return provider_end;
}

int __wrap_connect(int /*fd*/, const sockaddr * /*address*/, socklen_t /*size*/) {
    return provider_end < 0 ? -1 : 0;
}

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *),
                          void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *),
                          void *argument) {
    if (thread_error != 0) {
        return thread_error;
    }
    const int error = __real_pthread_create(thread, attributes, run, argument);
    provider_thread = *thread;
    return error;
}

// So that a test can wait for its end.
int __wrap_pthread_detach(pthread_t /*thread*/) {
    return 0;
}

unsigned __wrap_sleep(unsigned /*seconds*/) {
    ++pauses;
    std::this_thread::yield();
    return 0;
}
}

namespace {

class cec_bus : public testing::Test {
  protected:
    void SetUp() override {
        int ends[2] = {};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        provider_end = ends[0];
        bus_ = ends[1];
        thread_error = 0;
        pauses = 0;
        output_.emplace();
        errors_.emplace(stderr);
    }

    void TearDown() override {
        end_bus();
        errors_.reset();
        output_.reset();
        close(provider_end);
    }

    void start() {
        say("hello 4 1000");
        ASSERT_EQ(cec_init(), 0);
        is_started_ = thread_error == 0;
    }

    void say(const std::string &line) const {
        const std::string text = line + "\n";
        ASSERT_EQ(send(bus_, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    }

    // The bus goes away. When this returns, the provider's thread has noticed.
    void end_bus() {
        if (bus_ >= 0) {
            close(bus_);
            bus_ = -1;
            if (is_started_) {
                pthread_join(provider_thread, nullptr);
            }
        }
    }

    std::string output() {
        return output_->text();
    }
    std::string errors() {
        return errors_->text();
    }

  private:
    int bus_ = -1;
    bool is_started_ = false;
    std::optional<captured_output> output_;
    std::optional<captured_output> errors_;
};

TEST_F(cec_bus, bus_that_goes_away_ends_the_waking_of_a_television_in_standby) {
    start();
    say("rx 04:90:01");
    std::thread bus([this] {
        while (pauses < 4) {
            std::this_thread::yield();
        }
        end_bus();
    });
    while (output().find("TV is in standby mode.\n") == std::string::npos) {
        std::this_thread::yield();
    }
    cec_alert_active();
    bus.join();
    EXPECT_EQ(errors(), "CEC bus: the connection was lost\n");
    EXPECT_NE(output().find("TV on standby, sending ImageViewOn\n"), std::string::npos);
    // Nothing is printed as received that was not.
    EXPECT_EQ(output().find("RX: 0 -> 4: 90 00"), std::string::npos);
    EXPECT_EQ(output().find("NOT in standby"), std::string::npos);

    // The next alert does not wait either.
    const unsigned before = pauses;
    cec_alert_inactive();
    cec_alert_active();
    EXPECT_EQ(pauses, before);
}

TEST_F(cec_bus, without_a_thread_there_is_no_television_and_the_service_goes_on) {
    thread_error = EAGAIN;
    start();
    EXPECT_EQ(errors(), "CEC bus: cannot start a thread: Resource temporarily unavailable\n");
    std::uint32_t logical_address = 7;
    EXPECT_NE(vc_cec_get_logical_address(&logical_address), 0);
    EXPECT_EQ(logical_address, 7U);
    EXPECT_NE(vc_cec_send_ActiveSource(0x1000, 0), 0);
    cec_alert_active();
    cec_alert_inactive();
    cec_poll_power_status();
}

TEST_F(cec_bus, skipped_line_is_said_without_its_control_characters) {
    start();
    say("\x1b[2J\x9b\\ \"\xe9\t" + std::string(100, 'x'));
    end_bus();
    EXPECT_EQ(errors(), "CEC bus: skipped the line \"\\x1b[2J\\x9b\\x5c \"\\xe9\\x09" +
                            std::string(54, 'x') + "\"\nCEC bus: the connection was lost\n");
}

TEST_F(cec_bus, name_that_a_line_cannot_hold_is_refused) {
    start();
    EXPECT_NE(vc_cec_set_osd_name(std::string(300, 'n').c_str()), 0);
    EXPECT_EQ(vc_cec_set_osd_name("ZELT"), 0);
}

} // namespace
