// The PIN dialog driven as a user would under an X server: the refusal of a short PIN, the
// 8-character limit and the starting focus, cancelling, a stale owner, and its retries line and
// the PIN it returns. (Its texts in each system language are checked by ui_language_tests.)
#include "ui/verify_pin_dialog.h"

#include <gtest/gtest.h>


#include "expected_ui_texts.h"
#include "modal_dialog_driver.h"
#include "ui/resource.h"
#include "ui/ui_text.h"

namespace nivra::uitest {
namespace {

using namespace nivra::ui;

constexpr uint16_t kEnglish = 1033;
constexpr int kMessageBoxText = 0xFFFF;  // the static text of a message box
const wchar_t* const kEnglishTitle = ExpectedUiText(kEnglish, kTextPinTitle);

// Types text into the PIN field and presses OK.
void SubmitPin(HWND dialog, const wchar_t* text) {
  SetDlgItemTextW(dialog, IDC_VERIFY_PIN_EDIT, text);
  PressButton(dialog, IDOK);
}

// A PIN under two characters brings up a message box owned by the dialog; after it is
// dismissed, the dialog is still open and accepts a valid PIN, which it returns with its retries
// line (the whole count, however large).
TEST(PinDialog, ShortPinShowsMessageAndKeepsDialogOpen) {
  CVerifyPIN prompt(4000000000u, nullptr);
  ModalDialogRun run([&] { prompt.UseLanguage(kEnglish); return prompt.DoModal(); });
  HWND dialog = run.WaitForDialog(kEnglishTitle);
  ASSERT_NE(dialog, nullptr);
  SubmitPin(dialog, L"1");
  HWND box = run.WaitForDialog(kEnglishTitle, dialog);
  ASSERT_NE(box, nullptr) << "no message box";
  EXPECT_EQ(WindowText(GetDlgItem(box, kMessageBoxText)),
            ExpectedUiText(kEnglish, kTextPinTooShort));
  EXPECT_EQ(GetWindow(box, GW_OWNER), dialog);
  PressButton(box, IDOK);
  ASSERT_TRUE(WaitUntil([box] { return !IsWindow(box); }));
  EXPECT_EQ(run.Result(200), ModalDialogRun::kStillOpen);
  EXPECT_TRUE(IsWindowVisible(dialog));
  SubmitPin(dialog, L"a1B2c3D4");
  EXPECT_EQ(run.Result(), IDOK);
  EXPECT_EQ(prompt.pin, L"a1B2c3D4");
  EXPECT_EQ(prompt.retriesText, L"The remaining number of retries : 4000000000");
}

// Without a retries count the line stays empty.
TEST(PinDialog, FieldTakesAtMostEightCharacters) {
  CVerifyPIN prompt(0, nullptr);
  ModalDialogRun run([&] { prompt.UseLanguage(kEnglish); return prompt.DoModal(); });
  HWND dialog = run.WaitForDialog(kEnglishTitle);
  ASSERT_NE(dialog, nullptr);
  HWND edit = GetDlgItem(dialog, IDC_VERIFY_PIN_EDIT);
  GUITHREADINFO gui{};
  gui.cbSize = sizeof(gui);
  ASSERT_TRUE(GetGUIThreadInfo(run.threadId(), &gui));
  EXPECT_EQ(gui.hwndFocus, edit) << "the PIN field starts focused";
  EXPECT_EQ(WindowText(GetDlgItem(dialog, IDC_VERIFY_PIN_RETRIES)), L"");
  for (wchar_t c = L'1'; c <= L'9'; ++c) SendMessageW(edit, WM_CHAR, c, 0);
  EXPECT_EQ(WindowText(edit), L"12345678");
  // Nine characters set by a program are refused without closing.
  SubmitPin(dialog, L"123456789");
  EXPECT_EQ(run.Result(300), ModalDialogRun::kStillOpen);
  EXPECT_TRUE(prompt.pin.empty());
  SubmitPin(dialog, L"87654321");
  EXPECT_EQ(run.Result(), IDOK);
  EXPECT_EQ(prompt.pin, L"87654321");
}

// A caller's window that is gone leaves the dialog unowned (the selection dialog's cases show a
// live window owning the dialogs). Escape cancels, and nothing typed is returned.
TEST(PinDialog, WindowThatIsGoneOwnsNothingAndEscapeCancels) {
  HWND gone = CreateWindowExW(0, L"STATIC", L"gone", 0, 0, 0, 10, 10, nullptr, nullptr, nullptr,
                              nullptr);
  DestroyWindow(gone);
  CVerifyPIN prompt(0, gone);
  ModalDialogRun run([&] { prompt.UseLanguage(kEnglish); return prompt.DoModal(); });
  HWND dialog = run.WaitForDialog(kEnglishTitle);
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(GetWindow(dialog, GW_OWNER), nullptr);
  HWND edit = GetDlgItem(dialog, IDC_VERIFY_PIN_EDIT);
  SetWindowTextW(edit, L"1234");
  PostMessageW(edit, WM_KEYDOWN, VK_ESCAPE, 0);
  EXPECT_EQ(run.Result(), IDCANCEL);
  EXPECT_TRUE(prompt.pin.empty());
}

}  // namespace
}  // namespace nivra::uitest
