// Byte layouts of the frame header, the slot records and lists, and the slot frame, against
// literal bytes; every malformed length of the control answers.
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

SlotRecord SampleRecord(uint32_t id) {
  SlotRecord record;
  record.slotId = id;
  record.tokenPresent = 1;
  std::strcpy(record.name, "SoftHSM slot");
  record.extra = 0x11223344;
  for (size_t i = 0; i < kSlotSerialSize; ++i) record.serial[i] = static_cast<uint8_t>(0xF0 + i);
  return record;
}

TEST(SlotRecords, RecordFieldsSitAtTheirOffsets) {
  const Bytes frame = BuildSlotInfoAnswer(SampleRecord(0x0A0B0C0D));
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
}

TEST(SlotRecords, UnterminatedNameIsCutInsideItsField) {
  uint8_t wire[kSlotRecordSize];
  std::memset(wire, 'x', sizeof(wire));
  EXPECT_EQ(std::strlen(ReadSlotRecord(wire).name), kSlotNameSize - 1);
}

TEST(SlotList, RequestsAreTheDocumentedFrames) {
  EXPECT_EQ(BuildSlotListRequest(), (Bytes{0x01, 0x70, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(BuildSlotInfoRequest(0x31B1D11C),
            (Bytes{0x02, 0x70, 4, 0, 0, 0, 0, 0, 0x1C, 0xD1, 0xB1, 0x31}));
}

TEST(SlotList, AnnouncedCountBeyondTheLimitKeepsTheFirstRecords) {
  std::vector<SlotRecord> sent;
  for (uint32_t i = 0; i < 300; ++i) sent.push_back(SampleRecord(i));
  Bytes frame;
  ASSERT_EQ(BuildSlotListAnswer(sent.data(), sent.size(), &frame), FrameStatus::kOk);
  ASSERT_EQ(frame.size(), 8u + 300u * 92u + 2u);
  size_t announced = 0;
  std::vector<SlotRecord> kept;
  ASSERT_EQ(ParseSlotListBody(frame.data() + 8, frame.size() - 8, 256, &announced, &kept),
            FrameStatus::kOk);
  EXPECT_EQ(announced, 300u);
  ASSERT_EQ(kept.size(), 256u);
  EXPECT_EQ(kept.back().slotId, 255u);
}

TEST(SlotList, MalformedBodiesAreRefused) {
  struct Case { uint16_t count; size_t records; int extra; FrameStatus expected; };
  const Case cases[] = {
      {0, 0, -2, FrameStatus::kTruncated},  // no count at all
      {0, 0, -1, FrameStatus::kTruncated},
      {1, 0, 0, FrameStatus::kBadLength},   // a count with no records
      {2, 2, -1, FrameStatus::kBadLength},  // one byte short
      {2, 2, 1, FrameStatus::kBadLength},   // one byte over
      {1, 2, 0, FrameStatus::kBadLength},   // more records than announced
      {0, 0, 0, FrameStatus::kOk},
  };
  for (const Case& c : cases) {
    Bytes body(2 + c.records * kSlotRecordSize);
    body[0] = static_cast<uint8_t>(c.count);
    body.resize(body.size() + c.extra);
    size_t announced = 0;
    std::vector<SlotRecord> records;
    EXPECT_EQ(ParseSlotListBody(body.data(), body.size(), 256, &announced, &records), c.expected)
        << c.count << " " << c.records << " " << c.extra;
  }
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
