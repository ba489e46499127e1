// NivraCPGetProvParam and NivraCPSetProvParam: algorithm lists, names, container enumeration,
// card limits, PINs and the card administration parameters.

#include <cstring>

#include "provider/call_frame.h"
#include "provider/card_dispatch.h"
#include "provider/entries.h"
#include "provider/pin_submission.h"
#include "provider/provider_params.h"

namespace nivra::provider {

namespace {

constexpr DWORD kEnumNameBufferSize = 256;
constexpr DWORD kVersion = 0x100;
constexpr DWORD kKeySpecs = AT_KEYEXCHANGE | AT_SIGNATURE;

// The two RSA rows of the software provider's algorithm list carry the card's limits.
Status RewriteRsaRow(ProviderContext& ctx, DWORD param, BYTE* data) {
  const ALG_ID algId = *reinterpret_cast<const ALG_ID*>(data);
  if (algId != CALG_RSA_SIGN && algId != CALG_RSA_KEYX) return kOk;
  Status status = EnsureCardCaps(ctx);
  if (status != kOk) return status;
  const bool sign = algId == CALG_RSA_SIGN;
  const char* name = sign ? "RSA_SIGN" : "RSA_KEYX";
  if (param == PP_ENUMALGS) {
    PROV_ENUMALGS row{};
    row.aiAlgid = algId;
    row.dwBitLen = ctx.caps.defaultBits;
    std::strncpy(row.szName, name, sizeof(row.szName));
    row.dwNameLen = static_cast<DWORD>(std::strlen(name) + 1);
    std::memcpy(data, &row, sizeof(row));
  } else {
    const char* longName = sign ? "RSA Signature" : "RSA Key Exchange";
    PROV_ENUMALGS_EX row{};
    row.aiAlgid = algId;
    row.dwDefaultLen = ctx.caps.defaultBits;
    row.dwMinLen = ctx.caps.minBits;
    row.dwMaxLen = ctx.caps.maxBits;
    row.dwProtocols = 0;
    std::strncpy(row.szName, name, sizeof(row.szName));
    row.dwNameLen = static_cast<DWORD>(std::strlen(name) + 1);
    std::strncpy(row.szLongName, longName, sizeof(row.szLongName));
    row.dwLongNameLen = static_cast<DWORD>(std::strlen(longName) + 1);
    std::memcpy(data, &row, sizeof(row));
  }
  return kOk;
}

Outcome EnumAlgorithms(ProviderContext& ctx, DWORD param, BYTE* data, DWORD* length,
                       DWORD flags) {
  if (!CryptGetProvParam(ctx.softProv, param, data, length, flags)) {
    return Outcome::SoftwareResult(FALSE);
  }
  if (data == nullptr) return Outcome::SoftwareResult(TRUE);
  Status status = RewriteRsaRow(ctx, param, data);
  return status == kOk ? Outcome::SoftwareResult(TRUE) : Outcome::Failure(status);
}

Outcome EnumContainers(ProviderContext& ctx, BYTE* data, DWORD* length, DWORD flags) {
  if (data == nullptr) {
    *length = kEnumNameBufferSize;
    return Outcome::Success();
  }
  if (!ctx.enumPending) {
    Status status = CardEnumContainers(ctx, (flags & CRYPT_FIRST) != 0);
    if (status != kOk) return Outcome::Failure(status);
  }
  const DWORD needed = static_cast<DWORD>(strnlen(ctx.enumName, sizeof(ctx.enumName)) + 1);
  if (*length >= needed) {
    std::memcpy(data, ctx.enumName, needed);
    *length = needed;
    ctx.enumPending = 0;
    return Outcome::Success();
  }
  // The next call returns the same name instead of advancing.
  *length = kEnumNameBufferSize;
  ctx.enumPending = 1;
  return Outcome::Failure(kErrMoreData);
}

Outcome CopyString(const char* text, BYTE* data, DWORD* length) {
  return Outcome::FromStatus(
      CopyOut(text, static_cast<DWORD>(std::strlen(text) + 1), data, length));
}

Outcome CopyDword(DWORD value, BYTE* data, DWORD* length) {
  return Outcome::FromStatus(CopyOut(&value, sizeof(value), data, length));
}

Outcome GetProvParam(ProviderContext& ctx, DWORD param, BYTE* data, DWORD* length, DWORD flags) {
  switch (param) {
    case PP_ENUMALGS:
    case PP_ENUMALGS_EX:
      return EnumAlgorithms(ctx, param, data, length, flags);
    case PP_ENUMCONTAINERS:
      return EnumContainers(ctx, data, length, flags);
    case PP_IMPTYPE:
      return CopyDword(CRYPT_IMPL_HARDWARE, data, length);
    case PP_NAME:
      return CopyString(ctx.provName, data, length);
    case PP_VERSION:
      return CopyDword(kVersion, data, length);
    case PP_CONTAINER:
    case PP_UNIQUE_CONTAINER:
      if (ctx.verifyOnly) break;
      return CopyString(ctx.containerName, data, length);
    case PP_PROVTYPE:
      return CopyDword(ctx.provType, data, length);
    case PP_SIG_KEYSIZE_INC:
    case PP_KEYX_KEYSIZE_INC: {
      Status status = EnsureCardCaps(ctx);
      if (status != kOk) return Outcome::Failure(status);
      return CopyDword(ctx.caps.incrementBits, data, length);
    }
    case PP_USE_HARDWARE_RNG:
      return Outcome::Success();
    case PP_KEYSPEC:
      return CopyDword(kKeySpecs, data, length);
    case PP_NIVRA_PIN_LENGTHS:
    case PP_NIVRA_PIN_FLAGS: {
      Status status = EnsureCardCaps(ctx);
      if (status != kOk) return Outcome::Failure(status);
      return CopyDword(param == PP_NIVRA_PIN_FLAGS
                           ? ctx.caps.pinFlags
                           : (DWORD{ctx.caps.minPinLength} << 16) | ctx.caps.maxPinLength,
                       data, length);
    }
    case PP_NIVRA_CARD_ID: {
      uint8_t id[16] = {};
      if (data != nullptr && *length >= sizeof(id)) {
        Status status = CardGetCardId(ctx, id);
        if (status != kOk) return Outcome::Failure(status);
      }
      return Outcome::FromStatus(CopyOut(id, sizeof(id), data, length));
    }
    case PP_NIVRA_SLOT_ID:
      if (ctx.backendKind != BackendTokenSlot || ctx.device == nullptr) break;
      return CopyDword(ctx.device->SlotIdentifier(), data, length);
    case PP_NIVRA_PROMPT_PIN: {
      if (ctx.backendKind != BackendTokenSlot || ctx.device == nullptr ||
          ctx.device->selectionValue == 0) {
        break;
      }
      if (flags != AT_KEYEXCHANGE && flags != AT_SIGNATURE) return Outcome::Failure(kNteBadFlags);
      uint32_t len = *length;
      Status status = CardPromptPin(ctx, flags, data, &len);
      *length = len;
      return Outcome::FromStatus(status);
    }
    default:
      break;
  }
  *length = 0;
  return Outcome::Failure(kNteBadType);
}

// Splits "first\0second\0"; false when either is longer than the card's maximum PIN length.
bool SplitPinPair(const ProviderContext& ctx, const BYTE* data, const char** first,
                  const char** second) {
  *first = reinterpret_cast<const char*>(data);
  *second = *first + std::strlen(*first) + 1;
  return std::strlen(*first) <= ctx.caps.maxPinLength &&
         std::strlen(*second) <= ctx.caps.maxPinLength;
}

Outcome ChangeOrUnblockPin(ProviderContext& ctx, DWORD param, const BYTE* data) {
  if (data == nullptr) return Outcome::Failure(kErrInvalidParameter);
  Status status = EnsureCardCaps(ctx);
  if (status != kOk) return Outcome::Failure(status);
  const char* first = nullptr;
  const char* second = nullptr;
  if (!SplitPinPair(ctx, data, &first, &second)) return Outcome::Failure(kErrInvalidParameter);
  status = param == PP_NIVRA_CHANGE_PIN ? CardChangePin(ctx, first, second)
                                        : CardUnblockPin(ctx, first, second);
  if (status != kOk) return Outcome::Failure(status);
  StorePin(ctx, second, std::strlen(second));
  return Outcome::FromStatus(CardRelogin(ctx));
}

Outcome SetProvParam(ProviderContext& ctx, DWORD param, BYTE* data, DWORD flags) {
  switch (param) {
    case PP_CLIENT_HWND:
      // The pointer value itself is kept, as callers of this provider have always passed it.
      ctx.clientWindow = reinterpret_cast<uintptr_t>(data);
      return Outcome::Success();
    case PP_KEYEXCHANGE_PIN:
    case PP_SIGNATURE_PIN:
      if (!PinParametersAllowed(ctx)) return Outcome::Failure(kNteBadType);
      return Outcome::FromStatus(SubmitPin(ctx, data));
    case PP_USE_HARDWARE_RNG:
      ctx.hardwareRng = 1;
      return Outcome::Success();
    case PP_NIVRA_CHANGE_PIN:
    case PP_NIVRA_UNBLOCK_PIN:
      if (!PinParametersAllowed(ctx)) return Outcome::Failure(kNteBadType);
      return ChangeOrUnblockPin(ctx, param, data);
    case PP_NIVRA_INIT_TOKEN: {
      if (!PinParametersAllowed(ctx)) return Outcome::Failure(kNteBadType);
      if (data == nullptr) return Outcome::Failure(kErrInvalidParameter);
      Status status = EnsureCardCaps(ctx);
      if (status != kOk) return Outcome::Failure(status);
      const char* admin = nullptr;
      const char* user = nullptr;
      if (!SplitPinPair(ctx, data, &admin, &user)) return Outcome::Failure(kErrInvalidParameter);
      return Outcome::FromStatus(CardInitToken(ctx, admin, user));
    }
    case PP_NIVRA_INIT_TOKEN_NO_PIN:
      if (!PinParametersAllowed(ctx)) return Outcome::Failure(kNteBadType);
      if (data != nullptr) return Outcome::Failure(kErrInvalidParameter);
      return Outcome::FromStatus(CardInitToken(ctx, kNoPin, nullptr));
    case PP_NIVRA_DEVICE_COMMAND:
      if (ctx.backendKind != BackendBluetoothCard) return Outcome::Failure(kNteNotSupported);
      return Outcome::FromStatus(CardDeviceCommand(ctx));
    case PP_NIVRA_MODE_TOKEN:
      if (ctx.backendKind != BackendBluetoothCard) return Outcome::Failure(kNteBadType);
      if (data == nullptr) return Outcome::Failure(kErrInvalidParameter);
      return Outcome::FromStatus(CardApplyModeToken(ctx, data));
    default:
      return Outcome::Failure(kNteBadType);
  }
}

}  // namespace

}  // namespace nivra::provider

using namespace nivra::provider;

NIVRA_ENTRY NivraCPGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                                DWORD dwFlags) noexcept {
  return RunInContext(hProv, [&](ProviderContext& ctx) {
    if (pdwDataLen == nullptr) return Outcome::Failure(kErrInvalidParameter);
    return GetProvParam(ctx, dwParam, pbData, pdwDataLen, dwFlags);
  });
}

NIVRA_ENTRY NivraCPSetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData,
                                DWORD dwFlags) noexcept {
  return RunInContext(hProv,
                      [&](ProviderContext& ctx) { return SetProvParam(ctx, dwParam, pbData, dwFlags); });
}
