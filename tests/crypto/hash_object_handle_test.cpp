// Hash objects behind biased handles: the record's layout, the handle arithmetic, and rejection
// of handles that name no live object (null, the bare bias, garbage, destroyed, forged records).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "crypto/hash_object.h"
#include "sha1_helpers.h"
#include "nist_rsp.h"

namespace nivra::testing {
namespace {

using crypto::HashHandle;
using crypto::HashObject;
using crypto::kErrInvalidHandle;
using crypto::kErrNullArgument;
using crypto::kOk;

const Digest kEmptyDigest = ToDigest(Hex("da39a3ee5e6b4b0d3255bfef95601890afd80709"));
const Digest kAbcDigest = ToDigest(Hex("a9993e364706816aba3e25717850c26c9cd0d89d"));

HashObject* RecordOf(HashHandle handle) {
  return reinterpret_cast<HashObject*>(handle - crypto::kHashHandleBias);
}

TEST(HashObjectLayout, HandleIsAddressPlusBiasAndRecordIsFilledIn) {
  HashHandle handle = 0;
  ASSERT_EQ(crypto::HashCreate(&handle), kOk);
  ASSERT_NE(handle, 0u);
  const HashObject* record = RecordOf(handle);
  EXPECT_EQ(record->self, record);
  EXPECT_EQ(record->algorithm, 97u);
  EXPECT_EQ(record->digestLength, 20u);
  EXPECT_NE(record->state, nullptr);
  EXPECT_EQ(record->opInit, &crypto::Sha1Init);
  EXPECT_EQ(record->opFree, &crypto::Sha1Free);
  EXPECT_EQ(record->opUpdate, &crypto::Sha1Update);
  EXPECT_EQ(record->opFinal, &crypto::Sha1Final);
  EXPECT_EQ(record->opClone, &crypto::Sha1Clone);
  EXPECT_EQ(record->state->blockFill, 0u);
  EXPECT_EQ(record->state->h[0], 0x67452301u);
  EXPECT_EQ(crypto::HashDestroy(handle), kOk);
}

TEST(HashObjectUse, DigestThroughHandle) {
  HashHandle handle = 0;
  ASSERT_EQ(crypto::HashCreate(&handle), kOk);
  ASSERT_EQ(crypto::HashUpdate(handle, reinterpret_cast<const uint8_t*>("a"), 1), kOk);
  ASSERT_EQ(crypto::HashUpdate(handle, nullptr, 0), kOk);
  ASSERT_EQ(crypto::HashUpdate(handle, reinterpret_cast<const uint8_t*>("bc"), 2), kOk);
  Digest out{};
  ASSERT_EQ(crypto::HashFinal(handle, out.data()), kOk);
  EXPECT_EQ(out, kAbcDigest);
  EXPECT_EQ(crypto::HashDestroy(handle), kOk);
}

TEST(HashObjectUse, Sha1OfEmptyIsTheEmptyMessageDigest) {
  Digest out{};
  ASSERT_EQ(crypto::Sha1OfEmpty(out.data()), kOk);
  EXPECT_EQ(out, kEmptyDigest);
  EXPECT_EQ(crypto::Sha1OfEmpty(nullptr), kErrNullArgument);
}

TEST(HashObjectUse, DuplicateContinuesIndependently) {
  HashHandle original = 0, copy = 0;
  ASSERT_EQ(crypto::HashCreate(&original), kOk);
  ASSERT_EQ(crypto::HashUpdate(original, reinterpret_cast<const uint8_t*>("ab"), 2), kOk);
  ASSERT_EQ(crypto::HashDuplicate(original, &copy), kOk);
  ASSERT_NE(copy, original);
  ASSERT_EQ(crypto::HashUpdate(original, reinterpret_cast<const uint8_t*>("c"), 1), kOk);
  Digest a{}, b{};
  ASSERT_EQ(crypto::HashFinal(original, a.data()), kOk);
  ASSERT_EQ(crypto::HashFinal(copy, b.data()), kOk);
  EXPECT_EQ(a, kAbcDigest);
  EXPECT_EQ(b, ToDigest(Hex("da23614e02469a0d7c7bd1bdab5c9c474b1904dc")));  // SHA-1("ab")
  EXPECT_EQ(crypto::HashDestroy(original), kOk);
  EXPECT_EQ(crypto::HashDestroy(copy), kOk);
  EXPECT_EQ(crypto::HashDuplicate(original, &copy), kErrInvalidHandle);
}

TEST(HashObjectErrors, NullOutPointers) {
  EXPECT_EQ(crypto::HashCreate(nullptr), kErrNullArgument);
  HashHandle handle = 0;
  ASSERT_EQ(crypto::HashCreate(&handle), kOk);
  EXPECT_EQ(crypto::HashFinal(handle, nullptr), kErrNullArgument);
  EXPECT_EQ(crypto::HashUpdate(handle, nullptr, 5), kErrNullArgument);
  EXPECT_EQ(crypto::HashDuplicate(handle, nullptr), kErrNullArgument);
  // The object is still usable after the rejected calls.
  Digest out{};
  ASSERT_EQ(crypto::HashFinal(handle, out.data()), kOk);
  EXPECT_EQ(out, kEmptyDigest);
  EXPECT_EQ(crypto::HashDestroy(handle), kOk);
}

TEST(HashObjectErrors, HandlesThatNameNoLiveObject) {
  const uint8_t byte = 0;
  Digest out{};
  const HashHandle garbage[] = {0,
                                crypto::kHashHandleBias,
                                1,
                                0xDEADBEEF,
                                ~HashHandle{0},
                                reinterpret_cast<HashHandle>(&out) + crypto::kHashHandleBias};
  for (HashHandle h : garbage) {
    EXPECT_EQ(crypto::HashUpdate(h, &byte, 1), kErrInvalidHandle) << h;
    EXPECT_EQ(crypto::HashFinal(h, out.data()), kErrInvalidHandle) << h;
    EXPECT_EQ(crypto::HashDestroy(h), kErrInvalidHandle) << h;
    HashHandle copy = 0;
    EXPECT_EQ(crypto::HashDuplicate(h, &copy), kErrInvalidHandle) << h;
  }
  // A live handle shifted by a few bytes names no record either.
  HashHandle handle = 0;
  ASSERT_EQ(crypto::HashCreate(&handle), kOk);
  EXPECT_EQ(crypto::HashUpdate(handle + 8, &byte, 1), kErrInvalidHandle);
  EXPECT_EQ(crypto::HashUpdate(handle - crypto::kHashHandleBias, &byte, 1), kErrInvalidHandle);
  EXPECT_EQ(RecordOf(handle)->state->bitCountLow, 0u);
  EXPECT_EQ(crypto::HashDestroy(handle), kOk);
}

TEST(HashObjectErrors, DestroyedHandleIsRejected) {
  HashHandle handle = 0;
  ASSERT_EQ(crypto::HashCreate(&handle), kOk);
  ASSERT_EQ(crypto::HashDestroy(handle), kOk);
  const uint8_t byte = 0;
  Digest out{};
  EXPECT_EQ(crypto::HashUpdate(handle, &byte, 1), kErrInvalidHandle);
  EXPECT_EQ(crypto::HashFinal(handle, out.data()), kErrInvalidHandle);
  EXPECT_EQ(crypto::HashDestroy(handle), kErrInvalidHandle);
}

// A forged record whose self pointer matches its own address is still not a live object: the
// call fails and neither the record nor the state it points at is touched.
TEST(HashObjectErrors, ForgedRecordIsNotTouched) {
  crypto::Sha1State* state = nullptr;
  ASSERT_EQ(crypto::Sha1Init(&state), kOk);
  crypto::Sha1State before = *state;
  HashObject forged{};
  forged.state = state;
  forged.algorithm = crypto::kHashAlgorithmSha1;
  forged.opInit = crypto::Sha1Init;
  forged.opFree = crypto::Sha1Free;
  forged.opUpdate = crypto::Sha1Update;
  forged.opFinal = crypto::Sha1Final;
  forged.opClone = crypto::Sha1Clone;
  forged.digestLength = 20;
  forged.self = &forged;
  const HashObject forgedCopy = forged;
  const HashHandle handle = reinterpret_cast<HashHandle>(&forged) + crypto::kHashHandleBias;

  const uint8_t data[3] = {1, 2, 3};
  Digest out{};
  EXPECT_EQ(crypto::HashUpdate(handle, data, sizeof(data)), kErrInvalidHandle);
  EXPECT_EQ(crypto::HashFinal(handle, out.data()), kErrInvalidHandle);
  EXPECT_EQ(crypto::HashDestroy(handle), kErrInvalidHandle);
  EXPECT_EQ(std::memcmp(&forged, &forgedCopy, sizeof(forged)), 0);
  EXPECT_EQ(std::memcmp(state, &before, sizeof(before)), 0);
  EXPECT_EQ(out, Digest{});
  crypto::Sha1Free(state);
}

// A live record whose self pointer was overwritten is rejected as well.
TEST(HashObjectErrors, LiveRecordWithWrongSelfPointer) {
  HashHandle handle = 0;
  ASSERT_EQ(crypto::HashCreate(&handle), kOk);
  HashObject* record = RecordOf(handle);
  record->self = nullptr;
  const uint8_t byte = 7;
  EXPECT_EQ(crypto::HashUpdate(handle, &byte, 1), kErrInvalidHandle);
  EXPECT_EQ(record->state->bitCountLow, 0u);
  record->self = record;
  EXPECT_EQ(crypto::HashDestroy(handle), kOk);
}

}  // namespace
}  // namespace nivra::testing
