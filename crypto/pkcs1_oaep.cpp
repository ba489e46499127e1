// RSAES-OAEP encoding and decoding with SHA-1, MGF1-SHA-1 and an empty label.
#include <cstring>
#include <new>

#include "crypto/hash_object.h"
#include "crypto/pkcs1.h"
#include "crypto/random.h"
#include "crypto/wipe.h"

namespace nivra::crypto {

namespace {

constexpr size_t kHashLen = kSha1DigestLength;
constexpr size_t kSeedOffset = 1;
constexpr size_t kDbOffset = 1 + kHashLen;
constexpr uint8_t kSeparator = 0x01;

// A wiped-on-release byte block for the data block being built or recovered.
class WorkBlock {
 public:
  explicit WorkBlock(size_t len) : len_(len), bytes_(new (std::nothrow) uint8_t[len]) {}
  ~WorkBlock() {
    if (bytes_ != nullptr) Wipe(bytes_, len_);
    delete[] bytes_;
  }
  WorkBlock(const WorkBlock&) = delete;
  WorkBlock& operator=(const WorkBlock&) = delete;
  uint8_t* get() { return bytes_; }

 private:
  size_t len_;
  uint8_t* bytes_;
};

// target[0..len) ^= MGF1(seed[0..seedLen))[0..len).
Status XorMask(uint8_t* target, size_t len, const uint8_t* seed, size_t seedLen) {
  WorkBlock mask(len);
  if (mask.get() == nullptr) return kErrNoMemory;
  Status status = Mgf1Sha1(mask.get(), len, seed, seedLen);
  if (status != kOk) return status;
  for (size_t i = 0; i < len; ++i) target[i] ^= mask.get()[i];
  return kOk;
}

}  // namespace

Status OaepEncode(uint8_t* out, size_t k, const uint8_t* msg, size_t msgLen) {
  if (out == nullptr || (msg == nullptr && msgLen > 0)) return kErrNullArgument;
  if (k < kOaepOverhead || msgLen > k - kOaepOverhead) return kErrMessageTooLong;
  // DB is built apart from out first: callers pad in place, with msg inside out.
  const size_t dbLen = k - kDbOffset;
  WorkBlock db(dbLen);
  if (db.get() == nullptr) return kErrNoMemory;
  Status status = Sha1OfEmpty(db.get());
  if (status != kOk) return status;
  std::memset(db.get() + kHashLen, 0, dbLen - kHashLen - msgLen - 1);
  db.get()[dbLen - msgLen - 1] = kSeparator;
  if (msgLen > 0) std::memcpy(db.get() + dbLen - msgLen, msg, msgLen);

  uint8_t* seed = out + kSeedOffset;
  uint8_t* maskedDb = out + kDbOffset;
  if (!RandomFill(seed, kHashLen)) return kErrGeneric;
  std::memcpy(maskedDb, db.get(), dbLen);
  status = XorMask(maskedDb, dbLen, seed, kHashLen);
  if (status == kOk) status = XorMask(seed, kHashLen, maskedDb, dbLen);
  out[0] = 0x00;
  return status;
}

Status OaepDecode(uint8_t* out, size_t* outLen, const uint8_t* em, size_t k) {
  if (em == nullptr || outLen == nullptr) return kErrNullArgument;
  if (k == 0) return kErrGeneric;
  if (em[0] != 0x00) return kErrOaepDecoding;
  if (k < kOaepOverhead) return kErrGeneric;
  const size_t dbLen = k - kDbOffset;
  WorkBlock work(k - 1);  // seed || DB
  if (work.get() == nullptr) return kErrNoMemory;
  uint8_t* seed = work.get();
  uint8_t* db = work.get() + kHashLen;
  std::memcpy(work.get(), em + kSeedOffset, k - 1);
  Status status = XorMask(seed, kHashLen, em + kDbOffset, dbLen);
  if (status == kOk) status = XorMask(db, dbLen, seed, kHashLen);
  if (status != kOk) return status;

  uint8_t labelHash[kHashLen];
  status = Sha1OfEmpty(labelHash);
  if (status != kOk) return status;
  if (std::memcmp(db, labelHash, kHashLen) != 0) return kErrOaepLabel;
  size_t i = kHashLen;
  while (i < dbLen && db[i] == 0x00) ++i;
  if (i == dbLen || db[i] != kSeparator) return kErrOaepDecoding;

  const size_t msgLen = dbLen - i - 1;
  const size_t capacity = *outLen;
  *outLen = msgLen;
  if (out == nullptr) return kOk;
  if (capacity < msgLen) return kErrBufferTooSmall;
  if (msgLen > 0) std::memmove(out, db + i + 1, msgLen);
  return kOk;
}

}  // namespace nivra::crypto
