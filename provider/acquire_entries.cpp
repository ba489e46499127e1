// NivraCPAcquireContext, NivraCPAcquireContextW and NivraCPReleaseContext.
#include <windows.h>
#include <wincrypt.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "provider/call_frame.h"
#include "provider/context_lifecycle.h"
#include "provider/entries.h"
#include "provider/handle_registry.h"
#include "provider/module_state.h"
#include "provider/software_provider.h"
#include "provider/text_convert.h"

namespace nivra::provider {

namespace {

constexpr char kProviderName[] = "Nivra pkcs11 CSP";
constexpr DWORD kForbiddenFlagBits = 0x0FFFFF87;
constexpr DWORD kVerifyContextBits = 0xF0000000;
constexpr size_t kWideContainerBufferSize = 260;

Status CheckFlags(DWORD flags, ProviderContext& ctx) {
  if (flags & kForbiddenFlagBits) return kNteBadFlags;
  if (flags > 0x0FFFFFFF) {
    if ((flags & kVerifyContextBits) != kVerifyContextBits) return kNteBadFlags;
    ctx.verifyOnly = 1;
  }
  if (flags & CRYPT_SILENT) ctx.silent = 1;
  const bool create = flags & CRYPT_NEWKEYSET;
  const bool remove = flags & CRYPT_DELETEKEYSET;
  if (create && remove) return kNteBadFlags;
  // A silent context can neither create nor delete a container.
  if ((ctx.verifyOnly || ctx.silent) && (create || remove)) return kNteBadFlags;
  return kOk;
}

void SetProviderIdentity(ProviderContext& ctx, const VTableProvStruc* vtable) {
  ctx.provType = PROV_RSA_FULL;
  std::strncpy(ctx.provName, kProviderName, kProvNameSize - 1);
  if (vtable == nullptr) return;
  if (vtable->Version >= 2) ctx.provType = vtable->dwProvType;
  if (vtable->Version >= 3 && vtable->pszProvName != nullptr) {
    std::memset(ctx.provName, 0, kProvNameSize);
    std::strncpy(ctx.provName, vtable->pszProvName, kProvNameSize - 1);
  }
}

// The window an application named with PP_CLIENT_HWND before acquiring (CryptSetProvParam on no
// context keeps it in the loader, which hands it out through the vtable): it owns the dialogs
// this acquire shows, until the context is given a window of its own.
void TakeLoaderWindow(ProviderContext& ctx, const VTableProvStruc* vtable) {
  if (vtable == nullptr || vtable->FuncReturnhWnd == nullptr) return;
  HWND window = nullptr;
  reinterpret_cast<void(WINAPI*)(HWND*)>(vtable->FuncReturnhWnd)(&window);
  if (window != nullptr && IsWindow(window)) ctx.clientWindow = reinterpret_cast<uintptr_t>(window);
}

// Everything after the context exists; on failure the caller releases it.
Status BuildContext(ProviderContext& ctx, const char* container, DWORD flags,
                    const VTableProvStruc* vtable) {
  SetProviderIdentity(ctx, vtable);
  TakeLoaderWindow(ctx, vtable);
  Status status = CheckFlags(flags, ctx);
  if (status != kOk) return status;
  ContainerString parsed;
  status = ParseContainerString(container, Module().moduleAvailable, &parsed);
  if (status != kOk) return status;
  std::memcpy(ctx.containerName, parsed.containerName.c_str(), parsed.containerName.size() + 1);
  if (parsed.hasDevice) ctx.deviceName = std::make_unique<std::string>(parsed.deviceName);
  if (ctx.verifyOnly && ctx.containerName[0] != '\0') return kNteBadFlags;
  return SelectDeviceAndOpenContainer(ctx, parsed, flags);
}

BOOL Acquire(HCRYPTPROV* phProv, const char* container, DWORD flags,
             const VTableProvStruc* vtable) {
  std::string utf8;
  if (container != nullptr && !AnsiToUtf8(container, &utf8)) return Finish(Outcome::Failure(kNteNoMemory));
  if (phProv == nullptr) return Finish(Outcome::Failure(kErrInvalidParameter));
  *phProv = 0;
  ProviderContext* ctx = nullptr;
  try {
    ctx = new ProviderContext();
  } catch (const std::bad_alloc&) {
    return Finish(Outcome::Failure(kNteNoMemory));
  }
  ModuleStartupForAcquire();

  Status status;
  try {
    status = BuildContext(*ctx, container != nullptr ? utf8.c_str() : nullptr, flags, vtable);
  } catch (const std::bad_alloc&) {
    status = kNteNoMemory;
  } catch (...) {
    status = kNteFail;
  }
  if (status != kOk || (flags & CRYPT_DELETEKEYSET)) {
    ReleaseContextRecord(ctx);
    return Finish(Outcome::FromStatus(status));
  }

  ctx->softProv = OpenSoftwareProvider();
  ctx->selfHandle = reinterpret_cast<uintptr_t>(ctx) + kHandleBias;
  ctx->objectBias = DrawObjectBias();
  RegisterContext(ctx);
  *phProv = ctx->selfHandle;
  return Finish(Outcome::Success());
}

}  // namespace

}  // namespace nivra::provider

using namespace nivra::provider;

extern "C" BOOL WINAPI NivraCPAcquireContext(HCRYPTPROV* phProv, LPSTR pszContainer,
                                              DWORD dwFlags, VTableProvStruc* pVTable) noexcept {
  return Acquire(phProv, pszContainer, dwFlags, pVTable);
}

extern "C" BOOL WINAPI NivraCPAcquireContextW(HCRYPTPROV* phProv, LPWSTR pszContainer,
                                               DWORD dwFlags, VTableProvStrucW*) noexcept {
  char converted[kWideContainerBufferSize];
  if (pszContainer != nullptr &&
      WideCharToMultiByte(CP_ACP, 0, pszContainer, -1, converted, sizeof(converted), nullptr,
                          nullptr) == 0) {
    return Finish(Outcome::Failure(kNteBadKeysetParam));
  }
  // Wide callers always get the built-in provider name and type.
  return Acquire(phProv, pszContainer != nullptr ? converted : nullptr, dwFlags, nullptr);
}

extern "C" BOOL WINAPI NivraCPReleaseContext(HCRYPTPROV hProv, DWORD) noexcept {
  ProviderContext* ctx = nullptr;
  Status status = LookupContext(hProv, &ctx);
  if (status != kOk) return Finish(Outcome::Failure(status));
  // Waits for the calls that hold the context; a release that lost the race to another one finds
  // the context already gone.
  if (!RetireContext(ctx)) return Finish(Outcome::Failure(kNteInvalidHandle));
  ReleaseContextRecord(ctx);
  return Finish(Outcome::Success());
}
