// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/receiver.h"

#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <utility>

#include "scan/ensemble_list.h"
#include "si468x/board_file.h"
#include "si468x/boot.h"
#include "si468x/bus.h"
#include "si468x/chip_info.h"
#include "si468x/dab_status.h"
#include "si468x/dab_tuning.h"
#include "si468x/ensemble_time.h"
#include "si468x/fm_rds.h"
#include "si468x/fm_tuning.h"
#include "si468x/properties.h"
#include "si468x/protocol.h"
#include "si468x/service_list.h"
#include "si468x/service_playback.h"

namespace kestrelctl {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr std::uint8_t audio_service = 0;
constexpr std::uint16_t volume_property = 0x0300;
constexpr auto poll_interval = 20ms;
// More than the receiver's queues hold: one that never ends is a fault.
constexpr unsigned longest_queue = 100;
// Stands for groups that were lost before they were read.
constexpr Rds_group lost_groups{.blocks = {}, .errors = {3, 3, 3, 3}};

volatile std::sig_atomic_t stop_signal = 0;

/// Throw what a driver operation that ended in `result` means for "cannot `purpose`".
void check(std::int16_t result, const std::string& purpose) {
  if (is_stopped()) throw Stopped();
  if (result >= 0) return;
  const char* reason = "it did not answer in time";
  if (result == si468x::result::refused) reason = "it refused";
  if (result == si468x::result::transfer_failed) {
    reason = "the transfer was disturbed; does another program use SPI0?";
  }
  throw Failure("The receiver cannot " + purpose + ": " + reason + " (code " +
                std::to_string(Si468x_ErrorCode) + ")");
}

/// Poll until `is_done`, for `time` at most; was it?
template <class Condition>
bool wait_until(Condition is_done, milliseconds time) {
  for (milliseconds waited{}; waited <= time; waited += poll_interval) {
    if (is_done()) return true;
    if (!pause(poll_interval)) throw Stopped();
  }
  return false;
}

/// A kestrel that was started by hand knows nothing of the lock.
bool is_kestrel_running() {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const auto& path = entry.path().native();
    if (path.find_first_of("0123456789") == std::string::npos) continue;
    std::string name;
    if (std::getline(std::ifstream(path + "/comm"), name) && name == "kestrel") return true;
  }
  return false;
}

void wait_for_others(int board) {
  constexpr auto patience = 5s;
  constexpr auto quiet = 1s;
  constexpr auto step = 50ms;
  // Who looks again and again says it once, until the board was free.
  static bool has_told = false;
  for (milliseconds waited{};; waited += step) {
    const bool is_locked = flock(board, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
    if (is_locked && !is_kestrel_running()) {
      has_told = false;
      return;
    }
    const char* other = is_locked ? "kestrel" : "kestrelctl";
    if (is_locked) (void)flock(board, LOCK_UN);
    if (waited >= patience) {
      throw Failure("Another " + std::string(other) + " is using the receiver. Try again later.");
    }
    if (waited >= quiet && !std::exchange(has_told, true)) {
      std::cerr << "kestrelctl: waiting for another " << other << " to end\n";
    }
    // On everybody's clock, and no longer than until a signal.
    const timespec patience_step{.tv_sec = 0, .tv_nsec = std::chrono::nanoseconds(step).count()};
    (void)nanosleep(&patience_step, nullptr);
    if (is_stopped()) throw Stopped();
  }
}

/// The chip's figures are signed; its driver hands them on as it gets them.
int as_signed(std::uint8_t figure) { return static_cast<std::int8_t>(figure); }

/// The services of the tuned ensemble, with the array that they refer to.
struct Service_list {
  std::array<unsigned char, service_list_reply_bytes> reply{};
  Si468x_digital_service_list list;
};

bool has_service_list() {
  Si468x_DAB_event_status events;
  return events.get_new_status() == 0 && events.serviceListAvailable != 0;
}

/// Why the ensemble, whose list has come, does not let the station be started.
std::string reason_in_list(const Station& station) {
  Service_list services;
  check(services.list.get_new_list(services.reply.data()), "read the service list");
  for (unsigned i = 0; i < services.list.NumberServices; ++i) {
    Si468x_service_data service;
    if (service.get_service(&services.list, static_cast<unsigned char>(i)) != 0) break;
    if (service.ServId != station.service_id) continue;
    for (unsigned j = 0; j < service.NumberComponents; ++j) {
      Si468x_DAB_component component;
      if (component.get_component(&service, static_cast<unsigned char>(j)) != 0) break;
      if (component.comp_ID != station.component_id) continue;
      return component.CA_flag != 0 || service.CAId != 0 ? "it is scrambled"
                                                         : "the receiver refuses to start it";
    }
    return "its audio has moved; scan again";
  }
  return "it is gone from the ensemble; scan again";
}

}  // namespace

