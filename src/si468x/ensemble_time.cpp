// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/ensemble_time.h"

#include <array>
#include <cstdio>
#include <iostream>

#include "si468x/record.h"

using namespace si468x;

namespace {

constexpr std::array time_fields{
    json_field<&Si468x_time::year>(u16(5), "year"),
    json_field<&Si468x_time::month>(u8(7), "month"),
    json_field<&Si468x_time::day>(u8(8), "day"),
    json_field<&Si468x_time::hour>(u8(9), "hour"),
    json_field<&Si468x_time::minute>(u8(10), "minute"),
    json_field<&Si468x_time::second>(u8(11), "second"),
};
constexpr std::size_t time_reply_bytes = 12;
static_assert(fits(time_fields, time_reply_bytes));
constexpr std::uint8_t time_type_utc = 0x01;

}  // namespace

void Si468x_time::clean() { *this = {}; }

std::int16_t Si468x_time::get_ensembletime() {
  return read_record<time_reply_bytes>(command_with(opcode::dab_get_time, time_type_utc),
                                       time_fields, *this, Error::ensemble_time);
}

std::int16_t Si468x_time::print_data() {
  std::printf("%d-%d-%dT%d:%d:%dZ\n", year, month, day, hour, minute, second);
  return result::ok;
}

int Si468x_time::json_print_data(std::stringstream& out) {
  open_object(out, "ensembleTime");
  write_members(out, time_fields, *this, Next::end);
  out << "}\n";
  return 0;
}

int print_ensembletime() {
  Si468x_time time;
  (void)time.get_ensembletime();  // a failed read is shown as zeros
  (void)time.print_data();
  return 0;
}

int print_ensembletime_json() {
  std::stringstream out;
  Si468x_time time;
  (void)time.get_ensembletime();  // a failed read is shown as zeros
  (void)time.json_print_data(out);
  std::cout << out.view();
  return 0;
}
