#include "card_wait.h"

#include <cstdio>

namespace nivracli {

namespace {
constexpr DWORD kReportEveryMs = 5000;
}

CardWait::CardWait(const std::string& what) : what_(what) {
  std::printf("%s ...\n", what_.c_str());
  std::fflush(stdout);
  done_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  thread_ = CreateThread(nullptr, 0, Run, this, 0, nullptr);
}

CardWait::~CardWait() {
  SetEvent(done_);
  if (thread_ != nullptr) {
    WaitForSingleObject(thread_, INFINITE);
    CloseHandle(thread_);
  }
  CloseHandle(done_);
}

DWORD WINAPI CardWait::Run(void* self) {
  auto* wait = static_cast<CardWait*>(self);
  const ULONGLONG start = GetTickCount64();
  while (WaitForSingleObject(wait->done_, kReportEveryMs) == WAIT_TIMEOUT) {
    std::printf("  still waiting for the card (%llu s): %s\n",
                static_cast<unsigned long long>((GetTickCount64() - start) / 1000), wait->what_.c_str());
    std::fflush(stdout);
  }
  return 0;
}

}  // namespace nivracli
