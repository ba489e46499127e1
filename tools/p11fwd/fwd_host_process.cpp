#include "tools/p11fwd/fwd_host_process.h"

#include <windows.h>

#include <cstring>

namespace nivra::p11fwd {
namespace {

using HostVersion = void(CDECL*)(const char** sysname, const char** release);

// Linux's getpid on x86-64. Wine runs a program's code in the host process itself, so the
// system call answers for this process (Windows' own ids are Wine's numbering, and a host file
// such as /proc/self is opened by Wine's server, not by us).
constexpr long kLinuxGetpid = 39;

}  // namespace

uint32_t HostProcessId() {
#if defined(__x86_64__)
  auto hostVersion = reinterpret_cast<HostVersion>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_host_version")));
  if (hostVersion == nullptr) return 0;  // not Wine
  const char* sysname = nullptr;
  const char* release = nullptr;
  hostVersion(&sysname, &release);
  if (sysname == nullptr || std::strcmp(sysname, "Linux") != 0) return 0;
  long pid;
  __asm__ volatile("syscall" : "=a"(pid) : "a"(kLinuxGetpid) : "rcx", "r11", "memory");
  return pid > 0 ? static_cast<uint32_t>(pid) : 0;
#else
  return 0;
#endif
}

}  // namespace nivra::p11fwd