void catch_stop_signals() {
  struct sigaction action {};
  action.sa_handler = [](int number) {
    stop_signal = number;
    Si468x_interrupt();
  };
  for (const int number : {SIGINT, SIGTERM, SIGQUIT, SIGHUP}) {
    (void)sigaction(number, &action, nullptr);
  }
  (void)std::signal(SIGPIPE, SIG_IGN);
}

bool is_stopped() { return stop_signal != 0; }

bool pause(milliseconds time) {
  // A signal between the look at the flag and the sleep would go unnoticed until the sleep ends.
  constexpr milliseconds longest_sleep = 100ms;
  for (; time.count() > 0 && !is_stopped(); time -= longest_sleep) {
    Si468x_delay_ms(static_cast<unsigned>(std::min(time, longest_sleep).count()));
  }
  return !is_stopped();
}

Receiver::Receiver() : board_(nullptr, &std::fclose) {
  if (geteuid() != 0) throw Failure("The receiver is root's. Did you forget sudo?");
  board_.reset(open_board_file("/dev/spidev0.0", "r"));
  if (!board_) {
    throw Failure(
        "SPI is switched off: /dev/spidev0.0 cannot be opened. Switch it on with "
        "raspi-config, or see kestrelctl doctor.");
  }
  wait_for_others(fileno(board_.get()));
  if (Si468x_bus_init() < 0) {
    throw Failure("The processor's registers cannot be mapped. kestrelctl doctor says why.");
  }
  is_open_ = true;
}

Receiver::~Receiver() {
  if (is_open_) Si468x_SPI_shutdown();
}

Firmware Receiver::firmware() {
  constexpr std::uint8_t firmware_running = 3;
  constexpr std::uint8_t fm_image = 1;
  constexpr std::uint8_t dab_image = 2;
  Si468x_chip_info chip;
  check(chip.get_status(), "tell its state");
  // A line that nobody drives reads as ones.
  if (chip.command_error != 0 && chip.arbiter_error != 0 && chip.non_recoverable_error != 0) {
    throw Failure("No receiver answers. Is the board seated well?");
  }
  if (chip.powerup_state != firmware_running) return Firmware::off;
  check(chip.get_sys_state(), "tell its firmware");
  if (chip.firmware_image == dab_image) return Firmware::dab;
  return chip.firmware_image == fm_image ? Firmware::fm : Firmware::other;
}

bool Receiver::ensure_firmware(Firmware wanted, int volume) {
  constexpr std::array<const char*, 4> problems{
      "does not answer. Is the board seated well?", "did not take the boot patch",
      "did not take its firmware", "did not boot its firmware"};
  if (firmware() == wanted) return false;
  const auto step = Si468x_load_and_boot(wanted == Firmware::dab ? 1 : 0);
  if (step != Boot_step::done) {
    // Half an image is worth nothing: the next boot begins with a reset.
    if (step == Boot_step::patch || step == Boot_step::firmware) Si468x_give_up_load();
    check(0, "boot");
    throw Failure(std::string("The receiver ") + problems.at(static_cast<std::size_t>(step)) +
                  " (code " + std::to_string(Si468x_ErrorCode) + ")");
  }
  set_volume(volume);
  return true;
}

