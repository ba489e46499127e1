// Card commands to a published slot on behalf of a provider context: the request is built from
// the context's state, the answer's status is translated, and the commands that change or use
// keys log in first (and once more when the card answers that the login has lapsed).
#pragma once
#include <cstddef>
#include <cstdint>

#include "pkcs11/slot_device.h"
#include "provider/provider_context.h"
#include "service/frames/card_commands.h"

namespace nivra::service {

using pkcs11::SlotDevice;
using provider::ProviderContext;
using provider::Status;

// Sends one card command to the device's slot. blockLength is the RSA block length that a
// 0x2024 / 0x2025 answer must have. Commands that need a login run SlotLogin first and, when
// the answer is SCARD_W_CARD_NOT_AUTHENTICATED, SlotRelogin and one resend. A non-zero answer
// status is returned translated; a body that breaks its layout gives NTE_FAIL (NTE_BAD_DATA for
// the open answer); a request that cannot be built gives NTE_NO_MEMORY.
Status SlotCommand(ProviderContext& ctx, SlotDevice& device, uint16_t command,
                   const frames::CardRequest& request, frames::CardResponse* response,
                   size_t blockLength = 0);

// Logs the channel in unless the card says it is: the context's cached PIN first, then (unless
// the context is silent: NTE_SILENT_CONTEXT) the PIN dialog (cancelled:
// SCARD_W_CANCELLED_BY_USER); a PIN typed there that the card accepts is cached in the context.
Status SlotLogin(ProviderContext& ctx, SlotDevice& device);
// SlotLogin without asking the card first.
Status SlotRelogin(ProviderContext& ctx, SlotDevice& device);

// Verifies pin[0..length) (0x2012): a result of 0 gives SCARD_E_INVALID_CHV.
Status SlotVerifyPin(ProviderContext& ctx, SlotDevice& device, const uint8_t* pin,
                     uint32_t length);

}  // namespace nivra::service
