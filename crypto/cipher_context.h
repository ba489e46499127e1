// Inside of the cipher framework: the context record behind a cipher handle, the table of cipher
// operations it carries, and the per-mode block steps that CipherUpdate and CipherFinal share.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/biased_handle.h"
#include "crypto/cipher.h"

namespace nivra::crypto {

constexpr size_t kCipherMaxBlockSize = 16;
constexpr uint32_t kCipherAlgorithmDes = 1;

// Block-operation selectors the framework uses: the whole cipher, or its first key alone.
constexpr uint32_t kCipherFullKey = 0;
constexpr uint32_t kCipherFirstKey = 1;

// Operations of one cipher. Block ciphers leave the stream pair null; stream ciphers leave the
// block pair null. Schedules are opaque to the framework.
struct CipherOps {
  Status (*keySetup)(const uint8_t* key, size_t keyLen, void** schedule);
  // One block, read whole before anything is written (in and out may overlap). selector:
  // kCipherFullKey or a single key of a multi-key cipher (see DesSelector).
  Status (*encryptBlock)(const void* schedule, const uint8_t* in, uint8_t* out, uint32_t selector);
  Status (*decryptBlock)(const void* schedule, const uint8_t* in, uint8_t* out, uint32_t selector);
  Status (*freeSchedule)(void* schedule);
  // Whole buffers; in and out may be the same buffer.
  Status (*streamEncrypt)(void* schedule, const uint8_t* in, size_t len, uint8_t* out);
  Status (*streamDecrypt)(void* schedule, const uint8_t* in, size_t len, uint8_t* out);
  Status (*cloneSchedule)(const void* schedule, void** copy);
};

// DES and TDEA (crypto/des.h) as a block cipher of the framework.
extern const CipherOps kDesCipherOps;

enum CipherDirection : uint32_t {
  kCipherIdle = 0,
  kCipherEncrypting = 1,
  kCipherDecrypting = 2,
};

// The record behind a cipher handle, fields in this order.
struct CipherContext {
  void* keySchedule;       // owned; released through ops.freeSchedule
  uint32_t algorithm;      // kCipherAlgorithmDes
  uint32_t isStream;       // 1: whole buffers go to the stream operations
  CipherOps ops;
  uint16_t mode;           // CipherMode; with padding, the 32-bit mode word (padding high)
  uint16_t padding;        // CipherPadding
  uint32_t direction;      // CipherDirection
  uint32_t blockCount;     // cleared with the context; only the CMAC final reads it
  uint8_t blockSize;
  uint8_t pendingLen;
  uint8_t pending[kCipherMaxBlockSize];    // incomplete or held-back block
  uint8_t chain[kCipherMaxBlockSize];      // IV, running CBC value or CTR counter
  uint8_t initialIv[kCipherMaxBlockSize];  // what chain returns to after a final
  CipherContext* self;
};

using CipherContexts = BiasedHandles<CipherContext, kCipherHandleBias>;

// Creates a context for any cipher: mode word ECB without padding, zero IV, key set up through
// ops.keySetup (whose error is returned, the context then freed). blockSize is 1 to 16.
// Errors: kErrNullArgument (null out), kErrNoMemory, the key set-up's error. *out is 0 on failure.
Status CipherCreateWithOps(CipherHandle* out, const CipherOps& ops, uint32_t algorithm,
                           bool isStream, uint8_t blockSize, const uint8_t* key, size_t keyLen);

// ---- Block steps (one file per mode). Each processes `blocks` whole blocks from in to out,
// advancing ctx.chain; in and out may be the same buffer or out may lie before in (every block
// is read before its output is written). They report the block operation's error.

// ECB in either direction.
Status EcbBlocks(CipherContext& ctx, const uint8_t* in, uint8_t* out, size_t blocks,
                 bool encrypt);
// CBC; encryption with the given selector (the MACs use it too), decryption with the full cipher.
Status CbcEncryptBlocks(CipherContext& ctx, const uint8_t* in, uint8_t* out, size_t blocks,
                        uint32_t selector);
Status CbcDecryptBlocks(CipherContext& ctx, const uint8_t* in, uint8_t* out, size_t blocks);
// CTR: out = E(counter) xor in, counter + 1 (big-endian, carry from the last byte up).
Status CtrBlocks(CipherContext& ctx, const uint8_t* in, uint8_t* out, size_t blocks);

// The block step of ctx.mode in the given direction (ECB, CBC, CTR, and the CBC step of the MAC
// modes, which encrypt only). kErrModeNotSupported for an unknown mode or a MAC mode decrypting.
bool CipherModeSupports(uint16_t mode, bool encrypt);
Status CipherProcessBlocks(CipherContext& ctx, const uint8_t* in, uint8_t* out, size_t blocks,
                           bool encrypt);

// ---- Finals of the MAC modes. Each writes the tag to out and sets *outLen; kErrBufferTooSmall
// with *outLen set to the tag length when the capacity is smaller. ctx is left for the caller to
// rewind.
Status CmacFinal(CipherContext& ctx, uint8_t* out, size_t* outLen);
Status IsoMac3Final(CipherContext& ctx, uint8_t* out, size_t* outLen);
Status CbcMacFinal(CipherContext& ctx, uint8_t* out, size_t* outLen);

}  // namespace nivra::crypto
