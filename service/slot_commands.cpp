#include "service/slot_commands.h"

#include <cstring>
#include <string>

#include "crypto/wipe.h"
#include "service/card_command.h"
#include "service/frames/frame_codes.h"
#include "service/slot_channel.h"
#include "service/string_convert.h"
#include "ui/verify_pin_dialog.h"

namespace nivra::service {

namespace {

constexpr char kCardLockPrefix[] = "NivraCSP_P11_";
constexpr size_t kCardLockNameChars = 260;

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

Status LoginSteps(ProviderContext& ctx, SlotCard& card, bool askCardFirst) {
  if (askCardFirst) {
    frames::CardResponse state;
    Status status = CardExchange(card, frames::kCmdLoginState, {}, &state);
    if (status != provider::kOk) return status;
    if (state.value != 0) return provider::kOk;
  }
  if (CardVerifyCachedPin(ctx, card)) return provider::kOk;
  if (ctx.silent) return provider::kNteSilentContext;
  std::string typed;
  if (!AskPin(ctx, &typed)) return provider::kScardCancelledByUser;
  Status status = CardVerifyPinText(card, typed);
  if (status == provider::kOk && typed.size() < sizeof(ctx.pin)) {
    std::memset(ctx.pin, 0, sizeof(ctx.pin));
    std::memcpy(ctx.pin, typed.data(), typed.size());
    ctx.pinLength = static_cast<uint8_t>(typed.size());
  }
  crypto::Wipe(typed.data(), typed.size());
  return status;
}

}  // namespace

Status SlotCard::Transact(const uint8_t* request, size_t len, frames::FrameView* response,
                          RequestBuffers& list) {
  return SlotTransact(*device_.slot, request, len, response, list);
}

Status SlotCard::Authenticate(ProviderContext& ctx, bool lapsed) {
  return LoginSteps(ctx, *this, !lapsed);
}

std::string SlotCard::LockName() const {
  std::string name = std::string(kCardLockPrefix) + device_.slot->name;
  if (name.size() > kCardLockNameChars) name.resize(kCardLockNameChars);
  return name;
}

Status SlotLogin(ProviderContext& ctx, SlotDevice& device) {
  SlotCard card(device);
  return LoginSteps(ctx, card, true);
}

Status SlotRelogin(ProviderContext& ctx, SlotDevice& device) {
  SlotCard card(device);
  return LoginSteps(ctx, card, false);
}

Status SlotVerifyPin(ProviderContext&, SlotDevice& device, const uint8_t* pin, uint32_t length) {
  SlotCard card(device);
  std::string text(reinterpret_cast<const char*>(pin), length);
  Status status = CardVerifyPinText(card, text);
  crypto::Wipe(text.data(), text.size());
  return status;
}

Status SlotCommand(ProviderContext& ctx, SlotDevice& device, uint16_t command,
                   const frames::CardRequest& request, frames::CardResponse* response,
                   size_t blockLength) {
  SlotCard card(device);
  return CardCommand(ctx, card, command, request, response, blockLength);
}

}  // namespace nivra::service
