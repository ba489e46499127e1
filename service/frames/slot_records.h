// Published slots on the control connection (slot list 0x7001, one slot 0x7002 and their
// answers) and the slot frame 0x7011 that carries one card command to one slot on a channel.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "service/frames/frame_header.h"
#include "service/frames/frame_status.h"

namespace nivra::frames {

constexpr size_t kSlotRecordSize = 92;
constexpr size_t kSlotNameSize = 64;
constexpr size_t kSlotSerialSize = 16;
// The slot list body: a 16-bit count, then that many records.
constexpr size_t kSlotCountSize = 2;

// One slot record, the fields in wire order (offsets 0, 4, 8, 72, 76).
struct SlotRecord {
  uint32_t slotId = 0;
  uint32_t tokenPresent = 0;
  char name[kSlotNameSize] = {};  // NUL-terminated within the field on the wire
  uint32_t extra = 0;             // stored as received; no meaning is given to it
  uint8_t serial[kSlotSerialSize] = {};
};

// Record <-> 92 bytes. The caller guarantees kSlotRecordSize bytes.
void WriteSlotRecord(uint8_t* out, const SlotRecord& record);
SlotRecord ReadSlotRecord(const uint8_t* in);

// Requests: the empty slot-list frame and the one-slot frame (body = slot ID).
Bytes BuildSlotListRequest();
Bytes BuildSlotInfoRequest(uint32_t slotId);
// The slot ID of a one-slot request body: kBadLength unless the body is 4 bytes.
FrameStatus ParseSlotInfoRequest(const uint8_t* body, size_t len, uint32_t* slotId);

// The slot-list answer (0xF001, status 0) for records[0..count). kTooLong when the count does
// not fit 16 bits or the body 65535 bytes.
FrameStatus BuildSlotListAnswer(const SlotRecord* records, size_t count, Bytes* out);
// The one-slot answer (0xF002, status 0).
Bytes BuildSlotInfoAnswer(const SlotRecord& record);

// Parses a slot-list answer body: kTruncated below 2 bytes; kBadLength unless the body is
// exactly 2 + count x 92 bytes. *announced = the count on the wire; records receives the first
// min(count, maxRecords) of them (the rest are checked for length only).
FrameStatus ParseSlotListBody(const uint8_t* body, size_t len, size_t maxRecords,
                              size_t* announced, std::vector<SlotRecord>* records);
// Parses a one-slot answer body: kBadLength unless it is exactly one record.
FrameStatus ParseSlotInfoBody(const uint8_t* body, size_t len, SlotRecord* record);

// The slot frame: command 0x7011, body = slot ID + the whole inner frame (header and body).
// kTooLong when the inner frame makes the body longer than 65535 bytes.
FrameStatus BuildSlotFrame(uint32_t slotId, const uint8_t* inner, size_t innerLen, Bytes* out);
// Parses a slot frame body: kTruncated when it cannot hold a slot ID and an inner header;
// the inner frame must be consistent (ParseFrame's results).
FrameStatus ParseSlotFrameBody(const uint8_t* body, size_t len, uint32_t* slotId,
                               FrameView* inner);

}  // namespace nivra::frames
