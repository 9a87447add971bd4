// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/kestrel_program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <string_view>
#include <utility>

#include "kestrelctl/descriptor.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

using namespace std::chrono_literals;

[[noreturn]] void fail(const std::string& what, int error) {
  throw Cannot_run(what + ": " + std::strerror(error));
}

/// The lock, held while the descriptor is open; none if `stop` ended the waiting.
Descriptor lock(const std::string& path, Stop_signals& stop) {
  constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW;
  Descriptor file(open(path.c_str(), flags, S_IRUSR | S_IWUSR));
  if (file.number() < 0) fail("cannot open the lock file " + path, errno);
  constexpr auto step = 50ms;
  auto waited = 0ms;
  while (flock(file.number(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) fail("cannot lock " + path, errno);
    if (!stop.pause(step)) return Descriptor();
    waited += step;
    if (waited == 1s) std::cerr << "kestrelctl: waiting for another kestrel to end\n";
  }
  return file;
}

/// What posix_spawn needs to know: its streams, and that no signal of the terminal is meant for it.
class Spawn_settings {
 public:
  Spawn_settings(int output, int lock) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    // Onto itself: this one is not closed in the new program.
    posix_spawn_file_actions_adddup2(&actions_, lock, lock);
    posix_spawnattr_init(&attributes_);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  }
  ~Spawn_settings() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  Spawn_settings(const Spawn_settings&) = delete;
  Spawn_settings& operator=(const Spawn_settings&) = delete;
  Spawn_settings(Spawn_settings&&) = delete;
  Spawn_settings& operator=(Spawn_settings&&) = delete;

  pid_t spawn(std::vector<std::string> words) const {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (auto& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    pid_t child = 0;
    const int error =
        posix_spawnp(&child, pointers[0], &actions_, &attributes_, pointers.data(), environ);
    if (error != 0) fail("cannot start " + words[0], error);
    return child;
  }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

/// What comes until the other end is closed.
std::string read_all(int descriptor, const std::string& program) {
  constexpr int longest_silence_ms = 60'000;  // no wait of kestrel's takes a third of it
  constexpr std::size_t longest_output = std::size_t{1} << 20U;
  std::string output;
  std::array<char, 4096> piece{};
  while (output.size() < longest_output) {
    pollfd pipe{.fd = descriptor, .events = POLLIN, .revents = 0};
    if (poll(&pipe, 1, longest_silence_ms) == 0) throw Cannot_run(program + " does not end");
    const auto count = read(descriptor, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return output;
    output.append(piece.data(), static_cast<std::size_t>(count));
  }
  throw Cannot_run(program + " prints without end");
}

/// What a run printed behind its banner.
std::string_view find_report(std::string_view output) {
  constexpr std::string_view bus_enabled = "SPI bus enabled.\n\n";
  constexpr std::size_t shown = 60;
  if (const auto at = output.find(bus_enabled); at != std::string_view::npos) {
    const auto report = output.substr(at + bus_enabled.size());
    if (!report.starts_with("Si468x is not booted up")) return report;
    throw Cannot_run("the receiver is not booted: run kestrel -b D (or -b F) first");
  }
  const auto says = [output](std::string_view message) {
    return output.find(message) != std::string_view::npos;
  };
  if (says("Must be called as root")) throw Cannot_run("kestrel must run as root");
  if (says("Error initializing SPI bus")) {
    throw Cannot_run("kestrel cannot reach SPI0: kestrelctl doctor says why");
  }
  throw Cannot_run("this is no kestrel: it printed '" + make_harmless(output.substr(0, shown)) +
                   "'");
}

}  // namespace

std::string run_kestrel(const Kestrel& kestrel, const std::vector<std::string>& arguments,
                        Stop_signals& stop) {
  if (geteuid() != 0) throw Cannot_run("kestrel must run as root: try it with sudo");
  const auto held = lock(kestrel.lock_file, stop);
  if (held.number() < 0) return "";

  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) fail("cannot make a pipe", errno);
  const Descriptor from_kestrel(ends[0]);
  Descriptor to_us(ends[1]);
  std::vector<std::string> words{kestrel.program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const auto child = Spawn_settings(to_us.number(), held.number()).spawn(std::move(words));
  to_us.close();

  const auto output = read_all(from_kestrel.number(), kestrel.program);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) fail("cannot wait for " + kestrel.program, errno);
  }
  if (WIFSIGNALED(status)) {
    throw Cannot_run(kestrel.program + " was ended by signal " + std::to_string(WTERMSIG(status)));
  }
  // Where the system cannot tell the one who starts a program that there is none, this says it.
  constexpr int not_started = 127;
  if (WEXITSTATUS(status) == not_started) throw Cannot_run("cannot start " + kestrel.program);
  if (WEXITSTATUS(status) != 0) {
    throw Cannot_run(kestrel.program + " ended with status " + std::to_string(WEXITSTATUS(status)));
  }
  return std::string(find_report(output));
}

}  // namespace kestrelctl
