#include "ui/dialog_box.h"

#include "platform/module_handle.h"

namespace nivra::ui {

INT_PTR RunDialogBox(int resource, HWND parent, DLGPROC procedure, void* dialog) {
  HWND owner = parent && IsWindow(parent) ? parent : nullptr;
  INT_PTR outcome = DialogBoxParamW(platform::CurrentModule(), MAKEINTRESOURCEW(resource), owner,
                                    procedure, reinterpret_cast<LPARAM>(dialog));
  return outcome == 0 ? -1 : outcome;
}

}  // namespace nivra::ui
