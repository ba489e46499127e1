#include <cstring>

#include "crypto/cipher_context.h"

namespace nivra::crypto {

Status CbcEncryptBlocks(CipherContext& ctx, const uint8_t* in, uint8_t* out, size_t blocks,
                        uint32_t selector) {
  const auto encryptBlock = ctx.ops.encryptBlock;
  const void* schedule = ctx.keySchedule;
  const size_t bs = ctx.blockSize;
  uint8_t* chain = ctx.chain;
  for (size_t b = 0; b < blocks; ++b, in += bs, out += bs) {
    for (size_t i = 0; i < bs; ++i) chain[i] ^= in[i];
    Status s = encryptBlock(schedule, chain, chain, selector);
    if (s != kOk) return s;
    std::memcpy(out, chain, bs);
  }
  return kOk;
}

Status CbcDecryptBlocks(CipherContext& ctx, const uint8_t* in, uint8_t* out, size_t blocks) {
  const auto decryptBlock = ctx.ops.decryptBlock;
  const void* schedule = ctx.keySchedule;
  const size_t bs = ctx.blockSize;
  uint8_t* chain = ctx.chain;
  uint8_t cipherText[kCipherMaxBlockSize];
  uint8_t plain[kCipherMaxBlockSize];
  for (size_t b = 0; b < blocks; ++b, in += bs, out += bs) {
    // The ciphertext becomes the next chaining value; keep it in case out overwrites in.
    std::memcpy(cipherText, in, bs);
    Status s = decryptBlock(schedule, cipherText, plain, kCipherFullKey);
    if (s != kOk) return s;
    for (size_t i = 0; i < bs; ++i) out[i] = plain[i] ^ chain[i];
    std::memcpy(chain, cipherText, bs);
  }
  return kOk;
}

}  // namespace nivra::crypto
