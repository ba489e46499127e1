// The forwarding link's codec: the exact bytes of a frame and of an attribute template (both ends
// share the codec, so a field that both misplace still round-trips; the round trips themselves
// run in every token test), and refusal of truncated, overlong, malformed and random input.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tools/p11wire/pkcs11_abi.h"
#include "tools/p11wire/wire_frame.h"
#include "tools/p11wire/wire_shapes.h"

namespace nivra::p11wire {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(WireCodec, FramesAndTemplatesHaveTheirLittleEndianLayout) {
  EXPECT_EQ(EncodeFrame(0x2B, true, Bytes{0xEE, 0xFF}),
            (Bytes{'N', 'P', '1', '1', 0x02, 0, 0, 0, 0x2B, 0x00, 0x01, 0x00, 0xEE, 0xFF}));
  TemplateRequest request = {7, 0x01020304, {{0x0, true, 4, {1, 0, 0, 0x80}}, {0x3, true, 64}}};
  EXPECT_EQ(EncodeBody(request),
            (Bytes{7, 0, 0, 0, 4, 3, 2, 1, 2, 0, 0, 0,                    // session, object, count
                   0, 0, 0, 0, 1, 4, 0, 0, 0, 1, 4, 0, 0, 0, 1, 0, 0, 0x80,  // a value
                   3, 0, 0, 0, 1, 64, 0, 0, 0, 0}));                         // 64-byte buffer
  // The largest body, one byte more, and an undefined flag bit (garbage and a wrong magic are
  // sent to the helper itself).
  const struct {
    uint32_t length;
    uint8_t flags;
    WireHeaderStatus status;
  } cases[] = {{kWireMaxBody, 0, WireHeaderStatus::kOk},
               {kWireMaxBody + 1, 0, WireHeaderStatus::kTooLong},
               {0, 0x02, WireHeaderStatus::kBadFlags}};
  for (const auto& c : cases) {
    uint8_t raw[kWireHeaderSize];
    EncodeFrameHeader({0x10, false, c.length}, raw);
    raw[10] |= c.flags;
    WireFrameHeader header;
    EXPECT_EQ(DecodeFrameHeader(raw, &header), c.status) << c.length;
  }
}

// Decodes `body` as a Message: 1 when accepted, 0 when refused. Whatever is accepted must be the
// one canonical encoding of what it decoded to; a loose decoder would re-encode it differently.
template <class Message>
int Accepts(const Bytes& body) {
  Message m;
  if (!DecodeBody(body, &m)) return 0;
  EXPECT_EQ(EncodeBody(m), body) << "accepted a non-canonical body";
  return 1;
}

struct Sample {
  const char* name;
  Bytes body;
  int (*decode)(const Bytes&);
  bool wellFormed;  // then every truncation and extension of it must be refused
};

template <class Message>
Sample Encoded(const char* name, const Message& m) {
  return {name, EncodeBody(m), &Accepts<Message>, true};
}

TEST(WireCodec, BodiesDecodeOnlyWhenWholeAndWellFormed) {
  // session, object, one attribute of type 0, buffer flag at [16], length 1, bytes follow: 0xAA
  const Bytes attribute = {1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0,
                           1, 1, 0, 0, 0, 1, 1, 0, 0, 0, 0xAA};
  Bytes noBuffer = attribute, lengthTwo = attribute;
  noBuffer[16] = 0;
  lengthTwo[17] = 2;
  const Sample samples[] = {
      Encoded("key pair", GenerateKeyPairRequest{0xDEADBEEF, {CKM_RSA_PKCS_KEY_PAIR_GEN, {}},
                                                 {{0x121, true, 4, {0, 8, 0, 0}}},
                                                 {{0x2, true, 1, {1}}}}),
      Encoded("token info", TokenInfoReply{}),
      Encoded("list", ListReply{0, 2, {0x20afa904, 1}}),
      Encoded("data", DataReply{0, 3, {true, {1, 2, 3}}}),
      Encoded("control", ControlRequest{"add-slots 40 blank"}),
      {"attribute bytes into a buffer", attribute, &Accepts<TemplateRequest>, true},
      {"attribute bytes without a buffer", noBuffer, &Accepts<TemplateRequest>, false},
      {"attribute bytes fewer than its length", lengthTwo, &Accepts<TemplateRequest>, false},
      {"huge attribute count", {1, 0, 0, 0, 2, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0x7F},
       &Accepts<TemplateRequest>, false},
      {"huge id count", {0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0},
       &Accepts<ListReply>, false},
      {"boolean 2", {0, 0, 0, 0, 2, 1, 0, 0, 0, 0}, &Accepts<ListRequest>, false},
      // An empty body; these decoders also take the random bodies below.
      {"pin", {}, &Accepts<PinRequest>, false},
      {"attributes", {}, &Accepts<AttributesReply>, false},
      {"operation", {}, &Accepts<OperationInitRequest>, false},
  };
  for (const Sample& s : samples) {
    SCOPED_TRACE(s.name);
    EXPECT_EQ(s.decode(s.body), s.wellFormed ? 1 : 0);
    if (!s.wellFormed) continue;
    for (size_t n = 0; n < s.body.size(); ++n)
      EXPECT_EQ(s.decode(Bytes(s.body.begin(), s.body.begin() + n)), 0) << "prefix of " << n;
    Bytes longer = s.body;
    longer.push_back(0);
    EXPECT_EQ(s.decode(longer), 0);
  }
  // Random bodies: each decoder refuses them or takes them canonically. Bodies of small bytes
  // are often well formed for some type, so the canonical check must have run.
  std::mt19937 random(20240917);
  int accepted = 0;
  for (int round = 0; round < 3000; ++round) {
    Bytes body(random() % 96);
    for (uint8_t& b : body) b = static_cast<uint8_t>(random() % (round % 4 ? 2 : 256));
    for (const Sample& s : samples) accepted += s.decode(body);
  }
  EXPECT_GT(accepted, 100);
}

}  // namespace
}  // namespace nivra::p11wire
