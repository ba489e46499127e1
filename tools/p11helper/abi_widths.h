#pragma once
// Conversion between the wire's 32-bit PKCS#11 values and the native 64-bit CK_ULONG, including
// attribute values that are CK_ULONGs (4 bytes each on the wire and for the Windows caller,
// 8 bytes each for the native module).
#include <cstdint>
#include <vector>

#include "tools/p11wire/pkcs11_abi.h"
#include "tools/p11wire/wire_messages.h"

namespace nivra::p11helper {

// True for attributes whose value is one CK_ULONG (CKA_CLASS, CKA_KEY_TYPE, CKA_MODULUS_BITS, ...)
// or an array of them (CKA_ALLOWED_MECHANISMS).
bool IsUlongAttribute(CK_ATTRIBUTE_TYPE type);

// True for attributes whose value holds native pointers (the attribute-array templates such as
// CKA_WRAP_TEMPLATE): they cannot cross the link and are answered as unavailable.
bool CarriesNativePointers(CK_ATTRIBUTE_TYPE type);

// Native to wire: CK_UNAVAILABLE_INFORMATION and anything else beyond 32 bits become 0xFFFFFFFF
// (the Windows CK_UNAVAILABLE_INFORMATION).
uint32_t NarrowUlong(CK_ULONG value);

// True when a native handle or identifier survives the trip to 32 bits unchanged.
inline bool FitsWire(CK_ULONG value) { return value <= 0xFFFFFFFFul; }

// Largest value buffer offered to the module for one attribute query, whatever capacity the
// caller announced (a reply cannot carry more anyway).
inline constexpr uint32_t kMaxAttributeBuffer = 4u << 20;

// A native CK_ATTRIBUTE array built from a wire template; owns the value buffers it points to.
class NativeTemplate {
 public:
  // For templates of values (create, search, set, key generation): CK_ULONG-valued attributes
  // whose length is a multiple of 4 are widened to 8 bytes per element; other values are copied.
  static NativeTemplate FromValues(const p11wire::WireTemplate& wire);

  // For an attribute query: a size query stays a size query; a buffer of capacity c becomes a
  // native buffer of c bytes (2c for CK_ULONG-valued attributes, so the same values fit),
  // at most kMaxAttributeBuffer.
  static NativeTemplate ForQuery(const p11wire::WireTemplate& query);

  // The answers to `query` after the module filled this template: lengths narrowed (a CK_ULONG
  // array of 8n bytes reports 4n), values copied (CK_ULONG elements narrowed) where the caller
  // gave a buffer and the value fits its capacity. Attributes that carry native pointers are
  // unavailable; `*rv` then becomes CKR_ATTRIBUTE_TYPE_INVALID if it was CKR_OK.
  p11wire::WireTemplate Answers(const p11wire::WireTemplate& query, uint32_t* rv) const;

  CK_ATTRIBUTE* data() { return attributes_.empty() ? nullptr : attributes_.data(); }
  CK_ULONG size() const { return attributes_.size(); }

 private:
  std::vector<CK_ATTRIBUTE> attributes_;
  std::vector<std::vector<uint8_t>> buffers_;
};

// A native mechanism built from a wire mechanism. Parameters that are plain bytes are copied;
// the parameter of the RSA PSS mechanisms (three CK_ULONGs) is widened.
class NativeMechanism {
 public:
  explicit NativeMechanism(const p11wire::WireMechanism& wire);
  CK_MECHANISM* get() { return &mechanism_; }

 private:
  CK_MECHANISM mechanism_ = {};
  std::vector<uint8_t> parameter_;
};

}  // namespace nivra::p11helper
