// The resource script linked with the user-interface code: the PIN dialog template is found in
// the module the code lives in, and the version block names the provider.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ui/module_handle.h"
#include "ui/resource.h"

namespace {

TEST(UiResources, ComeFromTheModuleTheCodeIsLinkedInto) {
  // Linked into this test program, the code's module is the program itself.
  EXPECT_EQ(nivra::ui::UiResourceModule(), GetModuleHandleW(nullptr));
  EXPECT_NE(FindResourceW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDD_VERIFY_PIN), RT_DIALOG),
            nullptr);
}

std::wstring VersionString(const std::vector<char>& block, const wchar_t* name) {
  std::wstring path = std::wstring(L"\\StringFileInfo\\040904b0\\") + name;
  wchar_t* value = nullptr;
  UINT length = 0;
  if (!VerQueryValueW(block.data(), path.c_str(), reinterpret_cast<void**>(&value), &length)) {
    return L"<missing>";
  }
  return std::wstring(value, length > 0 ? length - 1 : 0);
}

TEST(UiResources, VersionBlockNamesProviderAndVersionOnePointZero) {
  wchar_t path[MAX_PATH];
  ASSERT_GT(GetModuleFileNameW(nullptr, path, MAX_PATH), 0u);
  DWORD ignored = 0;
  DWORD size = GetFileVersionInfoSizeW(path, &ignored);
  ASSERT_GT(size, 0u);
  std::vector<char> block(size);
  ASSERT_TRUE(GetFileVersionInfoW(path, 0, size, block.data()));

  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT fixedLength = 0;
  ASSERT_TRUE(VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &fixedLength));
  EXPECT_EQ(fixed->dwSignature, 0xFEEF04BDu);
  EXPECT_EQ(fixed->dwFileVersionMS, 0x00010000u);
  EXPECT_EQ(fixed->dwFileVersionLS, 0u);
  EXPECT_EQ(fixed->dwProductVersionMS, 0x00010000u);
  EXPECT_EQ(fixed->dwFileType, static_cast<DWORD>(VFT_DLL));

  EXPECT_EQ(VersionString(block, L"ProductName"), L"Nivra CSP");
  EXPECT_EQ(VersionString(block, L"FileDescription"), L"Nivra pkcs11 CSP");
  EXPECT_EQ(VersionString(block, L"FileVersion"), L"1.0.0.0");
  EXPECT_EQ(VersionString(block, L"OriginalFilename"), L"nivracsp.dll");
}

}  // namespace
