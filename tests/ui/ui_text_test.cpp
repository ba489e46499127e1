#include "ui/ui_text.h"

#include <gtest/gtest.h>

#include <set>

namespace nivra::ui {
namespace {

struct ExpectedRow {
  uint32_t number;
  const wchar_t* english;
  const wchar_t* simplified;
  const wchar_t* traditional;
};

// Every text users see, as it must read in each language.
const ExpectedRow kExpected[] = {
    {1, L"CSP Verify PIN",
     L"CSP校验PIN",
     L"CSP校驗PIN"},
    {2, L"Device PIN:",
     L"设备PIN：",
     L"設備PIN："},
    {3, L"OK",
     L"确定",
     L"確定"},
    {4, L"The remaining number of retries : %d",
     L"错误重试次数还剩 %d 次",
     L"錯誤重試次數還剩 %d 次"},
    {5, L"PIN requires at least 2 bytes",
     L"PIN至少需要2个字节",
     L"PIN至少需要2個字節"},
    {11, L"Index",
     L"序号",
     L"序號"},
    {12, L"Target",
     L"目标",
     L"目標"},
    {13, L"Remark",
     L"说明",
     L"說明"},
    {21, L"exist default container \"%s\"",
     L"存在默认的密钥容器：\"%s\"",
     L"存在默認的密鑰容器：\"%s\""},
    {22, L"exist container \"%s\"",
     L"存在密钥容器：\"%s\"",
     L"存在密鑰容器：\"%s\""},
    {23, L"does not exist container",
     L"不存在密钥容器",
     L"不存在密鑰容器"},
    {24, L"does not exist container \"%s\"",
     L"不存在密钥容器： \"%s\"",
     L"不存在密鑰容器： \"%s\""},
    {25, L"unknown card or does not exist card",
     L"不存在卡或未知的卡",
     L"不存在卡或未知的卡"},
    {31, L"Please select a card, for new default container",
     L"请选择一个卡，用于新建默认容器",
     L"請選擇一個卡，用于新建默認容器"},
    {32, L"Please select a card, for new the container \"%s\"",
     L"请选择一个卡，用于新建密钥容器： \"%s\"",
     L"請選擇一個卡，用于新建密鑰容器： \"%s\""},
    {33, L"Please select a card, for delete default container",
     L"请选择一个卡，用于删除默认容器",
     L"請選擇一個卡，用于刪除默認容器"},
    {34, L"Please select a card, for delete the container \"%s\"",
     L"请选择一个卡，用于删除密钥容器： \"%s\"",
     L"請選擇一個卡，用于刪除密鑰容器： \"%s\""},
    {35, L"Please select a card, for connecting to default container",
     L"请选择一个卡，用于连接默认容器",
     L"請選擇一個卡，用于連接默認容器"},
    {36, L"Please select a card, for connecting to the container \"%s\"",
     L"请选择一个卡，用于连接容器 \"%s\"",
     L"請選擇一個卡，用于連接容器 \"%s\""},
};

constexpr uint16_t kEnglishUs = 1033;

TEST(UiTextTable, EveryNumberReadsExactlyInEachLanguage) {
  for (const ExpectedRow& row : kExpected) {
    SCOPED_TRACE(row.number);
    EXPECT_STREQ(UiTextForLangId(kEnglishUs, row.number), row.english);
    EXPECT_STREQ(UiTextForLangId(2052, row.number), row.simplified);
    EXPECT_STREQ(UiTextForLangId(1028, row.number), row.traditional);
  }
}

TEST(UiTextTable, EachLanguageHasTheNineteenNumbersOnce) {
  std::set<uint32_t> expectedNumbers;
  for (const ExpectedRow& row : kExpected) expectedNumbers.insert(row.number);
  ASSERT_EQ(expectedNumbers.size(), 19u);
  for (UiLanguage language :
       {UiLanguage::kEnglish, UiLanguage::kSimplifiedChinese, UiLanguage::kTraditionalChinese}) {
    UiTextTable table = UiTextTableFor(language);
    ASSERT_EQ(table.count, 19u);
    std::set<uint32_t> numbers;
    for (size_t i = 0; i < table.count; ++i) numbers.insert(table.rows[i].number);
    EXPECT_EQ(numbers, expectedNumbers);
  }
}

TEST(UiTextLanguage, OnlyTaiwanAndPrcPickChineseTables) {
  EXPECT_EQ(UiLanguageForLangId(1028), UiLanguage::kTraditionalChinese);
  EXPECT_EQ(UiLanguageForLangId(2052), UiLanguage::kSimplifiedChinese);
  // Hong Kong, Singapore and Macao Chinese, the neutral Chinese id, Japanese, US English, 0.
  for (uint16_t other : {3076, 4100, 5124, 4, 1041, 1033, 0, 0xFFFF}) {
    SCOPED_TRACE(other);
    EXPECT_EQ(UiLanguageForLangId(other), UiLanguage::kEnglish);
    EXPECT_STREQ(UiTextForLangId(other, kTextOk), L"OK");
  }
}

TEST(UiTextFallback, NumbersOutsideTheTablesGiveEmptyText) {
  for (uint32_t missing : {0u, 6u, 10u, 14u, 26u, 37u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(missing);
    for (uint16_t langId : {kEnglishUs, uint16_t{2052}, uint16_t{1028}}) {
      EXPECT_STREQ(UiTextForLangId(langId, missing), L"");
      EXPECT_EQ(FindUiText(UiTextTableFor(UiLanguageForLangId(langId)), missing), nullptr);
    }
  }
}

TEST(UiTextFallback, PinDialogTextsMissingFromATableUseFixedChineseTexts) {
  const UiTextRow partial[] = {{kTextPinTooShort, L"too short"}, {kTextOk, L"Fine"}};
  UiTextTable table{partial, 2};
  EXPECT_STREQ(UiTextFrom(table, kTextPinTitle), L"校验PIN");
  EXPECT_STREQ(UiTextFrom(table, kTextPinLabel), L"PIN码：");
  EXPECT_STREQ(UiTextFrom(table, kTextRetriesLeft), L"错误重试次数还剩 %d 次");
  // Present rows win over the fallback.
  EXPECT_STREQ(UiTextFrom(table, kTextOk), L"Fine");
  EXPECT_STREQ(UiTextFrom(table, kTextPinTooShort), L"too short");
  // No fallback exists beyond the PIN dialog's first four texts.
  EXPECT_STREQ(UiTextFrom(table, kTextColumnIndex), L"");
  EXPECT_EQ(FindUiText(table, kTextPinTitle), nullptr);

  UiTextTable empty{nullptr, 0};
  EXPECT_STREQ(UiTextFrom(empty, kTextOk), L"确定");
  EXPECT_STREQ(UiTextFrom(empty, kTextPinTooShort), L"");
}

TEST(UiTextFallback, FirstRowOfANumberWins) {
  const UiTextRow doubled[] = {{7, L"first"}, {7, L"second"}};
  EXPECT_STREQ(FindUiText(UiTextTable{doubled, 2}, 7), L"first");
}

TEST(UiTextFormat, NumberReplacesThePlaceholderOnly) {
  EXPECT_EQ(FormatUiNumber(UiTextForLangId(kEnglishUs, kTextRetriesLeft), 3),
            L"The remaining number of retries : 3");
  EXPECT_EQ(FormatUiNumber(UiTextForLangId(2052, kTextRetriesLeft), 10), L"错误重试次数还剩 10 次");
  EXPECT_EQ(FormatUiNumber(UiTextForLangId(1028, kTextRetriesLeft), 0), L"錯誤重試次數還剩 0 次");
  EXPECT_EQ(FormatUiNumber(L"%d", -2147483648LL), L"-2147483648");
  EXPECT_EQ(FormatUiNumber(L"%d/%d", 7), L"7/%d");
  EXPECT_EQ(FormatUiNumber(L"no placeholder %s", 7), L"no placeholder %s");
  EXPECT_EQ(FormatUiNumber(L"", 7), L"");
}

TEST(UiTextFormat, NameReplacesThePlaceholderVerbatim) {
  EXPECT_EQ(FormatUiString(UiTextForLangId(kEnglishUs, kTextHasContainer), L"A"),
            L"exist container \"A\"");
  EXPECT_EQ(FormatUiString(UiTextForLangId(2052, kTextNoContainer), L"A"),
            L"不存在密钥容器： \"A\"");
  EXPECT_EQ(FormatUiString(UiTextForLangId(1028, kTextSelectOpenNamed), L"容器1"),
            L"請選擇一個卡，用于連接容器 \"容器1\"");
  // A name that itself looks like a placeholder is inserted as it is, not expanded again.
  EXPECT_EQ(FormatUiString(L"[%s] %s", L"%s%d"), L"[%s%d] %s");
  EXPECT_EQ(FormatUiString(L"[%s]", L""), L"[]");
  EXPECT_EQ(FormatUiString(L"none", L"x"), L"none");
}

}  // namespace
}  // namespace nivra::ui
