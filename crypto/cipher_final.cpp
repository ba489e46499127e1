// CipherFinal: the last output of a message (padding, unpadding, the CTR tail, MAC tags), then
// the rewind that readies the context for the next message under the same IV.
#include <cstring>

#include "crypto/cipher_context.h"
#include "crypto/cipher_padding.h"
#include "crypto/wipe.h"

namespace nivra::crypto {
namespace {

void Rewind(CipherContext& ctx) {
  std::memcpy(ctx.chain, ctx.initialIv, sizeof ctx.chain);
  Wipe(ctx.pending, sizeof ctx.pending);
  ctx.pendingLen = 0;
  ctx.direction = kCipherIdle;
  ctx.blockCount = 0;
}

Status PadAndEncrypt(CipherContext& ctx, uint8_t* out, size_t* outLen) {
  const size_t bs = ctx.blockSize;
  if (*outLen < bs) {
    *outLen = bs;
    return kErrBufferTooSmall;
  }
  uint8_t last[kCipherMaxBlockSize];
  std::memcpy(last, ctx.pending, ctx.pendingLen);
  Status s = CipherPadBlock(ctx.padding, last, ctx.pendingLen, bs);
  if (s == kOk) s = CipherProcessBlocks(ctx, last, out, 1, true);
  if (s == kOk) *outLen = bs;
  Wipe(last, sizeof last);
  return s;
}

Status DecryptAndUnpad(CipherContext& ctx, uint8_t* out, size_t* outLen) {
  const size_t bs = ctx.blockSize;
  if (ctx.pendingLen != bs) return kErrPendingBytes;
  uint8_t last[kCipherMaxBlockSize];
  Status s = CipherProcessBlocks(ctx, ctx.pending, last, 1, false);
  size_t dataLen = 0;
  if (s == kOk) s = CipherUnpadBlock(ctx.padding, last, bs, &dataLen);
  if (s == kErrPaddingCheck) {
    // The caller gets the whole decrypted block to inspect.
    if (*outLen >= bs) std::memcpy(out, last, bs);
    *outLen = bs;
  } else if (s == kOk) {
    if (*outLen < dataLen) {
      s = kErrBufferTooSmall;
    } else {
      std::memcpy(out, last, dataLen);
    }
    *outLen = dataLen;
  }
  Wipe(last, sizeof last);
  return s;
}

Status CtrTail(CipherContext& ctx, uint8_t* out, size_t* outLen) {
  const size_t tail = ctx.pendingLen;
  if (*outLen < tail) {
    *outLen = tail;
    return kErrBufferTooSmall;
  }
  uint8_t last[kCipherMaxBlockSize] = {};
  std::memcpy(last, ctx.pending, tail);
  Status s = CtrBlocks(ctx, last, last, 1);
  if (s == kOk) {
    std::memcpy(out, last, tail);
    *outLen = tail;
  }
  Wipe(last, sizeof last);
  return s;
}

Status FinishMessage(CipherContext& ctx, uint8_t* out, size_t* outLen) {
  switch (ctx.mode) {
    case kCipherModeEcb:
    case kCipherModeCbc:
      if (ctx.padding == kCipherPadNone) {
        *outLen = 0;
        return ctx.pendingLen != 0 ? kErrPendingBytes : kOk;
      }
      if (ctx.direction == kCipherDecrypting) return DecryptAndUnpad(ctx, out, outLen);
      return PadAndEncrypt(ctx, out, outLen);
    case kCipherModeCtr:
      return CtrTail(ctx, out, outLen);
    case kCipherModeCbcMac:
      return CbcMacFinal(ctx, out, outLen);
    case kCipherModeIsoMac3:
      return IsoMac3Final(ctx, out, outLen);
    case kCipherModeCmac:
      return CmacFinal(ctx, out, outLen);
    default:
      return kErrModeNotSupported;
  }
}

}  // namespace

Status CipherFinal(CipherHandle handle, uint8_t* out, size_t* outLen) {
  if (out == nullptr && outLen == nullptr) return kErrNullData;
  CipherContext* ctx = CipherContexts::Lookup(handle);
  if (ctx == nullptr) return kErrInvalidHandle;
  if (outLen == nullptr) return kErrNullData;
  if (out == nullptr) {
    const bool nothingToAdd = ctx->direction == kCipherEncrypting && ctx->padding == kCipherPadNone;
    *outLen = ctx->isStream || nothingToAdd ? 0 : ctx->blockSize;
    return kOk;
  }
  Status s = kOk;
  if (ctx->isStream) {
    *outLen = 0;
  } else {
    s = FinishMessage(*ctx, out, outLen);
  }
  Rewind(*ctx);
  return s;
}

}  // namespace nivra::crypto