std::vector<std::uint32_t> Receiver::frequencies() {
  std::array<unsigned int, 255> list{};
  unsigned char count = 0;
  check(Si468x_DAB_get_freq_list(list.data(), &count), "tell its frequencies");
  return {list.begin(), list.begin() + std::min(count, dab_freq_list_limit)};
}

void Receiver::set_frequencies(std::vector<std::uint32_t> khz) {
  check(Si468x_DAB_set_freq_list(khz.data(), static_cast<unsigned char>(khz.size())),
        "take the list of frequencies");
}

void Receiver::play_dab(const Station& station, std::span<const std::uint32_t> scanned_khz) {
  constexpr auto acquisition_patience = 2500ms;
  constexpr milliseconds list_patience{10000};
  const auto here = reception();
  if (here.khz != station.khz || !here.is_received) {
    auto list = frequencies();
    auto place = std::ranges::find(list, station.khz);
    if (place == list.end()) {
      list.assign(scanned_khz.begin(), scanned_khz.end());
      place = std::ranges::find(list, station.khz);
      if (place == list.end()) list = {station.khz}, place = list.begin();
      set_frequencies(list);
    }
    check(Si468x_DAB_tune_freq(static_cast<unsigned char>(place - list.begin())), "tune");
    Reception now;
    if (!wait_until([&] { return (now = reception()).is_received; }, acquisition_patience)) {
      throw Failure("No ensemble on " + station.place() + ": " + std::to_string(now.rssi_dbuv) +
                        " dBuV, FIC quality " + std::to_string(now.fic_quality) + " %",
                    exit_status::no_reception);
    }
  }
  if (!wait_until(has_service_list, list_patience)) {
    throw Failure("The service list of " + station.place() + " has not come",
                  exit_status::no_reception);
  }
  const auto started =
      Si468x_start_digital_service(audio_service, station.service_id, station.component_id);
  if (started == si468x::result::refused && !is_stopped()) {
    throw Failure(station.name + " cannot be played: " + reason_in_list(station),
                  exit_status::no_reception);
  }
  check(started, "start the station");
}

void Receiver::tune_fm(std::uint32_t khz) { check(Si468x_FM_tune_freq(khz), "tune"); }

bool Receiver::seek_fm(bool upwards) {
  check(upwards ? Si468x_tune_next_station() : Si468x_tune_previous_station(), "seek");
  Si468x_FM_rsq_status quality;
  check(quality.get_status(), "tell its reception");
  return quality.bandLimit != 0;
}

void Receiver::stop_dab(const Station& station) {
  check(Si468x_stop_digital_service(audio_service, station.service_id, station.component_id),
        "stop the station");
}

void Receiver::power_down() {
  Si468x_power_down();
  is_open_ = false;
}

int Receiver::volume() {
  std::array<std::uint16_t, 2> property{volume_property, 0};
  check(Si468x_get_property(property.data()), "tell its volume");
  return property[1];
}

void Receiver::set_volume(int volume) {
  check(set_properties_volume(static_cast<unsigned char>(volume)), "set its volume");
}

Reception Receiver::reception() {
  Reception now{.firmware = firmware()};
  if (now.firmware == Firmware::dab) {
    Si468x_DAB_digrad_status status;
    check(status.get_new_status(), "tell its reception");
    now.khz = static_cast<std::uint32_t>(status.tune_freq);
    now.rssi_dbuv = as_signed(status.rssi);
    now.snr_db = as_signed(status.snr);
    now.cnr_db = status.cnr;
    now.fic_quality = status.FIC_quality;
    now.fib_errors = status.FIB_error_count;
    now.is_received = status.acq != 0;
    now.is_muted = status.hardmute != 0;
  } else if (now.firmware == Firmware::fm) {
    Si468x_FM_rsq_status status;
    check(status.get_status(), "tell its reception");
    now.khz = status.freq;
    now.rssi_dbuv = as_signed(status.rssi);
    now.snr_db = as_signed(status.snr);
    now.multipath = status.multipath;
    now.is_received = status.valid != 0;
  }
  return now;
}

