// Every text users see, as it must read in each language: the wording users know from the
// provider's dialogs, written out here independently of ui/ui_text.cpp.
#pragma once
#include <cstdint>

namespace nivra::uitest {

struct ExpectedText {
  uint32_t number;
  const wchar_t* english;
  const wchar_t* simplified;
  const wchar_t* traditional;
};

inline constexpr ExpectedText kExpectedTexts[] = {
    {1, L"CSP Verify PIN", L"CSP校验PIN", L"CSP校驗PIN"},
    {2, L"Device PIN:", L"设备PIN：", L"設備PIN："},
    {3, L"OK", L"确定", L"確定"},
    {4, L"The remaining number of retries : %d", L"错误重试次数还剩 %d 次", L"錯誤重試次數還剩 %d 次"},
    {5, L"PIN requires at least 2 bytes", L"PIN至少需要2个字节", L"PIN至少需要2個字節"},
    {11, L"Index", L"序号", L"序號"},
    {12, L"Target", L"目标", L"目標"},
    {13, L"Remark", L"说明", L"說明"},
    {21, L"exist default container \"%s\"", L"存在默认的密钥容器：\"%s\"", L"存在默認的密鑰容器：\"%s\""},
    {22, L"exist container \"%s\"", L"存在密钥容器：\"%s\"", L"存在密鑰容器：\"%s\""},
    {23, L"does not exist container", L"不存在密钥容器", L"不存在密鑰容器"},
    {24, L"does not exist container \"%s\"", L"不存在密钥容器： \"%s\"", L"不存在密鑰容器： \"%s\""},
    {25, L"unknown card or does not exist card", L"不存在卡或未知的卡", L"不存在卡或未知的卡"},
    {31, L"Please select a card, for new default container",
     L"请选择一个卡，用于新建默认容器", L"請選擇一個卡，用于新建默認容器"},
    {32, L"Please select a card, for new the container \"%s\"",
     L"请选择一个卡，用于新建密钥容器： \"%s\"", L"請選擇一個卡，用于新建密鑰容器： \"%s\""},
    {33, L"Please select a card, for delete default container",
     L"请选择一个卡，用于删除默认容器", L"請選擇一個卡，用于刪除默認容器"},
    {34, L"Please select a card, for delete the container \"%s\"",
     L"请选择一个卡，用于删除密钥容器： \"%s\"", L"請選擇一個卡，用于刪除密鑰容器： \"%s\""},
    {35, L"Please select a card, for connecting to default container",
     L"请选择一个卡，用于连接默认容器", L"請選擇一個卡，用于連接默認容器"},
    {36, L"Please select a card, for connecting to the container \"%s\"",
     L"请选择一个卡，用于连接容器 \"%s\"", L"請選擇一個卡，用于連接容器 \"%s\""},
};

// The text `number` must read in language langId: Simplified Chinese for the PRC (2052),
// Traditional Chinese for Taiwan (1028), English for every other language; "" for no text.
inline const wchar_t* ExpectedUiText(uint16_t langId, uint32_t number) {
  for (const ExpectedText& t : kExpectedTexts)
    if (t.number == number)
      return langId == 2052 ? t.simplified : langId == 1028 ? t.traditional : t.english;
  return L"";
}

}  // namespace nivra::uitest
