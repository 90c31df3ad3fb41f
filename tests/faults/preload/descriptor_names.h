#pragma once

#include <string_view>

/// What a descriptor of the service stands for: a path, a protocol with a port, a command.
std::string_view name_of(int fd);
void name_descriptor(int fd, std::string_view name);
