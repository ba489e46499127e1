// SHA-1 against the NIST CAVS byte-oriented vectors (short messages, long messages, Monte Carlo).
#include <gtest/gtest.h>

#include <string>

#include "crypto/hash_object.h"
#include "crypto/sha1.h"
#include "nist_rsp.h"
#include "sha1_helpers.h"

namespace nivra::testing {
namespace {

std::string VectorPath(const char* file) {
  return std::string(NIVRA_VECTORS_DIR) + "/hashes/SHA1/" + file;
}

// Checks every record of a ShortMsg/LongMsg file, in one call and split in uneven pieces.
void CheckMessageFile(const char* file, size_t expectedCount) {
  const auto records = ReadRsp(VectorPath(file));
  ASSERT_EQ(records.size(), expectedCount);
  for (const auto& record : records) {
    const size_t bits = std::stoul(record.at("Len"));
    auto message = Hex(record.at("Msg"));
    message.resize(bits / 8);  // Len = 0 carries a placeholder byte "00"
    const Digest expected = ToDigest(Hex(record.at("MD")));
    EXPECT_EQ(Sha1InPieces(message), expected) << file << " Len=" << bits;
    EXPECT_EQ(Sha1InPieces(message, {1, 62, 65, 3}), expected) << file << " split, Len=" << bits;
  }
}

TEST(Sha1NistVectors, ShortMessagesFromEmptyTo64Bytes) { CheckMessageFile("SHA1ShortMsg.rsp", 65); }

TEST(Sha1NistVectors, LongMessages) { CheckMessageFile("SHA1LongMsg.rsp", 64); }

// Monte Carlo: each checkpoint is 1000 chained digests of 60-byte messages built from the three
// previous digests.
TEST(Sha1NistVectors, MonteCarloChain) {
  const auto records = ReadRsp(VectorPath("SHA1Monte.rsp"));
  ASSERT_EQ(records.size(), 101u);  // the seed, then 100 checkpoints
  Digest seed = ToDigest(Hex(records[0].at("Seed")));
  for (size_t j = 1; j < records.size(); ++j) {
    Digest md[3] = {seed, seed, seed};
    for (int i = 3; i < 1003; ++i) {
      std::vector<uint8_t> message;
      for (const auto& d : md) message.insert(message.end(), d.begin(), d.end());
      md[0] = md[1];
      md[1] = md[2];
      md[2] = Sha1InPieces(message);
    }
    seed = md[2];
    ASSERT_EQ(seed, ToDigest(Hex(records[j].at("MD")))) << "checkpoint " << records[j].at("COUNT");
  }
}

// The same vectors through the handle-based hash object that the RSA padding code uses.
TEST(Sha1NistVectors, ShortMessagesThroughHashObject) {
  for (const auto& record : ReadRsp(VectorPath("SHA1ShortMsg.rsp"))) {
    auto message = Hex(record.at("Msg"));
    message.resize(std::stoul(record.at("Len")) / 8);
    crypto::HashHandle handle = 0;
    ASSERT_EQ(crypto::HashCreate(&handle), crypto::kOk);
    ASSERT_EQ(crypto::HashUpdate(handle, message.data(), message.size()), crypto::kOk);
    Digest out{};
    ASSERT_EQ(crypto::HashFinal(handle, out.data()), crypto::kOk);
    ASSERT_EQ(crypto::HashDestroy(handle), crypto::kOk);
    EXPECT_EQ(out, ToDigest(Hex(record.at("MD")))) << "Len=" << record.at("Len");
  }
}

}  // namespace
}  // namespace nivra::testing
