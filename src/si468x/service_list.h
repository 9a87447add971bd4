// SPDX-License-Identifier: GPL-3.0-or-later
//
// The services of the tuned ensemble and their components. The list is decoded where it was read: a
// list record refers into its caller's reply array, a service record into the same array for its
// components. The array must outlive them unchanged. Command `digital_service_list`; the scan keeps
// such lists.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sstream>

/// Least length of the array that Si468x_digital_service_list::get_new_list reads into.
inline constexpr std::size_t service_list_reply_bytes = 4096;

struct Si468x_digital_service_list {
  std::uint16_t ServiceListVersion = 0;
  std::uint8_t NumberServices = 0;         ///< as the chip says; the entries may hold fewer
  std::uint16_t ServiceEntriesSize = 0;    ///< bytes at `ServiceEntries`
  std::uint8_t* ServiceEntries = nullptr;  ///< not owned

  /// Make the list empty.
  void clean();
  /// Read the list into `reply`, the caller's array of at least 4096 bytes, and refer to it. 0; the
  /// protocol's negative result with code 26 (size) or 226 (list); -4 with code 126 (list longer
  /// than 4089 bytes) or 326 (shorter than its own header of 6). On failure the record stays as it
  /// was.
  std::int16_t get_new_list(unsigned char* reply);
  /// Append the member "DigitalServiceList" to `out`, without a last newline. A service that cannot
  /// be located is written with the contents of the one before it. Always 0.
  int json_print_data(std::stringstream& out);
};

/// One service. Fields without a range are as wide as their type.
struct Si468x_service_data {
  std::uint32_t ServId = 0;
  std::uint32_t ServRef = 0;         ///< 12 bits (audio) or 20 bits (data) of the id
  std::uint8_t CountryID = 0;        ///< 0 to 15
  std::uint8_t ECC = 0;              ///< extended country code; data services only
  std::uint8_t AudioOrDataFlag = 0;  ///< 0 audio, 1 data
  std::uint8_t ProgramType = 0;      ///< 0 to 31
  std::uint8_t LinkingInfo = 0;
  std::uint8_t NumberComponents = 0;  ///< 0 to 15, as the chip says
  std::uint8_t CAId = 0;              ///< conditional access, 0 to 7
  std::uint8_t local = 0;
  std::uint8_t SICharset = 0;                ///< 0 to 15
  std::uint8_t Label[16] = {};               ///< as sent, padded with blanks, not terminated
  std::uint8_t* ComponentEntries = nullptr;  ///< not owned; null: there are none to read

  /// Decode service `index` of `list`. 0; -6 with code 27 for an index not below NumberServices; -4
  /// with code 127, 227 (an entry before it runs past the list), 327 (its own does): the record
  /// then keeps its contents; -4 with code 427 (its components do): the record is decoded and
  /// ComponentEntries null.
  std::int16_t get_service(Si468x_digital_service_list* list, unsigned char index);
  /// Append the service as an object, numbered `service_no`, with its components. Always 0.
  int json_print_data(std::stringstream& out, unsigned short service_no);
};

/// One component of a service. Which of the ids it has depends on its transport mechanism.
struct Si468x_DAB_component {
  std::uint32_t comp_ID = 0;    ///< 16 bits; what starts the component
  std::uint8_t SubChId = 0;     ///< 0 to 63, TMID 0 and 1
  std::uint8_t TMID = 0;        ///< 0 stream audio, 1 stream data, 2 FIDC, 3 packet data
  std::uint8_t FIDCId = 0;      ///< 0 to 63, TMID 2
  std::uint16_t SCId = 0;       ///< 12 bits, TMID 3
  std::uint8_t DGFlag = 0;      ///< data groups, TMID 3
  std::uint8_t CA_flag = 0;     ///< conditional access applies
  std::uint8_t ps = 0;          ///< primary or secondary
  std::uint8_t ASCTyDSCTy = 0;  ///< audio or data service component type, 0 to 63
  std::uint8_t muA_info_valid = 0;

  /// Decode component `index` of `service`; the ids that its TMID does not have keep their values.
  /// 0, or -6 with code 28 for an index not below NumberComponents, or when there are no entries.
  std::int16_t get_component(Si468x_service_data* service, unsigned char index);
  /// Append the component as an object, numbered `component_no`. Always 0.
  int json_print_data(std::stringstream& out, unsigned short component_no);
};

/// Command `digital_service_list`: read the list and print it as JSON, an empty list when it could
/// not be read. Always 0.
int print_digital_service_list();
