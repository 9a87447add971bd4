// SPDX-License-Identifier: GPL-3.0-or-later
//
// The directory's files through its descriptor.
#include "sim/board_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace sim {
namespace {

constexpr const char* state_name = "state";
constexpr const char* new_state_name = "state.new";
constexpr mode_t directory_mode = 0700;
constexpr mode_t file_mode = 0600;

// A state is some 2 KB; a file that is larger is no state and is not read to its end.
constexpr std::size_t most_state_bytes = 16 * std::size_t{1024};

void complain(const std::filesystem::path& path, const char* what) {
  (void)std::fprintf(stderr, "kestrel-sim: board directory %s: %s\n", path.c_str(), what);
}

bool write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

std::string read_all(int descriptor, std::size_t most) {
  std::string text;
  std::array<char, 4096> piece{};
  while (text.size() <= most) {
    const ssize_t count = ::read(descriptor, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      break;
    }
    text.append(piece.data(), static_cast<std::size_t>(count));
  }
  return text;
}

}  // namespace

Descriptor::~Descriptor() {
  if (number_ >= 0) {
    (void)::close(number_);
  }
}

Board_directory::Board_directory(const std::filesystem::path& path)
    : path_(path), directory_(open_or_make(path)) {}

Descriptor Board_directory::open_or_make(const std::filesystem::path& path) {
  if (::mkdir(path.c_str(), directory_mode) != 0 && errno != EEXIST) {
    complain(path, std::strerror(errno));
    return Descriptor(-1);
  }
  Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory.is_open()) {
    complain(path, std::strerror(errno));
  }
  return directory;
}

bool Board_directory::is_new() const {
  struct stat status {};
  return ::fstatat(directory_.get(), state_name, &status, AT_SYMLINK_NOFOLLOW) != 0 &&
         errno == ENOENT;
}

bool Board_directory::has_file(const char* name) const {
  return ::faccessat(directory_.get(), name, F_OK, 0) == 0;
}

std::optional<Saved_state> Board_directory::load() const {
  const Descriptor file(
      ::openat(directory_.get(), state_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file.is_open() && errno == ENOENT) {
    return std::nullopt;
  }
  auto state = parse_state(file.is_open() ? read_all(file.get(), most_state_bytes) : std::string());
  if (!state) {
    complain(path_, "its state file is damaged or foreign; the receiver is in reset");
  }
  return state;
}

void Board_directory::save(const Saved_state& state) {
  bool is_saved = false;
  {
    const Descriptor file(::openat(directory_.get(), new_state_name,
                                   O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC,
                                   file_mode));
    is_saved = file.is_open() && write_all(file.get(), serialise(state));
  }
  is_saved =
      is_saved && ::renameat(directory_.get(), new_state_name, directory_.get(), state_name) == 0;
  if (!is_saved && !has_complained_) {
    has_complained_ = true;
    complain(path_, std::strerror(errno));
  }
}

void Board_directory::make_files(const std::map<std::string, std::string>& files) {
  for (const auto& [path, content] : files) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
      // One that exists already is as good; any other failure shows when the file is made.
      (void)::mkdirat(directory_.get(), path.substr(1, slash - 1).c_str(), directory_mode);
    }
    const Descriptor file(::openat(directory_.get(), path.c_str() + 1,
                                   O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                   file_mode));
    if (file.is_open() ? !write_all(file.get(), content) : errno != EEXIST) {
      complain(path_, std::strerror(errno));
    }
  }
}

std::FILE* Board_directory::open_file(const std::string& path, const char* mode) const {
  // The program only reads these files; a path that climbs out of the board is none of them.
  const bool is_inside = path.starts_with('/') && path.find("..") == std::string::npos;
  const int file =
      is_inside ? ::openat(directory_.get(), path.c_str() + 1, O_RDONLY | O_CLOEXEC) : -1;
  std::FILE* const stream = file >= 0 ? ::fdopen(file, mode) : nullptr;
  if (stream == nullptr && file >= 0) {
    (void)::close(file);
  }
  return stream;
}

}  // namespace sim
