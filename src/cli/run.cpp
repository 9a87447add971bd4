// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/run.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "cli/frequency_list_file.h"
#include "cli/options.h"
#include "scan/ensemble_list.h"
#include "si468x/boot.h"
#include "si468x/bus.h"
#include "si468x/chip_info.h"
#include "si468x/dab_status.h"
#include "si468x/dab_tuning.h"
#include "si468x/ensemble_time.h"
#include "si468x/fm_rds.h"
#include "si468x/fm_tuning.h"
#include "si468x/properties.h"
#include "si468x/service_list.h"
#include "si468x/service_playback.h"

namespace {

/// A closed standard stream must not become the number of the next file that is opened: what is
/// printed would go into the scan file, or to the processor's memory.
void fill_standard_streams() {
  int descriptor = 0;
  do {
    descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) (void)close(descriptor);  // the first one beyond them
}

/// Boot the firmware that was asked for; another letter boots nothing.
void boot(char firmware) {
  // Whether it runs now is what the status check that follows asks the chip itself.
  if (firmware == 'D') (void)power_up_and_load_fw(1);
  if (firmware == 'F') (void)power_up_and_load_fw(0);
}

bool firmware_is_running() {
  constexpr std::uint8_t firmware_running = 3;
  Si468x_chip_info chip;
  return chip.get_status() >= 0 && chip.powerup_state == firmware_running;
}

void play(const arguments& given) {
  if (given.service == 0 || given.component == 0) {
    std::puts("To play, a service id and component id have to be given\n");
    return;
  }
  (void)play_station(given.service, given.component);
}

/// Carry out what was asked for. The order is fixed: tuning comes before playing, playing before
/// the reports on it. Only a failed tune ends the run; a command that fails says so itself.
void carry_out(const arguments& given) {
  if (given.frequency_list != 0) (void)load_freq_list_from_file(given.frequency_list_file);
  if (given.i2s_given != 0) {
    (void)set_properties_output(static_cast<unsigned char>(given.i2s_out));
  }
  if (given.frequency != 0 && tune_freq(given.frequency) == -1) return;
  if (given.fm_frequency != 0 && tune_fm_freq(given.fm_frequency) == -1) return;
  if (given.play != 0) play(given);
  if (given.volume_given != 0) (void)set_volume(given.volume);
  if (given.chip_info != 0) (void)print_chip_info();
  if (given.digrad_status != 0) {
    (void)(given.format_json != 0 ? print_digrad_status_json() : print_digrad_status());
  }
  if (given.digital_service_list != 0) (void)print_digital_service_list();
  if (given.station_text != 0) (void)print_station_text();
  if (given.event_status != 0) (void)print_event_status();
  if (given.datetime != 0) {
    (void)(given.format_json != 0 ? print_ensembletime_json() : print_ensembletime());
  }
  if (given.next != 0) {
    (void)Si468x_tune_next_station();
  } else if (given.previous != 0) {
    (void)Si468x_tune_previous_station();
  }
  if (given.rds_status != 0) (void)get_rds_status();
  if (given.full_scan != 0) (void)dab_full_scan();
  if (given.shutdown != 0) {
    Si468x_power_down();
    std::puts("Si468x shut down\n");
  }
}

}  // namespace

int check_sudo() {
  if (geteuid() == 0) return 0;
  std::puts("Must be called as root. Did you forget sudo?");
  return 1;
}

void print_new_start_banner() {
  std::puts(
      "Please note:\n"
      "The receiver plays on when kestrel has ended; -k shuts it down.\n"
      "While kestrel runs, nothing else may use SPI0 or GPIO 7 and 23.\n");
}

int run(int argc, char** argv) {
  fill_standard_streams();
  arguments given;
  std::puts("Starting...kestrel DAB radio client");
  std::puts(argp_program_version);
  // argp itself ends the process for what it does not accept.
  (void)argp_parse(&argp, argc, argv, 0, nullptr, &given);
  print_new_start_banner();
  if (check_sudo() != 0) return 0;
  if (Si468x_bus_init() < 0) {
    std::puts(
        "Error initializing SPI bus. Check that SPI is enabled and that /dev/spidev0.0 exists");
    return 0;
  }
  std::puts("SPI bus enabled.\n");
  if (given.boot != 0) boot(given.firmware);
  if (!firmware_is_running()) {
    std::puts("Si468x is not booted up, no firmware loaded. Please use the command boot first.\n");
    return 0;
  }
  carry_out(given);
  return 0;
}
