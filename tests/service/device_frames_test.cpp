// Byte layouts of the Bluetooth device list, the service card list, the device frame, the limits
// answer and the confirmation commands, against literal bytes; every malformed length and name.
#include <gtest/gtest.h>

#include <cstring>

#include "service/frames/card_commands.h"
#include "service/frames/card_key_exchange.h"
#include "service/frames/confirmation_state.h"
#include "service/frames/device_records.h"
#include "service/frames/frame_codes.h"

namespace nivra::frames {
namespace {

TEST(DeviceList, RecordFieldsAndDisplayNameSitAtTheirOffsets) {
  DeviceRecord phone;
  phone.name = "phone-1";
  phone.value1 = 0x11223344;
  phone.displayName = "Anna's phone";
  phone.byte1 = 0xB1;
  phone.byte2 = 0xB2;
  phone.hasValue2 = true;
  phone.value2 = 0x5566;
  phone.kind = 2;
  Bytes frame;
  ASSERT_EQ(BuildDeviceListAnswer({phone, phone}, &frame), FrameStatus::kOk);
  ASSERT_EQ(frame.size(), 8u + 2 + 120 + 2 * 13);
  EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 10),
            (Bytes{0x01, 0xC1, 148, 0, 0, 0, 0, 0, 2, 0}));
  const uint8_t* r = frame.data() + 10 + 60;  // the second record
  EXPECT_EQ(std::memcmp(r, "phone-1\0", 8), 0);
  EXPECT_EQ(Bytes(r + 40, r + 58),
            (Bytes{0x44, 0x33, 0x22, 0x11, 13, 0, 0xB1, 0xB2, 1, 0, 0x66, 0x55, 0, 0, 0, 0, 2, 0}));
  EXPECT_EQ(std::memcmp(frame.data() + 130 + 13, "Anna's phone\0", 13), 0);

  std::vector<DeviceRecord> parsed;
  ASSERT_EQ(ParseDeviceListBody(frame.data() + 8, frame.size() - 8, &parsed), FrameStatus::kOk);
  ASSERT_EQ(parsed.size(), 2u);
  EXPECT_EQ(parsed[1].name, "phone-1");
  EXPECT_EQ(parsed[1].displayName, "Anna's phone");
  EXPECT_EQ(parsed[1].value1, 0x11223344u);
  EXPECT_TRUE(parsed[1].hasValue2);
  EXPECT_EQ(parsed[1].value2, 0x5566);
  EXPECT_EQ(parsed[1].kind, 2);
}

// A one-record device list body (no string area unless added) with the given patch applied.
Bytes OneDevice(size_t patchAt, std::initializer_list<uint8_t> patch) {
  Bytes body(2 + 60);
  body[0] = 1;
  std::memcpy(body.data() + 2, "dev", 3);
  std::copy(patch.begin(), patch.end(), body.begin() + patchAt);
  return body;
}

TEST(DeviceList, MalformedBodiesAndFieldsOutsideTheirRange) {
  Bytes unterminated = OneDevice(2, {});
  std::memset(unterminated.data() + 2, 'x', 40);
  Bytes withArea = OneDevice(2 + 44, {4, 0});  // display name at offset 4 of "abc\0wxyz"
  for (char b : std::string("abc\0wxyz", 8)) withArea.push_back(static_cast<uint8_t>(b));
  struct Case { const char* what; Bytes body; FrameStatus expected; std::string display;
                uint8_t kind; };
  const Case cases[] = {
      {"no count", {1}, FrameStatus::kTruncated, "", 0},
      {"count 0", {0, 0}, FrameStatus::kOk, "", 0},
      {"record cut short", Bytes(61, 1), FrameStatus::kBadLength, "", 0},
      {"two announced, one there", OneDevice(0, {2}), FrameStatus::kBadLength, "", 0},
      {"name without NUL in 40 bytes", unterminated, FrameStatus::kBadField, "", 0},
      {"display offset past the area", OneDevice(2 + 44, {1, 0}), FrameStatus::kOk, "", 0},
      {"display runs to the area end", withArea, FrameStatus::kOk, "wxyz", 0},
      {"kind 1 kept", OneDevice(2 + 56, {1}), FrameStatus::kOk, "", 1},
      {"kind 3 dropped", OneDevice(2 + 56, {3}), FrameStatus::kOk, "", 0},
  };
  for (const Case& c : cases) {
    std::vector<DeviceRecord> devices;
    ASSERT_EQ(ParseDeviceListBody(c.body.data(), c.body.size(), &devices), c.expected) << c.what;
    if (c.expected != FrameStatus::kOk || devices.empty()) continue;
    EXPECT_EQ(devices[0].displayName, c.display) << c.what;
    EXPECT_EQ(devices[0].kind, c.kind) << c.what;
  }
}

