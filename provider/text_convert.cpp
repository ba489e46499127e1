#include "provider/text_convert.h"

#include <windows.h>

namespace nivra::provider {

namespace {
bool ToWide(UINT codePage, const std::string& in, std::wstring* out) {
  out->clear();
  if (in.empty()) return true;
  int n = MultiByteToWideChar(codePage, 0, in.data(), static_cast<int>(in.size()), nullptr, 0);
  if (n <= 0) return false;
  out->resize(static_cast<size_t>(n));
  return MultiByteToWideChar(codePage, 0, in.data(), static_cast<int>(in.size()), &(*out)[0], n) == n;
}
}  // namespace

bool AnsiToUtf8(const char* ansi, std::string* utf8) {
  std::wstring wide;
  if (!ToWide(CP_ACP, ansi, &wide)) return false;
  utf8->clear();
  if (wide.empty()) return true;
  int n = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0,
                              nullptr, nullptr);
  if (n <= 0) return false;
  utf8->resize(static_cast<size_t>(n));
  return WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), &(*utf8)[0],
                             n, nullptr, nullptr) == n;
}

std::wstring Utf8ToWide(const std::string& utf8) {
  std::wstring wide;
  ToWide(CP_UTF8, utf8, &wide);
  return wide;
}

}  // namespace nivra::provider
