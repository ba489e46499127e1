// Runs a dialog template of the provider's module modally and routes its messages to the C++
// object that stands for it. The object provides HandleMessage(message, wParam, lParam),
// OnOutOfMemory() and a member hwnd_, set when the dialog starts; it befriends RouteDialogMessage.
#pragma once
#include <windows.h>

#include <new>

namespace nivra::ui {

template <class Dialog>
INT_PTR CALLBACK RouteDialogMessage(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_INITDIALOG) SetWindowLongPtrW(hwnd, DWLP_USER, lParam);
  auto* self = reinterpret_cast<Dialog*>(GetWindowLongPtrW(hwnd, DWLP_USER));
  if (!self) return FALSE;
  if (message == WM_INITDIALOG) self->hwnd_ = hwnd;
  // Nothing may unwind into the window manager's dispatch loop.
  try {
    return self->HandleMessage(message, wParam, lParam);
  } catch (const std::bad_alloc&) {
    self->OnOutOfMemory();
    return TRUE;
  }
}

// DialogBoxParamW on the template `resource` of the provider's module, owned by parent when that
// is still a window. The dialog's result, or -1 when it could not be created.
INT_PTR RunDialogBox(int resource, HWND parent, DLGPROC procedure, void* dialog);

template <class Dialog>
INT_PTR RunDialogBox(int resource, HWND parent, Dialog* dialog) {
  INT_PTR outcome = RunDialogBox(resource, parent, &RouteDialogMessage<Dialog>, dialog);
  dialog->hwnd_ = nullptr;
  return outcome;
}

}  // namespace nivra::ui
