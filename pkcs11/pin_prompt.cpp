// The PIN dialog as the token login uses it.
#include <windows.h>

#include "pkcs11/token_login.h"
#include "ui/verify_pin_dialog.h"

namespace nivra::pkcs11 {

namespace {
// The module path does not know the remaining retries, so the dialog shows none.
constexpr uint32_t kRetriesUnknown = 0;
}  // namespace

bool AskUserForPin(uintptr_t owner, std::string* pin) {
  // Applications hand PP_CLIENT_HWND a pointer to their window handle, and the context keeps that
  // pointer value: only a value that names a window is used as the owner.
  HWND parent = reinterpret_cast<HWND>(owner);
  if (parent != nullptr && !IsWindow(parent)) parent = nullptr;
  ui::CVerifyPIN dialog(kRetriesUnknown, parent);
  if (dialog.DoModal() != IDOK) return false;
  const std::wstring& typed = dialog.pin;
  pin->clear();
  if (typed.empty()) return true;
  const int size = WideCharToMultiByte(CP_ACP, 0, typed.data(), static_cast<int>(typed.size()),
                                       nullptr, 0, nullptr, nullptr);
  if (size <= 0) return false;
  pin->assign(static_cast<size_t>(size), '\0');
  WideCharToMultiByte(CP_ACP, 0, typed.data(), static_cast<int>(typed.size()), &(*pin)[0], size,
                      nullptr, nullptr);
  return true;
}

}  // namespace nivra::pkcs11
