#include "provider/pin_submission.h"

#include <cstring>

#include "provider/card_dispatch.h"

namespace nivra::provider {

namespace {
constexpr uint8_t kEmptyPinAllowed = 0x01;

Status CheckPinLength(const ProviderContext& ctx, size_t length) {
  if (length == 0) return (ctx.caps.pinFlags & kEmptyPinAllowed) ? kOk : kNteBadLen;
  if (length > ctx.caps.maxPinLength || length < ctx.caps.minPinLength) return kNteBadLen;
  return kOk;
}
}  // namespace

bool PinParametersAllowed(const ProviderContext& ctx) {
  return !(ctx.verifyOnly && (ctx.deviceName == nullptr || ctx.deviceName->empty()));
}

void StorePin(ProviderContext& ctx, const char* pin, size_t length) {
  SecureZeroMemory(ctx.pin, sizeof(ctx.pin));
  if (length >= sizeof(ctx.pin)) length = sizeof(ctx.pin) - 1;
  std::memcpy(ctx.pin, pin, length);
  ctx.pinLength = static_cast<uint8_t>(length);
}

Status SubmitPin(ProviderContext& ctx, const BYTE* pbData) {
  const char* pin = pbData != nullptr ? reinterpret_cast<const char*>(pbData) : "";
  const size_t length = std::strlen(pin);
  if (length != 0) {
    Status status = EnsureCardCaps(ctx);
    if (status == kOk) status = CheckPinLength(ctx, length);
    if (status == kOk) {
      status = CardVerifyPin(ctx, reinterpret_cast<const uint8_t*>(pin),
                             static_cast<uint32_t>(length));
    }
    if (status != kOk) return status;
  }
  StorePin(ctx, pin, length);
  return kOk;
}

}  // namespace nivra::provider
