#pragma once

#include <optional>
#include <string>

/// What the configuration's text says and how it is changed: a model, apart from hdtv/config_store.cpp.
namespace config_model {

inline std::optional<std::string> member(const std::string &text, const std::string &key) {
    const std::string tag = "\"" + key + "\":\"";
    const auto found = text.find(tag);
    const auto start = found + tag.size();
    const auto end = found == std::string::npos ? found : text.find('"', start);
    if (end == std::string::npos) {
        return std::nullopt;
    }
    return text.substr(start, end - start);
}

/// What is read of the file.
inline std::string readable(const std::string &file) {
    return file.substr(0, 4095).c_str();
}

/// The text after the change; none if the value is already there.
inline std::optional<std::string> changed(const std::string &file, const std::string &key,
                                          const std::string &value) {
    std::string text = readable(file);
    const auto old = member(text, key);
    if (old == value) {
        return std::nullopt;
    }
    if (!old) {
        const std::string added = ",\"" + key + "\":\"" + value + "\"";
        for (auto i = text.size(); i > 1; --i) {
            if (text[i - 1] == '}') {
                text.insert(i - 1, added);
            }
        }
        return text;
    }
    const std::string find = "\"" + key + "\":\"" + *old + "\"";
    const std::string by = "\"" + key + "\":\"" + value + "\"";
    for (auto at = text.find(find); at != std::string::npos; at = text.find(find, at + by.size())) {
        text.replace(at, find.size(), by);
    }
    return text;
}

/// A file that is written from its start and not truncated.
inline std::string overwritten(std::string file, const std::string &text) {
    return file.replace(0, text.size(), text);
}

} // namespace config_model