std::optional<std::chrono::sys_seconds> Receiver::ensemble_time() {
  using namespace std::chrono;
  Si468x_time time;
  // Before the ensemble has told it, the receiver may refuse.
  if (time.get_ensembletime() < 0) return std::nullopt;
  const year_month_day date{year(time.year), month(time.month), day(time.day)};
  if (time.year == 0 || time.hour > 23 || !date.ok()) return std::nullopt;
  return sys_days(date) + hours(time.hour) + minutes(time.minute) + seconds(time.second);
}

std::vector<Label_state> Receiver::drain_text(Service_text& text) {
  std::vector<Label_state> heard;
  std::array<unsigned char, service_data_reply_bytes> reply{};
  for (unsigned i = 0; i < longest_queue; ++i) {
    Si468x_digital_service_data packet;
    check(packet.get_new_data(reply.data()), "hand over its text");
    if (packet.data_ready == 0) break;
    if (packet.payload == nullptr) continue;
    if (packet.service_id != text.service_id || packet.component_id != text.component_id) {
      text = {.service_id = packet.service_id, .component_id = packet.component_id, .label = {}};
    }
    if (text.label.feed({packet.payload, packet.byte_count}) != Label_change::nothing) {
      heard.push_back(text.label.state());
    }
  }
  return heard;
}

std::vector<Label_state> Receiver::drain_rds(Station_rds& rds) {
  std::vector<Label_state> heard;
  for (unsigned i = 0; i < longest_queue; ++i) {
    Si468x_FM_rds_status status;
    check(status.get_status(), "hand over its RDS");
    if (status.synchronized == 0) {
      // After a boot the decoder is switched off.
      if (i == 0) check(Si468x_FM_enable_rds(), "switch RDS on");
      break;
    }
    const Rds_group group{
        .blocks = {status.block_a, status.block_b, status.block_c, status.block_d},
        .errors = {status.ble_a, status.ble_b, status.ble_c, status.ble_d}};
    // With an empty queue the reply shows nothing, or once more the group before.
    const bool is_last = status.fifo_used == 0;
    const bool is_stale = group.blocks == rds.last.blocks || group.blocks == Rds_group{}.blocks;
    if (status.fifo_overrun != 0 && i == 0) rds.decoder.feed(lost_groups);
    const auto before = rds.label();
    if (!is_last || !is_stale) rds.decoder.feed(group);
    rds.last = group;
    if (rds.label() != before) heard.push_back(rds.label());
    if (is_last) break;
  }
  return heard;
}

Visit Receiver::visit(Ensemble_list& ensembles, std::uint8_t index) {
  // The FIC of a weak ensemble takes its time to become readable, and so does its service list.
  constexpr unsigned tries = 3;
  constexpr milliseconds patience{1000};
  Visit visit;
  Si468x_DAB_digrad_status status;
  for (unsigned i = 0; i < tries; ++i) {
    const auto found = ensembles.visit(index, status, [] {});
    if (is_stopped()) throw Stopped();
    visit = {.has_ensemble = found == 1,
             .has_signal = status.valid != 0,
             .khz = static_cast<std::uint32_t>(status.tune_freq),
             .rssi_dbuv = as_signed(status.rssi),
             .services = ensembles.service_list[index].NumberServices,
             .list_version = ensembles.service_list[index].ServiceListVersion};
    if (visit.has_ensemble || !visit.has_signal) break;
    if (!pause(patience)) throw Stopped();
  }
  return visit;
}

}  // namespace kestrelctl
