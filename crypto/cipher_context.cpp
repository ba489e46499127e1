// Life of a cipher context: creation with a key, reset, mode and IV, destruction.
#include <cstring>
#include <new>

#include "crypto/cipher_context.h"
#include "crypto/des.h"
#include "crypto/wipe.h"

namespace nivra::crypto {
namespace {

constexpr size_t kTdes2KeySize = 16;

void ZeroFillAndFree(CipherContext* ctx) {
  Wipe(ctx, sizeof *ctx);
  delete ctx;
}

}  // namespace

Status CipherCreateWithOps(CipherHandle* out, const CipherOps& ops, uint32_t algorithm,
                           bool isStream, uint8_t blockSize, const uint8_t* key, size_t keyLen) {
  if (out == nullptr) return kErrNullArgument;
  *out = 0;
  auto* ctx = new (std::nothrow) CipherContext{};
  if (ctx == nullptr) return kErrNoMemory;
  ctx->algorithm = algorithm;
  ctx->isStream = isStream ? 1 : 0;
  ctx->ops = ops;
  ctx->mode = kCipherModeEcb;
  ctx->padding = kCipherPadNone;
  ctx->blockSize = blockSize;
  Status s = ops.keySetup(key, keyLen, &ctx->keySchedule);
  if (s != kOk) {
    ZeroFillAndFree(ctx);
    return s;
  }
  *out = CipherContexts::Register(ctx);
  return kOk;
}

Status CipherCreate(CipherHandle* out, const uint8_t* key, size_t keyLen) {
  return CipherCreateWithOps(out, kDesCipherOps, kCipherAlgorithmDes, false,
                             static_cast<uint8_t>(kDesBlockSize), key, keyLen);
}

Status CipherCreateTdes2(CipherHandle* out, const uint8_t key[16]) {
  Status s = CipherCreate(out, key, kTdes2KeySize);
  if (s != kOk) return s;
  s = CipherReset(*out);
  if (s != kOk) {
    CipherDestroy(*out);
    *out = 0;
  }
  return s;
}

Status CipherReset(CipherHandle handle) {
  CipherContext* ctx = CipherContexts::Lookup(handle);
  if (ctx == nullptr) return kErrInvalidHandle;
  if (ctx->isStream) return kOk;
  ctx->mode = kCipherModeCbc;
  ctx->padding = kCipherPadPkcs7;
  std::memset(ctx->chain, 0, ctx->blockSize);
  std::memset(ctx->initialIv, 0, ctx->blockSize);
  Wipe(ctx->pending, sizeof ctx->pending);
  ctx->pendingLen = 0;
  ctx->blockCount = 0;
  return kOk;
}

Status CipherDestroy(CipherHandle handle) {
  CipherContext* ctx = CipherContexts::Lookup(handle);
  if (ctx == nullptr || !CipherContexts::Unregister(ctx)) return kErrInvalidHandle;
  Status s = ctx->ops.freeSchedule(ctx->keySchedule);
  ZeroFillAndFree(ctx);
  return s;
}

Status CipherSetMode(CipherHandle handle, uint32_t modeWord) {
  CipherContext* ctx = CipherContexts::Lookup(handle);
  if (ctx == nullptr) return kErrInvalidHandle;
  ctx->mode = static_cast<uint16_t>(modeWord & 0xFFFFu);
  ctx->padding = static_cast<uint16_t>(modeWord >> 16);
  return kOk;
}

Status CipherSetIv(CipherHandle handle, const uint8_t* iv, size_t ivLen) {
  CipherContext* ctx = CipherContexts::Lookup(handle);
  if (ctx == nullptr) return kErrInvalidHandle;
  if (iv == nullptr) return kErrNullData;
  if (ivLen != ctx->blockSize) return kErrInputLength;
  std::memcpy(ctx->chain, iv, ivLen);
  std::memcpy(ctx->initialIv, iv, ivLen);
  return kOk;
}

}  // namespace nivra::crypto
