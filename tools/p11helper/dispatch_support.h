#pragma once
// Small pieces shared by the dispatcher's operation files.
#include <cstdint>
#include <cstring>
#include <vector>

#include "tools/p11wire/pkcs11_abi.h"
#include "tools/p11wire/wire_messages.h"

namespace nivra::p11helper {

// A reply of type Reply that carries only the return value `rv`.
template <class Reply>
Reply StatusOnly(CK_RV rv) {
  Reply reply;
  reply.rv = static_cast<uint32_t>(rv);
  return reply;
}

// The native pointer for an optional byte argument: null when absent, a valid pointer (to
// `spare` for an empty value) when present. The module does not write through it.
inline CK_BYTE_PTR OptionalPointer(const p11wire::WireOptBytes& bytes, CK_BYTE* spare) {
  if (!bytes.present) return nullptr;
  return bytes.bytes.empty() ? spare : const_cast<CK_BYTE_PTR>(bytes.bytes.data());
}

// Largest output buffer offered to the module for one call, whatever the caller announced.
inline constexpr uint32_t kMaxOutputBuffer = 4u << 20;

inline void CopyVersion(const CK_VERSION& from, p11wire::WireVersion* to) {
  to->major = from.major;
  to->minor = from.minor;
}

// Copies a fixed-size text field of the same size on both sides.
template <size_t N>
void CopyField(const unsigned char (&from)[N], uint8_t (&to)[N]) {
  std::memcpy(to, from, N);
}

}  // namespace nivra::p11helper
