#include "service/frames/session_handshake.h"

#include <algorithm>
#include <cstring>

#include "crypto/pkcs1.h"
#include "crypto/random.h"
#include "crypto/rsa_key.h"
#include "crypto/wipe.h"
#include "service/frames/byte_order.h"
#include "service/frames/crypto_guards.h"
#include "service/frames/frame_codes.h"

namespace nivra::frames {

namespace {
// The check block's plaintext: four zero bytes.
constexpr size_t kCheckPlainSize = 4;

FrameStatus BuildKeyFormatFrame(uint16_t command, const uint8_t* payload, size_t len,
                                Bytes* frame) {
  Bytes body(kKeyFormatSize + len);
  StoreLe16(body.data(), kKeyFormat);
  if (len > 0) std::memcpy(body.data() + kKeyFormatSize, payload, len);
  return BuildFrame(command, 0, body.data(), body.size(), frame);
}
}  // namespace

FrameStatus ExportPublicKeyDer(crypto::RsaHandle key, Bytes* der) {
  size_t len = 0;
  if (crypto::RsaHandleExportKey(key, crypto::kRsaFormPublic, nullptr, &len) != crypto::kOk) {
    return FrameStatus::kKeyError;
  }
  der->assign(len, 0);
  if (crypto::RsaHandleExportKey(key, crypto::kRsaFormPublic, der->data(), &len) != crypto::kOk) {
    return FrameStatus::kKeyError;
  }
  der->resize(len);
  return FrameStatus::kOk;
}

FrameStatus BuildHello(crypto::RsaHandle key, Bytes* frame) {
  Bytes der;
  const FrameStatus exported = ExportPublicKeyDer(key, &der);
  if (exported != FrameStatus::kOk) return exported;
  return BuildKeyFormatFrame(kCmdHello, der.data(), der.size(), frame);
}

FrameStatus ParseHelloBody(const uint8_t* body, size_t len, const uint8_t** keyDer,
                           size_t* keyLen) {
  if (len <= kKeyFormatSize) return FrameStatus::kTruncated;
  if (LoadLe16(body) != kKeyFormat) return FrameStatus::kBadField;
  *keyDer = body + kKeyFormatSize;
  *keyLen = len - kKeyFormatSize;
  return FrameStatus::kOk;
}

FrameStatus MakeSessionSecret(uint8_t* secret) {
  if (!crypto::RandomFill(secret, kSessionKeySize)) return FrameStatus::kRandomFailed;
  CipherOwner cipher;
  if (crypto::CipherCreateTdes2(cipher.Out(), secret) != crypto::kOk) {
    return FrameStatus::kCipherError;
  }
  const uint8_t zeros[kCheckPlainSize] = {};
  uint8_t* check = secret + kSessionKeySize;
  size_t updated = kCheckBlockSize;
  size_t finished = kCheckBlockSize;
  if (crypto::CipherUpdate(cipher.Get(), zeros, sizeof(zeros), check, &updated, true) !=
          crypto::kOk ||
      updated != 0 ||
      crypto::CipherFinal(cipher.Get(), check, &finished) != crypto::kOk ||
      finished != kCheckBlockSize) {
    return FrameStatus::kCipherError;
  }
  return FrameStatus::kOk;
}

FrameStatus BuildSessionKeyFrame(const uint8_t* publicDer, size_t derLen, const uint8_t* secret,
                                 size_t secretLen, Bytes* frame, uint16_t command) {
  RsaOwner key;
  uint32_t bits = 0;
  if (crypto::RsaLoadKey(key.Out(), &bits, crypto::kRsaFormPublic, publicDer, derLen) !=
      crypto::kOk) {
    return FrameStatus::kKeyError;
  }
  const size_t k = (bits + 7) / 8;
  if (k > kMaxBodyLength - kKeyFormatSize) return FrameStatus::kKeyError;
  Bytes block(k);
  const crypto::Status padded = crypto::Pkcs1PadType2(block.data(), k, secret, secretLen);
  if (padded == crypto::kErrGeneric) return FrameStatus::kRandomFailed;
  if (padded != crypto::kOk ||
      crypto::RsaHandlePublic(key.Get(), block.data(), k, block.data(), nullptr) != crypto::kOk) {
    return FrameStatus::kKeyError;
  }
  return BuildKeyFormatFrame(command, block.data(), k, frame);
}

FrameStatus ParseSessionKeyFrame(const uint8_t* frame, size_t len, size_t modulusBytes,
                                 const uint8_t** encrypted) {
  if (len < kHeaderSize) return FrameStatus::kTruncated;
  const FrameHeader header = ReadHeader(frame);
  if (header.status != 0) return FrameStatus::kPeerStatus;
  if (len != kHeaderSize + header.bodyLength ||
      header.bodyLength != modulusBytes + kKeyFormatSize) {
    return FrameStatus::kBadLength;
  }
  if (LoadLe16(frame + kHeaderSize) != kKeyFormat) return FrameStatus::kBadField;
  *encrypted = frame + kHeaderSize + kKeyFormatSize;
  return FrameStatus::kOk;
}

FrameStatus DecryptSessionSecret(crypto::RsaHandle key, const uint8_t* encrypted, size_t k,
                                 Bytes* secret) {
  Bytes block(k);
  if (crypto::RsaHandlePrivate(key, encrypted, k, block.data(), nullptr) != crypto::kOk) {
    return FrameStatus::kKeyError;
  }
  const uint8_t* message = nullptr;
  size_t messageLen = 0;
  const bool unpadded =
      crypto::Pkcs1UnpadType2(block.data(), k, &message, &messageLen) == crypto::kOk;
  if (unpadded) secret->assign(message, message + messageLen);
  crypto::Wipe(block.data(), block.size());
  return unpadded ? FrameStatus::kOk : FrameStatus::kBadField;
}

FrameStatus OpenSessionSecret(const uint8_t* secret, size_t len, crypto::CipherHandle* cipher) {
  *cipher = 0;
  if (len != kSessionSecretSize) return FrameStatus::kBadLength;
  CipherOwner owner;
  if (crypto::CipherCreateTdes2(owner.Out(), secret) != crypto::kOk) {
    return FrameStatus::kCipherError;
  }
  uint8_t plain[kCheckBlockSize] = {};
  size_t updated = sizeof(plain);
  if (crypto::CipherUpdate(owner.Get(), secret + kSessionKeySize, kCheckBlockSize, plain,
                           &updated, false) != crypto::kOk) {
    return FrameStatus::kCipherError;
  }
  size_t finished = sizeof(plain);
  if (crypto::CipherFinal(owner.Get(), plain, &finished) != crypto::kOk) {
    return FrameStatus::kCheckFailed;
  }
  if (std::any_of(plain, plain + finished, [](uint8_t b) { return b != 0; })) {
    return FrameStatus::kCheckFailed;
  }
  *cipher = owner.Release();
  return FrameStatus::kOk;
}

}  // namespace nivra::frames
