#include "ui/ui_text.h"

#include <windows.h>

#include <string>

namespace nivra::ui {
namespace {

// The wording, including its unidiomatic English, is what users of the provider already know
// from their dialogs; keep it character for character.
const UiTextRow kEnglishRows[] = {
    {1, L"CSP Verify PIN"},
    {2, L"Device PIN:"},
    {3, L"OK"},
    {4, L"The remaining number of retries : %d"},
    {5, L"PIN requires at least 2 bytes"},
    {11, L"Index"},
    {12, L"Target"},
    {13, L"Remark"},
    {21, L"exist default container \"%s\""},
    {22, L"exist container \"%s\""},
    {23, L"does not exist container"},
    {24, L"does not exist container \"%s\""},
    {25, L"unknown card or does not exist card"},
    {31, L"Please select a card, for new default container"},
    {32, L"Please select a card, for new the container \"%s\""},
    {33, L"Please select a card, for delete default container"},
    {34, L"Please select a card, for delete the container \"%s\""},
    {35, L"Please select a card, for connecting to default container"},
    {36, L"Please select a card, for connecting to the container \"%s\""},
};

const UiTextRow kSimplifiedChineseRows[] = {
    {1, L"CSP校验PIN"},
    {2, L"设备PIN："},
    {3, L"确定"},
    {4, L"错误重试次数还剩 %d 次"},
    {5, L"PIN至少需要2个字节"},
    {11, L"序号"},
    {12, L"目标"},
    {13, L"说明"},
    {21, L"存在默认的密钥容器：\"%s\""},
    {22, L"存在密钥容器：\"%s\""},
    {23, L"不存在密钥容器"},
    {24, L"不存在密钥容器： \"%s\""},
    {25, L"不存在卡或未知的卡"},
    {31, L"请选择一个卡，用于新建默认容器"},
    {32, L"请选择一个卡，用于新建密钥容器： \"%s\""},
    {33, L"请选择一个卡，用于删除默认容器"},
    {34, L"请选择一个卡，用于删除密钥容器： \"%s\""},
    {35, L"请选择一个卡，用于连接默认容器"},
    {36, L"请选择一个卡，用于连接容器 \"%s\""},
};

const UiTextRow kTraditionalChineseRows[] = {
    {1, L"CSP校驗PIN"},
    {2, L"設備PIN："},
    {3, L"確定"},
    {4, L"錯誤重試次數還剩 %d 次"},
    {5, L"PIN至少需要2個字節"},
    {11, L"序號"},
    {12, L"目標"},
    {13, L"說明"},
    {21, L"存在默認的密鑰容器：\"%s\""},
    {22, L"存在密鑰容器：\"%s\""},
    {23, L"不存在密鑰容器"},
    {24, L"不存在密鑰容器： \"%s\""},
    {25, L"不存在卡或未知的卡"},
    {31, L"請選擇一個卡，用于新建默認容器"},
    {32, L"請選擇一個卡，用于新建密鑰容器： \"%s\""},
    {33, L"請選擇一個卡，用于刪除默認容器"},
    {34, L"請選擇一個卡，用于刪除密鑰容器： \"%s\""},
    {35, L"請選擇一個卡，用于連接默認容器"},
    {36, L"請選擇一個卡，用于連接容器 \"%s\""},
};

// What the PIN dialog shows when a table lacks one of its texts.
const UiTextRow kPinDialogFallbackRows[] = {
    {kTextPinTitle, L"校验PIN"},
    {kTextPinLabel, L"PIN码："},
    {kTextOk, L"确定"},
    {kTextRetriesLeft, L"错误重试次数还剩 %d 次"},
};

template <size_t N>
constexpr UiTextTable TableOf(const UiTextRow (&rows)[N]) {
  return UiTextTable{rows, N};
}

std::wstring ReplaceFirst(const wchar_t* pattern, const wchar_t* placeholder,
                          const std::wstring& value) {
  std::wstring text(pattern);
  size_t at = text.find(placeholder);
  if (at != std::wstring::npos) text.replace(at, 2, value);
  return text;
}

}  // namespace

UiLanguage UiLanguageForLangId(uint16_t langId) {
  switch (langId) {
    case kLangIdChineseTaiwan:
      return UiLanguage::kTraditionalChinese;
    case kLangIdChinesePrc:
      return UiLanguage::kSimplifiedChinese;
    default:
      return UiLanguage::kEnglish;
  }
}

UiTextTable UiTextTableFor(UiLanguage language) {
  switch (language) {
    case UiLanguage::kTraditionalChinese:
      return TableOf(kTraditionalChineseRows);
    case UiLanguage::kSimplifiedChinese:
      return TableOf(kSimplifiedChineseRows);
    default:
      return TableOf(kEnglishRows);
  }
}

const wchar_t* FindUiText(UiTextTable table, uint32_t number) {
  for (size_t i = 0; i < table.count; ++i) {
    if (table.rows[i].number == number) return table.rows[i].text;
  }
  return nullptr;
}

const wchar_t* UiTextFrom(UiTextTable table, uint32_t number) {
  if (const wchar_t* text = FindUiText(table, number)) return text;
  if (const wchar_t* text = FindUiText(TableOf(kPinDialogFallbackRows), number)) return text;
  return L"";
}

const wchar_t* UiTextForLangId(uint16_t langId, uint32_t number) {
  return UiTextFrom(UiTextTableFor(UiLanguageForLangId(langId)), number);
}

const wchar_t* UiText(uint32_t number) {
  return UiTextForLangId(GetSystemDefaultLangID(), number);
}

std::wstring FormatUiNumber(const wchar_t* pattern, int64_t value) {
  return ReplaceFirst(pattern, L"%d", std::to_wstring(value));
}

std::wstring FormatUiString(const wchar_t* pattern, const std::wstring& value) {
  return ReplaceFirst(pattern, L"%s", value);
}

}  // namespace nivra::ui
