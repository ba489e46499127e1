#include "crypto/cipher_context.h"

namespace nivra::crypto {
namespace {

// Adds one to the counter as a big-endian number over the whole block.
void IncrementCounter(uint8_t* counter, size_t len) {
  for (size_t i = len; i-- > 0;) {
    if (++counter[i] != 0) return;
  }
}

}  // namespace

Status CtrBlocks(CipherContext& ctx, const uint8_t* in, uint8_t* out, size_t blocks) {
  const size_t bs = ctx.blockSize;
  uint8_t keyStream[kCipherMaxBlockSize];
  for (size_t b = 0; b < blocks; ++b, in += bs, out += bs) {
    Status s = ctx.ops.encryptBlock(ctx.keySchedule, ctx.chain, keyStream, kCipherFullKey);
    if (s != kOk) return s;
    for (size_t i = 0; i < bs; ++i) out[i] = in[i] ^ keyStream[i];
    IncrementCounter(ctx.chain, bs);
  }
  return kOk;
}

}  // namespace nivra::crypto
