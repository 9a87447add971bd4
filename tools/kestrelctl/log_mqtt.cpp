// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/log_mqtt.h"

#include <mosquitto.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <string_view>

#include "kestrelctl/log_rows.h"
#include "kestrelctl/receiver.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

using namespace std::chrono_literals;

constexpr int interruption = SIGUSR1;
constexpr int no_quality = 0;  // what is retained is published again after a loss
constexpr auto shortest_delay = 1s;
constexpr auto longest_delay = 60s;
constexpr std::size_t longest_payload = 200;
constexpr std::size_t most_commands = 16;
constexpr std::string_view command_suffix = "/set";

std::string read_password(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::string password;
  if (!std::getline(file, password)) {
    throw Failure("The password file " + make_harmless(path.string()) + " cannot be read");
  }
  if (password.ends_with('\r')) password.pop_back();
  return password;
}

std::string reason_of(int result) {
  return result == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(result);
}

}  // namespace

void Broker::Destroy::operator()(mosquitto* client) const { mosquitto_destroy(client); }

Broker::Broker(Mqtt_address address, const Mqtt_files& files, std::string prefix,
               bool takes_commands)
    : address_(std::move(address)),
      prefix_(std::move(prefix)),
      takes_commands_(takes_commands),
      trouble_("mqtt " + make_harmless(address_.host)) {
  // A name server that is away would hold up the end for 5 s each time.
  (void)setenv("RES_OPTIONS", "timeout:1 attempts:1", 0);
  (void)mosquitto_lib_init();
  client_.reset(mosquitto_new(nullptr, true, this));
  if (!client_) throw std::bad_alloc();
  set_up(files);
  struct sigaction interrupt {};
  interrupt.sa_handler = [](int) {};
  (void)sigaction(interruption, &interrupt, nullptr);
  // All other signals are the main thread's.
  sigset_t all;
  sigset_t before;
  (void)sigfillset(&all);
  (void)sigdelset(&all, interruption);
  (void)pthread_sigmask(SIG_SETMASK, &all, &before);
  thread_ = std::thread([this] { run(); });
  (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Broker::~Broker() {
  retain(availability(), "offline");
  std::unique_lock lock(mutex_);
  is_ending_ = true;
  lock.unlock();
  (void)mosquitto_disconnect(client_.get());
  wake_.notify_all();
  lock.lock();
  // A broker that does not even refuse would hold up its connect() for minutes.
  for (std::chrono::milliseconds patience{1000};
       !wake_.wait_for(lock, patience, [this] { return has_ended_; }); patience = 100ms) {
    (void)pthread_kill(thread_.native_handle(), interruption);
  }
  lock.unlock();
  thread_.join();
  client_.reset();
  (void)mosquitto_lib_cleanup();
}

void Broker::retain(const std::string& topic, const std::string& payload) {
  const std::lock_guard lock(mutex_);
  const auto [kept, is_new] = retained_.try_emplace(topic, payload);
  if (!is_new && std::exchange(kept->second, payload) == payload) return;
  if (is_connected_) publish(topic, payload, true);
}

void Broker::send(const std::string& topic, const std::string& payload) {
  const std::lock_guard lock(mutex_);
  if (is_connected_) publish(topic, payload, false);
}

std::optional<Broker::Command> Broker::take_command() {
  const std::lock_guard lock(mutex_);
  if (commands_.empty()) return std::nullopt;
  auto command = std::move(commands_.front());
  commands_.pop_front();
  return command;
}

void Broker::set_up(const Mqtt_files& files) {
  auto* client = client_.get();
  (void)mosquitto_threaded_set(client, true);
  constexpr std::string_view offline = "offline";
  bool is_fine =
      mosquitto_will_set(client, availability().c_str(), static_cast<int>(offline.size()),
                         offline.data(), no_quality, true) == MOSQ_ERR_SUCCESS;
  if (!files.password.empty()) {
    const auto password = read_password(files.password);
    is_fine = mosquitto_username_pw_set(client, address_.user.c_str(), password.c_str()) ==
                  MOSQ_ERR_SUCCESS &&
              is_fine;
  } else if (!address_.user.empty()) {
    (void)mosquitto_username_pw_set(client, address_.user.c_str(), nullptr);
  }
  if (address_.is_encrypted && files.authorities.empty()) {
    (void)mosquitto_int_option(client, MOSQ_OPT_TLS_USE_OS_CERTS, 1);
  } else if (address_.is_encrypted &&
             mosquitto_tls_set(client, files.authorities.c_str(), nullptr, nullptr, nullptr,
                               nullptr) != MOSQ_ERR_SUCCESS) {
    throw Failure("The CA file " + make_harmless(files.authorities.string()) + " cannot be read");
  }
  if (!is_fine) throw Failure("--mqtt: the prefix is not a topic, or the user is not a name");
  mosquitto_connect_callback_set(client, [](mosquitto*, void* self, int refusal) {
    static_cast<Broker*>(self)->connected(refusal);
  });
  mosquitto_disconnect_callback_set(client, [](mosquitto*, void* self, int) {
    const std::lock_guard lock(static_cast<Broker*>(self)->mutex_);
    static_cast<Broker*>(self)->is_connected_ = false;
  });
  mosquitto_message_callback_set(client,
                                 [](mosquitto*, void* self, const mosquitto_message* message) {
                                   static_cast<Broker*>(self)->received(*message);
                                 });
}

void Broker::publish(const std::string& topic, const std::string& payload, bool is_retained) {
  (void)mosquitto_publish(client_.get(), nullptr, topic.c_str(), static_cast<int>(payload.size()),
                          payload.data(), no_quality, is_retained);
}

void Broker::run() {
  constexpr int keepalive_s = 30;
  constexpr int turn_ms = 200;
  constexpr auto shortest_turn = 20ms;
  constexpr auto handshake_patience = 10s;
  constexpr int last_turns = 4;  // for what is to be said at the end
  auto delay = shortest_delay;
  std::unique_lock lock(mutex_);
  while (!is_ending_) {
    lock.unlock();
    refusal_.clear();
    bool was_connected = false;
    const auto deadline = std::chrono::steady_clock::now() + handshake_patience;
    int result =
        mosquitto_connect_async(client_.get(), address_.host.c_str(), address_.port, keepalive_s);
    for (int turns = last_turns; result == MOSQ_ERR_SUCCESS && turns > 0;) {
      result = mosquitto_loop(client_.get(), turn_ms, 1);
      std::unique_lock turn(mutex_);
      was_connected = was_connected || is_connected_;
      if (is_ending_) --turns;
      if (was_connected || result != MOSQ_ERR_SUCCESS) continue;
      // In a handshake over a connection that was reset the library neither ends nor waits.
      if (std::chrono::steady_clock::now() > deadline) {
        refusal_ = "no answer";
        result = MOSQ_ERR_CONN_LOST;
      }
      wake_.wait_for(turn, shortest_turn);
    }
    const auto why = refusal_.empty() ? reason_of(result) : refusal_;
    lock.lock();
    is_connected_ = false;
    if (is_ending_) break;
    // While it is away, how it cannot be reached changes nothing; what it says itself does.
    if (!trouble_.is_there() || !refusal_.empty()) trouble_.report(why);
    delay = was_connected ? shortest_delay : std::min(2 * delay, longest_delay);
    wake_.wait_for(lock, delay, [this] { return is_ending_; });
  }
  has_ended_ = true;
  wake_.notify_all();
}

void Broker::connected(int refusal) {
  if (refusal != 0) {
    refusal_ = mosquitto_connack_string(refusal);
    return;
  }
  if (takes_commands_) {
    const auto commands = prefix_ + "/+" + std::string(command_suffix);
    (void)mosquitto_subscribe(client_.get(), nullptr, commands.c_str(), no_quality);
  }
  const std::lock_guard lock(mutex_);
  trouble_.heal();
  is_connected_ = true;
  for (const auto& [topic, payload] : retained_) publish(topic, payload, true);
}

void Broker::received(const mosquitto_message& message) {
  std::string_view topic = message.topic;
  // One that the broker kept was meant for another time.
  if (message.retain || topic.size() <= prefix_.size() + command_suffix.size() ||
      !topic.starts_with(prefix_) || !topic.ends_with(command_suffix)) {
    return;
  }
  topic.remove_prefix(prefix_.size() + 1);
  topic.remove_suffix(command_suffix.size());
  const auto* payload = static_cast<const char*>(message.payload);
  const auto length = payload != nullptr ? static_cast<std::size_t>(message.payloadlen) : 0;
  const std::lock_guard lock(mutex_);
  if (length > longest_payload || commands_.size() == most_commands) return;
  commands_.emplace_back(topic, std::string(payload, payload + length));
}

}  // namespace kestrelctl
