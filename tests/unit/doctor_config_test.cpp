// The strict reading of the configuration, held against the service's own reading of the same bytes.

#include "bstrlib/bstr_owner.h"
#include "hdtv/config_store.h"
#include "tools/doctor/config_text.h"
#include "tools/doctor/configuration.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char *keys[] = {config_key::comm_gw, config_key::rotation, config_key::log_alerts};

class doctor_config : public testing::Test {
  protected:
    // In memory, so that many texts take no time.
    void SetUp() override {
        memory_ = memfd_create("configuration", MFD_CLOEXEC);
        file_ = "/proc/self/fd/" + std::to_string(memory_);
    }
    void TearDown() override {
        close(memory_);
    }

    void have(const std::string &text) const {
        ASSERT_EQ(ftruncate(memory_, 0), 0);
        ASSERT_EQ(pwrite(memory_, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    }

    // As the service reads these bytes.
    std::optional<std::string> service_reads(const std::string &text, const char *key) const {
        have(text);
        const bstr_owner value(get_config_option(file_.c_str(), key));
        return value ? std::optional(std::string(bstr_text(value.get()))) : std::nullopt;
    }

    // As the strict reading promises that the service reads it.
    static std::optional<std::string> promised(const config_reading &reading,
                                               const std::string &key) {
        const auto found = std::ranges::find(reading.members, key, &config_member::key);
        return found != reading.members.end() ? std::optional(found->value) : std::nullopt;
    }

    void expect_agreement(const std::string &text) const {
        const config_reading reading = read_strictly(text);
        if (!reading.faults.empty()) {
            return;
        }
        for (const char *key : keys) {
            EXPECT_EQ(service_reads(text, key), promised(reading, key)) << text;
        }
    }

    std::string file_;

  private:
    int memory_ = -1;
};

std::string fault_texts(const std::string &text) {
    std::string all;
    for (const config_fault &each : read_strictly(text).faults) {
        all += std::to_string(each.place.line) + ":" + std::to_string(each.place.column) + " " +
               each.what + "\n";
    }
    return all;
}

std::string repeated(std::size_t count, char c) {
    return std::string(count, c);
}

} // namespace

TEST_F(doctor_config, accepts_what_is_shipped) {
    for (const char *text :
         {R"({"rotation":"0","log_alerts":"true"})",
          R"({"comm_gw":"10.87.33.20","rotation":"0","log_alerts":"true"})",
          "{\n  \"rotation\":\"90\" ,\n  \"comm_gw\":\"10.87.33.20\"\n}\n", "{}"}) {
        EXPECT_EQ(fault_texts(text), "") << text;
        EXPECT_TRUE(read_strictly(text).remarks.empty());
        expect_agreement(text);
    }
}

struct faulty {
    const char *text;
    const char *fault;
    const char *lost; ///< a key that the service does not read as it is meant; null: none
};

class doctor_config_fault : public doctor_config, public testing::WithParamInterface<faulty> {};

TEST_P(doctor_config_fault, is_named_with_its_place) {
    const std::string text = GetParam().text;
    const std::string found = fault_texts(text);
    EXPECT_TRUE(found.starts_with(GetParam().fault)) << found;
    if (GetParam().lost != nullptr) {
        EXPECT_FALSE(service_reads(text, GetParam().lost).has_value());
    }
}

INSTANTIATE_TEST_SUITE_P(
    all, doctor_config_fault,
    testing::Values(
        faulty{R"({"rotation": "90"})", "1:13 a blank after the colon: the service does not see",
               "rotation"},
        faulty{R"({"rotation" :"90"})", "1:12 a blank before the colon", "rotation"},
        faulty{"{\n\"rotation\":\t\"90\"}", "2:12 a blank after the colon", "rotation"},
        faulty{R"({"rotation":90})", "1:13 a number without quotation marks", "rotation"},
        faulty{R"({"log_alerts":true})", "1:15 a value without quotation marks", "log_alerts"},
        faulty{R"({"comm_gw":["10.87.33.20","b"]})", "1:12 an object or a list", "comm_gw"},
        faulty{R"({"comm_gw":{"a":"b"},"rotation":"0"})", "1:12 an object or a list", "comm_gw"},
        faulty{R"({"comm_gw":,"rotation":"0"})", "1:12 a value is missing", "comm_gw"},
        faulty{R"({"rotation":"0","rotation":"90"})",
               "1:17 \"rotation\" a second time: the one at line 1, column 2 counts", nullptr},
        faulty{R"({"rotate":"90"})", "1:2 the service does not know the key \"rotate\"; it knows",
               "rotation"},
        faulty{R"({"rotation":"90")", "1:17 the closing brace is missing", nullptr},
        faulty{R"("rotation":"90"})", "1:1 the opening brace is missing", nullptr},
        faulty{R"({"rotation":"90)", "1:13 the closing quotation mark of this value", "rotation"},
        faulty{R"({"rotation)", "1:2 the closing quotation mark of this key", "rotation"},
        faulty{R"({rotation:"90"})", "1:2 this is not a key in quotation marks", "rotation"},
        faulty{R"({"rotation","comm_gw":"x"})", "1:12 a colon is missing after \"rotation\"",
               "rotation"},
        faulty{R"({"rotation":"90" "comm_gw":"x"})", "1:18 a comma is missing", nullptr},
        faulty{R"({"rotation":"90"/**/,"comm_gw":"x"})", "1:17 this is no part of a member",
               nullptr},
        faulty{R"({"rotation":"90",})", "1:17 a comma before the closing brace", nullptr},
        faulty{R"({"rotation":"90",,"comm_gw":"x"})", "1:18 a comma without a member", nullptr},
        faulty{R"({"rotation":"9\u0030"})", "1:15 a backslash: nothing is escaped", nullptr},
        faulty{"{\"rotation\":\"90\n\"}", "1:16 a line end within a text", nullptr},
        faulty{R"({"rotation":"90"} // old)", "1:19 text after the closing brace", nullptr},
        faulty{"", "1:1 there is no object", "rotation"},
        faulty{" \n", "2:1 there is no object", "rotation"}));

TEST_F(doctor_config, names_bytes_that_the_service_does_not_reach) {
    const std::string start = R"({"log_alerts":"true",)";
    const std::string member = R"("rotation":"90"})";
    const auto room = static_cast<std::size_t>(config_limit);
    const std::string fits = start + repeated(room - start.size() - member.size(), ' ') + member;
    EXPECT_EQ(fault_texts(fits), "");
    EXPECT_EQ(service_reads(fits, "rotation"), "90");
    const std::string beyond = start + repeated(room - start.size(), ' ') + member;
    EXPECT_TRUE(fault_texts(beyond).starts_with("1:4096 bytes beyond 4095 are not read"));
    EXPECT_FALSE(service_reads(beyond, "rotation").has_value());
    const std::string cut = start + std::string(1, '\0') + member;
    EXPECT_TRUE(fault_texts(cut).starts_with("1:22 a zero byte: nothing after it is read"));
    EXPECT_FALSE(service_reads(cut, "rotation").has_value());
}

// What the service itself leaves behind: a comma in an empty object, and the end of a longer text.
TEST_F(doctor_config, forgives_what_the_service_writes) {
    for (const char *text : {R"({,"rotation":"90"})", R"({"rotation":"90"}})",
                             "{\"rotation\":\"0\"}\"}", "{\"rotation\":\"0\"}\n\"}\n"}) {
        EXPECT_EQ(fault_texts(text), "") << text;
        EXPECT_EQ(read_strictly(text).remarks.size(), 1U) << text;
        expect_agreement(text);
    }
}

TEST_F(doctor_config, reads_on_after_a_fault) {
    const config_reading reading =
        read_strictly(R"({"comm_gw": "a","rotation":90,"log_alerts":"true"} x)");
    ASSERT_EQ(reading.faults.size(), 3U);
    EXPECT_EQ(reading.faults[1].place.column, 28);
    EXPECT_EQ(promised(reading, "log_alerts"), "true");
    EXPECT_FALSE(promised(reading, "comm_gw").has_value());
}

// Texts put together from pieces: where no fault is named, the service reads what the text says.
TEST_F(doctor_config, agrees_with_the_service) {
    const std::vector<std::string> pieces = {"{",
                                             "}",
                                             ",",
                                             ":",
                                             "\"",
                                             " ",
                                             "\n",
                                             "\"rotation\":\"90\"",
                                             "\"rotation\":",
                                             "90",
                                             "\\",
                                             "\"\"",
                                             "[",
                                             "]",
                                             "x",
                                             "\"comm_gw\":\"10.87.33.20\"",
                                             "\"log_alerts\":\"true\""};
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same texts each time
    int faultless = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string text = random() % 4 == 0 ? "" : "{";
        for (std::size_t count = random() % 7; count > 0; --count) {
            text += pieces[random() % pieces.size()];
        }
        text += random() % 4 == 0 ? "" : "}";
        faultless += read_strictly(text).faults.empty() ? 1 : 0;
        expect_agreement(text);
    }
    EXPECT_GT(faultless, 500);
}

TEST_F(doctor_config, findings_name_settings_as_the_service_reads_them) {
    have(R"({"comm_gw":"10.87.33.20","rotation":"270"})");
    const findings found = look_at_configuration(file_);
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found[0].result, grade::ok);
    EXPECT_EQ(found[1].evidence, "10.87.33.20");
    EXPECT_EQ(found[2].evidence, "270 degrees");
    have(R"({"rotation": "90"})");
    EXPECT_EQ(look_at_configuration(file_).back().evidence, "not set: 0 degrees");
}
