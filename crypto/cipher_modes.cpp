// Which block step each mode of operation runs.
#include "crypto/cipher_context.h"

namespace nivra::crypto {

bool CipherModeSupports(uint16_t mode, bool encrypt) {
  switch (mode) {
    case kCipherModeEcb:
    case kCipherModeCbc:
    case kCipherModeCtr:
      return true;
    case kCipherModeCmac:
    case kCipherModeIsoMac3:
    case kCipherModeCbcMac:
      return encrypt;
    default:
      return false;
  }
}

Status CipherProcessBlocks(CipherContext& ctx, const uint8_t* in, uint8_t* out, size_t blocks,
                           bool encrypt) {
  if (!CipherModeSupports(ctx.mode, encrypt)) return kErrModeNotSupported;
  switch (ctx.mode) {
    case kCipherModeEcb:
      return EcbBlocks(ctx, in, out, blocks, encrypt);
    case kCipherModeCbc:
      return encrypt ? CbcEncryptBlocks(ctx, in, out, blocks, kCipherFullKey)
                     : CbcDecryptBlocks(ctx, in, out, blocks);
    case kCipherModeCtr:
      return CtrBlocks(ctx, in, out, blocks);
    case kCipherModeIsoMac3:
      return CbcEncryptBlocks(ctx, in, out, blocks, kCipherFirstKey);
    default:  // CMAC and CBC-MAC
      return CbcEncryptBlocks(ctx, in, out, blocks, kCipherFullKey);
  }
}

}  // namespace nivra::crypto
