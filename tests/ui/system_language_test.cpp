// Run once per system language (CTest sets LANG and LC_ALL for each run and passes the language
// identifier the run must see with --expect-langid=N). Proves that the texts and the PIN dialog
// follow the system's default language when nobody chooses one.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
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

uint16_t expectedLangId = 0;

TEST(SystemLanguage, TextsAndPinDialogFollowIt) {
  ASSERT_NE(expectedLangId, 0) << "run with --expect-langid=N";
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

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  const char kFlag[] = "--expect-langid=";
  for (int i = 1; i < argc; ++i)
    if (strncmp(argv[i], kFlag, sizeof(kFlag) - 1) == 0)
      nivra::uitest::expectedLangId = static_cast<uint16_t>(atoi(argv[i] + sizeof(kFlag) - 1));
  return RUN_ALL_TESTS();
}
