// SHA-1 against the NIST CAVS byte-oriented vectors (short and long messages in one call, split
// in uneven pieces and through the handle-based hash object; the Monte Carlo chain), and the
// state's own handling: its layout while buffering and after the final, and argument errors.
// Copies are checked through HashDuplicate, the bit count's high half against OpenSSL.
#include <gtest/gtest.h>

#include "crypto/hash_object.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

TEST(Sha1NistVectors, ShortAndLongMessages) {
  for (const auto& [file, count] : {std::pair<const char*, size_t>{"SHA1ShortMsg.rsp", 65}, {"SHA1LongMsg.rsp", 64}}) {
    const auto records = ReadRsp(VectorPath(std::string("hashes/SHA1/") + file));
    ASSERT_EQ(records.size(), count);
    for (const auto& record : records) {
      const size_t bits = std::stoul(record.at("Len"));
      Bytes message = Hex(record.at("Msg"));
      message.resize(bits / 8);  // Len = 0 carries a placeholder byte "00"
      const Bytes expected = Hex(record.at("MD"));
      EXPECT_EQ(Sha1InPieces(message), expected) << file << " Len=" << bits;
      EXPECT_EQ(Sha1InPieces(message, {1, 62, 65, 3}), expected) << file << " split, Len=" << bits;
      HashHandle handle = 0;
      Bytes out(20);
      ASSERT_EQ(HashCreate(&handle), kOk);
      EXPECT_EQ(HashUpdate(handle, message.data(), message.size()), kOk);
      EXPECT_EQ(HashFinal(handle, out.data()), kOk);
      EXPECT_EQ(HashDestroy(handle), kOk);
      EXPECT_EQ(out, expected) << file << " hash object, Len=" << bits;
    }
  }
}

// Each checkpoint is 1000 chained digests of 60-byte messages built from the three previous ones.
TEST(Sha1NistVectors, MonteCarloChain) {
  const auto records = ReadRsp(VectorPath("hashes/SHA1/SHA1Monte.rsp"));
  ASSERT_EQ(records.size(), 101u);  // the seed, then 100 checkpoints
  Bytes seed = Hex(records[0].at("Seed"));
  for (size_t j = 1; j < records.size(); ++j) {
    Bytes md[3] = {seed, seed, seed};
    for (int i = 3; i < 1003; ++i) {
      const Bytes next = Sha1InPieces(Concat(Concat(md[0], md[1]), md[2]));
      md[0] = md[1];
      md[1] = md[2];
      md[2] = next;
    }
    seed = md[2];
    ASSERT_EQ(seed, Hex(records[j].at("MD"))) << "checkpoint " << records[j].at("COUNT");
  }
}


struct State {
  State() { EXPECT_EQ(Sha1Init(&s), kOk); }
  ~State() { Sha1Free(s); }
  Status Update(const Bytes& data) { return Sha1Update(s, data.data(), data.size()); }
  Sha1State* s = nullptr;
};

// Whole blocks are compressed from the caller's buffer and only the tail is held; the final wipes
// the held block.
TEST(Sha1State, BufferingAndFinal) {
  State st;
  Bytes data(70);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i + 1);
  ASSERT_EQ(st.Update(data), kOk);
  ASSERT_EQ(Sha1Update(st.s, nullptr, 0), kOk);
  EXPECT_EQ(st.s->bitCountLow, 70u * 8);
  EXPECT_EQ(st.s->bitCountHigh, 0u);
  EXPECT_EQ(Bytes(st.s->block, st.s->block + st.s->blockFill), Bytes(data.begin() + 64, data.end()));
  Bytes out(20);
  ASSERT_EQ(Sha1Final(st.s, out.data()), kOk);
  EXPECT_EQ(out, Sha1InPieces(data));
  EXPECT_EQ(st.s->blockFill, 0u);
  EXPECT_EQ(Bytes(st.s->block, st.s->block + 64), Bytes(64, 0)) << "the held block is cleared";
}

TEST(Sha1State, NullsAreRejectedAndChangeNothing) {
  EXPECT_EQ(Sha1Init(nullptr), kErrNullArgument);
  State st;
  const uint8_t byte = 'x';
  Bytes out(20);
  EXPECT_EQ(Sha1Update(nullptr, &byte, 1), kErrNullArgument);
  EXPECT_EQ(Sha1Update(st.s, nullptr, 1), kErrNullArgument);
  EXPECT_EQ(st.s->bitCountLow, 0u) << "a rejected update counts nothing";
  EXPECT_EQ(Sha1Final(nullptr, out.data()), kErrNullArgument);
  EXPECT_EQ(Sha1Final(st.s, nullptr), kErrNullArgument);
  Sha1State* copy = nullptr;
  EXPECT_EQ(Sha1Clone(nullptr, &copy), kErrInvalidHandle);
  EXPECT_EQ(Sha1Clone(st.s, nullptr), kErrNullArgument);
  EXPECT_EQ(Sha1Free(nullptr), kOk);
}

}  // namespace
}  // namespace nivra::testing
