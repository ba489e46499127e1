// Conversions between the ANSI code page, UTF-8 and UTF-16 at the provider's edges: container
// strings arrive in the ANSI code page and are kept in UTF-8 inside the provider.
#pragma once
#include <string>

namespace nivra::provider {

// CP_ACP -> UTF-16 -> UTF-8. Returns false when a conversion fails.
bool AnsiToUtf8(const char* ansi, std::string* utf8);
std::wstring Utf8ToWide(const std::string& utf8);

}  // namespace nivra::provider
