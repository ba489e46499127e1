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

// One get-parameter request as the entry received it.
struct GetRequest {
  ProviderContext& ctx;
  DWORD param;
  BYTE* data;
  DWORD* length;
  DWORD flags;
};

// The answer to a parameter this context does not have.
Outcome NotAParameter(const GetRequest& r) {
  *r.length = 0;
  return Outcome::Failure(kNteBadType);
}

Outcome CopyString(const char* text, const GetRequest& r) {
  return Outcome::FromStatus(
      CopyOut(text, static_cast<DWORD>(std::strlen(text) + 1), r.data, r.length));
}

Outcome CopyDword(DWORD value, const GetRequest& r) {
  return Outcome::FromStatus(CopyOut(&value, sizeof(value), r.data, r.length));
}

Outcome EnumAlgorithms(const GetRequest& r) {
  if (!CryptGetProvParam(r.ctx.softProv, r.param, r.data, r.length, r.flags)) {
    return Outcome::SoftwareResult(FALSE);
  }
  if (r.data == nullptr) return Outcome::SoftwareResult(TRUE);
  Status status = RewriteRsaRow(r.ctx, r.param, r.data);
  return status == kOk ? Outcome::SoftwareResult(TRUE) : Outcome::Failure(status);
}

Outcome EnumContainers(const GetRequest& r) {
  ProviderContext& ctx = r.ctx;
  if (r.data == nullptr) {
    *r.length = kEnumNameBufferSize;
    return Outcome::Success();
  }
  if (!ctx.enumPending) {
    Status status = CardEnumContainers(ctx, (r.flags & CRYPT_FIRST) != 0);
    if (status != kOk) return Outcome::Failure(status);
  }
  const DWORD needed = static_cast<DWORD>(strnlen(ctx.enumName, sizeof(ctx.enumName)) + 1);
  if (*r.length >= needed) {
    std::memcpy(r.data, ctx.enumName, needed);
    *r.length = needed;
    ctx.enumPending = 0;
    return Outcome::Success();
  }
  // The next call returns the same name instead of advancing.
  *r.length = kEnumNameBufferSize;
  ctx.enumPending = 1;
  return Outcome::Failure(kErrMoreData);
}

Outcome ContainerName(const GetRequest& r) {
  return r.ctx.verifyOnly ? NotAParameter(r) : CopyString(r.ctx.containerName, r);
}

// Key-size increment and PIN limits: from the card's limits.
Outcome CardLimit(const GetRequest& r) {
  Status status = EnsureCardCaps(r.ctx);
  if (status != kOk) return Outcome::Failure(status);
  const CardCaps& caps = r.ctx.caps;
  switch (r.param) {
    case PP_NIVRA_PIN_LENGTHS:
      return CopyDword((DWORD{caps.minPinLength} << 16) | caps.maxPinLength, r);
    case PP_NIVRA_PIN_FLAGS:
      return CopyDword(caps.pinFlags, r);
    default:
      return CopyDword(caps.incrementBits, r);
  }
}

Outcome CardId(const GetRequest& r) {
  uint8_t id[16] = {};
  if (r.data != nullptr && *r.length >= sizeof(id)) {
    Status status = CardGetCardId(r.ctx, id);
    if (status != kOk) return Outcome::Failure(status);
  }
  return Outcome::FromStatus(CopyOut(id, sizeof(id), r.data, r.length));
}

bool OnTokenSlot(const ProviderContext& ctx) {
  return ctx.backendKind == BackendTokenSlot && ctx.device != nullptr;
}

Outcome SlotId(const GetRequest& r) {
  return OnTokenSlot(r.ctx) ? CopyDword(r.ctx.device->SlotIdentifier(), r) : NotAParameter(r);
}

Outcome PromptPin(const GetRequest& r) {
  if (!OnTokenSlot(r.ctx) || r.ctx.device->selectionValue == 0) return NotAParameter(r);
  if (r.flags != AT_KEYEXCHANGE && r.flags != AT_SIGNATURE) return Outcome::Failure(kNteBadFlags);
  uint32_t len = *r.length;
  Status status = CardPromptPin(r.ctx, r.flags, r.data, &len);
  *r.length = len;
  return Outcome::FromStatus(status);
}

struct GetParamRow {
  DWORD param;
  Outcome (*get)(const GetRequest& r);
};

constexpr GetParamRow kGetParams[] = {
    {PP_ENUMALGS, EnumAlgorithms},
    {PP_ENUMALGS_EX, EnumAlgorithms},
    {PP_ENUMCONTAINERS, EnumContainers},
    {PP_IMPTYPE, [](const GetRequest& r) { return CopyDword(CRYPT_IMPL_HARDWARE, r); }},
    {PP_NAME, [](const GetRequest& r) { return CopyString(r.ctx.provName, r); }},
    {PP_VERSION, [](const GetRequest& r) { return CopyDword(kVersion, r); }},
    {PP_CONTAINER, ContainerName},
    {PP_UNIQUE_CONTAINER, ContainerName},
    {PP_PROVTYPE, [](const GetRequest& r) { return CopyDword(r.ctx.provType, r); }},
    {PP_SIG_KEYSIZE_INC, CardLimit},
    {PP_KEYX_KEYSIZE_INC, CardLimit},
    {PP_USE_HARDWARE_RNG, [](const GetRequest&) { return Outcome::Success(); }},
    {PP_KEYSPEC, [](const GetRequest& r) { return CopyDword(kKeySpecs, r); }},
    {PP_NIVRA_PIN_LENGTHS, CardLimit},
    {PP_NIVRA_PIN_FLAGS, CardLimit},
    {PP_NIVRA_CARD_ID, CardId},
    {PP_NIVRA_SLOT_ID, SlotId},
    {PP_NIVRA_PROMPT_PIN, PromptPin},
};

Outcome GetProvParam(const GetRequest& r) {
  for (const GetParamRow& row : kGetParams) {
    if (row.param == r.param) return row.get(r);
  }
  return NotAParameter(r);
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
    return GetProvParam(GetRequest{ctx, dwParam, pbData, pdwDataLen, dwFlags});
  });
}

NIVRA_ENTRY NivraCPSetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData,
                                DWORD dwFlags) noexcept {
  return RunInContext(hProv,
                      [&](ProviderContext& ctx) { return SetProvParam(ctx, dwParam, pbData, dwFlags); });
}
