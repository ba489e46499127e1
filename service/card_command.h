// One card command on behalf of a provider context, on any road (remote_card.h): the request is
// built, the commands that change or use keys authenticate first (and once more when the card
// answers that the login has lapsed), and the answer's status is translated.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

#include "service/frames/card_commands.h"
#include "service/remote_card.h"

namespace nivra::service {

// Sends command. blockLength is the RSA block length that a 0x2024 / 0x2025 answer must have. A
// non-zero answer status is returned translated; a body that breaks its layout gives NTE_FAIL
// (NTE_BAD_DATA for the open answer, NTE_BAD_LEN for the limits); a request that cannot be built gives NTE_NO_MEMORY.
Status CardCommand(ProviderContext& ctx, RemoteCard& card, uint16_t command,
                   const frames::CardRequest& request, frames::CardResponse* response,
                   size_t blockLength = 0);

// The same exchange without authentication. *answerStatus (optional) receives the card's raw
// status.
Status CardExchange(RemoteCard& card, uint16_t command, const frames::CardRequest& request,
                    frames::CardResponse* response, size_t blockLength = 0,
                    Status* answerStatus = nullptr);

// Verifies a PIN (0x2012): a result of 0 gives SCARD_E_INVALID_CHV.
Status CardVerifyPinText(RemoteCard& card, const std::string& pin);

// Verifies the context's cached PIN; false when there is none or the card refuses it.
bool CardVerifyCachedPin(ProviderContext& ctx, RemoteCard& card);

}  // namespace nivra::service
