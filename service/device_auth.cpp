#include "service/device_auth.h"

#include <windows.h>

#include "pkcs11/p11_status.h"
#include "service/card_command.h"
#include "service/frames/frame_codes.h"
#include "service/service_settings.h"

namespace nivra::service {

namespace {

Status AskState(RemoteCard& card, uint16_t command, uint32_t reason,
                frames::ConfirmationState* state) {
  frames::CardRequest request;
  request.reason = reason;
  frames::CardResponse response;
  Status status = CardExchange(card, command, request, &response);
  if (status == provider::kOk) *state = frames::ReadConfirmation(response.value);
  return status;
}

}  // namespace

Status AskLoginState(RemoteCard& card, frames::ConfirmationState* state) {
  return AskState(card, frames::kCmdLoginState, 0, state);
}

Status WaitForConfirmation(RemoteCard& card, uint32_t reason) {
  const ServiceSettings& settings = Settings();
  frames::ConfirmationState state;
  Status status = AskState(card, frames::kCmdAskConfirmation, reason, &state);
  if (status != provider::kOk) return status;
  const ULONGLONG start = GetTickCount64();
  for (;;) {
    if (state.authenticated) return provider::kOk;
    if (!state.pending) return pkcs11::kScardInvalidChv;
    if (GetTickCount64() - start >= static_cast<ULONGLONG>(settings.confirmWaitMs)) break;
    Sleep(static_cast<DWORD>(settings.confirmPollMs));
    status = AskLoginState(card, &state);
    if (status != provider::kOk) return status;
  }
  status = AskState(card, frames::kCmdEndConfirmation, 0, &state);
  if (status != provider::kOk) return status;
  return state.authenticated ? provider::kOk : pkcs11::kScardCardNotAuthenticated;
}

}  // namespace nivra::service
