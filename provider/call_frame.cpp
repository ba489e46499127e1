#include "provider/call_frame.h"

#include <cstring>

namespace nivra::provider {

BOOL Finish(const Outcome& outcome) {
  SetLastError(outcome.error);
  return outcome.ok;
}

Status CopyOut(const void* value, DWORD size, BYTE* pbData, DWORD* pdwDataLen) {
  if (pbData == nullptr) {
    *pdwDataLen = size;
    return kOk;
  }
  if (*pdwDataLen < size) {
    *pdwDataLen = size;
    return kErrMoreData;
  }
  std::memcpy(pbData, value, size);
  *pdwDataLen = size;
  return kOk;
}

}  // namespace nivra::provider
