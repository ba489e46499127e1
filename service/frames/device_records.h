// Bluetooth devices and service cards as the card service lists them, and the device frame that
// carries one card command to a device.
//
// Both lists answer a 16-bit count, then the records, then a string area that holds the UTF-8
// display names (and the service cards' network addresses), each NUL-terminated, found by its
// 16-bit offset within the area. A name occupies a 40-byte field on the wire, NUL-terminated
// inside it, so a wire name has at most 39 bytes.
//
//   device record (60 bytes)                   card record (50 bytes)
//   0   name (40)                              0   name (40)
//   40  value 1 (32)                           40  display-name offset (16)
//   44  display-name offset (16)               42  address offset (16)
//   46  byte 1, 47 byte 2                      46  card value (32)
//   48  value-2 flag (16), 50 value 2 (16)
//   56  device kind (8)
//
// Device frame 0x5101: the device name in a 40-byte field, then the whole inner frame.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "service/frames/frame_header.h"
#include "service/frames/frame_status.h"

namespace nivra::frames {

constexpr size_t kNameFieldSize = 40;
constexpr size_t kDeviceRecordSize = 60;
constexpr size_t kCardRecordSize = 50;
constexpr size_t kListCountSize = 2;

// The two device kinds that a device entry keeps; any other value on the wire is kept as 0.
constexpr uint8_t kDeviceKindFirst = 1;
constexpr uint8_t kDeviceKindSecond = 2;

// out[0..40) = name, NUL-filled. kBadField for a name of 40 bytes or more or with a NUL inside.
FrameStatus WriteNameField(uint8_t* out, const std::string& name);
// *name = the text of in[0..40) up to its NUL. kBadField when the field holds no NUL.
FrameStatus ReadNameField(const uint8_t* in, std::string* name);

struct DeviceRecord {
  std::string name;
  uint32_t value1 = 0;
  std::string displayName;  // UTF-8; empty when its offset lies outside the string area
  uint8_t byte1 = 0;
  uint8_t byte2 = 0;
  bool hasValue2 = false;   // the flag at offset 48
  uint16_t value2 = 0;
  uint8_t kind = 0;         // 1 or 2, else 0
};

struct CardRecord {
  std::string name;
  std::string displayName;  // UTF-8
  std::string address;      // UTF-8 host of the card's own port
  uint32_t value = 0;
};

Bytes BuildDeviceListRequest();
Bytes BuildCardListRequest();

// The list answers (status 0): records, then the string area. kBadField for a name that does
// not fit its field or a text with a NUL inside; kTooLong when the body exceeds 65535 bytes or a
// string offset 65535.
FrameStatus BuildDeviceListAnswer(const std::vector<DeviceRecord>& devices, Bytes* out);
FrameStatus BuildCardListAnswer(const std::vector<CardRecord>& cards, Bytes* out);

// Parse a list answer body: kTruncated below 2 bytes; kBadLength when the body cannot hold the
// announced records; kBadField for a record whose name field holds no NUL. A text whose offset
// lies outside the string area is empty; a text that runs to the area's end without its NUL ends
// there. A count of 0 parses to an empty list.
FrameStatus ParseDeviceListBody(const uint8_t* body, size_t len,
                                std::vector<DeviceRecord>* devices);
FrameStatus ParseCardListBody(const uint8_t* body, size_t len, std::vector<CardRecord>* cards);

// The device frame. kBadField for a name that does not fit its field; kTooLong when the body
// would exceed 65535 bytes.
FrameStatus BuildDeviceFrame(const std::string& device, const uint8_t* inner, size_t innerLen,
                             Bytes* out);
// kTruncated when the body cannot hold the name field and an inner header; ReadNameField's and
// ParseFrame's results otherwise.
FrameStatus ParseDeviceFrameBody(const uint8_t* body, size_t len, std::string* device,
                                 FrameView* inner);

}  // namespace nivra::frames
