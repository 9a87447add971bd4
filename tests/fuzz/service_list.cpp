// SPDX-License-Identifier: GPL-3.0-or-later
//
// A service list as the chip sends it, walked, written as JSON, kept by a scan and saved. Input:
// the reply from its length field on.
#include "si468x/service_list.h"

#include "scan/ensemble_list.h"
#include "support.h"

namespace {

void walk(Si468x_digital_service_list& list) {
  Si468x_service_data service;
  Si468x_DAB_component component;
  for (unsigned i = 0; i <= list.NumberServices; ++i) {
    if (service.get_service(&list, static_cast<unsigned char>(i)) != 0) continue;
    fuzz::require(i < list.NumberServices, "no service beyond the list's count");
    for (unsigned char j = 0; j <= service.NumberComponents; ++j) {
      const bool is_there = component.get_component(&service, j) == 0;
      fuzz::require(is_there == (j < service.NumberComponents), "as many components as it says");
    }
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Bytes frame(fuzz::content.begin(), fuzz::content.end());
  frame.insert(frame.end(), data, data + size);
  const fuzz::Constant_board board(frame);
  fuzz::Bytes reply(service_list_reply_bytes);
  Si468x_digital_service_list list;
  (void)list.get_new_list(reply.data());  // a refused list is an empty one
  // In an array of its own size, so that a byte read beyond the entries is found.
  fuzz::Bytes entries(list.ServiceEntries, list.ServiceEntries + list.ServiceEntriesSize);
  list.ServiceEntries = entries.data();
  walk(list);

  static Ensemble_list scan;
  Si468x_DAB_digrad_status status;
  Si468x_time time;
  (void)scan.add_ensemble(0, list, status, time);  // there is a slot 0
  scan.number_of_frequencies = 1;
  scan.file_name = "/dev/null";
  (void)scan.save_to_file();
  return 0;
}
