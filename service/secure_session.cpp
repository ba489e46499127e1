#include "service/secure_session.h"

#include <cstring>

#include "crypto/wipe.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/frame_header.h"
#include "service/frames/session_handshake.h"
#include "service/service_settings.h"
#include "service/transport_key.h"

namespace nivra::service {

namespace {

using frames::FrameStatus;

// A listed copy of bytes.
Status ListedCopy(const frames::Bytes& bytes, const uint8_t** out, size_t* outLength,
                  RequestBuffers* list) {
  uint8_t* block = list->Alloc(bytes.size());
  if (block == nullptr) return provider::kNteNoMemory;
  std::memcpy(block, bytes.data(), bytes.size());
  *out = block;
  *outLength = bytes.size();
  return provider::kOk;
}

// Decrypts the k-byte secret: the software provider first, the library's key operation after
// any failure of it.
Status DecryptSecret(const uint8_t* encrypted, size_t k, frames::Bytes* secret) {
  if (Settings().systemProviderDecrypt) {
    frames::Bytes work(encrypted, encrypted + k);
    uint32_t length = static_cast<uint32_t>(k);
    if (SystemProviderDecrypt(work.data(), &length) == provider::kOk) {
      secret->assign(work.begin(), work.begin() + length);
      crypto::Wipe(work.data(), work.size());
      return provider::kOk;
    }
  }
  switch (frames::DecryptSessionSecret(TransportKey(), encrypted, k, secret)) {
    case FrameStatus::kOk: return provider::kOk;
    case FrameStatus::kKeyError: return provider::kNteFail;
    default: return provider::kNteBadData;
  }
}

Status RunCipher(bool wrap, uint32_t state, crypto::CipherHandle cipher, const uint8_t* frame,
                 size_t length, const uint8_t** out, size_t* outLength, RequestBuffers* list) {
  const bool empty = length <= frames::kHeaderSize || frames::ReadHeader(frame).bodyLength == 0;
  if (state != kSessionEncrypted || empty) {
    *out = frame;
    *outLength = length;
    return provider::kOk;
  }
  frames::Bytes result;
  const FrameStatus status = wrap ? frames::WrapFrame(cipher, frame, length, &result)
                                  : frames::UnwrapFrame(cipher, frame, length, &result);
  if (status != FrameStatus::kOk) return provider::kNteFail;
  return ListedCopy(result, out, outLength, list);
}

}  // namespace

Status SessionHelloBuild(uint8_t** frame, size_t* length, RequestBuffers* list) {
  if (TransportKeyInit() != provider::kOk) return provider::kNteFail;
  frames::Bytes hello;
  if (frames::BuildHello(TransportKey(), &hello) != FrameStatus::kOk) return provider::kNteFail;
  const uint8_t* block = nullptr;
  Status status = ListedCopy(hello, &block, length, list);
  *frame = const_cast<uint8_t*>(block);
  return status;
}

Status SessionHelloFinish(const uint8_t* frame, size_t length, uint32_t* state,
                          crypto::CipherHandle* cipher) {
  if (TransportKeyInit() != provider::kOk) return provider::kNteFail;
  const size_t k = (TransportKeyBits() + 7) / 8;
  const uint8_t* encrypted = nullptr;
  const FrameStatus parsed = frames::ParseSessionKeyFrame(frame, length, k, &encrypted);
  if (parsed == FrameStatus::kPeerStatus) return frames::ReadHeader(frame).status;
  if (parsed != FrameStatus::kOk) return provider::kNteBadData;
  frames::Bytes secret;
  Status status = DecryptSecret(encrypted, k, &secret);
  if (status != provider::kOk) return status;
  crypto::CipherHandle opened = 0;
  const FrameStatus checked = frames::OpenSessionSecret(secret.data(), secret.size(), &opened);
  crypto::Wipe(secret.data(), secret.size());
  if (checked == FrameStatus::kCipherError) return provider::kNteFail;
  if (checked != FrameStatus::kOk) return provider::kNteBadData;
  *cipher = opened;
  *state = kSessionEncrypted;
  return provider::kOk;
}

Status SessionWrap(uint32_t state, crypto::CipherHandle cipher, const uint8_t* frame,
                   size_t length, const uint8_t** out, size_t* outLength, RequestBuffers* list) {
  return RunCipher(true, state, cipher, frame, length, out, outLength, list);
}

Status SessionUnwrap(uint32_t state, crypto::CipherHandle cipher, const uint8_t* frame,
                     size_t length, const uint8_t** out, size_t* outLength,
                     RequestBuffers* list) {
  return RunCipher(false, state, cipher, frame, length, out, outLength, list);
}

}  // namespace nivra::service
