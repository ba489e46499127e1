#include "service/string_convert.h"

#include <windows.h>

namespace nivra::service {

namespace {

char* WideToCodePage(UINT codePage, const wchar_t* text, size_t* length, RequestBuffers* list) {
  if (text == nullptr) return nullptr;
  const int size = WideCharToMultiByte(codePage, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (size <= 0) return nullptr;
  const size_t blockSize = static_cast<size_t>(size) + 1;
  char* out = reinterpret_cast<char*>(AllocZeroed(blockSize));
  if (out == nullptr) return nullptr;
  WideCharToMultiByte(codePage, 0, text, -1, out, size, nullptr, nullptr);
  out[size] = '\0';
  if (length != nullptr) *length = static_cast<size_t>(size) - 1;
  if (list != nullptr) list->Add(out, blockSize);
  return out;
}

// Through UTF-16 in a temporary block that is freed before returning.
char* Recode(UINT from, UINT to, const char* text, size_t* length, RequestBuffers* list) {
  if (text == nullptr) return nullptr;
  const int count = MultiByteToWideChar(from, 0, text, -1, nullptr, 0);
  if (count <= 0) return nullptr;
  const size_t wideBytes = (static_cast<size_t>(count) + 1) * sizeof(wchar_t);
  wchar_t* wide = reinterpret_cast<wchar_t*>(AllocZeroed(wideBytes));
  if (wide == nullptr) return nullptr;
  MultiByteToWideChar(from, 0, text, -1, wide, count);
  wide[count] = L'\0';
  char* out = WideToCodePage(to, wide, length, list);
  FreeZeroed(wide, wideBytes);
  return out;
}

}  // namespace

char* WideToUtf8(const wchar_t* text, RequestBuffers* list) {
  return WideToCodePage(CP_UTF8, text, nullptr, list);
}

size_t Utf8ToWide(const char* text, wchar_t* out, size_t* capacity) {
  if (text == nullptr || capacity == nullptr) return 0;
  const int needed = MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
  if (needed <= 0) return 0;
  if (out == nullptr || static_cast<size_t>(needed) > *capacity) {
    *capacity = static_cast<size_t>(needed);
    return 0;
  }
  const int written = MultiByteToWideChar(CP_UTF8, 0, text, -1, out, static_cast<int>(*capacity));
  if (written <= 0) return 0;
  if (*capacity > static_cast<size_t>(written)) out[written] = L'\0';
  *capacity = static_cast<size_t>(written);
  return static_cast<size_t>(written);
}

char* AnsiToUtf8(const char* text, RequestBuffers* list) {
  return Recode(CP_ACP, CP_UTF8, text, nullptr, list);
}

char* Utf8ToAnsi(const char* text, size_t* length, RequestBuffers* list) {
  return Recode(CP_UTF8, CP_ACP, text, length, list);
}

}  // namespace nivra::service