TEST(CardList, RecordCarriesNameDisplayAddressAndValue) {
  CardRecord card{"card-a", "Card A", "127.0.0.2", 0xCAFE0001};
  Bytes frame;
  ASSERT_EQ(BuildCardListAnswer({card}, &frame), FrameStatus::kOk);
  EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 10),
            (Bytes{0x01, 0xC0, 2 + 50 + 7 + 10, 0, 0, 0, 0, 0, 1, 0}));
  const uint8_t* r = frame.data() + 10;
  EXPECT_EQ(Bytes(r + 40, r + 50), (Bytes{0, 0, 7, 0, 0, 0, 0x01, 0x00, 0xFE, 0xCA}));
  EXPECT_EQ(std::memcmp(r + 50, "Card A\0" "127.0.0.2\0", 17), 0);
  std::vector<CardRecord> parsed;
  ASSERT_EQ(ParseCardListBody(frame.data() + 8, frame.size() - 8, &parsed), FrameStatus::kOk);
  ASSERT_EQ(parsed.size(), 1u);
  EXPECT_EQ(parsed[0].address, "127.0.0.2");
  EXPECT_EQ(parsed[0].displayName, "Card A");
  EXPECT_EQ(parsed[0].value, 0xCAFE0001u);
  EXPECT_EQ(ParseCardListBody(frame.data() + 8, 51, &parsed), FrameStatus::kBadLength);
}

TEST(NameField, FortyBytesWithTheNulInside) {
  uint8_t field[kNameFieldSize];
  struct Case { std::string name; FrameStatus expected; };
  for (const Case& c : {Case{std::string(39, 'n'), FrameStatus::kOk},
                        Case{std::string(40, 'n'), FrameStatus::kBadField},
                        Case{std::string("a\0b", 3), FrameStatus::kBadField}}) {
    EXPECT_EQ(WriteNameField(field, c.name), c.expected) << c.name.size();
    Bytes frame;
    EXPECT_EQ(BuildKeyOffer(c.name, &frame), c.expected) << c.name.size();
    EXPECT_EQ(BuildDeviceFrame(c.name, nullptr, 0, &frame), c.expected) << c.name.size();
  }
}

TEST(DeviceFrame, CarriesNameFieldAndWholeInnerFrame) {
  const Bytes inner = {0x11, 0x20, 0, 0, 0, 0, 0, 0};
  Bytes frame;
  ASSERT_EQ(BuildDeviceFrame("dev", inner.data(), inner.size(), &frame), FrameStatus::kOk);
  Bytes expected = {0x01, 0x51, 48, 0, 0, 0, 0, 0, 'd', 'e', 'v'};
  expected.resize(8 + 40);
  expected.insert(expected.end(), inner.begin(), inner.end());
  EXPECT_EQ(frame, expected);
  std::string device;
  FrameView view;
  ASSERT_EQ(ParseDeviceFrameBody(frame.data() + 8, 48, &device, &view), FrameStatus::kOk);
  EXPECT_EQ(device, "dev");
  EXPECT_EQ(view.header.command, kCmdLoginState);
  EXPECT_EQ(ParseDeviceFrameBody(frame.data() + 8, 47, &device, &view), FrameStatus::kTruncated);
  const Bytes huge(kMaxBodyLength - 39);
  EXPECT_EQ(BuildDeviceFrame("dev", huge.data(), huge.size(), &frame), FrameStatus::kTooLong);
}

TEST(CardLimits, LengthsAndTheOptionalPinFlags) {
  const Bytes full = {1, 0, 0x00, 0x08, 0x00, 0x04, 0x00, 0x40, 0x08, 0x00, 4, 8, 0x01, 0, 0, 0};
  struct Case { size_t len; FrameStatus expected; bool flags; };
  for (const Case& c : {Case{11, FrameStatus::kBadLength, false}, Case{12, FrameStatus::kOk, false},
                        Case{15, FrameStatus::kOk, false}, Case{16, FrameStatus::kOk, true}}) {
    CardResponse response;
    ASSERT_EQ(ParseCardResponse(kCmdCardLimits, full.data(), c.len, 0, &response), c.expected)
        << c.len;
    if (c.expected != FrameStatus::kOk) continue;
    EXPECT_EQ(response.limits.maxBits, 16384) << "the codec keeps what the wire says";
    EXPECT_EQ(response.limits.defaultBits, 2048);
    EXPECT_EQ(response.limits.minPin, 4);
    EXPECT_EQ(response.limits.hasPinFlags, c.flags);
    EXPECT_EQ(response.limits.pinFlags, c.flags ? 1u : 0u);
  }
  CardResponse answer;
  ASSERT_EQ(ParseCardResponse(kCmdCardLimits, full.data(), full.size(), 0, &answer),
            FrameStatus::kOk);
  Bytes frame;
  ASSERT_EQ(BuildCardResponse(kCmdCardLimits, 0, answer, &frame), FrameStatus::kOk);
  EXPECT_EQ(Bytes(frame.begin() + 8, frame.end()), full);
}

