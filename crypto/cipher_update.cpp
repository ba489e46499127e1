// CipherUpdate: streaming encryption and decryption over whole blocks, keeping the incomplete
// block (and, when decrypting with padding, the last whole block) for the next call.
#include <cstring>
#include <memory>
#include <new>

#include "crypto/cipher_context.h"

namespace nivra::crypto {
namespace {

// True when writing out[0..outLen) front to back could overwrite input bytes that are still to
// be read. Output byte k is the cipher of stream byte k, and the stream starts with `pending`
// bytes held from earlier calls, so output lags input by `pending` bytes; an output that starts
// at least that far before the input only ever overwrites input already consumed.
bool OutputOverrunsInput(const uint8_t* in, size_t inLen, const uint8_t* out, size_t outLen,
                         size_t pending) {
  const auto inStart = reinterpret_cast<uintptr_t>(in);
  const auto outStart = reinterpret_cast<uintptr_t>(out);
  const bool overlap = outStart < inStart + inLen && inStart < outStart + outLen;
  return overlap && outStart + pending > inStart;
}

Status StreamUpdate(CipherContext& ctx, const uint8_t* in, size_t inLen, uint8_t* out,
                    size_t* outLen, bool encrypt) {
  if (*outLen < inLen) {
    *outLen = inLen;
    return kErrBufferTooSmall;
  }
  const auto op = encrypt ? ctx.ops.streamEncrypt : ctx.ops.streamDecrypt;
  Status s = op(ctx.keySchedule, in, inLen, out);
  if (s == kOk) *outLen = inLen;
  return s;
}

// Runs `blocks` whole blocks of the stream (the bytes held from earlier calls first, then in)
// through the cipher into out, and holds what is left of in for the next call.
Status ProcessBlocks(CipherContext& ctx, const uint8_t* in, size_t inLen, uint8_t* out,
                     size_t blocks, bool encrypt) {
  const size_t bs = ctx.blockSize;
  size_t used = 0;
  if (ctx.pendingLen > 0) {
    used = bs - ctx.pendingLen;
    std::memcpy(ctx.pending + ctx.pendingLen, in, used);
    Status s = CipherProcessBlocks(ctx, ctx.pending, out, 1, encrypt);
    if (s != kOk) return s;
    ctx.pendingLen = 0;
    out += bs;
    --blocks;
  }
  Status s = CipherProcessBlocks(ctx, in + used, out, blocks, encrypt);
  if (s != kOk) return s;
  used += blocks * bs;
  const size_t rest = inLen - used;
  if (rest > 0) std::memcpy(ctx.pending, in + used, rest);
  ctx.pendingLen = static_cast<uint8_t>(rest);
  return kOk;
}

// The block-cipher part of CipherUpdate. A padded decryption keeps the last whole block back for
// the final to unpad.
Status BlockUpdate(CipherContext& ctx, const uint8_t* in, size_t inLen, uint8_t* out,
                   size_t* outLen, bool encrypt) {
  const size_t bs = ctx.blockSize;
  const size_t total = ctx.pendingLen + inLen;
  size_t blocks = total / bs;
  if (!encrypt && ctx.padding != kCipherPadNone && blocks > 0 && total % bs == 0) --blocks;
  const size_t needed = blocks * bs;
  if (*outLen < needed) {
    *outLen = needed;
    return kErrBufferTooSmall;
  }
  if (blocks == 0) {
    if (inLen > 0) std::memcpy(ctx.pending + ctx.pendingLen, in, inLen);
    ctx.pendingLen = static_cast<uint8_t>(total);
    *outLen = 0;
    return kOk;
  }

  std::unique_ptr<uint8_t[]> inputCopy;
  if (OutputOverrunsInput(in, inLen, out, needed, ctx.pendingLen)) {
    inputCopy.reset(new (std::nothrow) uint8_t[inLen]);
    if (!inputCopy) return kErrNoMemory;
    std::memcpy(inputCopy.get(), in, inLen);
    in = inputCopy.get();
  }
  Status s = ProcessBlocks(ctx, in, inLen, out, blocks, encrypt);
  if (s == kOk) *outLen = needed;
  return s;
}

}  // namespace

Status CipherUpdate(CipherHandle handle, const uint8_t* in, size_t inLen, uint8_t* out,
                    size_t* outLen, bool encrypt) {
  if ((in == nullptr && inLen != 0) || (out == nullptr && outLen == nullptr)) return kErrNullData;
  CipherContext* ctx = CipherContexts::Lookup(handle);
  if (ctx == nullptr) return kErrInvalidHandle;
  if (outLen == nullptr) return kErrNullData;
  if (out == nullptr) {
    const size_t bs = ctx->blockSize;
    *outLen = ctx->isStream ? inLen : (ctx->pendingLen + inLen) / bs * bs;
    return kOk;
  }

  const uint32_t direction = encrypt ? kCipherEncrypting : kCipherDecrypting;
  if (ctx->direction == kCipherIdle) {
    ctx->direction = direction;
  } else if (ctx->direction != direction) {
    return kErrWrongDirection;
  }
  if (ctx->isStream) return StreamUpdate(*ctx, in, inLen, out, outLen, encrypt);
  if (!CipherModeSupports(ctx->mode, encrypt)) return kErrModeNotSupported;
  return BlockUpdate(*ctx, in, inLen, out, outLen, encrypt);
}

}  // namespace nivra::crypto
