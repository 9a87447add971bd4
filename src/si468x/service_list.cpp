// SPDX-License-Identifier: GPL-3.0-or-later
//
// The list comes from the air by way of the chip: counts and sizes are believed only as far as the
// bytes that were read go.
#include "si468x/service_list.h"

#include <algorithm>
#include <array>
#include <iostream>

#include "si468x/record.h"

using namespace si468x;

namespace {

using List = Si468x_digital_service_list;
using Service = Si468x_service_data;
using Component = Si468x_DAB_component;

// The reply: a size that counts all bytes after it, a header of the list, the entries.
constexpr std::size_t list_size_byte = 5;
constexpr std::uint16_t size_reply_bytes = 7;
constexpr std::size_t entries_byte = 13;
constexpr std::uint16_t list_header_bytes = entries_byte - size_reply_bytes;
constexpr std::uint16_t list_size_limit = service_list_reply_bytes - size_reply_bytes;

constexpr std::array list_fields{
    json_field<&List::ServiceListVersion>(u16(7), "ServiceListVersion"),
    json_field<&List::NumberServices>(u8(9), "NumberServices"),
};
static_assert(fits(list_fields, entries_byte));

// A service entry: 24 bytes, then its components of 4 bytes.
constexpr std::size_t service_bytes = 24;
constexpr std::size_t label_byte = 8;
constexpr std::size_t component_bytes = 4;

constexpr std::array service_id_fields{
    json_field<&Service::ServId>(u32(0), "ServId"),
    json_field<&Service::AudioOrDataFlag>(bit(4, 0), "AudioOrDataFlag"),
};
// An audio service has an id of 16 bits, a data service one of 32 with its country's extended code.
constexpr std::array audio_id_fields{
    json_field<&Service::ServRef>(low_bits(0, 12), "ServRef"),
    json_field<&Service::CountryID>(bits(1, 7, 4), "CountryID"),
};
constexpr std::array data_id_fields{
    json_field<&Service::ServRef>(low_bits(0, 20), "ServRef"),
    json_field<&Service::CountryID>(bits(2, 7, 4), "CountryID"),
    json_field<&Service::ECC>(u8(3), "ECC"),
};
constexpr Wire_bits component_count = bits(5, 3, 0);
constexpr std::array service_fields{
    json_field<&Service::ProgramType>(bits(4, 5, 1), "ProgramType"),
    json_field<&Service::LinkingInfo>(bit(4, 6), "LinkingInfo"),
    json_field<&Service::NumberComponents>(component_count, "NumberComponents"),
    json_field<&Service::CAId>(bits(5, 6, 4), "CAId"),
    json_field<&Service::local>(bit(5, 7), "local"),
    json_field<&Service::SICharset>(bits(6, 3, 0), "SICharset"),
};
static_assert(fits(service_id_fields, service_bytes) && fits(audio_id_fields, service_bytes) &&
              fits(data_id_fields, service_bytes) && fits(service_fields, service_bytes));
static_assert(label_byte + sizeof Service::Label == service_bytes);

constexpr std::array component_id_fields{
    json_field<&Component::comp_ID>(u16(0), "comp_ID"),
    json_field<&Component::TMID>(bits(1, 7, 6), "TMID"),
};
constexpr std::array stream_fields{json_field<&Component::SubChId>(bits(0, 5, 0), "SubChId")};
constexpr std::array fidc_fields{json_field<&Component::FIDCId>(bits(0, 5, 0), "FIDCId")};
constexpr std::array packet_mode_fields{
    json_field<&Component::SCId>(low_bits(0, 12), "SCId"),
    json_field<&Component::DGFlag>(bit(1, 4), "DGFlag"),
};
constexpr std::array component_fields{
    json_field<&Component::CA_flag>(bit(2, 0), "CA_flag"),
    json_field<&Component::ps>(bit(2, 1), "ps"),
    json_field<&Component::ASCTyDSCTy>(bits(2, 7, 2), "ASCTyDSCTy"),
    json_field<&Component::muA_info_valid>(bit(3, 0), "muA_info_valid"),
};
static_assert(fits(component_id_fields, component_bytes) && fits(stream_fields, component_bytes) &&
              fits(fidc_fields, component_bytes) && fits(packet_mode_fields, component_bytes) &&
              fits(component_fields, component_bytes));

/// The fields of the id that a service has by its kind.
Fields<Service> id_fields(const Service& service) {
  if (service.AudioOrDataFlag == 1) return data_id_fields;
  return audio_id_fields;
}

/// The fields of the id that a component has by its transport mechanism.
Fields<Component> id_fields(const Component& component) {
  switch (component.TMID) {
    case 2:
      return fidc_fields;
    case 3:
      return packet_mode_fields;
    default:
      return stream_fields;
  }
}

std::size_t entry_bytes(const std::uint8_t* entry) {
  return service_bytes + component_bytes * component_count.read(entry);
}

/// Write the bytes of a label, whatever they are, with a backslash before each quote.
void write_label(std::ostream& out, const std::uint8_t (&label)[sizeof Service::Label]) {
  std::array<char, 2 * sizeof label> text{};
  auto* end = text.data();
  for (const auto byte : label) {
    if (byte == '"') *end++ = '\\';
    *end++ = static_cast<char>(byte);
  }
  out.write(text.data(), end - text.data());
}

/// Write the elements 0 to `count` - 1 of an array, a comma between two, and close it and the
/// object that it ends.
template <class Write_element>
void write_array(std::ostream& out, const char* key, std::size_t count,
                 Write_element write_element) {
  out << '"' << key << "\": [\n";
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) out << ',';
    write_element(i);
  }
  out << "]\n}";
}

}  // namespace

