// Says what a long card operation is waiting for while it runs.
#pragma once
#include <windows.h>

#include <string>

namespace nivracli {

// Prints `what` at once and, every few seconds until destroyed, how long the wait has lasted.
class CardWait {
 public:
  explicit CardWait(const std::string& what);
  ~CardWait();
  CardWait(const CardWait&) = delete;
  CardWait& operator=(const CardWait&) = delete;

 private:
  static DWORD WINAPI Run(void* self);
  std::string what_;
  HANDLE done_ = nullptr;
  HANDLE thread_ = nullptr;
};

}  // namespace nivracli
