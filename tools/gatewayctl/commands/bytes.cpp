#include "tools/gatewayctl/commands/commands.h"

#include "tools/gatewayctl/command_line.h"
#include "tools/gatewayctl/describe.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/messages.h"
#include "tools/gatewayctl/output.h"
#include "tools/gatewayctl/sending.h"
#include "tools/gatewayctl/socket.h"

#include <cerrno>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

// Bytes from the command line, a file or standard input.

struct bytes_settings {
    std::vector<std::string> words;
    std::string file;
};

void add_bytes(CLI::App &command, bytes_settings &settings) {
    command.add_option(
        "HEX", settings.words,
        "The bytes in hexadecimal, optionally separated by spaces, colons or commas");
    command.add_option("--file", settings.file, "A file with the raw bytes; - is standard input");
}

message_bytes read_bytes(std::istream &input) {
    return {std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};
}

message_bytes read_bytes(const bytes_settings &settings) {
    if (settings.words.empty() == settings.file.empty()) {
        throw usage_failure("give the bytes either as hexadecimal words or with --file");
    }
    if (settings.file.empty()) {
        std::string text;
        for (const std::string &word : settings.words) {
            text += word + " ";
        }
        return parse_hex(text);
    }
    if (settings.file == "-") {
        return read_bytes(std::cin);
    }
    std::ifstream file(settings.file, std::ios::binary);
    if (!file) {
        throw run_failure("cannot open " + settings.file + ": " + reason(errno));
    }
    return read_bytes(file);
}

} // namespace

void add_raw(CLI::App &app) {
    static bytes_settings settings;
    add_bytes(add_command(app, "raw", "Send arbitrary bytes",
                          [] { return send_message(read_bytes(settings)); }),
              settings);
}

void add_decode(CLI::App &app) {
    static bytes_settings settings;
    static bool is_record = false;
    CLI::App &command =
        add_command(app, "decode",
                    "Explain a message: its fields, what a unit does with it, what is wrong", [] {
                        const message_bytes bytes = read_bytes(settings);
                        const description described = is_record
                                                          ? describe_record(bytes)
                                                          : describe_message(bytes, common.via());
                        std::cout << to_text(described, bytes);
                        return written_status(described.faults.empty() ? 0 : 1);
                    });
    add_bytes(command, settings);
    command.add_flag("--record", is_record, "Treat it as a record sent by a unit");
}
