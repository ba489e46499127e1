#include "ui/verify_pin_dialog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "modal_dialog_driver.h"
#include "pin_dialog_session.h"
#include "ui/resource.h"

namespace nivra::uitest {
namespace {

constexpr wchar_t kEnglishTitle[] = L"CSP Verify PIN";
constexpr uint16_t kEnglish = 1033;
constexpr uint16_t kSimplified = 2052;
constexpr uint16_t kTraditional = 1028;

std::wstring ControlText(HWND dialog, int id) { return WindowText(GetDlgItem(dialog, id)); }

// Types text into the PIN field and presses OK.
void SubmitPin(HWND dialog, const wchar_t* text) {
  SetDlgItemTextW(dialog, IDC_VERIFY_PIN_EDIT, text);
  PressButton(dialog, IDOK);
}

TEST(PinDialogSubmit, ReturnsPinOfTwoToEightCharacters) {
  for (const wchar_t* typed : {L"12", L"4711", L"a1B2c3D4"}) {
    PinDialogSession session(0, kEnglish);
    HWND dialog = session.WaitForDialog(kEnglishTitle);
    ASSERT_NE(dialog, nullptr);
    SubmitPin(dialog, typed);
    EXPECT_EQ(session.Result(), IDOK);
    EXPECT_EQ(session.dialog.pin, typed);
  }
}

// A PIN under two characters brings up a message box owned by the dialog; after it is
// dismissed, the dialog is still open and accepts a valid PIN.
void ExpectShortPinRefused(uint16_t langId, const wchar_t* title, const wchar_t* message,
                           const wchar_t* typed) {
  PinDialogSession session(0, langId);
  HWND dialog = session.WaitForDialog(title);
  ASSERT_NE(dialog, nullptr);
  SubmitPin(dialog, typed);

  HWND box = session.WaitForDialog(title, dialog);
  ASSERT_NE(box, nullptr) << "no message box for PIN \"" << typed << "\"";
  EXPECT_NE(FindChildWithText(box, message), nullptr);
  EXPECT_EQ(GetWindow(box, GW_OWNER), dialog);
  PressButton(box, IDOK);
  ASSERT_TRUE(WaitUntilGone(box));

  EXPECT_EQ(session.Result(200), PinDialogSession::kStillOpen);
  EXPECT_TRUE(IsWindow(dialog) && IsWindowVisible(dialog));
  SubmitPin(dialog, L"12");
  EXPECT_EQ(session.Result(), IDOK);
  EXPECT_EQ(session.dialog.pin, L"12");
}

TEST(PinDialogSubmit, ShortPinShowsMessageAndKeepsDialogOpen) {
  ExpectShortPinRefused(kEnglish, kEnglishTitle, L"PIN requires at least 2 bytes", L"1");
  ExpectShortPinRefused(kEnglish, kEnglishTitle, L"PIN requires at least 2 bytes", L"");
  ExpectShortPinRefused(kSimplified, L"CSP校验PIN", L"PIN至少需要2个字节", L"7");
  ExpectShortPinRefused(kTraditional, L"CSP校驗PIN", L"PIN至少需要2個字節", L"7");
}

// An English PIN dialog without a retries count, on screen when the test body starts.
class OpenPinDialog : public ::testing::Test {
 protected:
  void SetUp() override {
    dialog = session.WaitForDialog(kEnglishTitle);
    ASSERT_NE(dialog, nullptr);
  }
  PinDialogSession session{0, kEnglish};
  HWND dialog = nullptr;
};

class PinDialogField : public OpenPinDialog {};
class PinDialogEscape : public OpenPinDialog {};

TEST_F(PinDialogField, TakesAtMostEightTypedCharacters) {
  HWND edit = GetDlgItem(dialog, IDC_VERIFY_PIN_EDIT);
  EXPECT_EQ(SendMessageW(edit, EM_GETLIMITTEXT, 0, 0), 8);
  for (wchar_t c = L'1'; c <= L'9'; ++c) SendMessageW(edit, WM_CHAR, c, 0);
  EXPECT_EQ(WindowText(edit), L"12345678");
  PressButton(dialog, IDOK);
  EXPECT_EQ(session.Result(), IDOK);
  EXPECT_EQ(session.dialog.pin, L"12345678");
}

TEST_F(PinDialogField, NineCharactersSetByProgramAreRefusedWithoutClosing) {
  SubmitPin(dialog, L"123456789");
  EXPECT_EQ(session.Result(300), PinDialogSession::kStillOpen);
  EXPECT_TRUE(session.dialog.pin.empty());
  SubmitPin(dialog, L"87654321");
  EXPECT_EQ(session.Result(), IDOK);
  EXPECT_EQ(session.dialog.pin, L"87654321");
}

TEST_F(PinDialogEscape, CancelsAndLeavesPinEmpty) {
  HWND edit = GetDlgItem(dialog, IDC_VERIFY_PIN_EDIT);
  SetWindowTextW(edit, L"1234");
  PostMessageW(edit, WM_KEYDOWN, VK_ESCAPE, 0);
  EXPECT_EQ(session.Result(), IDCANCEL);
  EXPECT_TRUE(session.dialog.pin.empty());
}

TEST(PinDialogCancel, CloseBoxAndCloseMessageCancel) {
  for (UINT message : {WM_SYSCOMMAND, WM_CLOSE}) {
    PinDialogSession session(0, kEnglish);
    HWND dialog = session.WaitForDialog(kEnglishTitle);
    ASSERT_NE(dialog, nullptr);
    SetDlgItemTextW(dialog, IDC_VERIFY_PIN_EDIT, L"1234");
    PostMessageW(dialog, message, message == WM_SYSCOMMAND ? SC_CLOSE : 0, 0);
    EXPECT_EQ(session.Result(), IDCANCEL);
    EXPECT_TRUE(session.dialog.pin.empty());
  }
}

struct LanguageCase {
  uint16_t langId;
  const wchar_t* title;
  const wchar_t* label;
  const wchar_t* ok;
  const wchar_t* threeRetries;
};

class PinDialogLanguage : public ::testing::TestWithParam<LanguageCase> {};

TEST_P(PinDialogLanguage, ShowsTitleLabelButtonAndRetriesOfLanguage) {
  const LanguageCase& c = GetParam();
  PinDialogSession session(3, c.langId);
  HWND dialog = session.WaitForDialog(c.title);
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(ControlText(dialog, IDC_VERIFY_PIN_LABEL), c.label);
  EXPECT_EQ(ControlText(dialog, IDOK), c.ok);
  EXPECT_EQ(ControlText(dialog, IDC_VERIFY_PIN_RETRIES), c.threeRetries);
  SubmitPin(dialog, L"0000");
  EXPECT_EQ(session.Result(), IDOK);
  // The retries line travels back into its member with the PIN.
  EXPECT_EQ(session.dialog.retriesText, c.threeRetries);
}

INSTANTIATE_TEST_SUITE_P(
    Languages, PinDialogLanguage,
    ::testing::Values(
        LanguageCase{1033, L"CSP Verify PIN", L"Device PIN:", L"OK",
                     L"The remaining number of retries : 3"},
        LanguageCase{2052, L"CSP校验PIN", L"设备PIN：", L"确定", L"错误重试次数还剩 3 次"},
        LanguageCase{1028, L"CSP校驗PIN", L"設備PIN：", L"確定", L"錯誤重試次數還剩 3 次"},
        // Chinese variants other than Taiwan and PRC, and other languages, read English.
        LanguageCase{3076, L"CSP Verify PIN", L"Device PIN:", L"OK",
                     L"The remaining number of retries : 3"},
        LanguageCase{1041, L"CSP Verify PIN", L"Device PIN:", L"OK",
                     L"The remaining number of retries : 3"}));

TEST(PinDialogRetries, UnknownCountLeavesLineEmptyAndLargeCountsPrintInFull) {
  struct Case {
    uint32_t retries;
    const wchar_t* line;
  };
  for (const Case& c : {Case{0, L""}, Case{1, L"The remaining number of retries : 1"},
                        Case{4000000000u, L"The remaining number of retries : 4000000000"}}) {
    PinDialogSession session(c.retries, kEnglish);
    HWND dialog = session.WaitForDialog(kEnglishTitle);
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(ControlText(dialog, IDC_VERIFY_PIN_RETRIES), c.line);
    PressButton(dialog, IDCANCEL);
    EXPECT_EQ(session.Result(), IDCANCEL);
  }
}

TEST(PinDialogLayout, ControlsMatchTemplateInDialogUnits) {
  PinDialogSession session(0, kEnglish);
  HWND dialog = session.WaitForDialog(kEnglishTitle);
  ASSERT_NE(dialog, nullptr);

  RECT client{0, 0, 167, 78};
  ASSERT_TRUE(MapDialogRect(dialog, &client));
  RECT actualClient;
  GetClientRect(dialog, &actualClient);
  EXPECT_EQ(actualClient.right, client.right);
  EXPECT_EQ(actualClient.bottom, client.bottom);

  struct Control {
    int id;
    RECT dlu;  // left, top, right, bottom in dialog units
    const wchar_t* className;
    LONG styleBits;
  };
  const Control controls[] = {
      {IDC_VERIFY_PIN_RETRIES, {7, 8, 7 + 153, 8 + 8}, L"Static", SS_CENTER},
      {IDC_VERIFY_PIN_LABEL, {7, 27, 7 + 62, 27 + 8}, L"Static", SS_RIGHT},
      {IDC_VERIFY_PIN_EDIT, {77, 24, 77 + 56, 24 + 14}, L"Edit",
       ES_PASSWORD | ES_AUTOHSCROLL | WS_TABSTOP},
      {IDOK, {110, 57, 110 + 50, 57 + 14}, L"Button", BS_DEFPUSHBUTTON | WS_TABSTOP},
  };
  HWND child = GetWindow(dialog, GW_CHILD);
  for (const Control& c : controls) {
    SCOPED_TRACE(c.id);
    // Template order is tab order: retries line, label, PIN field, OK.
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(GetDlgCtrlID(child), c.id);
    // The dialog manager converts position and size separately, so the right and bottom
    // edges carry the rounding of both.
    RECT origin{c.dlu.left, c.dlu.top, c.dlu.right - c.dlu.left, c.dlu.bottom - c.dlu.top};
    ASSERT_TRUE(MapDialogRect(dialog, &origin));
    RECT expected{origin.left, origin.top, origin.left + origin.right, origin.top + origin.bottom};
    RECT actual;
    GetWindowRect(child, &actual);
    MapWindowPoints(HWND_DESKTOP, dialog, reinterpret_cast<POINT*>(&actual), 2);
    EXPECT_EQ(actual.left, expected.left);
    EXPECT_EQ(actual.top, expected.top);
    EXPECT_EQ(actual.right, expected.right);
    EXPECT_EQ(actual.bottom, expected.bottom);
    wchar_t className[32] = {};
    GetClassNameW(child, className, 32);
    EXPECT_EQ(_wcsicmp(className, c.className), 0) << "class " << className;
    LONG style = GetWindowLongW(child, GWL_STYLE);
    EXPECT_EQ(style & c.styleBits, c.styleBits);
    if (c.id == IDC_VERIFY_PIN_EDIT) {
      // A bordered edit control of an extended template gets the sunken client edge instead.
      EXPECT_TRUE((style & WS_BORDER) || (GetWindowLongW(child, GWL_EXSTYLE) & WS_EX_CLIENTEDGE));
    }
    child = GetWindow(child, GW_HWNDNEXT);
  }
  EXPECT_EQ(child, nullptr) << "the template has exactly four controls";

  LOGFONTW font{};
  HFONT hfont = reinterpret_cast<HFONT>(SendMessageW(dialog, WM_GETFONT, 0, 0));
  ASSERT_NE(hfont, nullptr);
  ASSERT_GT(GetObjectW(hfont, sizeof(font), &font), 0);
  EXPECT_STREQ(font.lfFaceName, L"Microsoft Sans Serif");
  HDC screen = GetDC(nullptr);
  EXPECT_EQ(font.lfHeight, -MulDiv(8, GetDeviceCaps(screen, LOGPIXELSY), 72));
  ReleaseDC(nullptr, screen);

  GUITHREADINFO gui{};
  gui.cbSize = sizeof(gui);
  ASSERT_TRUE(GetGUIThreadInfo(session.run->threadId(), &gui));
  EXPECT_EQ(gui.hwndFocus, GetDlgItem(dialog, IDC_VERIFY_PIN_EDIT))
      << "the PIN field starts focused";
}

TEST(PinDialogOwner, CallersWindowOwnsTheDialogAndIsDisabledWhileItRuns) {
  std::atomic<HWND> owner{nullptr};
  std::atomic<bool> ownerEnabledAfter{false};
  ModalDialogRun run([&] {
    HWND window = CreateWindowExW(0, L"STATIC", L"application", WS_OVERLAPPEDWINDOW | WS_VISIBLE,
                                  0, 0, 200, 100, nullptr, nullptr, nullptr, nullptr);
    owner = window;
    nivra::ui::CVerifyPIN dialog(0, window);
    dialog.UseLanguage(kEnglish);
    INT_PTR result = dialog.DoModal();
    ownerEnabledAfter = IsWindowEnabled(window) != FALSE;
    DestroyWindow(window);
    return result;
  });
  HWND dialog = run.WaitForDialog(kEnglishTitle);
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(GetWindow(dialog, GW_OWNER), owner.load());
  EXPECT_FALSE(IsWindowEnabled(owner.load()));
  PressButton(dialog, IDCANCEL);
  INT_PTR result = 0;
  ASSERT_TRUE(run.Finished(&result));
  EXPECT_EQ(result, IDCANCEL);
  EXPECT_TRUE(ownerEnabledAfter.load());
}

TEST(PinDialogOwner, StaleOwnerHandleGivesUnownedDialog) {
  HWND stale = CreateWindowExW(0, L"STATIC", L"gone", WS_OVERLAPPEDWINDOW, 0, 0, 10, 10, nullptr,
                               nullptr, nullptr, nullptr);
  ASSERT_NE(stale, nullptr);
  DestroyWindow(stale);
  PinDialogSession session(0, kEnglish, stale);
  HWND dialog = session.WaitForDialog(kEnglishTitle);
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(GetWindow(dialog, GW_OWNER), nullptr);
  PressButton(dialog, IDCANCEL);
  EXPECT_EQ(session.Result(), IDCANCEL);
}

}  // namespace
}  // namespace nivra::uitest
