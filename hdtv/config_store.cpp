#include "hdtv/config_store.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "hdtv/child_process.h"
#include "hdtv/descriptor.h"
#include "hdtv/programs.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace {

// The first 4095 bytes of the file, up to their first zero byte; empty if it cannot be read.
bstr_owner read_config(const char *file) {
    std::array<char, config_limit + 1> buffer{};
    const int fd = open(file, O_RDONLY);
    std::ignore = read(fd, buffer.data(), buffer.size() - 1);
    close(fd);
    return bstr_owner(bfromcstr(buffer.data()));
}

bstr_owner format_member(const char *option, const char *value) {
    return bstr_owner(bformat("\"%s\":\"%s\"", option, value));
}

void replace_member(bstring cfg, const char *option, const char *old_value, const char *value) {
    const bstr_owner find = format_member(option, old_value);
    const bstr_owner repl = format_member(option, value);
    bfindreplace(cfg, find.get(), repl.get(), 0);
}

// Adds it before every closing brace except one at the very start; in an empty object it gets a
// leading comma.
void insert_member(bstring cfg, const char *option, const char *value) {
    const bstr_owner member(bformat(",\"%s\":\"%s\"", option, value));
    for (int i = cfg->slen - 1; i >= 1; --i) {
        if (cfg->data[i] == '}') {
            binsert(cfg, i, member.get(), ' ');
        }
    }
}

void remount_root(const char *options) {
    run_program(programs::mount, {"mount", "-o", options});
}

void overwrite_config(const char *file, const_bstring cfg) {
    const int fd = open(file, O_WRONLY);
    write_once(fd, {bstr_text(cfg), static_cast<std::size_t>(cfg->slen)});
    close(fd);
}

} // namespace

bstring get_from_json(const_bstring json_obj, const char *parameter) {
    const bstr_owner tag(bformat("\"%s\":\"", parameter));
    const int found = binstr(json_obj, 0, tag.get());
    if (found == BSTR_ERR) {
        return nullptr;
    }
    const int start = found + tag->slen;
    const int end = bstrchrp(json_obj, '"', start);
    if (end == BSTR_ERR) {
        return nullptr;
    }
    return bmidstr(json_obj, start, end - start);
}

bstring get_config_option(const char *file, const char *option) {
    struct stat status {};
    if (stat(file, &status) != 0 || status.st_size == 0) {
        return nullptr;
    }
    const bstr_owner cfg = read_config(file);
    return get_from_json(cfg.get(), option);
}

void set_config_option(const char *file, const char *option, const char *value) {
    // Deliberate leak, see architecture.md.
    bstring current = get_config_option(file, option);
    if (biseqcstr(current, value) == 1) {
        return;
    }
    const bstr_owner cfg = read_config(file);
    if (!cfg) {
        return;
    }
    if (current != nullptr) {
        replace_member(cfg.get(), option, bstr_text(current), value);
    } else {
        insert_member(cfg.get(), option, value);
    }
    std::printf("Writing CFG:\n%s\n", bstr_text(cfg.get()));
    remount_root("rw,remount");
    overwrite_config(file, cfg.get());
    remount_root("ro,remount");
}
