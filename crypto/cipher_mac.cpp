// Finals of the three CBC-based MACs. CipherUpdate has already run every whole block through
// the CBC step (full cipher for CMAC and CBC-MAC, K1 alone for ISO 9797-1 algorithm 3), so the
// chaining register holds the running value and `pending` the incomplete last block.
#include <cstring>

#include "crypto/cipher_context.h"
#include "crypto/wipe.h"

namespace nivra::crypto {
namespace {

constexpr uint8_t kIsoPaddingMarker = 0x80;  // ISO 9797-1 padding method 2 (and CMAC's)
constexpr uint8_t kCmacConstant = 0x87;      // used at every block size, 8-byte blocks included
constexpr size_t kIsoMac3TagSize = 8;

// Rejects a capacity below `needed`, reporting the needed length.
bool HasRoom(size_t* outLen, size_t needed) {
  if (*outLen >= needed) return true;
  *outLen = needed;
  return false;
}

// CMAC subkey derivation: the block shifted left by one bit, the constant folded into the last
// byte when the bit shifted out was set.
void DoubleSubkey(uint8_t* block, size_t len) {
  const bool carry = (block[0] & 0x80) != 0;
  for (size_t i = 0; i + 1 < len; ++i) {
    block[i] = static_cast<uint8_t>((block[i] << 1) | (block[i + 1] >> 7));
  }
  block[len - 1] = static_cast<uint8_t>(block[len - 1] << 1);
  if (carry) block[len - 1] ^= kCmacConstant;
}

}  // namespace

Status CbcMacFinal(CipherContext& ctx, uint8_t* out, size_t* outLen) {
  const size_t bs = ctx.blockSize;
  if (!HasRoom(outLen, bs)) return kErrBufferTooSmall;
  // Zero padding always adds a block, even to a message of whole blocks or an empty one.
  uint8_t last[kCipherMaxBlockSize] = {};
  std::memcpy(last, ctx.pending, ctx.pendingLen);
  Status s = CbcEncryptBlocks(ctx, last, out, 1, kCipherFullKey);
  if (s == kOk) *outLen = bs;
  return s;
}

Status IsoMac3Final(CipherContext& ctx, uint8_t* out, size_t* outLen) {
  const size_t bs = ctx.blockSize;
  if (!HasRoom(outLen, kIsoMac3TagSize)) return kErrBufferTooSmall;
  Status s = kOk;
  if (ctx.pendingLen == bs) {
    uint8_t discarded[kCipherMaxBlockSize];
    s = CbcEncryptBlocks(ctx, ctx.pending, discarded, 1, kCipherFirstKey);
    if (s != kOk) return s;
    ctx.pendingLen = 0;
  }
  uint8_t last[kCipherMaxBlockSize] = {};
  std::memcpy(last, ctx.pending, ctx.pendingLen);
  last[ctx.pendingLen] = kIsoPaddingMarker;
  uint8_t* chain = ctx.chain;
  for (size_t i = 0; i < bs; ++i) chain[i] ^= last[i];
  s = ctx.ops.encryptBlock(ctx.keySchedule, chain, chain, kCipherFullKey);
  if (s != kOk) return s;
  for (size_t i = 0; i < kIsoMac3TagSize; ++i) {
    out[i] = bs == 2 * kIsoMac3TagSize ? chain[i] ^ chain[i + kIsoMac3TagSize] : chain[i];
  }
  *outLen = kIsoMac3TagSize;
  return kOk;
}

Status CmacFinal(CipherContext& ctx, uint8_t* out, size_t* outLen) {
  const size_t bs = ctx.blockSize;
  if (!HasRoom(outLen, bs)) return kErrBufferTooSmall;
  uint8_t* chain = ctx.chain;
  if (ctx.pendingLen == bs) {
    for (size_t i = 0; i < bs; ++i) chain[i] ^= ctx.pending[i];
    ctx.pendingLen = 0;
  }
  uint8_t subkey[kCipherMaxBlockSize] = {};
  Status s = ctx.ops.encryptBlock(ctx.keySchedule, subkey, subkey, kCipherFullKey);
  if (s == kOk) {
    DoubleSubkey(subkey, bs);
    if (ctx.pendingLen == 0 && ctx.blockCount != 0) {
      // A complete last block: finish under the first subkey.
      for (size_t i = 0; i < bs; ++i) chain[i] ^= subkey[i];
    } else {
      // An incomplete (possibly empty) last block: pad it and finish under the second subkey.
      for (size_t i = 0; i < ctx.pendingLen; ++i) chain[i] ^= ctx.pending[i];
      chain[ctx.pendingLen] ^= kIsoPaddingMarker;
      DoubleSubkey(subkey, bs);
      for (size_t i = 0; i < bs; ++i) chain[i] ^= subkey[i];
    }
    s = ctx.ops.encryptBlock(ctx.keySchedule, chain, out, kCipherFullKey);
    if (s == kOk) *outLen = bs;
  }
  Wipe(subkey, sizeof subkey);
  return s;
}

}  // namespace nivra::crypto
