// The user-interface texts of the provider's dialogs, in English, Simplified Chinese and
// Traditional Chinese. Every visible string of the PIN dialog and the card selection dialog is
// looked up here by its number; the language follows the system's default language.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

namespace nivra::ui {

// Text numbers. The wording of each text lives only in the tables of ui_text.cpp.
enum UiTextId : uint32_t {
  kTextPinTitle = 1,          // PIN dialog title and message-box caption
  kTextPinLabel = 2,          // label in front of the PIN field
  kTextOk = 3,                // OK button
  kTextRetriesLeft = 4,       // retries line, one "%d" placeholder
  kTextPinTooShort = 5,       // message box for a PIN under two characters
  kTextColumnIndex = 11,      // card selection list columns
  kTextColumnTarget = 12,
  kTextColumnRemark = 13,
  kTextHasDefaultContainer = 21,  // "%s": the default container's label
  kTextHasContainer = 22,         // "%s": container name
  kTextNoDefaultContainer = 23,
  kTextNoContainer = 24,          // "%s": container name
  kTextUnknownCard = 25,
  kTextSelectCreateDefault = 31,
  kTextSelectCreateNamed = 32,    // "%s": container name
  kTextSelectDeleteDefault = 33,
  kTextSelectDeleteNamed = 34,    // "%s": container name
  kTextSelectOpenDefault = 35,
  kTextSelectOpenNamed = 36,      // "%s": container name
};

enum class UiLanguage { kEnglish, kSimplifiedChinese, kTraditionalChinese };

// Windows language identifiers that pick a Chinese table.
constexpr uint16_t kLangIdChineseTaiwan = 1028;
constexpr uint16_t kLangIdChinesePrc = 2052;

// 1028 selects Traditional Chinese, 2052 Simplified Chinese, every other value English.
UiLanguage UiLanguageForLangId(uint16_t langId);

// One row of a language table.
struct UiTextRow {
  uint32_t number;
  const wchar_t* text;
};

// A language's table: rows[0..count), 19 rows for each built-in language.
struct UiTextTable {
  const UiTextRow* rows;
  size_t count;
};

UiTextTable UiTextTableFor(UiLanguage language);

// Linear search of table for number: the row's text, or nullptr when the table lacks it.
const wchar_t* FindUiText(UiTextTable table, uint32_t number);

// The table's text for number. When the table lacks it, the fixed fallback texts of the PIN
// dialog serve numbers 1 to 4 (in Simplified Chinese); any other missing number gives "".
// Never returns nullptr.
const wchar_t* UiTextFrom(UiTextTable table, uint32_t number);

// UiTextFrom on the table of the given language identifier.
const wchar_t* UiTextForLangId(uint16_t langId, uint32_t number);

// UiTextFrom on the table of the system's default language (GetSystemDefaultLangID()).
const wchar_t* UiText(uint32_t number);

// Replaces the first "%d" of pattern with value in decimal; pattern comes back unchanged when it
// has no "%d". The substitution is done here rather than by a printf-family function, whose
// treatment of wide "%s" differs between C runtimes.
std::wstring FormatUiNumber(const wchar_t* pattern, int64_t value);

// Replaces the first "%s" of pattern with value; pattern comes back unchanged without a "%s".
std::wstring FormatUiString(const wchar_t* pattern, const std::wstring& value);

}  // namespace nivra::ui
