// Run once per system language (CTest sets LANG and LC_ALL for each run, and the language
// identifier the run must see in NIVRA_EXPECT_LANGID). Proves that the texts and the PIN dialog
// follow the system's default language when nobody chooses one.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>

#include "expected_ui_texts.h"
#include "modal_dialog_driver.h"
#include "ui/verify_pin_dialog.h"
#include "ui/resource.h"
#include "ui/ui_text.h"

namespace nivra::uitest {
namespace {

using namespace nivra::ui;

TEST(SystemLanguage, TextsAndPinDialogFollowIt) {
  const char* setting = std::getenv("NIVRA_EXPECT_LANGID");
  ASSERT_NE(setting, nullptr) << "run through CTest, which sets NIVRA_EXPECT_LANGID";
  const uint16_t expectedLangId = static_cast<uint16_t>(std::atoi(setting));
  ASSERT_EQ(GetSystemDefaultLangID(), expectedLangId);
  for (uint32_t number : {kTextPinTitle, kTextOk, kTextColumnIndex, kTextSelectOpenNamed})
    EXPECT_STREQ(UiText(number), ExpectedUiText(expectedLangId, number)) << number;

  CVerifyPIN prompt(5, nullptr);  // on the system default language: UseLanguage is not called
  ModalDialogRun run([&] { return prompt.DoModal(); });
  HWND dialog = run.WaitForDialog(ExpectedUiText(expectedLangId, kTextPinTitle));
  ASSERT_NE(dialog, nullptr) << "no dialog titled in the system language";
  for (const auto& [id, number] : {std::pair<int, uint32_t>{IDC_VERIFY_PIN_LABEL, kTextPinLabel},
                                   {IDOK, kTextOk}, {IDC_VERIFY_PIN_RETRIES, kTextRetriesLeft}}) {
    std::wstring expected = ExpectedUiText(expectedLangId, number);
    if (expected.find(L"%d") != std::wstring::npos) expected.replace(expected.find(L"%d"), 2, L"5");
    EXPECT_EQ(WindowText(GetDlgItem(dialog, id)), expected) << number;
  }
  PressButton(dialog, IDCANCEL);
  EXPECT_EQ(run.Result(), IDCANCEL);
}

}  // namespace
}  // namespace nivra::uitest
