// The PKCS#11 interface as Windows modules present it (tools/p11wire/pkcs11_abi.h: the OASIS
// definitions packed to 1 byte, CK_ULONG 32-bit), and the back end's own PKCS#11 values.
#pragma once
#include "tools/p11wire/pkcs11_abi.h"

namespace nivra::pkcs11 {

// Class of our container objects: the first vendor-defined class.
constexpr CK_OBJECT_CLASS kContainerObjectClass = CKO_VENDOR_DEFINED + 1;

// Flags of every session we open: serial and read/write.
constexpr CK_FLAGS kSessionFlags = CKF_SERIAL_SESSION | CKF_RW_SESSION;

static_assert(kContainerObjectClass == 0x80000001u, "container object class");
static_assert(kSessionFlags == 0x6u, "session flags");

}  // namespace nivra::pkcs11
