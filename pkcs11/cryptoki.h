// The PKCS#11 interface as Windows modules present it: every structure packed to 1-byte
// alignment, CK_ULONG and the handle and attribute types 32-bit unsigned, CK_ATTRIBUTE and
// CK_MECHANISM each a 32-bit type, a pointer and a 32-bit length. The definitions are the OASIS
// ones from the public header; only the packing is ours.
#pragma once
#pragma pack(push, 1)
#include <p11-kit/pkcs11.h>
#pragma pack(pop)

#include <cstdint>

static_assert(sizeof(CK_ULONG) == 4, "the Windows PKCS#11 ABI has a 32-bit CK_ULONG");
static_assert(sizeof(CK_ATTRIBUTE) == 16, "CK_ATTRIBUTE is type, pointer, length, packed");
static_assert(sizeof(CK_MECHANISM) == 16, "CK_MECHANISM is type, pointer, length, packed");
static_assert(sizeof(CK_SLOT_INFO) == 104, "CK_SLOT_INFO is packed");
static_assert(sizeof(CK_TOKEN_INFO) == 160, "CK_TOKEN_INFO is packed");

namespace nivra::pkcs11 {

// Class of our container objects: the first vendor-defined class.
constexpr CK_OBJECT_CLASS kContainerObjectClass = CKO_VENDOR_DEFINED + 1;

// Flags of every session we open: serial and read/write.
constexpr CK_FLAGS kSessionFlags = CKF_SERIAL_SESSION | CKF_RW_SESSION;

static_assert(kContainerObjectClass == 0x80000001u, "container object class");
static_assert(kSessionFlags == 0x6u, "session flags");

}  // namespace nivra::pkcs11
