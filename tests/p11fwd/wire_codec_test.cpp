// The forwarding link's codec: exact little-endian layouts, frame headers, message round trips,
// and refusal of truncated, oversized and garbage input without reading past the buffer.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "tests/p11fwd/wire_test_values.h"
#include "tools/p11wire/pkcs11_abi.h"
#include "tools/p11wire/wire_buffer.h"
#include "tools/p11wire/wire_frame.h"
#include "tools/p11wire/wire_ops.h"
#include "tools/p11wire/wire_shapes.h"

namespace nivra::p11wire {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(WireBuffer, WritesFixedWidthsLittleEndian) {
  WireWriter w;
  w.U8(0xA1);
  w.U16(0xB2C3);
  w.U32(0x01020304);
  w.U64(0x1122334455667788ull);
  w.Bool(true);
  w.Text("ab");
  EXPECT_EQ(w.Data(), (Bytes{0xA1, 0xC3, 0xB2, 0x04, 0x03, 0x02, 0x01, 0x88, 0x77, 0x66, 0x55,
                             0x44, 0x33, 0x22, 0x11, 0x01, 0x02, 0x00, 0x00, 0x00, 'a', 'b'}));
}

TEST(WireBuffer, ReadsBackWhatWasWritten) {
  WireWriter w;
  w.U16(0xFFFF);
  w.U32(0xFFFFFFFF);
  w.U64(0);
  w.Bytes(Bytes{9, 8, 7});
  WireReader r(w.Data());
  EXPECT_EQ(r.U16(), 0xFFFF);
  EXPECT_EQ(r.U32(), 0xFFFFFFFFu);
  EXPECT_EQ(r.U64(), 0u);
  EXPECT_EQ(r.Bytes(), (Bytes{9, 8, 7}));
  EXPECT_TRUE(r.AtEnd());
}

TEST(WireBuffer, ReadPastEndFailsAndLatches) {
  Bytes three = {1, 2, 3};
  WireReader r(three);
  EXPECT_EQ(r.U32(), 0u);
  EXPECT_FALSE(r.ok());
  EXPECT_EQ(r.U8(), 0u);  // the reader stays failed although one byte would fit
  EXPECT_FALSE(r.AtEnd());
  EXPECT_EQ(r.remaining(), 0u);
}

TEST(WireBuffer, LengthPrefixLargerThanRestFails) {
  Bytes body = {0x05, 0, 0, 0, 'a', 'b', 'c', 'd'};  // claims 5, holds 4
  WireReader r(body);
  EXPECT_TRUE(r.Bytes().empty());
  EXPECT_FALSE(r.ok());
}

TEST(WireBuffer, BooleanOtherThanZeroOrOneFails) {
  Bytes two = {2};
  WireReader r(two);
  r.Bool();
  EXPECT_FALSE(r.ok());
}

TEST(WireBuffer, CountThatCannotFitFailsBeforeAnyAllocation) {
  Bytes body = {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};
  WireReader r(body);
  EXPECT_EQ(r.Count(4), 0u);
  EXPECT_FALSE(r.ok());
  Bytes fits = {2, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0};
  WireReader ok(fits);
  EXPECT_EQ(ok.Count(4), 2u);
  EXPECT_TRUE(ok.ok());
}

TEST(WireFrame, HeaderLayoutIsMagicLengthOperationFlags) {
  Bytes frame = EncodeFrame(0x2B, true, Bytes{0xEE, 0xFF});
  EXPECT_EQ(frame, (Bytes{'N', 'P', '1', '1', 0x02, 0, 0, 0, 0x2B, 0x00, 0x01, 0x00, 0xEE, 0xFF}));
  WireFrameHeader header;
  Bytes body;
  ASSERT_TRUE(DecodeFrame(frame.data(), frame.size(), &header, &body));
  EXPECT_EQ(header.op, 0x2B);
  EXPECT_TRUE(header.reply);
  EXPECT_EQ(body, (Bytes{0xEE, 0xFF}));
}

TEST(WireFrame, MalformedHeadersAreNamed) {
  uint8_t raw[kWireHeaderSize];
  WireFrameHeader header;
  EncodeFrameHeader({0x10, false, 0}, raw);
  raw[0] ^= 1;
  EXPECT_EQ(DecodeFrameHeader(raw, &header), WireHeaderStatus::kBadMagic);

  EncodeFrameHeader({0x10, false, kWireMaxBody}, raw);
  EXPECT_EQ(DecodeFrameHeader(raw, &header), WireHeaderStatus::kOk);
  EncodeFrameHeader({0x10, false, kWireMaxBody + 1}, raw);
  EXPECT_EQ(DecodeFrameHeader(raw, &header), WireHeaderStatus::kTooLong);

  EncodeFrameHeader({0x10, false, 0}, raw);
  raw[10] = 0x02;  // an undefined flag bit
  EXPECT_EQ(DecodeFrameHeader(raw, &header), WireHeaderStatus::kBadFlags);
}

TEST(WireFrame, TruncatedOrOverlongFramesAreRefused) {
  Bytes frame = EncodeFrame(0x13, false, Bytes{1, 2, 3, 4});
  WireFrameHeader header;
  Bytes body;
  for (size_t n = 0; n < frame.size(); ++n)
    EXPECT_FALSE(DecodeFrame(frame.data(), n, &header, &body)) << "prefix of " << n;
  frame.push_back(0);
  EXPECT_FALSE(DecodeFrame(frame.data(), frame.size(), &header, &body));
}

TEST(WireOps, NamesMatchPkcs11FunctionsAndRoundTrip) {
  EXPECT_STREQ(WireOpName(static_cast<uint16_t>(WireOp::kInitialize)), "C_Initialize");
  EXPECT_STREQ(WireOpName(static_cast<uint16_t>(WireOp::kGenerateRandom)), "C_GenerateRandom");
  EXPECT_STREQ(WireOpName(static_cast<uint16_t>(WireOp::kWaitForSlotEvent)), "C_WaitForSlotEvent");
  EXPECT_STREQ(WireOpName(static_cast<uint16_t>(WireOp::kControl)), "Control");
  EXPECT_EQ(WireOpName(0x31), nullptr);
  EXPECT_EQ(WireOpName(0x0F), nullptr);
  for (uint16_t op = kWireFirstCallOp; op <= kWireLastCallOp; ++op) {
    WireOp back;
    ASSERT_TRUE(WireCallOpFromName(WireOpName(op), &back));
    EXPECT_EQ(static_cast<uint16_t>(back), op);
  }
  WireOp unused;
  EXPECT_FALSE(WireCallOpFromName("C_DigestInit", &unused));
  EXPECT_FALSE(WireCallOpFromName("Control", &unused));
}

constexpr auto Value = p11test::ValueAttribute;

TEST(WireMessages, TemplateRequestLayout) {
  TemplateRequest request;
  request.session = 7;
  request.object = 0x01020304;
  request.attributes.push_back(Value(0x0, {1, 0, 0, 0x80}));
  WireAttribute query;
  query.type = 0x3;
  query.hasValue = true;
  query.length = 64;  // a capacity, no bytes
  request.attributes.push_back(query);
  EXPECT_EQ(EncodeBody(request),
            (Bytes{7, 0, 0, 0, 4, 3, 2, 1, 2, 0, 0, 0,
                   0, 0, 0, 0, 1, 4, 0, 0, 0, 1, 4, 0, 0, 0, 1, 0, 0, 0x80,
                   3, 0, 0, 0, 1, 64, 0, 0, 0, 0}));
}

TEST(WireMessages, AttributeWithBytesButNoBufferIsRefused) {
  const Bytes body = {1, 0, 0, 0,     // session
                      0, 0, 0, 0,     // object
                      1, 0, 0, 0,     // one attribute
                      0, 0, 0, 0,     // type
                      0,              // no buffer...
                      1, 0, 0, 0,     // ...of length 1
                      1,              // but bytes follow
                      1, 0, 0, 0, 0xAA};
  TemplateRequest request;
  EXPECT_FALSE(DecodeBody(body, &request));
  // The same with a buffer decodes.
  Bytes withBuffer = body;
  withBuffer[16] = 1;
  EXPECT_TRUE(DecodeBody(withBuffer, &request));
  ASSERT_EQ(request.attributes.size(), 1u);
  EXPECT_EQ(request.attributes[0].value, Bytes{0xAA});
}

TEST(WireMessages, AttributeWhoseBytesDisagreeWithLengthIsRefused) {
  AttributesReply reply;
  reply.attributes.push_back(Value(0x11, {1, 2, 3}));
  Bytes body = EncodeBody(reply);
  // length field of the attribute: rv(4) + count(4) + type(4) + hasValue(1) = offset 13
  body[13] = 2;
  AttributesReply decoded;
  EXPECT_FALSE(DecodeBody(body, &decoded));
}

// Every message type survives a round trip and refuses every strict prefix of its encoding.
template <class Message>
void ExpectRoundTripAndPrefixRefusal(const Message& m, Message* decoded) {
  Bytes body = EncodeBody(m);
  ASSERT_TRUE(DecodeBody(body, decoded));
  EXPECT_EQ(EncodeBody(*decoded), body);
  for (size_t n = 0; n < body.size(); ++n) {
    Message partial;
    EXPECT_FALSE(DecodeBody(Bytes(body.begin(), body.begin() + n), &partial)) << n;
  }
  Bytes longer = body;
  longer.push_back(0);
  Message trailing;
  EXPECT_FALSE(DecodeBody(longer, &trailing));
}

TEST(WireMessages, GenerateKeyPairRequestRoundTrip) {
  GenerateKeyPairRequest m;
  m.session = 0xDEADBEEF;
  m.mechanism.type = 0;
  m.publicTemplate = {Value(0x121, {0, 8, 0, 0}), Value(0x122, {1, 0, 1})};
  m.privateTemplate = {Value(0x2, {1})};
  GenerateKeyPairRequest d;
  ExpectRoundTripAndPrefixRefusal(m, &d);
  EXPECT_EQ(d.session, 0xDEADBEEFu);
  ASSERT_EQ(d.publicTemplate.size(), 2u);
  EXPECT_EQ(d.publicTemplate[1].value, (Bytes{1, 0, 1}));
  EXPECT_FALSE(d.mechanism.parameter.present);
}

TEST(WireMessages, TokenInfoReplyRoundTrip) {
  TokenInfoReply m;
  m.rv = 0;
  std::memcpy(m.info.label, "nivra-test                      ", 32);
  m.info.serialNumber[15] = 'Z';
  m.info.totalPublicMemory = kWireUnavailable;
  m.info.maxPinLen = 255;
  m.info.firmwareVersion = {2, 6};
  m.info.utcTime[0] = '2';
  TokenInfoReply d;
  ExpectRoundTripAndPrefixRefusal(m, &d);
  EXPECT_EQ(std::memcmp(d.info.label, m.info.label, 32), 0);
  EXPECT_EQ(d.info.serialNumber[15], 'Z');
  EXPECT_EQ(d.info.totalPublicMemory, kWireUnavailable);
  EXPECT_EQ(d.info.maxPinLen, 255u);
  EXPECT_EQ(d.info.firmwareVersion.minor, 6);
  // rv + 96 bytes of text + 11 words + 4 version bytes + 16 bytes of time
  EXPECT_EQ(EncodeBody(m).size(), 4u + 96 + 44 + 4 + 16);
}

TEST(WireMessages, ListAndDataRepliesRoundTrip) {
  ListReply list;
  list.rv = CKR_BUFFER_TOO_SMALL;
  list.count = 42;
  ListReply listBack;
  ExpectRoundTripAndPrefixRefusal(list, &listBack);
  EXPECT_EQ(listBack.count, 42u);
  EXPECT_TRUE(listBack.ids.empty());
  list.rv = 0;
  list.count = 2;
  list.ids = {0x20afa904, 1};
  ExpectRoundTripAndPrefixRefusal(list, &listBack);
  EXPECT_EQ(listBack.ids, (std::vector<uint32_t>{0x20afa904, 1}));

  DataReply data;
  data.length = 3;
  data.output.present = true;
  data.output.bytes = {1, 2, 3};
  DataReply dataBack;
  ExpectRoundTripAndPrefixRefusal(data, &dataBack);
  EXPECT_EQ(dataBack.output.bytes, (Bytes{1, 2, 3}));
}

TEST(WireMessages, PinAndControlRoundTrip) {
  PinRequest pin;
  pin.session = 3;
  pin.userType = CKU_SO;
  pin.pin.present = true;
  pin.pin.bytes = {'5', '6', '7', '8'};
  PinRequest pinBack;
  ExpectRoundTripAndPrefixRefusal(pin, &pinBack);
  EXPECT_EQ(pinBack.userType, CKU_SO);

  ControlRequest control;
  control.command = "add-slots 40 blank";
  ControlRequest controlBack;
  ExpectRoundTripAndPrefixRefusal(control, &controlBack);
  EXPECT_EQ(controlBack.command, "add-slots 40 blank");
}

// A body either fails to decode or is the one canonical encoding of what it decodes to; a
// decoder that accepted garbage loosely would re-encode it differently.
template <class Message>
int CheckCanonical(const Bytes& body) {
  Message m;
  if (!DecodeBody(body, &m)) return 0;
  EXPECT_EQ(EncodeBody(m), body);
  return 1;
}

int DecodeAsEveryMessage(const Bytes& body) {
  return CheckCanonical<HelloRequest>(body) + CheckCanonical<ControlRequest>(body) +
         CheckCanonical<ListRequest>(body) + CheckCanonical<InitTokenRequest>(body) +
         CheckCanonical<SetPinRequest>(body) + CheckCanonical<TemplateRequest>(body) +
         CheckCanonical<GenerateKeyPairRequest>(body) + CheckCanonical<OperationInitRequest>(body) +
         CheckCanonical<DataRequest>(body) + CheckCanonical<ListReply>(body) +
         CheckCanonical<AttributesReply>(body) + CheckCanonical<DataReply>(body) +
         CheckCanonical<TokenInfoReply>(body) + CheckCanonical<ControlReply>(body);
}

TEST(WireMessages, GarbageIsRefusedOrDecodedCanonically) {
  std::mt19937 random(20240917);
  int accepted = 0;
  for (int round = 0; round < 3000; ++round) {
    Bytes body(random() % 96);
    for (uint8_t& b : body) b = static_cast<uint8_t>(random() % (round % 4 ? 2 : 256));
    accepted += DecodeAsEveryMessage(body);
  }
  // Bodies of small bytes are often well formed for some type: the check above must have run.
  EXPECT_GT(accepted, 100);
}

TEST(WireMessages, HugeTemplateCountIsRefused) {
  Bytes body = {1, 0, 0, 0, 2, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0x7F};
  TemplateRequest request;
  EXPECT_FALSE(DecodeBody(body, &request));
  EXPECT_TRUE(request.attributes.empty());
}

}  // namespace
}  // namespace nivra::p11wire
