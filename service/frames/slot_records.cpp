#include "service/frames/slot_records.h"

#include <cstring>

#include "service/frames/byte_order.h"
#include "service/frames/frame_codes.h"

namespace nivra::frames {

namespace {
constexpr size_t kIdOffset = 0;
constexpr size_t kPresentOffset = 4;
constexpr size_t kNameOffset = 8;
constexpr size_t kExtraOffset = 72;
constexpr size_t kSerialOffset = 76;
constexpr size_t kSlotIdSize = 4;
}  // namespace

void WriteSlotRecord(uint8_t* out, const SlotRecord& record) {
  StoreLe32(out + kIdOffset, record.slotId);
  StoreLe32(out + kPresentOffset, record.tokenPresent);
  std::memcpy(out + kNameOffset, record.name, kSlotNameSize);
  StoreLe32(out + kExtraOffset, record.extra);
  std::memcpy(out + kSerialOffset, record.serial, kSlotSerialSize);
}

SlotRecord ReadSlotRecord(const uint8_t* in) {
  SlotRecord record;
  record.slotId = LoadLe32(in + kIdOffset);
  record.tokenPresent = LoadLe32(in + kPresentOffset);
  std::memcpy(record.name, in + kNameOffset, kSlotNameSize);
  record.name[kSlotNameSize - 1] = '\0';
  record.extra = LoadLe32(in + kExtraOffset);
  std::memcpy(record.serial, in + kSerialOffset, kSlotSerialSize);
  return record;
}

Bytes BuildSlotListRequest() {
  Bytes out;
  BuildFrame(kCmdSlotList, 0, nullptr, 0, &out);
  return out;
}

Bytes BuildSlotInfoRequest(uint32_t slotId) {
  uint8_t body[kSlotIdSize];
  StoreLe32(body, slotId);
  Bytes out;
  BuildFrame(kCmdSlotInfo, 0, body, sizeof(body), &out);
  return out;
}

FrameStatus ParseSlotInfoRequest(const uint8_t* body, size_t len, uint32_t* slotId) {
  if (len != kSlotIdSize) return FrameStatus::kBadLength;
  *slotId = LoadLe32(body);
  return FrameStatus::kOk;
}

FrameStatus BuildSlotListAnswer(const SlotRecord* records, size_t count, Bytes* out) {
  if (count > (kMaxBodyLength - kSlotCountSize) / kSlotRecordSize) return FrameStatus::kTooLong;
  Bytes body(kSlotCountSize + count * kSlotRecordSize);
  StoreLe16(body.data(), static_cast<uint16_t>(count));
  for (size_t i = 0; i < count; ++i) {
    WriteSlotRecord(body.data() + kSlotCountSize + i * kSlotRecordSize, records[i]);
  }
  return BuildFrame(kCmdSlotListAnswer, 0, body.data(), body.size(), out);
}

Bytes BuildSlotInfoAnswer(const SlotRecord& record) {
  uint8_t body[kSlotRecordSize];
  WriteSlotRecord(body, record);
  Bytes out;
  BuildFrame(kCmdSlotInfoAnswer, 0, body, sizeof(body), &out);
  return out;
}

FrameStatus ParseSlotListBody(const uint8_t* body, size_t len, size_t maxRecords,
                              size_t* announced, std::vector<SlotRecord>* records) {
  records->clear();
  if (len < kSlotCountSize) return FrameStatus::kTruncated;
  const size_t count = LoadLe16(body);
  if (len != kSlotCountSize + count * kSlotRecordSize) return FrameStatus::kBadLength;
  *announced = count;
  const size_t kept = count < maxRecords ? count : maxRecords;
  records->reserve(kept);
  for (size_t i = 0; i < kept; ++i) {
    records->push_back(ReadSlotRecord(body + kSlotCountSize + i * kSlotRecordSize));
  }
  return FrameStatus::kOk;
}

FrameStatus ParseSlotInfoBody(const uint8_t* body, size_t len, SlotRecord* record) {
  if (len != kSlotRecordSize) return FrameStatus::kBadLength;
  *record = ReadSlotRecord(body);
  return FrameStatus::kOk;
}

FrameStatus BuildSlotFrame(uint32_t slotId, const uint8_t* inner, size_t innerLen, Bytes* out) {
  if (kSlotIdSize + innerLen > kMaxBodyLength) return FrameStatus::kTooLong;
  Bytes body(kSlotIdSize + innerLen);
  StoreLe32(body.data(), slotId);
  if (innerLen > 0) std::memcpy(body.data() + kSlotIdSize, inner, innerLen);
  return BuildFrame(kCmdSlotFrame, 0, body.data(), body.size(), out);
}

FrameStatus ParseSlotFrameBody(const uint8_t* body, size_t len, uint32_t* slotId,
                               FrameView* inner) {
  if (len < kSlotIdSize + kHeaderSize) return FrameStatus::kTruncated;
  *slotId = LoadLe32(body);
  return ParseFrame(body + kSlotIdSize, len - kSlotIdSize, inner);
}

}  // namespace nivra::frames
