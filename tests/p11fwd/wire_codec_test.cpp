// The forwarding link's codec: exact little-endian layouts of values, frames and messages, and
// refusal of truncated, overlong, malformed and random input.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "tests/p11fwd/wire_test_values.h"
#include "tools/p11wire/pkcs11_abi.h"
#include "tools/p11wire/wire_frame.h"
#include "tools/p11wire/wire_shapes.h"

namespace nivra::p11wire {
namespace {

using p11test::Bytes;
constexpr auto Value = p11test::ValueAttribute;

TEST(WireCodec, LayoutsAreLittleEndianWithLengthPrefixes) {
  WireWriter w;
  w.U8(0xA1);
  w.U16(0xB2C3);
  w.U32(0x01020304);
  w.U64(0x1122334455667788ull);
  w.Bool(true);
  w.Text("ab");
  EXPECT_EQ(w.Data(), (Bytes{0xA1, 0xC3, 0xB2, 0x04, 0x03, 0x02, 0x01, 0x88, 0x77, 0x66, 0x55,
                             0x44, 0x33, 0x22, 0x11, 0x01, 0x02, 0x00, 0x00, 0x00, 'a', 'b'}));
  EXPECT_EQ(EncodeFrame(0x2B, true, Bytes{0xEE, 0xFF}),
            (Bytes{'N', 'P', '1', '1', 0x02, 0, 0, 0, 0x2B, 0x00, 0x01, 0x00, 0xEE, 0xFF}));
  TemplateRequest request = {7, 0x01020304, {Value(0x0, {1, 0, 0, 0x80}),
                                             p11test::QueryAttribute(0x3, true, 64)}};
  EXPECT_EQ(EncodeBody(request),
            (Bytes{7, 0, 0, 0, 4, 3, 2, 1, 2, 0, 0, 0,                      // session, object, count
                   0, 0, 0, 0, 1, 4, 0, 0, 0, 1, 4, 0, 0, 0, 1, 0, 0, 0x80,  // a value
                   3, 0, 0, 0, 1, 64, 0, 0, 0, 0}));                         // a 64-byte buffer
}

TEST(WireCodec, FramesDecodeOnlyWhenWholeWithAValidHeader) {
  Bytes frame = EncodeFrame(0x2B, true, Bytes{0xEE, 0xFF});
  WireFrameHeader header;
  Bytes body;
  ASSERT_TRUE(DecodeFrame(frame.data(), frame.size(), &header, &body));
  EXPECT_EQ(header.op, 0x2B);
  EXPECT_TRUE(header.reply);
  EXPECT_EQ(body, (Bytes{0xEE, 0xFF}));
  for (size_t n = 0; n < frame.size(); ++n)
    EXPECT_FALSE(DecodeFrame(frame.data(), n, &header, &body)) << "prefix of " << n;
  frame.push_back(0);
  EXPECT_FALSE(DecodeFrame(frame.data(), frame.size(), &header, &body));

  struct Case {
    uint32_t length;
    size_t corruptAt;  // byte set to 0x02 (a wrong magic, or an undefined flag bit), 0 for none
    WireHeaderStatus status;
  };
  for (const Case& c : {Case{kWireMaxBody, 0, WireHeaderStatus::kOk},
                        Case{kWireMaxBody + 1, 0, WireHeaderStatus::kTooLong},
                        Case{0, 1, WireHeaderStatus::kBadMagic},
                        Case{0, 10, WireHeaderStatus::kBadFlags}}) {
    uint8_t raw[kWireHeaderSize];
    EncodeFrameHeader({0x10, false, c.length}, raw);
    if (c.corruptAt) raw[c.corruptAt] = 0x02;
    EXPECT_EQ(DecodeFrameHeader(raw, &header), c.status) << c.length << " " << c.corruptAt;
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
  TokenInfoReply token;
  std::memcpy(token.info.label, "nivra-test                      ", 32);
  token.info.totalPublicMemory = kWireUnavailable;
  token.info.firmwareVersion = {2, 6};
  // session, object, one attribute of type 0, buffer flag at [16], length 1, bytes follow: 0xAA
  const Bytes attribute = {1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0,
                           1, 1, 0, 0, 0, 1, 1, 0, 0, 0, 0xAA};
  Bytes noBuffer = attribute, lengthTwo = attribute;
  noBuffer[16] = 0;
  lengthTwo[17] = 2;
  const Sample samples[] = {
      Encoded("key pair", GenerateKeyPairRequest{0xDEADBEEF, {CKM_RSA_PKCS_KEY_PAIR_GEN, {}},
                                                 {Value(0x121, {0, 8, 0, 0}), Value(0x122, {1, 0, 1})},
                                                 {Value(0x2, {1})}}),
      Encoded("token info", token),
      Encoded("list", ListReply{0, 2, {0x20afa904, 1}}),
      Encoded("data", DataReply{0, 3, {true, {1, 2, 3}}}),
      Encoded("pin", PinRequest{3, CKU_SO, {true, {'5', '6', '7', '8'}}}),
      Encoded("control", ControlRequest{"add-slots 40 blank"}),
      {"attribute bytes into a buffer", attribute, &Accepts<TemplateRequest>, true},
      {"attribute bytes without a buffer", noBuffer, &Accepts<TemplateRequest>, false},
      {"attribute bytes fewer than its length", lengthTwo, &Accepts<TemplateRequest>, false},
      {"huge attribute count", {1, 0, 0, 0, 2, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0x7F},
       &Accepts<TemplateRequest>, false},
      {"huge id count", {0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0},
       &Accepts<ListReply>, false},
      {"length prefix beyond the body", {5, 0, 0, 0, 'a', 'b', 'c', 'd'}, &Accepts<ControlRequest>,
       false},
      {"boolean 2", {0, 0, 0, 0, 2, 1, 0, 0, 0, 0}, &Accepts<ListRequest>, false},
      // Empty bodies; these decoders also take the random bodies below.
      {"hello", {}, &Accepts<HelloRequest>, false},
      {"set pin", {}, &Accepts<SetPinRequest>, false},
      {"attributes", {}, &Accepts<AttributesReply>, false},
      {"data request", {}, &Accepts<DataRequest>, false},
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
