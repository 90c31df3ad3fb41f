#pragma once

#include "hdtv/messages.h"

#include "written_document.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// A small model of the service, written apart from it: what each message has to change.

/// The surroundings of one message.
struct circumstances {
    channel via = channel::tcp;
    std::uint32_t now = 0;
    std::string peer;        ///< dotted
    int failing_connect = 0; ///< the number of the connect that fails, from 1; 0: none
    int next_pid = 0;        ///< of the next child; -1: no child can be started
};

/// What a message makes the service do.
struct expected_actions {
    std::optional<expected_document> document;
    int forks = 0;
    int waits = 0;           ///< for any child
    std::vector<int> killed; ///< pids, each waited for
    int left_open = 0;       ///< descriptors that are deliberately never closed
    std::vector<std::string> sent;
    std::vector<std::string> cec;
};

class alert_model {
  public:
    expected_actions take(const std::string &message, const circumstances &around);

    bool is_active = false;
    bool is_standby = false; ///< the television
    std::optional<std::string> config;
    std::optional<std::string> gateway;

  private:
    int byte(int position) const;
    int number(int position) const;
    std::string text(int position) const;

    void act();
    void display();
    void detail();
    void settings();
    void control();
    void answer_roll_call();
    void decide_alert(int flag, bool is_empty, bool &is_ignored);
    void show_active(const std::string &map_address);
    void show_page(const std::string &address);
    void show_station_page();
    void start_browser();
    void start_child(bool is_awaited);
    bool send(const std::string &record);

    std::string message_, last_detail_ = std::string(4097, '\0');
    std::vector<std::pair<std::string, int>> units_;
    circumstances around_;
    expected_actions actions_;
    int size_ = 0;
    std::uint32_t timer_ = 120, start_ = 0, end_ = 0, zero_ = 0;
    int reverse_ = 0;
    std::string url_; // empty: none
    int rotation_ = 0, browser_ = 0;
    int connects_ = 0;
    bool has_date_ = false, has_settings_ = false, is_off_after_alert_ = false;
};
