// SPDX-License-Identifier: GPL-3.0-or-later
//
// The interface for programs that bring their own declarations. These are written without the
// headers, and link only as long as those have exactly these types. Functions without
// parameters cannot differ and are left out.
#include <argp.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <sstream>

using std::int16_t, std::uint16_t, std::uint32_t, std::uint8_t, std::stringstream;
using uchar = unsigned char;

extern uint32_t Si468x_ErrorCode;
extern char buffer[5000];
extern const char* const pty_meaning_europe[32];

error_t parse_opt(int, char*, argp_state*);
int16_t load_freq_list_from_file(char*);
int16_t Si468x_SPI_RW_data(uint8_t*, uint16_t), Si468x_SPI_RW_data_noCS(uint8_t*, uint16_t);
int16_t Si468x_send_cmd(uint8_t*, uint8_t*, uint16_t, uint16_t);
int16_t Si468x_rd_reply(uint8_t*), Si468x_check_status_bits(uint8_t*);
int16_t Si468x_read_reply(uint8_t*, uint16_t), Si468x_send_cmd_simple(uint8_t*, uint16_t);
void Si468x_failure(int16_t, uint32_t);
int16_t Si468x_min(int16_t, int16_t);
void Si468x_clear_array(uint8_t*, uint16_t), Si468x_byte_array_copy(uint8_t*, uint8_t*, uint16_t);
void Si468x_hex_print(uint8_t*, uint16_t, char*);
int16_t Si468x_load_firmware_static(const uchar*, unsigned), power_up_and_load_fw(uchar);
int16_t Si468x_load_firmware_datapackage(uchar*, unsigned);
int16_t Si468x_load_firmware(char*), Si468x_load_firmware_flash(unsigned);
int16_t Si468x_set_property(uint16_t*), Si468x_get_property(uint16_t*);
int set_volume(unsigned);
int16_t set_properties_output(uchar), set_properties_volume(uchar), set_options_i2s(uchar);

struct Si468x_DAB_digrad_status {
  int json_print_data(stringstream&);
};
struct Si468x_time {
  int json_print_data(stringstream&);
};
struct Si468x_digital_service_list {
  int16_t get_new_list(uchar*);
  int json_print_data(stringstream&);
};
struct Si468x_service_data {
  int16_t get_service(Si468x_digital_service_list*, uchar);
  int json_print_data(stringstream&, unsigned short);
};
struct Si468x_DAB_component {
  int16_t get_component(Si468x_service_data*, uchar);
  int json_print_data(stringstream&, unsigned short);
};
struct Si468x_digital_service_data {
  int16_t get_new_data(uchar*);
};
struct Ensemble_list {
  Ensemble_list();
  virtual ~Ensemble_list();
  int add_ensemble(unsigned short, Si468x_digital_service_list&, Si468x_DAB_digrad_status&,
                   Si468x_time&);
};

int16_t Si468x_DAB_set_freq_list(unsigned*, uchar), Si468x_DAB_get_freq_list(unsigned*, uchar*);
int16_t Si468x_DAB_tune_freq_save(uchar, Si468x_DAB_digrad_status&);
int16_t Si468x_DAB_tune_freq(uchar), tune_freq(uchar);
int16_t Si468x_FM_tune_freq(unsigned), tune_fm_freq(unsigned);
int16_t Si468x_start_digital_service(uchar, unsigned, unsigned);
int16_t Si468x_stop_digital_service(uchar, unsigned, unsigned), play_station(unsigned, unsigned);

namespace {

Ensemble_list* construct(void* at) { return new (at) Ensemble_list; }

bool are_there(auto... addresses) { return (... && (addresses != nullptr)); }

TEST(Interface, LinksWithDeclarationsOfOnesOwn) {
  EXPECT_TRUE(are_there(
      &Si468x_ErrorCode, buffer, parse_opt, load_freq_list_from_file, Si468x_SPI_RW_data,
      Si468x_SPI_RW_data_noCS, Si468x_send_cmd, Si468x_rd_reply, Si468x_check_status_bits,
      Si468x_read_reply, Si468x_send_cmd_simple, Si468x_failure, Si468x_min, Si468x_clear_array,
      Si468x_byte_array_copy, Si468x_hex_print, Si468x_load_firmware_static, power_up_and_load_fw,
      Si468x_load_firmware_datapackage, Si468x_load_firmware, Si468x_load_firmware_flash,
      Si468x_set_property, Si468x_get_property, set_volume, set_properties_output,
      set_properties_volume, set_options_i2s, Si468x_DAB_set_freq_list, Si468x_DAB_get_freq_list,
      Si468x_DAB_tune_freq_save, Si468x_DAB_tune_freq, tune_freq, Si468x_FM_tune_freq, tune_fm_freq,
      Si468x_start_digital_service, Si468x_stop_digital_service, play_station,
      &Si468x_DAB_digrad_status::json_print_data, &Si468x_time::json_print_data,
      &Si468x_digital_service_list::get_new_list, &Si468x_digital_service_list::json_print_data,
      &Si468x_service_data::get_service, &Si468x_service_data::json_print_data,
      &Si468x_DAB_component::get_component, &Si468x_DAB_component::json_print_data,
      &Si468x_digital_service_data::get_new_data, construct, &Ensemble_list::add_ensemble));
  EXPECT_STREQ(pty_meaning_europe[31], "Alarm");
}

}  // namespace
