#include "pin_dialog_answer.h"

#include <gtest/gtest.h>

#include "modal_dialog_driver.h"
#include "ui/resource.h"
#include "ui/ui_text.h"

namespace nivra::p11test {

DWORD AnswerPinDialog(const std::function<DWORD()>& operation, const wchar_t* typed) {
  uitest::ModalDialogRun run([operation] { return static_cast<INT_PTR>(operation()); });
  HWND dialog = run.WaitForDialog(ui::UiText(ui::kTextPinTitle));
  EXPECT_NE(dialog, nullptr) << "the PIN dialog did not appear";
  if (dialog != nullptr && typed != nullptr) {
    SetDlgItemTextW(dialog, IDC_VERIFY_PIN_EDIT, typed);
    uitest::PressButton(dialog, IDOK);
  } else if (dialog != nullptr) {
    uitest::PressButton(dialog, IDCANCEL);
  }
  INT_PTR result = -1;
  EXPECT_TRUE(run.Finished(&result)) << "the operation did not end";
  return static_cast<DWORD>(result);
}

}  // namespace nivra::p11test
