#include "ui/dialog_box.h"

#include <new>

#include "platform/module_handle.h"

namespace nivra::ui {

INT_PTR ModalDialog::RunModal(int resource) {
  HWND owner = parent_ && IsWindow(parent_) ? parent_ : nullptr;
  INT_PTR outcome = DialogBoxParamW(platform::CurrentModule(), MAKEINTRESOURCEW(resource), owner,
                                    &ModalDialog::DialogProc, reinterpret_cast<LPARAM>(this));
  hwnd_ = nullptr;
  return outcome == 0 ? -1 : outcome;
}

INT_PTR CALLBACK ModalDialog::DialogProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_INITDIALOG) SetWindowLongPtrW(hwnd, DWLP_USER, lParam);
  auto* self = reinterpret_cast<ModalDialog*>(GetWindowLongPtrW(hwnd, DWLP_USER));
  if (!self) return FALSE;
  if (message == WM_INITDIALOG) self->hwnd_ = hwnd;
  try {
    return self->HandleMessage(message, wParam, lParam);
  } catch (const std::bad_alloc&) {
    self->OnOutOfMemory();
    return TRUE;
  }
}

INT_PTR ModalDialog::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_INITDIALOG:
      return OnInitDialog();
    case WM_COMMAND:
      switch (LOWORD(wParam)) {
        case IDOK:  // the button, or Enter
          OnOK();
          return TRUE;
        case IDCANCEL:  // Escape, the close box and WM_CLOSE arrive here
          EndDialog(hwnd_, IDCANCEL);
          return TRUE;
      }
      break;
    case WM_DESTROY:
      OnDestroy();
      return FALSE;
  }
  return OnOtherMessage(message, wParam, lParam);
}

}  // namespace nivra::ui
