// The 4-byte login state of a Bluetooth device or service card, the answer of 0x2011, 0x2013 and
// 0x2014: byte 0 non-zero once the user is authenticated, byte 1 equal to 1 while a confirmation
// on the device is still pending. As a 32-bit little-endian value it is what the card command
// codec carries in CardResponse::value.
#pragma once
#include <cstdint>

namespace nivra::frames {

constexpr uint32_t kConfirmAuthenticatedMask = 0xFF;
constexpr uint32_t kConfirmPendingShift = 8;
constexpr uint32_t kConfirmPendingValue = 1;

struct ConfirmationState {
  bool authenticated = false;
  bool pending = false;
};

constexpr uint32_t ConfirmationValue(ConfirmationState state) {
  return (state.authenticated ? 1u : 0u) |
         (state.pending ? kConfirmPendingValue << kConfirmPendingShift : 0u);
}

constexpr ConfirmationState ReadConfirmation(uint32_t value) {
  return {(value & kConfirmAuthenticatedMask) != 0,
          ((value >> kConfirmPendingShift) & kConfirmAuthenticatedMask) == kConfirmPendingValue};
}

}  // namespace nivra::frames
