// The user's confirmation on a Bluetooth device or service card: instead of a PIN typed into a
// dialog, the card is asked to confirm (0x2013) and then polled (0x2011) until the user answers
// on the device, refuses, or the wait runs out (0x2014 ends it).
#pragma once
#include <cstdint>

#include "service/frames/confirmation_state.h"
#include "service/remote_card.h"

namespace nivra::service {

// Why a confirmation is asked for (the value the device is given with 0x2013).
enum ConfirmReason : uint32_t {
  kConfirmForKeyUse = 1,  // a command that creates, deletes or uses keys
  kConfirmForLogin = 2,   // logging in again after a PIN change or unblock
};

// The 4-byte login state (0x2011).
Status AskLoginState(RemoteCard& card, frames::ConfirmationState* state);

// 0x2013, then 0x2011 every poll interval while the confirmation is pending, up to the wait
// (both from the service settings); then 0x2014. 0 once the state reports authenticated;
// SCARD_E_INVALID_CHV when the device stops waiting without it; SCARD_W_CARD_NOT_AUTHENTICATED
// when the wait ran out and 0x2014 does not report authenticated either.
Status WaitForConfirmation(RemoteCard& card, uint32_t reason);

}  // namespace nivra::service
