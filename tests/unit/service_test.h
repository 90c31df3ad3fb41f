#pragma once

#include "captured_output.h"
#include "fake_system.h"
#include "recording_port.h"
#include "reset_service.h"
#include "wire.h"

#include "bstrlib/bstrlib.h"
#include "hdtv/hdtv.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <optional>
#include <string>

/// A service that has just been loaded, on the fake system, with its output captured.
class service_test : public testing::Test {
  protected:
    void SetUp() override {
        reset_service();
        output_.emplace();
        fake::start();
        recording_port::reset();
        recording_port::on_call = [](const std::string &call) {
            fake::state.calls.push_back("cec " + call);
        };
    }

    void TearDown() override {
        recording_port::on_call = nullptr;
        fake::stop();
        output_.reset();
        reset_service();
    }

    std::string output() {
        return output_->text();
    }

    /// A unit with eth0 at this address and the hardware address 00-11-22-AA-BB-CC.
    static void have_address(const std::string &address) {
        fake::state.interfaces = {{"eth0", address, std::string("\x00\x11\x22\xAA\xBB\xCC", 6)}};
    }

    static void have_url(const char *address) {
        bdestroy(url);
        url = bfromcstr(address);
    }

    static void have_config(const std::string &text) {
        fake::state.files["/var/www/config.json"] = text;
    }

    static std::string document() {
        return fake::state.files["/dev/shm/alerts.json"];
    }

    /// The text of one member of the document, up to the next quotation mark.
    static std::string member(const std::string &name) {
        const std::string tag = "\"" + name + "\":\"";
        const std::string text = document();
        const auto start = text.find(tag);
        if (start == std::string::npos) {
            return "(none)";
        }
        const auto from = start + tag.size();
        return text.substr(from, text.find('"', from) - from);
    }

  private:
    std::optional<captured_output> output_;
};
