// A CVerifyPIN running modally on a worker thread, driven from the test thread.
#pragma once
#include "modal_dialog_driver.h"
#include "ui/verify_pin_dialog.h"

namespace nivra::uitest {

class PinDialogSession {
 public:
  // langId 0 leaves the dialog on the system default language.
  PinDialogSession(uint32_t retries, uint16_t langId, HWND parent = nullptr)
      : dialog(retries, parent), run([this, langId] {
          if (langId != 0) dialog.UseLanguage(langId);
          return dialog.DoModal();
        }) {}

  // The worker thread's dialog window titled title (other than except), or nullptr.
  HWND WaitForDialog(const wchar_t* title, HWND except = nullptr) {
    return run.WaitForDialog(title, except);
  }

  // What DoModal returned, or kStillOpen when it has not returned within timeoutMs.
  static constexpr INT_PTR kStillOpen = -2;
  INT_PTR Result(DWORD timeoutMs = 10000) {
    INT_PTR result = 0;
    return run.Finished(&result, timeoutMs) ? result : kStillOpen;
  }

  nivra::ui::CVerifyPIN dialog;
  ModalDialogRun run;  // after dialog: joined before the dialog goes
};

}  // namespace nivra::uitest
