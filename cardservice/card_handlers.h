// The handlers behind CardService::Execute, one group per file, and what they share.
#pragma once
#include <p11-kit/pkcs11.h>

#include "cardservice/card_service.h"
#include "cardservice/container_store.h"

namespace nivra::cardservice {

// Everything one command needs. `token` is a session of the command's own; `state` is held
// under the slot's token lock in the mode that the command's table row asks for.
struct CardCall {
  CK_FUNCTION_LIST* p11;
  SlotState* state;
  ChannelLogins* logins;
  TokenView token;
  const frames::CardRequest& request;
};

// The status for a module result (CKR_OK gives kStatusOk).
WireStatus StatusFromCkr(CK_RV rv);
inline CardAnswer Fail(WireStatus status) { return CardAnswer{status, {}}; }
inline CardAnswer Done() { return CardAnswer{}; }
inline CardAnswer FailCkr(CK_RV rv) { return Fail(StatusFromCkr(rv)); }
// An answer of one 32-bit value.
CardAnswer AnswerValue(uint32_t value);

// True when the channel's login for this slot still holds.
bool ChannelLoggedIn(CardCall& call);

// The container that a request's handle names (kStatusBadKeyset when it names none on the
// token).
WireStatus ContainerFromHandle(CardCall& call, uint32_t handle, Container* out);
// The key ID of the pair that the request's handle and key specification name.
WireStatus ReadKeyTarget(CardCall& call, std::string* keyId);

// Containers (container_commands.cpp).
CardAnswer CreateContainerCommand(CardCall& call);
CardAnswer EnumContainersCommand(CardCall& call);
CardAnswer OpenContainerCommand(CardCall& call);
CardAnswer DeleteContainerCommand(CardCall& call);
// Keys and certificates (key_commands.cpp).
CardAnswer GenerateKeyPairCommand(CardCall& call);
CardAnswer ReadPublicKeyCommand(CardCall& call);
CardAnswer ImportKeyPairCommand(CardCall& call);
CardAnswer PrivateKeyOpCommand(CardCall& call);
CardAnswer PublicKeyOpCommand(CardCall& call);
CardAnswer WriteCertificateCommand(CardCall& call);
CardAnswer ReadCertificateCommand(CardCall& call);
// PINs and token initialisation (pin_commands.cpp).
CardAnswer LoginStateCommand(CardCall& call);
CardAnswer VerifyPinCommand(CardCall& call);
CardAnswer ChangePinCommand(CardCall& call);
CardAnswer UnblockPinCommand(CardCall& call);
CardAnswer InitTokenCommand(CardCall& call);
CardAnswer InitTokenPlainCommand(CardCall& call);

}  // namespace nivra::cardservice
