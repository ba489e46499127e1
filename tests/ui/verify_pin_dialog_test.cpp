// The PIN dialog driven as a user would under an X server: the refusal of a short PIN, the
// 8-character limit and the starting focus, cancelling, its owner, and its texts in each language
// with its retries line and the PIN it returns.
#include "ui/verify_pin_dialog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "expected_ui_texts.h"
#include "modal_dialog_driver.h"
#include "ui/resource.h"
#include "ui/ui_text.h"

namespace nivra::uitest {
namespace {

using namespace nivra::ui;

constexpr uint16_t kEnglish = 1033;
const wchar_t* const kEnglishTitle = ExpectedUiText(kEnglish, kTextPinTitle);

std::wstring ControlText(HWND dialog, int id) { return WindowText(GetDlgItem(dialog, id)); }

// Types text into the PIN field and presses OK.
void SubmitPin(HWND dialog, const wchar_t* text) {
  SetDlgItemTextW(dialog, IDC_VERIFY_PIN_EDIT, text);
  PressButton(dialog, IDOK);
}

// A PIN under two characters brings up a message box owned by the dialog; after it is
// dismissed, the dialog is still open and accepts a valid PIN.
TEST(PinDialog, ShortPinShowsMessageAndKeepsDialogOpen) {
  for (const auto& [lang, typed] : {std::pair<uint16_t, const wchar_t*>{kEnglish, L"1"}, {2052, L""}}) {
    const uint16_t langId = lang;  // a lambda cannot capture a structured binding
    SCOPED_TRACE(langId);
    const wchar_t* title = ExpectedUiText(langId, kTextPinTitle);
    CVerifyPIN prompt(0, nullptr);
    ModalDialogRun run([&] { prompt.UseLanguage(langId); return prompt.DoModal(); });
    HWND dialog = run.WaitForDialog(title);
    ASSERT_NE(dialog, nullptr);
    SubmitPin(dialog, typed);
    HWND box = run.WaitForDialog(title, dialog);
    ASSERT_NE(box, nullptr) << "no message box";
    EXPECT_NE(FindChildWithText(box, ExpectedUiText(langId, kTextPinTooShort)), nullptr);
    EXPECT_EQ(GetWindow(box, GW_OWNER), dialog);
    PressButton(box, IDOK);
    ASSERT_TRUE(WaitUntil([box] { return !IsWindow(box); }));
    EXPECT_EQ(run.Result(200), ModalDialogRun::kStillOpen);
    EXPECT_TRUE(IsWindowVisible(dialog));
    SubmitPin(dialog, L"12");
    EXPECT_EQ(run.Result(), IDOK);
    EXPECT_EQ(prompt.pin, L"12");
  }
}

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

TEST(PinDialog, EscapeCloseBoxAndCloseMessageCancel) {
  for (UINT message : {WM_KEYDOWN, WM_SYSCOMMAND, WM_CLOSE}) {
    CVerifyPIN prompt(0, nullptr);
    ModalDialogRun run([&] { prompt.UseLanguage(kEnglish); return prompt.DoModal(); });
    HWND dialog = run.WaitForDialog(kEnglishTitle);
    ASSERT_NE(dialog, nullptr);
    HWND edit = GetDlgItem(dialog, IDC_VERIFY_PIN_EDIT);
    SetWindowTextW(edit, L"1234");
    if (message == WM_KEYDOWN) PostMessageW(edit, WM_KEYDOWN, VK_ESCAPE, 0);
    else PostMessageW(dialog, message, message == WM_SYSCOMMAND ? SC_CLOSE : 0, 0);
    EXPECT_EQ(run.Result(), IDCANCEL) << message;
    EXPECT_TRUE(prompt.pin.empty()) << message;
  }
}

// The caller's window (made on the dialog's thread, as the provider's caller does) owns the
// dialog and is disabled while it runs; once it is gone, the next dialog is unowned.
TEST(PinDialog, CallersWindowOwnsTheDialogWhileItExists) {
  std::atomic<HWND> owner{nullptr};
  std::atomic<bool> enabledAfter{false};
  ModalDialogRun run([&] {
    HWND window = CreateWindowExW(0, L"STATIC", L"application", WS_OVERLAPPEDWINDOW | WS_VISIBLE,
                                  0, 0, 200, 100, nullptr, nullptr, nullptr, nullptr);
    owner = window;
    CVerifyPIN dialog(0, window);
    dialog.UseLanguage(kEnglish);
    INT_PTR result = dialog.DoModal();
    enabledAfter = IsWindowEnabled(window) != FALSE;
    DestroyWindow(window);
    return result;
  });
  HWND dialog = run.WaitForDialog(kEnglishTitle);
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(GetWindow(dialog, GW_OWNER), owner.load());
  EXPECT_FALSE(IsWindowEnabled(owner.load()));
  PressButton(dialog, IDCANCEL);
  EXPECT_EQ(run.Result(), IDCANCEL);
  EXPECT_TRUE(enabledAfter.load());

  CVerifyPIN stale(0, owner.load());
  ModalDialogRun staleRun([&] { stale.UseLanguage(kEnglish); return stale.DoModal(); });
  dialog = staleRun.WaitForDialog(kEnglishTitle);
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(GetWindow(dialog, GW_OWNER), nullptr);
}

TEST(PinDialog, ShowsItsLanguageAndRetriesAndReturnsTheTypedPin) {
  struct Case {
    uint16_t langId;  // Japanese (1041) reads English
    uint32_t retries;
    const wchar_t* line;
    const wchar_t* pin;  // 2 to 8 characters
  };
  for (const Case& c : {Case{1033, 3, L"The remaining number of retries : 3", L"12"},
                        Case{2052, 3, L"错误重试次数还剩 3 次", L"4711"},
                        Case{1028, 3, L"錯誤重試次數還剩 3 次", L"a1B2c3D4"},
                        Case{1041, 4000000000u, L"The remaining number of retries : 4000000000", L"00"},
                        Case{1033, 0, L"", L"0000"}}) {
    SCOPED_TRACE(c.langId);
    CVerifyPIN prompt(c.retries, nullptr);
    ModalDialogRun run([&] { prompt.UseLanguage(c.langId); return prompt.DoModal(); });
    HWND dialog = run.WaitForDialog(ExpectedUiText(c.langId, kTextPinTitle));
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(ControlText(dialog, IDC_VERIFY_PIN_LABEL), ExpectedUiText(c.langId, kTextPinLabel));
    EXPECT_EQ(ControlText(dialog, IDOK), ExpectedUiText(c.langId, kTextOk));
    EXPECT_EQ(ControlText(dialog, IDC_VERIFY_PIN_RETRIES), c.line);
    SubmitPin(dialog, c.pin);
    EXPECT_EQ(run.Result(), IDOK);
    EXPECT_EQ(prompt.pin, c.pin);
    // The retries line travels back into its member with the PIN.
    EXPECT_EQ(prompt.retriesText, c.line);
  }
}

}  // namespace
}  // namespace nivra::uitest