TEST(Confirmation, RequestsAndTheFourByteState) {
  CardRequest ask;
  ask.reason = 0x21;
  Bytes frame;
  ASSERT_EQ(BuildCardRequest(kCmdAskConfirmation, ask, &frame), FrameStatus::kOk);
  EXPECT_EQ(frame, (Bytes{0x13, 0x20, 4, 0, 0, 0, 0, 0, 0x21, 0, 0, 0}));
  ASSERT_EQ(BuildCardRequest(kCmdEndConfirmation, ask, &frame), FrameStatus::kOk);
  EXPECT_EQ(frame, (Bytes{0x14, 0x20, 0, 0, 0, 0, 0, 0}));
  struct Case { Bytes body; bool authenticated; bool pending; };
  const Case cases[] = {{{0, 0, 0, 0}, false, false}, {{1, 0, 0, 0}, true, false},
                        {{0, 1, 0, 0}, false, true},  {{0x80, 1, 0, 0}, true, true},
                        {{0, 2, 0, 0}, false, false}, {{0, 0, 1, 0}, false, false}};
  for (const Case& c : cases) {
    CardResponse response;
    ASSERT_EQ(ParseCardResponse(kCmdLoginState, c.body.data(), 4, 0, &response), FrameStatus::kOk);
    const ConfirmationState state = ReadConfirmation(response.value);
    EXPECT_EQ(state.authenticated, c.authenticated) << int(c.body[0]) << " " << int(c.body[1]);
    EXPECT_EQ(state.pending, c.pending) << int(c.body[0]) << " " << int(c.body[1]);
  }
  CardResponse pending;
  pending.value = ConfirmationValue({false, true});
  ASSERT_EQ(BuildCardResponse(kCmdAskConfirmation, 0, pending, &frame), FrameStatus::kOk);
  EXPECT_EQ(Bytes(frame.begin() + 8, frame.end()), (Bytes{0, 1, 0, 0}));
}

TEST(CardKeyExchange, OfferAndAnswersAreCheckedInOrder) {
  Bytes offer;
  ASSERT_EQ(BuildKeyOffer("card-a", &offer), FrameStatus::kOk);
  Bytes expected = {0x01, 0x10, 40, 0, 0, 0, 0, 0, 'c', 'a', 'r', 'd', '-', 'a'};
  expected.resize(48);
  EXPECT_EQ(offer, expected);
  std::string card;
  EXPECT_EQ(ParseKeyOfferBody(offer.data() + 8, 40, &card), FrameStatus::kOk);
  EXPECT_EQ(card, "card-a");
  EXPECT_EQ(ParseKeyOfferBody(offer.data() + 8, 39, &card), FrameStatus::kBadLength);

  struct Case { const char* what; Bytes frame; FrameStatus key; FrameStatus ack; };
  const Case cases[] = {
      {"short header", {0x01, 0x90, 0, 0}, FrameStatus::kTruncated, FrameStatus::kTruncated},
      {"body missing", {0x01, 0x90, 2, 0, 0, 0, 0, 0}, FrameStatus::kBadLength,
       FrameStatus::kBadLength},
      {"card key, empty", {0x01, 0x90, 0, 0, 0, 0, 0, 0}, FrameStatus::kTruncated,
       FrameStatus::kBadCommand},
      {"card key, refused", {0x01, 0x90, 0, 0, 0x2A, 0, 0x10, 0x80}, FrameStatus::kPeerStatus,
       FrameStatus::kBadCommand},
      {"refused under another command", {0x02, 0x90, 0, 0, 1, 0, 0, 0},
       FrameStatus::kBadCommand, FrameStatus::kPeerStatus},
      {"acknowledged", {0x02, 0x90, 0, 0, 0, 0, 0, 0}, FrameStatus::kBadCommand,
       FrameStatus::kOk},
      {"card key", {0x01, 0x90, 1, 0, 0, 0, 0, 0, 0x30}, FrameStatus::kOk,
       FrameStatus::kBadCommand},
  };
  for (const Case& c : cases) {
    const uint8_t* der = nullptr;
    size_t derLen = 0;
    EXPECT_EQ(ParseCardKeyFrame(c.frame.data(), c.frame.size(), &der, &derLen), c.key) << c.what;
    EXPECT_EQ(ParseCardSessionAck(c.frame.data(), c.frame.size()), c.ack) << c.what;
  }
  EXPECT_EQ(BuildCardSessionAck(0x80090020),
            (Bytes{0x02, 0x90, 0, 0, 0x20, 0, 0x09, 0x80}));
}

}  // namespace
}  // namespace nivra::frames
