// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/kestrel_program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <string_view>
#include <thread>
#include <utility>

#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

using namespace std::chrono_literals;

class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;

  [[nodiscard]] int number() const { return number_; }
  void close() {
    if (number_ >= 0) ::close(std::exchange(number_, -1));
  }

 private:
  int number_;
};

[[noreturn]] void fail(const std::string& what, int error) {
  throw Cannot_run(what + ": " + std::strerror(error));
}

/// The lock, held while the descriptor is open; none if `pause` gave up.
Descriptor lock(const std::string& path, const Pause& pause) {
  constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW;
  Descriptor file(open(path.c_str(), flags, S_IRUSR | S_IWUSR));
  if (file.number() < 0) fail("cannot open the lock file " + path, errno);
  constexpr auto step = 50ms;
  auto waited = 0ms;
  while (flock(file.number(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) fail("cannot lock " + path, errno);
    if (!pause(step)) return Descriptor();
    waited += step;
    if (waited == 1s) std::cerr << "kestrelctl: waiting for another kestrel to end\n";
  }
  return file;
}

/// What posix_spawn needs to know: its streams, and that no signal of the terminal is meant for it.
class Spawn_settings {
 public:
  explicit Spawn_settings(int output) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
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

std::string read_all(int descriptor) {
  std::string output;
  std::array<char, 4096> piece{};
  for (;;) {
    const auto count = read(descriptor, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return output;
    output.append(piece.data(), static_cast<std::size_t>(count));
  }
}

/// What a run printed behind its banner.
std::string_view find_report(std::string_view output) {
  constexpr std::string_view bus_enabled = "SPI bus enabled.\n\n";
  const auto at = output.find(bus_enabled);
  const auto begin = at == std::string_view::npos ? 0 : at + bus_enabled.size();
  const auto report = output.substr(begin);
  const auto fails = [report](std::string_view message) {
    return report.find(message) != std::string_view::npos;
  };
  if (fails("Must be called as root")) throw Cannot_run("kestrel must run as root");
  if (fails("Error initializing SPI bus")) {
    throw Cannot_run("kestrel cannot reach SPI0: kestrelctl doctor says why");
  }
  if (fails("Si468x is not booted up")) {
    throw Cannot_run("the receiver is not booted: run kestrel -b D (or -b F) first");
  }
  if (begin == 0)
    throw Cannot_run("this is no kestrel: it printed '" + make_harmless(output.substr(0, 60)) +
                     "'");
  return report;
}

}  // namespace

bool sleep_through(std::chrono::milliseconds time) {
  std::this_thread::sleep_for(time);
  return true;
}

std::string run_kestrel(const Kestrel& kestrel, const std::vector<std::string>& arguments,
                        const Pause& pause) {
  if (geteuid() != 0) throw Cannot_run("kestrel must run as root: try it with sudo");
  const auto held = lock(kestrel.lock_file, pause);
  if (held.number() < 0) return "";

  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) fail("cannot make a pipe", errno);
  const Descriptor from_kestrel(ends[0]);
  Descriptor to_us(ends[1]);
  std::vector<std::string> words{kestrel.program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const auto child = Spawn_settings(to_us.number()).spawn(std::move(words));
  to_us.close();

  const auto output = read_all(from_kestrel.number());
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
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
