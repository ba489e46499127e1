// Status values that the card service puts in the status field of its answers: the CryptoAPI,
// smart-card and Win32 codes that the provider's slot transport understands, defined once here
// because the service builds without Windows headers.
#pragma once
#include <cstdint>

namespace nivra::cardservice {

using WireStatus = uint32_t;

constexpr WireStatus kStatusOk = 0;
constexpr WireStatus kStatusInvalidParameter = 87;            // ERROR_INVALID_PARAMETER
constexpr WireStatus kStatusMoreData = 234;                   // ERROR_MORE_DATA
constexpr WireStatus kStatusNoMoreItems = 259;                // ERROR_NO_MORE_ITEMS
constexpr WireStatus kStatusBadData = 0x80090005;             // NTE_BAD_DATA
constexpr WireStatus kStatusBadFlags = 0x80090009;            // NTE_BAD_FLAGS
constexpr WireStatus kStatusNoKey = 0x8009000D;               // NTE_NO_KEY
constexpr WireStatus kStatusNoMemory = 0x8009000E;            // NTE_NO_MEMORY
constexpr WireStatus kStatusExists = 0x8009000F;              // NTE_EXISTS
constexpr WireStatus kStatusNotFound = 0x80090011;            // NTE_NOT_FOUND
constexpr WireStatus kStatusBadKeyset = 0x80090016;           // NTE_BAD_KEYSET
constexpr WireStatus kStatusFail = 0x80090020;                // NTE_FAIL
constexpr WireStatus kStatusNotSupported = 0x80090029;        // NTE_NOT_SUPPORTED
constexpr WireStatus kStatusReaderUnavailable = 0x80100017;   // SCARD_E_READER_UNAVAILABLE
constexpr WireStatus kStatusNoSmartcard = 0x8010000C;         // SCARD_E_NO_SMARTCARD
constexpr WireStatus kStatusUnknownCard = 0x8010000D;         // SCARD_E_UNKNOWN_CARD
constexpr WireStatus kStatusInvalidChv = 0x8010002A;          // SCARD_E_INVALID_CHV
constexpr WireStatus kStatusChvBlocked = 0x8010006C;          // SCARD_W_CHV_BLOCKED
constexpr WireStatus kStatusCancelled = 0x8010006E;           // SCARD_W_CANCELLED_BY_USER
constexpr WireStatus kStatusNotAuthenticated = 0x8010006F;    // SCARD_W_CARD_NOT_AUTHENTICATED

}  // namespace nivra::cardservice
