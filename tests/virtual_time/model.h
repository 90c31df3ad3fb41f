#pragma once

#include "reader.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The service, written a second time: what it must do in each step, given the answers of its
/// system. It shares no code with the product, and is as plain as possible.
namespace virtual_time {

struct model_state {
    // Documents.
    std::optional<std::string> document;
    std::optional<std::string> gateway_file;
    int turnout = 120;

    // Alert.
    bool is_active = false;
    std::uint32_t start = 0;
    int end = 0;
    int zero = 0;
    int reverse = 0;
    std::string detail = std::string(4097, '\0');
    std::string units;

    // Television.
    bool is_standby = false;
    bool is_lost = false;
    bool goes_back_to_standby = false;
    int own = 0;
    int source = 0;

    // Browser.
    std::optional<std::string> url;
    int rotation = 0;
    long browser = 0;
    bool has_proxy = false;

    // Gateway.
    std::optional<std::string> gateway;
    bool has_date = false;
    bool has_settings = false;

    // Unit.
    bool has_address = false;
    long watchdog = 0;
    int budget = 900;
    long descriptors = 0; ///< open ones
    long children = 0;    ///< not yet reaped
};

class model : public reader, public model_state {
  public:
    /// Each compares the acts of one step with what they must be.
    void check_start(const trace &acts, bool is_interrupted);
    void check_clock(const trace &acts, bool is_interrupted);
    void check_power(const trace &acts, bool is_interrupted);
    void check_health(const trace &acts, bool is_interrupted);
    void check_connection(const trace &acts, bool is_interrupted);
    void check_datagram(const trace &acts, bool is_interrupted);
    /// Between the steps.
    void check_idle(const trace &acts, bool is_interrupted);

  protected:
    void hear(const entry &notification) override;
    void lose_television() override;

  private:
    // Start.
    void start_watchdog();
    void start_television();
    void open_channels();
    void show_first_status();
    void greet_gateway();
    void read_rotation();

    // Television.
    void wake_television();
    void hand_back();

    // Messages.
    void dispatch(bool is_tcp, const std::string &sender, std::string received);
    void act_on(int type, bool is_tcp, const std::string &sender, std::string &bytes, int size);
    void take_display_alert(std::string &bytes, int size);
    void take_detail_alert(const std::string &bytes);
    void take_map(const std::string &address);
    void take_settings(int quarter_turns);
    void take_control(const std::string &json);
    void play(const std::string &clip, const std::string &json);
    void answer_rollcall(const std::string &sender);
    bool send_record(const std::string &sender, char code);
    void refill();
    void learn(const std::string &address);
    void list_units(const std::string &bytes);
    bool change_alert(int flag, bool is_empty); ///< whether an alert started

    // Parts.
    struct document_values {
        const char *type;
        int flag = 0;
        std::uint32_t time = 0;
        int end = 0;
        int zero = 0;
        int reverse = 0;
        std::string area = {};
        std::string map = {};
        std::string units = {};
    };
    void write_document(const document_values &values);
    void write_detail(const std::string &bytes, const std::string &map);
    void write_file(const char *path, std::optional<std::string> &file, const std::string &text);
    bool take_socket(const char *type);
    std::string hardware_address();
    std::string own_address();
    void choose_proxy(const std::string &address);
    void show(const std::string &address);
    void show_station_page();
    void restart_browser();
    long fork(const std::string &told);
    void start_program(const std::vector<std::string> &command);
    void run_program(const std::vector<std::string> &command);
    void wait_any();
    void sleep(long seconds);
    std::string read_config();
    std::optional<std::string> config_option(const std::string &key);
    void set_config_option(const std::string &key, const std::string &value);
    void kick();
    void reset_display();
    void check_network();

    template <typename step_type>
    void check(const trace &acts, bool is_interrupted, step_type step) {
        begin(acts, is_interrupted);
        try {
            step();
            finish();
        } catch (const interrupted &) {
        }
    }
};

/// The text from a position to the next zero.
std::string text_at(const std::string &bytes, std::size_t position);
/// A big-endian 16-bit number.
int number_at(const std::string &bytes, std::size_t position);
int byte_at(const std::string &bytes, std::size_t position);
/// The value of "key":"value".
std::optional<std::string> json_value(const std::string &json, const std::string &key);
/// printf.
std::string format(const char *text, ...) __attribute__((format(printf, 1, 2)));

} // namespace virtual_time
