// Status codes of the crypto library: 0 is success, failures are negative 32-bit values.
#pragma once
#include <cstdint>

namespace nivra::crypto {

using Status = int32_t;

constexpr Status kOk = 0;
constexpr Status kErrGeneric = -1;            // result longer than the modulus; CRT or completion failed
constexpr Status kErrKeyParity = -1;          // DES key byte without odd parity (key checks on)
constexpr Status kErrWeakKey = -2;            // DES weak or semi-weak key (key checks on)
constexpr Status kErrNoMemory = -102;
constexpr Status kErrInvalidHandle = -104;
constexpr Status kErrNullArgument = -105;
constexpr Status kErrBufferTooSmall = -106;   // the needed length is reported
constexpr Status kErrMessageTooLong = -107;
constexpr Status kErrNullData = -108;         // cipher: null data/output, unknown sub-key selector
constexpr Status kErrModeNotSupported = -202;
constexpr Status kErrPendingBytes = -203;
constexpr Status kErrWrongDirection = -205;
constexpr Status kErrBadPaddingRule = -214;
constexpr Status kErrPaddingCheck = -215;
constexpr Status kErrKeyGenFailed = -206;
constexpr Status kErrUnknownForm = -207;
constexpr Status kErrMissingComponent = -208;
constexpr Status kErrMalformedDer = -209;
constexpr Status kErrInputLength = -210;
constexpr Status kErrPublicOp = -211;
constexpr Status kErrPrivateOp = -212;
constexpr Status kErrInputNotBelowModulus = -213;
constexpr Status kErrOaepDecoding = -251;
constexpr Status kErrModulusTooShort = -252;
constexpr Status kErrOaepLabel = -253;
constexpr Status kErrBlockPadding = -254;     // PKCS#1 v1.5 block of the wrong type or layout

}  // namespace nivra::crypto
