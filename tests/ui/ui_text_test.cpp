// The text table in three languages, the choice of language and the placeholders.
#include "ui/ui_text.h"

#include <gtest/gtest.h>

#include "expected_ui_texts.h"

namespace nivra::ui {
namespace {

using uitest::ExpectedUiText;
using uitest::kExpectedTexts;

TEST(UiTextTable, EachLanguageHasItsTextsExactly) {
  for (uint16_t langId : {1033, 2052, 1028}) {
    for (const uitest::ExpectedText& row : kExpectedTexts)
      EXPECT_STREQ(UiTextForLangId(langId, row.number), ExpectedUiText(langId, row.number))
          << "text " << row.number << " in " << langId;
    // Numbers outside the tables give no text.
    for (uint32_t missing : {0u, 6u, 10u, 14u, 26u, 37u, 0xFFFFFFFFu}) {
      EXPECT_STREQ(UiTextForLangId(langId, missing), L"") << missing;
      EXPECT_EQ(FindUiText(UiTextTableFor(UiLanguageForLangId(langId)), missing), nullptr);
    }
  }
}

TEST(UiTextLanguage, OnlyTaiwanAndPrcPickChineseTables) {
  EXPECT_EQ(UiLanguageForLangId(1028), UiLanguage::kTraditionalChinese);
  EXPECT_EQ(UiLanguageForLangId(2052), UiLanguage::kSimplifiedChinese);
  // Hong Kong, Singapore and Macao Chinese, the neutral Chinese id, Japanese, US English, 0.
  for (uint16_t other : {3076, 4100, 5124, 4, 1041, 1033, 0, 0xFFFF}) {
    EXPECT_EQ(UiLanguageForLangId(other), UiLanguage::kEnglish) << other;
  }
}

TEST(UiTextFormat, ValuesReplaceTheFirstPlaceholderVerbatim) {
  EXPECT_EQ(FormatUiNumber(UiTextForLangId(2052, kTextRetriesLeft), 10), L"错误重试次数还剩 10 次");
  EXPECT_EQ(FormatUiNumber(L"%d/%d %s", -2147483648LL), L"-2147483648/%d %s");
  EXPECT_EQ(FormatUiString(UiTextForLangId(1028, kTextSelectOpenNamed), L"容器1"),
            L"請選擇一個卡，用于連接容器 \"容器1\"");
  // A name that itself looks like a placeholder is inserted as it is, not expanded again.
  EXPECT_EQ(FormatUiString(L"[%s] %s", L"%s%d"), L"[%s%d] %s");
}

}  // namespace
}  // namespace nivra::ui
