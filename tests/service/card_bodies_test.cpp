// Card command bodies in both directions: each request layout against literal bytes and back, and
// each response layout's length rules.
#include <gtest/gtest.h>

#include "service/frames/card_commands.h"
#include "service/frames/frame_codes.h"

namespace nivra::frames {
namespace {

struct RequestCase {
  uint16_t command;
  CardRequest request;
  Bytes body;
};

CardRequest Texts(const char* a, const char* b = "") {
  CardRequest r;
  r.text = a;
  r.text2 = b;
  return r;
}

CardRequest Words(uint32_t handle, uint32_t keySpec, Bytes data = {}) {
  CardRequest r;
  r.handle = handle;
  r.index = handle;
  r.keySpec = keySpec;
  r.data = std::move(data);
  return r;
}

TEST(CardRequests, EachLayoutBuildsItsBytesAndParsesBack) {
  CardRequest generate = Words(5, 2);
  generate.bits = 2048;
  generate.exponent = 0x10001;
  const RequestCase cases[] = {
      {kCmdCreateContainer, Texts("c"), {'c', 0}},
      {kCmdOpenContainer, Texts(""), {0}},
      {kCmdVerifyPin, Texts("1234"), {'1', '2', '3', '4', 0}},
      {kCmdChangePin, Texts("ab", "cd"), {'a', 'b', 0, 'c', 'd', 0}},
      {kCmdInitToken, Texts("so", ""), {'s', 'o', 0, 0}},
      {kCmdEnumContainers, Words(3, 0), {3, 0, 0, 0}},
      {kCmdDeleteContainer, Words(0x01020304, 0), {4, 3, 2, 1}},
      {kCmdLoginState, {}, {}},
      {kCmdInitTokenPlain, {}, {}},
      {kCmdReadPublicKey, Words(5, 2), {5, 0, 0, 0, 2, 0, 0, 0}},
      {kCmdPrivateKeyOp, Words(5, 1, {0x00, 0x01}), {5, 0, 0, 0, 1, 0, 0, 0, 0x00, 0x01}},
      {kCmdGenerateKeyPair, generate, {5, 0, 0, 0, 2, 0, 0, 0, 0, 8, 0, 0, 1, 0, 1, 0}},
  };
  for (const RequestCase& c : cases) {
    Bytes frame;
    ASSERT_EQ(BuildCardRequest(c.command, c.request, &frame), FrameStatus::kOk) << c.command;
    EXPECT_EQ(Bytes(frame.begin() + 8, frame.end()), c.body) << c.command;
    CardRequest back;
    ASSERT_EQ(ParseCardRequest(c.command, c.body.data(), c.body.size(), &back), FrameStatus::kOk);
    Bytes again;
    BuildCardRequest(c.command, back, &again);
    EXPECT_EQ(again, frame) << c.command;
  }
}

TEST(CardRequests, MalformedBodiesAreRefused) {
  struct Case { uint16_t command; Bytes body; FrameStatus expected; };
  const Case cases[] = {
      {kCmdVerifyPin, {}, FrameStatus::kBadField},
      {kCmdVerifyPin, {'1', '2'}, FrameStatus::kBadField},        // no NUL
      {kCmdVerifyPin, {'1', 0, '2', 0}, FrameStatus::kBadField},  // NUL inside
      {kCmdChangePin, {'a', 0}, FrameStatus::kBadField},          // second PIN missing
      {kCmdChangePin, {'a', 0, 'b'}, FrameStatus::kBadField},
      {kCmdUnblockPin, {'a', 0, 'b', 0, 0}, FrameStatus::kBadField},
      {kCmdDeleteContainer, {1, 2, 3}, FrameStatus::kBadLength},
      {kCmdLoginState, {0}, FrameStatus::kBadLength},
      {kCmdReadCertificate, {1, 0, 0, 0, 2, 0, 0, 0, 0}, FrameStatus::kBadLength},
      {kCmdWriteCertificate, {1, 0, 0, 0, 2, 0, 0, 0}, FrameStatus::kBadLength},  // no certificate
      {kCmdGenerateKeyPair, Bytes(15), FrameStatus::kBadLength},
      {0x2026, {}, FrameStatus::kBadCommand},
  };
  for (const Case& c : cases) {
    CardRequest request;
    EXPECT_EQ(ParseCardRequest(c.command, c.body.data(), c.body.size(), &request), c.expected)
        << std::hex << c.command << " " << c.body.size();
  }
  Bytes frame;
  CardRequest embedded;
  embedded.text = std::string("a\0b", 3);
  EXPECT_EQ(BuildCardRequest(kCmdVerifyPin, embedded, &frame), FrameStatus::kBadField);
  EXPECT_EQ(BuildCardRequest(kCmdPrivateKeyOp, Words(1, 1), &frame), FrameStatus::kBadField);
}

Bytes KeyBlock(uint32_t bits, uint32_t count, size_t modulusBytes) {
  Bytes b = {static_cast<uint8_t>(bits), static_cast<uint8_t>(bits >> 8), 0, 0, 1, 0, 1, 0,
             static_cast<uint8_t>(count), static_cast<uint8_t>(count >> 8), 0, 0};
  b.resize(12 + modulusBytes, 0xC5);
  return b;
}

TEST(CardResponses, LengthRulesOfEachLayout) {
  struct Case { uint16_t command; Bytes body; size_t block; FrameStatus expected; };
  Bytes enumMax(260, 'n');
  const Case cases[] = {
      {kCmdCreateContainer, {1, 0, 0, 0}, 0, FrameStatus::kOk},
      {kCmdCreateContainer, {1, 0, 0}, 0, FrameStatus::kBadLength},
      {kCmdVerifyPin, {1, 0, 0, 0, 0}, 0, FrameStatus::kBadLength},
      {kCmdDeleteContainer, {0}, 0, FrameStatus::kBadLength},
      {kCmdEnumContainers, {0, 0, 0, 0, 'a', 0}, 0, FrameStatus::kOk},
      {kCmdEnumContainers, {0, 0, 0, 0, 0}, 0, FrameStatus::kBadLength},
      {kCmdEnumContainers, enumMax, 0, FrameStatus::kOk},
      {kCmdEnumContainers, Bytes(261, 'n'), 0, FrameStatus::kBadLength},
      {kCmdOpenContainer, {9, 0, 0, 0, 'a', 'b', 0}, 0, FrameStatus::kOk},
      {kCmdOpenContainer, {9, 0, 0, 0, 'a', 0, 0}, 0, FrameStatus::kBadLength},
      {kCmdOpenContainer, {9, 0, 0, 0, 'a', 'b'}, 0, FrameStatus::kBadLength},
      {kCmdOpenContainer, {9, 0, 0, 0}, 0, FrameStatus::kBadLength},
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
      {kCmdSlotList, {}, 0, FrameStatus::kBadCommand},
  };
  for (const Case& c : cases) {
    CardResponse response;
    EXPECT_EQ(ParseCardResponse(c.command, c.body.data(), c.body.size(), c.block, &response),
              c.expected)
        << std::hex << c.command << std::dec << " " << c.body.size();
  }
}

TEST(CardResponses, BuiltAnswersParseToTheirFields) {
  CardResponse open;
  open.value = 0x44;
  open.name = "DefaultContainer";
  Bytes frame;
  ASSERT_EQ(BuildCardResponse(kCmdOpenContainer, 0, open, &frame), FrameStatus::kOk);
  EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 8), (Bytes{0x03, 0xA0, 21, 0, 0, 0, 0, 0}));
  CardResponse back;
  ASSERT_EQ(ParseCardResponse(kCmdOpenContainer, frame.data() + 8, 21, 0, &back),
            FrameStatus::kOk);
  EXPECT_EQ(back.name, "DefaultContainer");
  EXPECT_EQ(back.value, 0x44u);

  CardResponse key;
  key.publicKey.bits = 9;
  key.publicKey.exponent = 3;
  key.publicKey.modulus = {0x01, 0x05};
  ASSERT_EQ(BuildCardResponse(kCmdGenerateKeyPair, 0, key, &frame), FrameStatus::kOk);
  EXPECT_EQ(Bytes(frame.begin() + 8, frame.end()),
            (Bytes{9, 0, 0, 0, 3, 0, 0, 0, 2, 0, 0, 0, 0x01, 0x05}));
  key.publicKey.modulus.push_back(0);
  EXPECT_EQ(BuildCardResponse(kCmdGenerateKeyPair, 0, key, &frame), FrameStatus::kBadField);

  // A refusal carries the status and no body, whatever the fields hold.
  ASSERT_EQ(BuildCardResponse(kCmdOpenContainer, 0x8009002A, open, &frame), FrameStatus::kOk);
  EXPECT_EQ(frame, (Bytes{0x03, 0xA0, 0, 0, 0x2A, 0, 0x09, 0x80}));
}

}  // namespace
}  // namespace nivra::frames
