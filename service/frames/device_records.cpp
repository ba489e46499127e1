#include "service/frames/device_records.h"

#include <cstring>

#include "service/frames/byte_order.h"
#include "service/frames/frame_codes.h"

namespace nivra::frames {

namespace {
// Device record fields.
constexpr size_t kDevValue1Offset = 40;
constexpr size_t kDevDisplayOffset = 44;
constexpr size_t kDevByte1Offset = 46;
constexpr size_t kDevByte2Offset = 47;
constexpr size_t kDevFlagOffset = 48;
constexpr size_t kDevValue2Offset = 50;
constexpr size_t kDevKindOffset = 56;
// Card record fields.
constexpr size_t kCardDisplayOffset = 40;
constexpr size_t kCardAddressOffset = 42;
constexpr size_t kCardValueOffset = 46;

constexpr size_t kMaxStringOffset = 0xFFFF;

bool HasNul(const std::string& text) { return text.find('\0') != std::string::npos; }

// Appends text and its NUL to the string area; *offset = where it starts.
FrameStatus AppendString(const std::string& text, Bytes* area, uint16_t* offset) {
  if (HasNul(text)) return FrameStatus::kBadField;
  if (area->size() > kMaxStringOffset) return FrameStatus::kTooLong;
  *offset = static_cast<uint16_t>(area->size());
  area->insert(area->end(), text.begin(), text.end());
  area->push_back(0);
  return FrameStatus::kOk;
}

std::string ReadString(const uint8_t* area, size_t areaLen, size_t offset) {
  if (offset >= areaLen) return {};
  const char* text = reinterpret_cast<const char*>(area + offset);
  return std::string(text, strnlen(text, areaLen - offset));
}

// Body = count, records (made by write), string area.
template <typename Record, typename Write>
FrameStatus BuildList(uint16_t command, const std::vector<Record>& records, size_t recordSize,
                      Write write, Bytes* out) {
  if (records.size() > (kMaxBodyLength - kListCountSize) / recordSize) {
    return FrameStatus::kTooLong;
  }
  Bytes body(kListCountSize + records.size() * recordSize);
  Bytes area;
  StoreLe16(body.data(), static_cast<uint16_t>(records.size()));
  for (size_t i = 0; i < records.size(); ++i) {
    const FrameStatus written =
        write(records[i], body.data() + kListCountSize + i * recordSize, &area);
    if (written != FrameStatus::kOk) return written;
  }
  body.insert(body.end(), area.begin(), area.end());
  return BuildFrame(command, 0, body.data(), body.size(), out);
}

template <typename Record, typename Read>
FrameStatus ParseList(const uint8_t* body, size_t len, size_t recordSize, Read read,
                      std::vector<Record>* records) {
  records->clear();
  if (len < kListCountSize) return FrameStatus::kTruncated;
  const size_t count = LoadLe16(body);
  const size_t areaStart = kListCountSize + count * recordSize;
  if (len < areaStart) return FrameStatus::kBadLength;
  records->resize(count);
  for (size_t i = 0; i < count; ++i) {
    const FrameStatus got = read(body + kListCountSize + i * recordSize, body + areaStart,
                                 len - areaStart, &(*records)[i]);
    if (got != FrameStatus::kOk) {
      records->clear();
      return got;
    }
  }
  return FrameStatus::kOk;
}

FrameStatus WriteDevice(const DeviceRecord& device, uint8_t* out, Bytes* area) {
  if (WriteNameField(out, device.name) != FrameStatus::kOk) return FrameStatus::kBadField;
  uint16_t display = 0;
  const FrameStatus appended = AppendString(device.displayName, area, &display);
  if (appended != FrameStatus::kOk) return appended;
  StoreLe32(out + kDevValue1Offset, device.value1);
  StoreLe16(out + kDevDisplayOffset, display);
  out[kDevByte1Offset] = device.byte1;
  out[kDevByte2Offset] = device.byte2;
  StoreLe16(out + kDevFlagOffset, device.hasValue2 ? 1 : 0);
  StoreLe16(out + kDevValue2Offset, device.value2);
  out[kDevKindOffset] = device.kind;
  return FrameStatus::kOk;
}

FrameStatus ReadDevice(const uint8_t* in, const uint8_t* area, size_t areaLen,
                       DeviceRecord* device) {
  if (ReadNameField(in, &device->name) != FrameStatus::kOk) return FrameStatus::kBadField;
  device->value1 = LoadLe32(in + kDevValue1Offset);
  device->displayName = ReadString(area, areaLen, LoadLe16(in + kDevDisplayOffset));
  device->byte1 = in[kDevByte1Offset];
  device->byte2 = in[kDevByte2Offset];
  device->hasValue2 = LoadLe16(in + kDevFlagOffset) != 0;
  device->value2 = LoadLe16(in + kDevValue2Offset);
  const uint8_t kind = in[kDevKindOffset];
  device->kind = (kind == kDeviceKindFirst || kind == kDeviceKindSecond) ? kind : 0;
  return FrameStatus::kOk;
}

FrameStatus WriteCard(const CardRecord& card, uint8_t* out, Bytes* area) {
  if (WriteNameField(out, card.name) != FrameStatus::kOk) return FrameStatus::kBadField;
  uint16_t display = 0;
  uint16_t address = 0;
  FrameStatus appended = AppendString(card.displayName, area, &display);
  if (appended == FrameStatus::kOk) appended = AppendString(card.address, area, &address);
  if (appended != FrameStatus::kOk) return appended;
  StoreLe16(out + kCardDisplayOffset, display);
  StoreLe16(out + kCardAddressOffset, address);
  StoreLe32(out + kCardValueOffset, card.value);
  return FrameStatus::kOk;
}

FrameStatus ReadCard(const uint8_t* in, const uint8_t* area, size_t areaLen, CardRecord* card) {
  if (ReadNameField(in, &card->name) != FrameStatus::kOk) return FrameStatus::kBadField;
  card->displayName = ReadString(area, areaLen, LoadLe16(in + kCardDisplayOffset));
  card->address = ReadString(area, areaLen, LoadLe16(in + kCardAddressOffset));
  card->value = LoadLe32(in + kCardValueOffset);
  return FrameStatus::kOk;
}

}  // namespace

FrameStatus WriteNameField(uint8_t* out, const std::string& name) {
  if (name.size() >= kNameFieldSize || HasNul(name)) return FrameStatus::kBadField;
  std::memset(out, 0, kNameFieldSize);
  std::memcpy(out, name.data(), name.size());
  return FrameStatus::kOk;
}

FrameStatus ReadNameField(const uint8_t* in, std::string* name) {
  const char* text = reinterpret_cast<const char*>(in);
  const size_t len = strnlen(text, kNameFieldSize);
  if (len == kNameFieldSize) return FrameStatus::kBadField;
  name->assign(text, len);
  return FrameStatus::kOk;
}

Bytes BuildDeviceListRequest() {
  Bytes out;
  BuildFrame(kCmdDeviceList, 0, nullptr, 0, &out);
  return out;
}

Bytes BuildCardListRequest() {
  Bytes out;
  BuildFrame(kCmdCardList, 0, nullptr, 0, &out);
  return out;
}

FrameStatus BuildDeviceListAnswer(const std::vector<DeviceRecord>& devices, Bytes* out) {
  return BuildList(kCmdDeviceListAnswer, devices, kDeviceRecordSize, WriteDevice, out);
}

FrameStatus BuildCardListAnswer(const std::vector<CardRecord>& cards, Bytes* out) {
  return BuildList(kCmdCardListAnswer, cards, kCardRecordSize, WriteCard, out);
}

FrameStatus ParseDeviceListBody(const uint8_t* body, size_t len,
                                std::vector<DeviceRecord>* devices) {
  return ParseList(body, len, kDeviceRecordSize, ReadDevice, devices);
}

FrameStatus ParseCardListBody(const uint8_t* body, size_t len, std::vector<CardRecord>* cards) {
  return ParseList(body, len, kCardRecordSize, ReadCard, cards);
}

FrameStatus BuildDeviceFrame(const std::string& device, const uint8_t* inner, size_t innerLen,
                             Bytes* out) {
  if (kNameFieldSize + innerLen > kMaxBodyLength) return FrameStatus::kTooLong;
  Bytes body(kNameFieldSize + innerLen);
  if (WriteNameField(body.data(), device) != FrameStatus::kOk) return FrameStatus::kBadField;
  if (innerLen > 0) std::memcpy(body.data() + kNameFieldSize, inner, innerLen);
  return BuildFrame(kCmdDeviceFrame, 0, body.data(), body.size(), out);
}

FrameStatus ParseDeviceFrameBody(const uint8_t* body, size_t len, std::string* device,
                                 FrameView* inner) {
  if (len < kNameFieldSize + kHeaderSize) return FrameStatus::kTruncated;
  const FrameStatus named = ReadNameField(body, device);
  if (named != FrameStatus::kOk) return named;
  return ParseFrame(body + kNameFieldSize, len - kNameFieldSize, inner);
}

}  // namespace nivra::frames
