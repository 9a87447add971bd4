// SPDX-License-Identifier: GPL-3.0-or-later
//
// Files that are read up to a limit, and files that are written: whole or not at all. And the name
// of the machine they are on.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kestrelctl/scan_file.h"

namespace kestrelctl {

/// The first `most_bytes` of a file; nothing, and errno, if it cannot be read.
std::optional<std::string> read_file(const std::filesystem::path& path, std::size_t most_bytes);

/// Throws std::runtime_error that says `why` of a file, after its name.
[[noreturn]] void refuse_file(const std::filesystem::path& path, std::string_view why);

enum class If_present { replace, keep };

/// Writes `text` to a new file beside `path`, flushes it to the disk, and gives it that name with
/// mode 0644. A failure leaves the old file as it was, and nothing else. Replaces regular files
/// only, so that neither a link nor a device is followed or lost. False if there is a file already
/// that is to be kept; throws std::runtime_error with the file's name otherwise.
bool write_file_atomically(const std::filesystem::path& path, std::string_view text,
                           If_present if_present = If_present::replace);

/// The result of a command: to the file `name`, or to standard output for "-". Throws
/// std::runtime_error when it cannot be written, or is one of the scans that the text was made of.
void write_output(const std::string& name, std::string_view text, const std::vector<Scan>& scans);

/// The machine's name; "radio" if it has none.
std::string host_name();

}  // namespace kestrelctl
