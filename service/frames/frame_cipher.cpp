#include "service/frames/frame_cipher.h"

#include <cstring>

namespace nivra::frames {

namespace {
constexpr size_t kBlockSize = 8;

// Runs one whole message through the reset cipher into out (header already in place).
FrameStatus Transform(crypto::CipherHandle cipher, const uint8_t* body, size_t bodyLen,
                      bool encrypt, Bytes* out) {
  out->resize(kHeaderSize + bodyLen + kBlockSize);
  if (crypto::CipherReset(cipher) != crypto::kOk) return FrameStatus::kCipherError;
  uint8_t* dest = out->data() + kHeaderSize;
  size_t updated = bodyLen + kBlockSize;
  if (crypto::CipherUpdate(cipher, body, bodyLen, dest, &updated, encrypt) != crypto::kOk) {
    // Leave the cipher rewound for the next frame.
    size_t ignored = kBlockSize;
    uint8_t scratch[kBlockSize];
    crypto::CipherFinal(cipher, scratch, &ignored);
    return FrameStatus::kCipherError;
  }
  size_t finished = bodyLen + kBlockSize - updated;
  if (crypto::CipherFinal(cipher, dest + updated, &finished) != crypto::kOk) {
    return FrameStatus::kCipherError;
  }
  const size_t total = updated + finished;
  if (total > kMaxBodyLength) return FrameStatus::kTooLong;
  out->resize(kHeaderSize + total);
  FrameHeader header = ReadHeader(out->data());
  header.bodyLength = static_cast<uint16_t>(total);
  WriteHeader(out->data(), header);
  return FrameStatus::kOk;
}

FrameStatus Run(crypto::CipherHandle cipher, const uint8_t* frame, size_t len, bool encrypt,
                Bytes* out) {
  FrameView view;
  const FrameStatus parsed = ParseFrame(frame, len, &view);
  if (parsed != FrameStatus::kOk) return parsed;
  out->assign(frame, frame + kHeaderSize);
  if (view.header.bodyLength == 0) return FrameStatus::kOk;
  return Transform(cipher, view.body, view.header.bodyLength, encrypt, out);
}
}  // namespace

FrameStatus WrapFrame(crypto::CipherHandle cipher, const uint8_t* frame, size_t len, Bytes* out) {
  return Run(cipher, frame, len, true, out);
}

FrameStatus UnwrapFrame(crypto::CipherHandle cipher, const uint8_t* frame, size_t len,
                        Bytes* out) {
  return Run(cipher, frame, len, false, out);
}

}  // namespace nivra::frames
