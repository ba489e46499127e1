#include "crypto/cipher_context.h"

namespace nivra::crypto {

Status EcbBlocks(CipherContext& ctx, const uint8_t* in, uint8_t* out, size_t blocks,
                 bool encrypt) {
  const auto blockOp = encrypt ? ctx.ops.encryptBlock : ctx.ops.decryptBlock;
  const size_t bs = ctx.blockSize;
  for (size_t b = 0; b < blocks; ++b, in += bs, out += bs) {
    Status s = blockOp(ctx.keySchedule, in, out, kCipherFullKey);
    if (s != kOk) return s;
  }
  return kOk;
}

}  // namespace nivra::crypto
