#pragma once
// The PKCS#11 definitions, the one place the OASIS header is included: by the provider's
// token-slot back end and by both sides of the forwarding link. On Windows the structures follow
// the Windows convention (packed to 1 byte, CK_ULONG is a 32-bit unsigned long); natively
// CK_ULONG is 64-bit. The wire carries neither layout: it uses the explicit widths of
// wire_messages.h, and only the helper converts to the native layout.
#if defined(_WIN32)
#pragma pack(push, 1)
#endif
#include <p11-kit/pkcs11.h>
#if defined(_WIN32)
#pragma pack(pop)
static_assert(sizeof(CK_ULONG) == 4, "the Windows PKCS#11 ABI has a 32-bit CK_ULONG");
static_assert(sizeof(CK_ATTRIBUTE) == 16, "CK_ATTRIBUTE is type, pointer, length, packed");
static_assert(sizeof(CK_MECHANISM) == 16, "CK_MECHANISM is type, pointer, length, packed");
static_assert(sizeof(CK_SLOT_INFO) == 104, "CK_SLOT_INFO is packed");
static_assert(sizeof(CK_TOKEN_INFO) == 160, "CK_TOKEN_INFO is packed");
#endif