void Si468x_digital_service_list::clean() { *this = {}; }

std::int16_t Si468x_digital_service_list::get_new_list(unsigned char* reply) {
  constexpr auto command = command_with(opcode::get_digital_service_list, 0x00);
  std::array<std::uint8_t, size_reply_bytes> size_reply{};
  if (const auto outcome = send_command(command, size_reply); outcome < 0) {
    return failed(Error::service_list_size, outcome);
  }
  const auto list_size = le16(&size_reply[list_size_byte]);
  if (list_size > list_size_limit) return failed(Error::service_list_too_long, result::unfit);
  if (list_size < list_header_bytes) return failed(Error::service_list_too_short, result::unfit);

  auto frame = command;
  const auto reply_bytes = static_cast<std::uint16_t>(list_size + size_reply_bytes);
  if (const auto outcome = Si468x_send_cmd(frame.data(), reply, frame.size(), reply_bytes);
      outcome < 0) {
    return failed(Error::service_list, outcome);
  }
  decode(list_fields, reply, *this);
  ServiceEntriesSize = static_cast<std::uint16_t>(list_size - list_header_bytes);
  ServiceEntries = reply + entries_byte;
  return result::ok;
}

int Si468x_digital_service_list::json_print_data(std::stringstream& out) {
  open_object(out, "DigitalServiceList");
  write_members(out, list_fields, *this);
  Service service;
  std::fill(std::begin(service.Label), std::end(service.Label), std::uint8_t{' '});
  write_array(out, "ServiceList", NumberServices, [&](std::size_t i) {
    // One that cannot be located repeats the one before it, under its own number.
    (void)service.get_service(this, static_cast<unsigned char>(i));
    (void)service.json_print_data(out, static_cast<unsigned short>(i));
  });
  return 0;
}

std::int16_t Si468x_service_data::get_service(Si468x_digital_service_list* list,
                                              unsigned char index) {
  if (index >= list->NumberServices) return failed(Error::service_index, result::invalid);
  const std::size_t area = list->ServiceEntries == nullptr ? 0 : list->ServiceEntriesSize;
  std::size_t offset = 0;
  for (unsigned i = 0; i < index; ++i) {
    if (offset + service_bytes > area) return failed(Error::service_walk, result::unfit);
    offset += entry_bytes(list->ServiceEntries + offset);
    if (offset > area) return failed(Error::service_walk_components, result::unfit);
  }
  if (offset + service_bytes > area) return failed(Error::service_entry, result::unfit);

  std::uint8_t* const entry = list->ServiceEntries + offset;
  decode(service_id_fields, entry, *this);
  decode(id_fields(*this), entry, *this);
  decode(service_fields, entry, *this);
  std::copy_n(entry + label_byte, sizeof Label, Label);
  ComponentEntries = nullptr;
  if (offset + entry_bytes(entry) > area) return failed(Error::service_components, result::unfit);
  ComponentEntries = entry + service_bytes;
  return result::ok;
}

int Si468x_service_data::json_print_data(std::stringstream& out, unsigned short service_no) {
  out << "{\n";
  write_member(out, "ServiceNo", service_no);
  write_members(out, service_id_fields, *this);
  write_members(out, id_fields(*this), *this);
  write_members(out, service_fields, *this);
  out << "\"Label\": \"";
  write_label(out, Label);
  out << "\",\n";
  Component component;
  const std::size_t count = ComponentEntries == nullptr ? 0 : NumberComponents;
  write_array(out, "ComponentList", count, [&](std::size_t i) {
    (void)component.get_component(this, static_cast<unsigned char>(i));  // i is below the count
    (void)component.json_print_data(out, static_cast<unsigned short>(i));
  });
  return 0;
}

std::int16_t Si468x_DAB_component::get_component(Si468x_service_data* service,
                                                 unsigned char index) {
  if (index >= service->NumberComponents || service->ComponentEntries == nullptr) {
    return failed(Error::component_index, result::invalid);
  }
  const std::uint8_t* const entry = service->ComponentEntries + index * component_bytes;
  decode(component_id_fields, entry, *this);
  decode(id_fields(*this), entry, *this);
  decode(component_fields, entry, *this);
  return result::ok;
}

int Si468x_DAB_component::json_print_data(std::stringstream& out, unsigned short component_no) {
  out << "{\n";
  write_member(out, "ComponentNo", component_no);
  write_members(out, component_id_fields, *this);
  write_members(out, id_fields(*this), *this);
  write_members(out, component_fields, *this, Next::end);
  out << '}';
  return 0;
}

int print_digital_service_list() {
  constexpr std::size_t reply_bytes = 5000;
  std::array<unsigned char, reply_bytes> reply{};
  static_assert(reply_bytes >= service_list_reply_bytes);
  Si468x_digital_service_list list;
  (void)list.get_new_list(reply.data());  // a failed read is shown as an empty list
  std::stringstream out;
  (void)list.json_print_data(out);
  std::cout << out.view();
  return 0;
}
