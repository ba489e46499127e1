// Run once per system language (CTest sets LANG and LC_ALL for each run and passes the language
// identifier the run must see with --expect-langid=N). Proves that the texts and the PIN dialog
// follow the system's default language when nobody chooses one.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "pin_dialog_session.h"
#include "ui/resource.h"
#include "ui/ui_text.h"

namespace {

uint16_t expectedLangId = 0;

struct Expected {
  const wchar_t* title;
  const wchar_t* label;
  const wchar_t* ok;
  const wchar_t* retries;
  const wchar_t* columnIndex;
};

Expected ExpectedTexts() {
  switch (expectedLangId) {
    case 2052:
      return {L"CSP校验PIN", L"设备PIN：", L"确定", L"错误重试次数还剩 5 次", L"序号"};
    case 1028:
      return {L"CSP校驗PIN", L"設備PIN：", L"確定", L"錯誤重試次數還剩 5 次", L"序號"};
    default:
      return {L"CSP Verify PIN", L"Device PIN:", L"OK", L"The remaining number of retries : 5",
              L"Index"};
  }
}

TEST(SystemLanguage, IsTheLanguageOfThisRun) {
  ASSERT_NE(expectedLangId, 0) << "run with --expect-langid=N";
  EXPECT_EQ(GetSystemDefaultLangID(), expectedLangId);
}

TEST(SystemLanguage, TextsFollowIt) {
  ASSERT_NE(expectedLangId, 0) << "run with --expect-langid=N";
  Expected expected = ExpectedTexts();
  EXPECT_STREQ(nivra::ui::UiText(nivra::ui::kTextPinTitle), expected.title);
  EXPECT_STREQ(nivra::ui::UiText(nivra::ui::kTextOk), expected.ok);
  EXPECT_STREQ(nivra::ui::UiText(nivra::ui::kTextColumnIndex), expected.columnIndex);
}

TEST(SystemLanguage, PinDialogFollowsIt) {
  ASSERT_NE(expectedLangId, 0) << "run with --expect-langid=N";
  Expected expected = ExpectedTexts();
  nivra::uitest::PinDialogSession session(5, 0);
  HWND dialog = session.WaitForDialog(expected.title);
  ASSERT_NE(dialog, nullptr) << "no dialog titled in the system language";
  EXPECT_EQ(nivra::uitest::WindowText(GetDlgItem(dialog, IDC_VERIFY_PIN_LABEL)), expected.label);
  EXPECT_EQ(nivra::uitest::WindowText(GetDlgItem(dialog, IDOK)), expected.ok);
  EXPECT_EQ(nivra::uitest::WindowText(GetDlgItem(dialog, IDC_VERIFY_PIN_RETRIES)),
            expected.retries);
  nivra::uitest::PressButton(dialog, IDCANCEL);
  EXPECT_EQ(session.Result(), IDCANCEL);
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  const char kFlag[] = "--expect-langid=";
  for (int i = 1; i < argc; ++i) {
    if (strncmp(argv[i], kFlag, sizeof(kFlag) - 1) == 0) {
      expectedLangId = static_cast<uint16_t>(atoi(argv[i] + sizeof(kFlag) - 1));
    }
  }
  return RUN_ALL_TESTS();
}
