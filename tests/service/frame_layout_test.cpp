// Byte layouts of the frame header, the slot record, the slot requests and the slot frame, against
// literal bytes, with the lengths each refuses. The slot list's length rules and its 256-record
// limit are proven through the provider's transport (transport_wire_test.cpp).
#include <gtest/gtest.h>

#include <cstring>

#include "service/frames/frame_codes.h"
#include "service/frames/slot_records.h"

namespace nivra::frames {
namespace {

TEST(FrameHeader, BuildsLittleEndianHeaderAndParsesItBack) {
  const uint8_t body[] = {0xAA, 0xBB, 0xCC};
  Bytes frame;
  ASSERT_EQ(BuildFrame(0xA003, 0x8010006F, body, sizeof(body), &frame), FrameStatus::kOk);
  EXPECT_EQ(frame, (Bytes{0x03, 0xA0, 0x03, 0x00, 0x6F, 0x00, 0x10, 0x80, 0xAA, 0xBB, 0xCC}));
  FrameView view;
  ASSERT_EQ(ParseFrame(frame.data(), frame.size(), &view), FrameStatus::kOk);
  EXPECT_EQ(view.header.command, 0xA003);
  EXPECT_EQ(view.header.status, 0x8010006Fu);
  EXPECT_EQ(view.body, frame.data() + 8);
}

TEST(FrameHeader, RefusesFramesWhoseLengthContradictsTheHeader) {
  const Bytes frame = {0x01, 0x70, 0x02, 0x00, 0, 0, 0, 0, 0x01, 0x02};
  struct Case { size_t len; FrameStatus expected; };
  for (const Case& c : {Case{0, FrameStatus::kTruncated}, Case{7, FrameStatus::kTruncated},
                        Case{9, FrameStatus::kBadLength}, Case{10, FrameStatus::kOk}}) {
    FrameView view;
    EXPECT_EQ(ParseFrame(frame.data(), c.len, &view), c.expected) << c.len;
  }
  Bytes longer = frame;
  longer.push_back(0);
  FrameView view;
  EXPECT_EQ(ParseFrame(longer.data(), longer.size(), &view), FrameStatus::kBadLength);
  Bytes out;
  const Bytes huge(kMaxBodyLength + 1);
  EXPECT_EQ(BuildFrame(kCmdSlotList, 0, huge.data(), huge.size(), &out), FrameStatus::kTooLong);
}

TEST(SlotRecords, RecordFieldsSitAtTheirOffsets) {
  SlotRecord record;
  record.slotId = 0x0A0B0C0D;
  record.tokenPresent = 1;
  std::strcpy(record.name, "SoftHSM slot");
  record.extra = 0x11223344;
  for (size_t i = 0; i < kSlotSerialSize; ++i) record.serial[i] = static_cast<uint8_t>(0xF0 + i);
  const Bytes frame = BuildSlotInfoAnswer(record);
  ASSERT_EQ(frame.size(), 8u + 92u);
  EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 8), (Bytes{0x02, 0xF0, 92, 0, 0, 0, 0, 0}));
  const uint8_t* r = frame.data() + 8;
  EXPECT_EQ(Bytes(r, r + 8), (Bytes{0x0D, 0x0C, 0x0B, 0x0A, 1, 0, 0, 0}));
  EXPECT_EQ(std::memcmp(r + 8, "SoftHSM slot\0", 13), 0);
  EXPECT_EQ(Bytes(r + 72, r + 77), (Bytes{0x44, 0x33, 0x22, 0x11, 0xF0}));
  EXPECT_EQ(r[91], 0xFF);
  SlotRecord back;
  ASSERT_EQ(ParseSlotInfoBody(r, 92, &back), FrameStatus::kOk);
  EXPECT_STREQ(back.name, "SoftHSM slot");
  EXPECT_EQ(back.extra, 0x11223344u);
  EXPECT_EQ(back.slotId, 0x0A0B0C0Du);
  for (size_t len : {91u, 93u, 0u}) {
    EXPECT_EQ(ParseSlotInfoBody(r, len, &back), FrameStatus::kBadLength) << len;
  }
  uint8_t unterminated[kSlotRecordSize];
  std::memset(unterminated, 'x', sizeof(unterminated));
  EXPECT_EQ(std::strlen(ReadSlotRecord(unterminated).name), kSlotNameSize - 1)
      << "an unterminated name is cut inside its field";
}

TEST(SlotList, RequestsAreTheDocumentedFrames) {
  EXPECT_EQ(BuildSlotListRequest(), (Bytes{0x01, 0x70, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(BuildSlotInfoRequest(0x31B1D11C),
            (Bytes{0x02, 0x70, 4, 0, 0, 0, 0, 0, 0x1C, 0xD1, 0xB1, 0x31}));
}

TEST(SlotFrame, CarriesSlotIdAndWholeInnerFrame) {
  const Bytes inner = {0x11, 0x20, 0, 0, 0, 0, 0, 0};
  Bytes frame;
  ASSERT_EQ(BuildSlotFrame(7, inner.data(), inner.size(), &frame), FrameStatus::kOk);
  EXPECT_EQ(frame, (Bytes{0x11, 0x70, 12, 0, 0, 0, 0, 0, 7, 0, 0, 0, 0x11, 0x20, 0, 0, 0, 0, 0, 0}));
  uint32_t slotId = 0;
  FrameView view;
  ASSERT_EQ(ParseSlotFrameBody(frame.data() + 8, 12, &slotId, &view), FrameStatus::kOk);
  EXPECT_EQ(slotId, 7u);
  EXPECT_EQ(view.header.command, 0x2011);
  EXPECT_EQ(ParseSlotFrameBody(frame.data() + 8, 11, &slotId, &view), FrameStatus::kTruncated);
  Bytes longer(frame.begin() + 8, frame.end());
  longer.push_back(0);
  EXPECT_EQ(ParseSlotFrameBody(longer.data(), longer.size(), &slotId, &view),
            FrameStatus::kBadLength);
  const Bytes huge(kMaxBodyLength - 3);
  EXPECT_EQ(BuildSlotFrame(7, huge.data(), huge.size(), &frame), FrameStatus::kTooLong);
}

}  // namespace
}  // namespace nivra::frames
