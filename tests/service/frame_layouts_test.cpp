// The agreed byte layout of every frame the codec builds, against literal bytes, and one table per
// family of malformed frames. Both ends of the wire share this codec, so round trips prove no
// layout (a field that both ends misplace still round-trips): only literal bytes do. That what one
// end builds the other parses is proven by the exchanges with the real card service
// (tests/cardservice and the Windows tests here); the slot list's length rules and its 256-record
// limit through the provider's transport (transport_wire_test.cpp).
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "service/frames/card_commands.h"
#include "service/frames/card_key_exchange.h"
#include "service/frames/confirmation_state.h"
#include "service/frames/device_records.h"
#include "service/frames/frame_codes.h"
#include "service/frames/slot_records.h"

namespace nivra::frames {
namespace {

// `size` bytes, zero but for the given runs at their offsets.
Bytes At(size_t size, std::initializer_list<std::pair<size_t, Bytes>> runs) {
  Bytes out(size);
  for (const auto& [offset, run] : runs) std::copy(run.begin(), run.end(), out.begin() + offset);
  return out;
}

Bytes Text(const char* text) { return Bytes(text, text + std::strlen(text)); }

// A builder's frame (empty when it refuses).
Bytes Built(const std::function<FrameStatus(Bytes*)>& build) {
  Bytes out;
  return build(&out) == FrameStatus::kOk ? out : Bytes();
}

Bytes Request(uint16_t command, const CardRequest& request) {
  Bytes frame = Built([&](Bytes* out) { return BuildCardRequest(command, request, out); });
  return frame.empty() ? frame : Bytes(frame.begin() + kHeaderSize, frame.end());
}

CardRequest Texts(const char* a, const char* b = "") {
  CardRequest r;
  r.text = a;
  r.text2 = b;
  return r;
}

CardRequest Words(uint32_t handle, uint32_t keySpec, Bytes data = {}) {
  CardRequest r;
  r.handle = r.index = handle;
  r.keySpec = keySpec;
  r.data = std::move(data);
  return r;
}

TEST(FrameLayouts, EachBuilderWritesTheAgreedBytes) {
  SlotRecord slot;
  slot.slotId = 0x0A0B0C0D;
  slot.tokenPresent = 1;
  std::strcpy(slot.name, "SoftHSM slot");
  slot.extra = 0x11223344;
  Bytes serial(kSlotSerialSize);
  for (size_t i = 0; i < kSlotSerialSize; ++i) slot.serial[i] = serial[i] = uint8_t(0xF0 + i);
  const Bytes inner = {0x11, 0x20, 0, 0, 0, 0, 0, 0};
  CardRequest generate = Words(5, 2), ask;
  generate.bits = 2048;
  generate.exponent = 0x10001;
  ask.reason = 0x21;
  CardResponse open, key, limits, pending;
  open.value = 0x44;
  open.name = "DefaultContainer";
  key.publicKey = {9, 3, {0x01, 0x05}};
  limits.limits = {1, 2048, 1024, 16384, 8, 4, 8, true, 1};
  pending.value = ConfirmationValue({false, true});
  DeviceRecord phone{"phone-1", 0x11223344, "Anna's phone", 0xB1, 0xB2, true, 0x5566, 2};
  CardRecord card{"card-a", "Card A", "127.0.0.2", 0xCAFE0001};
  auto response = [](uint16_t command, uint32_t status, const CardResponse& r) {
    return Built([&](Bytes* out) { return BuildCardResponse(command, status, r, out); });
  };
  struct Case { const char* what; Bytes built; Bytes expected; };
  const Case cases[] = {
      {"frame", Built([](Bytes* out) { return BuildFrame(0xA003, 0x8010006F, Bytes{0xAA, 0xBB, 0xCC}.data(), 3, out); }),
       {0x03, 0xA0, 3, 0, 0x6F, 0x00, 0x10, 0x80, 0xAA, 0xBB, 0xCC}},
      {"slot list request", BuildSlotListRequest(), {0x01, 0x70, 0, 0, 0, 0, 0, 0}},
      {"slot request", BuildSlotInfoRequest(0x31B1D11C),
       {0x02, 0x70, 4, 0, 0, 0, 0, 0, 0x1C, 0xD1, 0xB1, 0x31}},
      {"slot record", BuildSlotInfoAnswer(slot),
       At(100, {{0, {0x02, 0xF0, 92}}, {8, {0x0D, 0x0C, 0x0B, 0x0A, 1}}, {16, Text("SoftHSM slot")},
                {80, {0x44, 0x33, 0x22, 0x11}}, {84, serial}})},
      {"slot frame", Built([&](Bytes* out) { return BuildSlotFrame(7, inner.data(), inner.size(), out); }),
       {0x11, 0x70, 12, 0, 0, 0, 0, 0, 7, 0, 0, 0, 0x11, 0x20, 0, 0, 0, 0, 0, 0}},
      {"device frame", Built([&](Bytes* out) { return BuildDeviceFrame("dev", inner.data(), inner.size(), out); }),
       At(56, {{0, {0x01, 0x51, 48}}, {8, Text("dev")}, {48, inner}})},
      {"device list request", BuildDeviceListRequest(), {0x01, 0x41, 0, 0, 0, 0, 0, 0}},
      {"card list request", BuildCardListRequest(), {0x01, 0x40, 0, 0, 0, 0, 0, 0}},
      {"device list", Built([&](Bytes* out) { return BuildDeviceListAnswer({phone}, out); }),
       At(83, {{0, {0x01, 0xC1, 75}}, {8, {1}}, {10, Text("phone-1")},
               {50, {0x44, 0x33, 0x22, 0x11, 0, 0, 0xB1, 0xB2, 1, 0, 0x66, 0x55, 0, 0, 0, 0, 2}},
               {70, Text("Anna's phone")}})},
      {"card list", Built([&](Bytes* out) { return BuildCardListAnswer({card}, out); }),
       At(77, {{0, {0x01, 0xC0, 69}}, {8, {1}}, {10, Text("card-a")},
               {50, {0, 0, 7, 0, 0, 0, 0x01, 0x00, 0xFE, 0xCA}}, {60, Text("Card A")},
               {67, Text("127.0.0.2")}})},
      {"key offer", Built([](Bytes* out) { return BuildKeyOffer("card-a", out); }),
       At(48, {{0, {0x01, 0x10, 40}}, {8, Text("card-a")}})},
      {"card key refused", Built([](Bytes* out) { return BuildCardKeyFrame(0, 0x8010002A, out); }),
       {0x01, 0x90, 0, 0, 0x2A, 0, 0x10, 0x80}},
      {"card session acknowledgement", BuildCardSessionAck(0x80090020),
       {0x02, 0x90, 0, 0, 0x20, 0, 0x09, 0x80}},
      {"open default", Request(kCmdOpenContainer, Texts("")), {0}},
      {"verify PIN", Request(kCmdVerifyPin, Texts("1234")), {'1', '2', '3', '4', 0}},
      {"change PIN", Request(kCmdChangePin, Texts("ab", "cd")), {'a', 'b', 0, 'c', 'd', 0}},
      {"enumerate", Request(kCmdEnumContainers, Words(3, 0)), {3, 0, 0, 0}},
      {"delete", Request(kCmdDeleteContainer, Words(0x01020304, 0)), {4, 3, 2, 1}},
      {"login state", Request(kCmdLoginState, {}), {}},
      {"read public key", Request(kCmdReadPublicKey, Words(5, 2)), {5, 0, 0, 0, 2, 0, 0, 0}},
      {"private key operation", Request(kCmdPrivateKeyOp, Words(5, 1, {0x00, 0x01})),
       {5, 0, 0, 0, 1, 0, 0, 0, 0x00, 0x01}},
      {"generate", Request(kCmdGenerateKeyPair, generate),
       {5, 0, 0, 0, 2, 0, 0, 0, 0, 8, 0, 0, 1, 0, 1, 0}},
      {"ask confirmation", Request(kCmdAskConfirmation, ask), {0x21, 0, 0, 0}},
      {"open answer", response(kCmdOpenContainer, 0, open),
       At(29, {{0, {0x03, 0xA0, 21}}, {8, {0x44}}, {12, Text("DefaultContainer")}})},
      {"refusal: the status and no body", response(kCmdOpenContainer, 0x8009002A, open),
       {0x03, 0xA0, 0, 0, 0x2A, 0, 0x09, 0x80}},
      {"public key block", response(kCmdGenerateKeyPair, 0, key),
       {0x21, 0xA0, 14, 0, 0, 0, 0, 0, 9, 0, 0, 0, 3, 0, 0, 0, 2, 0, 0, 0, 0x01, 0x05}},
      {"limits", response(kCmdCardLimits, 0, limits),
       {0x41, 0xA0, 16, 0, 0, 0, 0, 0, 1, 0, 0x00, 0x08, 0x00, 0x04, 0x00, 0x40, 0x08, 0x00, 4, 8, 0x01, 0, 0, 0}},
      {"confirmation pending", response(kCmdAskConfirmation, 0, pending),
       {0x13, 0xA0, 4, 0, 0, 0, 0, 0, 0, 1, 0, 0}},
  };
  for (const Case& c : cases) EXPECT_EQ(c.built, c.expected) << c.what;
}

TEST(FrameLayouts, BuildersRefuseWhatTheWireCannotCarry) {
  const Bytes huge(kMaxBodyLength + 1);
  CardRequest embedded = Texts("");
  embedded.text = std::string("a\0b", 3);
  CardResponse key;
  key.publicKey = {9, 3, {0x01, 0x05, 0}};  // three modulus bytes for 9 bits
  struct Case { const char* what; std::function<FrameStatus(Bytes*)> build; FrameStatus expected; };
  const Case cases[] = {
      {"body too long", [&](Bytes* o) { return BuildFrame(kCmdSlotList, 0, huge.data(), huge.size(), o); }, FrameStatus::kTooLong},
      {"slot frame too long", [&](Bytes* o) { return BuildSlotFrame(7, huge.data(), kMaxBodyLength - 3, o); }, FrameStatus::kTooLong},
      {"device frame too long", [&](Bytes* o) { return BuildDeviceFrame("d", huge.data(), kMaxBodyLength - 39, o); }, FrameStatus::kTooLong},
      {"NUL inside a PIN", [&](Bytes* o) { return BuildCardRequest(kCmdVerifyPin, embedded, o); }, FrameStatus::kBadField},
      {"private operation without data", [](Bytes* o) { return BuildCardRequest(kCmdPrivateKeyOp, Words(1, 1), o); }, FrameStatus::kBadField},
      {"modulus of the wrong length", [&](Bytes* o) { return BuildCardResponse(kCmdGenerateKeyPair, 0, key, o); }, FrameStatus::kBadField},
      {"name of 39", [](Bytes* o) { return BuildDeviceFrame(std::string(39, 'n'), nullptr, 0, o); },
       FrameStatus::kOk},
      {"name of 40", [](Bytes* o) { return BuildDeviceFrame(std::string(40, 'n'), nullptr, 0, o); },
       FrameStatus::kBadField},
      {"NUL inside a name", [](Bytes* o) { return BuildKeyOffer(std::string("a\0b", 3), o); },
       FrameStatus::kBadField},
  };
  for (const Case& c : cases) {
    Bytes out;
    EXPECT_EQ(c.build(&out), c.expected) << c.what;
  }
}

// Frames and bodies that contradict their header or layout, one row per rule: the whole frame,
// the slot wrapper the service reads, card requests, device and card lists, and a service card's
// answers (each checked for its own command).
TEST(FrameLayouts, MalformedFramesAreRefused) {
  const Bytes frame = {0x01, 0x70, 0x02, 0x00, 0, 0, 0, 0, 0x01, 0x02};
  const Bytes slotFrame = {7, 0, 0, 0, 0x11, 0x20, 0, 0, 0, 0, 0, 0, 0};
  Bytes device = At(62, {{0, {1}}, {2, Text("dev")}});
  Bytes unterminated = device;
  std::fill(unterminated.begin() + 2, unterminated.begin() + 42, 'x');
  const Bytes refusedKey = {0x01, 0x90, 0, 0, 0x2A, 0, 0x10, 0x80};
  const Bytes ack = {0x02, 0x90, 0, 0, 0, 0, 0, 0};
  FrameView view;
  uint32_t slotId = 0;
  CardRequest request;
  std::vector<DeviceRecord> devices;
  std::vector<CardRecord> cards;
  const uint8_t* der = nullptr;
  size_t derLen = 0;
  auto cardRequest = [&](uint16_t command, const Bytes& body) {
    return ParseCardRequest(command, body.data(), body.size(), &request);
  };
  struct Case { const char* what; std::function<FrameStatus()> parse; FrameStatus expected; };
  const Case cases[] = {
      {"7 bytes", [&] { return ParseFrame(frame.data(), 7, &view); }, FrameStatus::kTruncated},
      {"body short", [&] { return ParseFrame(frame.data(), 9, &view); }, FrameStatus::kBadLength},
      {"whole", [&] { return ParseFrame(frame.data(), 10, &view); }, FrameStatus::kOk},
      {"too long", [&] { return ParseFrame(slotFrame.data(), 9, &view); }, FrameStatus::kBadLength},
      {"slot frame 13", [&] { return ParseSlotFrameBody(slotFrame.data(), 13, &slotId, &view); },
       FrameStatus::kBadLength},
      {"PIN without NUL", [&] { return cardRequest(kCmdVerifyPin, {'1', '2'}); },
       FrameStatus::kBadField},
      {"NUL inside a PIN", [&] { return cardRequest(kCmdVerifyPin, {'1', 0, '2', 0}); },
       FrameStatus::kBadField},
      {"second PIN missing", [&] { return cardRequest(kCmdChangePin, {'a', 0}); },
       FrameStatus::kBadField},
      {"handle of 3 bytes", [&] { return cardRequest(kCmdDeleteContainer, {1, 2, 3}); },
       FrameStatus::kBadLength},
      {"certificate missing", [&] { return cardRequest(kCmdWriteCertificate, Bytes(8)); },
       FrameStatus::kBadLength},
      {"unknown command", [&] { return cardRequest(0x2026, {}); }, FrameStatus::kBadCommand},
      {"device record", [&] { return ParseDeviceListBody(device.data(), 62, &devices); },
       FrameStatus::kOk},
      {"device record cut short",
       [&] { return ParseDeviceListBody(device.data(), 61, &devices); }, FrameStatus::kBadLength},
      {"device name without NUL",
       [&] { return ParseDeviceListBody(unterminated.data(), 62, &devices); },
       FrameStatus::kBadField},
      {"card record cut short",
       [&] { return ParseCardListBody(At(51, {{0, {1}}}).data(), 51, &cards); },
       FrameStatus::kBadLength},
      {"card key refused", [&] { return ParseCardKeyFrame(refusedKey.data(), 8, &der, &derLen); },
       FrameStatus::kPeerStatus},
      {"card key answered by an acknowledgement",
       [&] { return ParseCardKeyFrame(ack.data(), 8, &der, &derLen); }, FrameStatus::kBadCommand},
      {"acknowledgement", [&] { return ParseCardSessionAck(ack.data(), 8); }, FrameStatus::kOk},
      {"acknowledgement refused",
       [&] { return ParseCardSessionAck(refusedKey.data(), 8); }, FrameStatus::kBadCommand},
  };
  for (const Case& c : cases) EXPECT_EQ(c.parse(), c.expected) << c.what;
}

Bytes KeyBlock(uint32_t bits, uint32_t count, size_t modulusBytes) {
  Bytes b = {uint8_t(bits), uint8_t(bits >> 8), 0, 0, 1, 0, 1, 0, uint8_t(count), uint8_t(count >> 8), 0, 0};
  b.resize(12 + modulusBytes, 0xC5);
  return b;
}

TEST(FrameLayouts, CardResponseLengthRules) {
  struct Case { uint16_t command; Bytes body; size_t block; FrameStatus expected; };
  const Bytes limits = {1, 0, 0x00, 0x08, 0x00, 0x04, 0x00, 0x40, 0x08, 0x00, 4, 8, 0x01, 0, 0, 0};
  const Case cases[] = {
      {kCmdCreateContainer, {1, 0, 0, 0}, 0, FrameStatus::kOk},
      {kCmdCreateContainer, {1, 0, 0}, 0, FrameStatus::kBadLength},
      {kCmdVerifyPin, {1, 0, 0, 0, 0}, 0, FrameStatus::kBadLength},
      {kCmdDeleteContainer, {0}, 0, FrameStatus::kBadLength},
      {kCmdEnumContainers, {0, 0, 0, 0, 'a', 0}, 0, FrameStatus::kOk},
      {kCmdEnumContainers, Bytes(260, 'n'), 0, FrameStatus::kOk},
      {kCmdEnumContainers, Bytes(261, 'n'), 0, FrameStatus::kBadLength},
      {kCmdOpenContainer, {9, 0, 0, 0, 'a', 'b', 0}, 0, FrameStatus::kOk},
      {kCmdOpenContainer, {9, 0, 0, 0, 'a', 0, 0}, 0, FrameStatus::kBadLength},
      {kCmdOpenContainer, {9, 0, 0, 0, 'a', 'b'}, 0, FrameStatus::kBadLength},
      {kCmdPrivateKeyOp, Bytes(256), 256, FrameStatus::kOk},
      {kCmdPublicKeyOp, Bytes(255), 256, FrameStatus::kBadLength},
      {kCmdReadCertificate, {}, 0, FrameStatus::kBadLength},
      {kCmdReadPublicKey, KeyBlock(1024, 128, 128), 0, FrameStatus::kOk},
      {kCmdReadPublicKey, KeyBlock(1023, 128, 128), 0, FrameStatus::kOk},
      {kCmdGenerateKeyPair, KeyBlock(1025, 128, 128), 0, FrameStatus::kBadLength},  // count != (b+7)/8
      {kCmdReadPublicKey, KeyBlock(1024, 128, 127), 0, FrameStatus::kBadLength},
      {kCmdReadPublicKey, KeyBlock(1024, 128, 129), 0, FrameStatus::kBadLength},
      {kCmdReadPublicKey, KeyBlock(0, 0, 0), 0, FrameStatus::kBadField},
      {kCmdReadPublicKey, Bytes(11), 0, FrameStatus::kTruncated},
      {kCmdCardLimits, Bytes(limits.begin(), limits.begin() + 11), 0, FrameStatus::kBadLength},
      {kCmdCardLimits, Bytes(limits.begin(), limits.begin() + 12), 0, FrameStatus::kOk},
      {kCmdCardLimits, Bytes(limits.begin(), limits.begin() + 15), 0, FrameStatus::kOk},
      {kCmdSlotList, {}, 0, FrameStatus::kBadCommand},
  };
  for (const Case& c : cases) {
    CardResponse response;
    EXPECT_EQ(ParseCardResponse(c.command, c.body.data(), c.body.size(), c.block, &response),
              c.expected)
        << std::hex << c.command << std::dec << " " << c.body.size();
  }
}

}  // namespace
}  // namespace nivra::frames
