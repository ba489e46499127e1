#include "service/slot_commands.h"

#include <cstring>
#include <string>

#include "crypto/wipe.h"
#include "pkcs11/p11_status.h"
#include "service/frames/frame_codes.h"
#include "service/slot_channel.h"
#include "service/string_convert.h"
#include "ui/verify_pin_dialog.h"

namespace nivra::service {

namespace {

using frames::FrameStatus;

constexpr Status kNteNoMoreItems = provider::AsStatus(NTE_NO_MORE_ITEMS);

bool NeedsLogin(uint16_t command) {
  switch (command) {
    case frames::kCmdCreateContainer:
    case frames::kCmdDeleteContainer:
    case frames::kCmdGenerateKeyPair:
    case frames::kCmdImportKeyPair:
    case frames::kCmdPrivateKeyOp:
    case frames::kCmdPublicKeyOp:
    case frames::kCmdWriteCertificate:
      return true;
    default:
      return false;
  }
}

// The card's status as the caller sees it.
Status TranslateStatus(uint16_t command, Status status) {
  switch (command) {
    case frames::kCmdOpenContainer:
      if (status == pkcs11::kErrNoMoreItems || status == kNteNoMoreItems) {
        return provider::kNteBadKeyset;
      }
      break;
    case frames::kCmdChangePin:
    case frames::kCmdUnblockPin:
    case frames::kCmdInitToken:
    case frames::kCmdInitTokenPlain:
    case frames::kCmdImportKeyPair:
      if (status == provider::kNteBadFlags) return provider::kNteNotSupported;
      break;
    default:
      break;
  }
  return status;
}

// One exchange without the login handling. *answerStatus receives the card's raw status.
Status Exchange(SlotDevice& device, uint16_t command, const frames::Bytes& frame,
                frames::CardResponse* response, size_t blockLength, Status* answerStatus) {
  *answerStatus = provider::kOk;
  RequestBuffers list;
  frames::FrameView answer;
  Status status = SlotTransact(*device.slot, frame.data(), frame.size(), &answer, list);
  if (status != provider::kOk) return status;
  *answerStatus = answer.header.status;
  if (answer.header.status != 0) return TranslateStatus(command, answer.header.status);
  frames::CardResponse ignored;
  if (frames::ParseCardResponse(command, answer.body, answer.header.bodyLength, blockLength,
                                response != nullptr ? response : &ignored) != FrameStatus::kOk) {
    return command == frames::kCmdOpenContainer ? provider::kNteBadData : provider::kNteFail;
  }
  return provider::kOk;
}

Status VerifyText(SlotDevice& device, const std::string& pin) {
  frames::CardRequest request;
  request.text = pin;
  frames::Bytes frame;
  const FrameStatus built = frames::BuildCardRequest(frames::kCmdVerifyPin, request, &frame);
  crypto::Wipe(request.text.data(), request.text.size());
  if (built != FrameStatus::kOk) return provider::kNteBadData;
  frames::CardResponse response;
  Status raw = 0;
  Status status = Exchange(device, frames::kCmdVerifyPin, frame, &response, 0, &raw);
  crypto::Wipe(frame.data(), frame.size());
  if (status != provider::kOk) return status;
  return response.value == 0 ? pkcs11::kScardInvalidChv : provider::kOk;
}

// Asks the user for the PIN; false when the dialog was not confirmed. *pin is UTF-8.
bool AskPin(const ProviderContext& ctx, std::string* pin) {
  HWND parent = reinterpret_cast<HWND>(ctx.clientWindow);
  if (parent != nullptr && !IsWindow(parent)) parent = nullptr;
  ui::CVerifyPIN dialog(0, parent);
  if (dialog.DoModal() != IDOK) return false;
  RequestBuffers list;
  const char* utf8 = WideToUtf8(dialog.pin.c_str(), &list);
  if (utf8 == nullptr) return false;
  pin->assign(utf8);
  return true;
}

Status LoginSteps(ProviderContext& ctx, SlotDevice& device, bool askCardFirst) {
  if (askCardFirst) {
    frames::CardResponse state;
    Status raw = 0;
    frames::Bytes frame;
    frames::BuildCardRequest(frames::kCmdLoginState, {}, &frame);
    Status status = Exchange(device, frames::kCmdLoginState, frame, &state, 0, &raw);
    if (status != provider::kOk) return status;
    if (state.value != 0) return provider::kOk;
  }
  if (ctx.pinLength > 0) {
    std::string cached(reinterpret_cast<const char*>(ctx.pin), ctx.pinLength);
    Status status = VerifyText(device, cached);
    crypto::Wipe(cached.data(), cached.size());
    if (status == provider::kOk) return provider::kOk;
  }
  if (ctx.silent) return provider::kNteSilentContext;
  std::string typed;
  if (!AskPin(ctx, &typed)) return provider::kScardCancelledByUser;
  Status status = VerifyText(device, typed);
  if (status == provider::kOk && typed.size() < sizeof(ctx.pin)) {
    std::memset(ctx.pin, 0, sizeof(ctx.pin));
    std::memcpy(ctx.pin, typed.data(), typed.size());
    ctx.pinLength = static_cast<uint8_t>(typed.size());
  }
  crypto::Wipe(typed.data(), typed.size());
  return status;
}

}  // namespace

Status SlotLogin(ProviderContext& ctx, SlotDevice& device) {
  return LoginSteps(ctx, device, true);
}

Status SlotRelogin(ProviderContext& ctx, SlotDevice& device) {
  return LoginSteps(ctx, device, false);
}

Status SlotVerifyPin(ProviderContext&, SlotDevice& device, const uint8_t* pin, uint32_t length) {
  std::string text(reinterpret_cast<const char*>(pin), length);
  Status status = VerifyText(device, text);
  crypto::Wipe(text.data(), text.size());
  return status;
}

Status SlotCommand(ProviderContext& ctx, SlotDevice& device, uint16_t command,
                   const frames::CardRequest& request, frames::CardResponse* response,
                   size_t blockLength) {
  frames::Bytes frame;
  switch (frames::BuildCardRequest(command, request, &frame)) {
    case FrameStatus::kOk: break;
    case FrameStatus::kTooLong: return provider::kNteBadLen;
    case FrameStatus::kBadField: return provider::kNteBadData;
    default: return provider::kNteNoMemory;
  }
  const bool login = NeedsLogin(command);
  if (login) {
    Status status = SlotLogin(ctx, device);
    if (status != provider::kOk) return status;
  }
  Status raw = 0;
  Status status = Exchange(device, command, frame, response, blockLength, &raw);
  if (login && raw == pkcs11::kScardCardNotAuthenticated) {
    status = SlotRelogin(ctx, device);
    if (status == provider::kOk) status = Exchange(device, command, frame, response, blockLength, &raw);
  }
  crypto::Wipe(frame.data(), frame.size());
  return status;
}

}  // namespace nivra::service
