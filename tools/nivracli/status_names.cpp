#include "status_names.h"

#include <cstdio>

namespace {
struct StatusName {
  uint32_t code;
  const char* name;
  const char* words;
};

const StatusName kNames[] = {
    {0, "ERROR_SUCCESS", "success"},
    {2, "ERROR_FILE_NOT_FOUND", "the provider DLL or a registry value was not found"},
    {87, "ERROR_INVALID_PARAMETER", "a parameter is missing or invalid"},
    {120, "ERROR_CALL_NOT_IMPLEMENTED", "the operation is not offered by this provider"},
    {234, "ERROR_MORE_DATA", "the buffer is too small; the needed size was returned"},
    {0x80090001, "NTE_BAD_UID", "the key belongs to another context"},
    {0x80090002, "NTE_BAD_HASH", "the hash algorithm cannot be used here"},
    {0x80090003, "NTE_BAD_KEY", "the key cannot be used here"},
    {0x80090004, "NTE_BAD_LEN", "a length is out of range"},
    {0x80090005, "NTE_BAD_DATA", "the data are malformed"},
    {0x80090006, "NTE_BAD_SIGNATURE", "the signature does not verify"},
    {0x80090009, "NTE_BAD_FLAGS", "the flags are not allowed here"},
    {0x8009000A, "NTE_BAD_TYPE", "the parameter or blob type is not supported"},
    {0x8009000B, "NTE_BAD_KEY_STATE", "the key cannot be exported in this form"},
    {0x8009000D, "NTE_NO_KEY", "the container holds no such key"},
    {0x8009000E, "NTE_NO_MEMORY", "out of memory"},
    {0x80090010, "NTE_PERM", "not allowed on this context (verify-only)"},
    {0x80090011, "NTE_NOT_FOUND", "no card or device was found"},
    {0x80090015, "NTE_BAD_PUBLIC_KEY", "the key has no public part to export"},
    {0x80090016, "NTE_BAD_KEYSET", "the key container or the card slot cannot be opened"},
    {0x80090019, "NTE_PROV_DLL_NOT_FOUND", "the provider DLL could not be loaded"},
    {0x8009001D, "NTE_PROVIDER_DLL_FAIL", "the provider DLL failed to load or initialise"},
    {0x8009001F, "NTE_BAD_KEYSET_PARAM", "the container string is malformed or too long"},
    {0x80090020, "NTE_FAIL", "internal failure"},
    {0x80090021, "NTE_SYS_ERR", "a system resource could not be created"},
    {0x80090022, "NTE_SILENT_CONTEXT", "the operation needs a user interface"},
    {0x80090026, "NTE_INVALID_HANDLE", "the handle is not valid"},
    {0x80090027, "NTE_INVALID_PARAMETER", "a parameter is not valid"},
    {0x80090029, "NTE_NOT_SUPPORTED", "the card or back end does not support this"},
    {0x8010000A, "SCARD_E_TIMEOUT", "the card did not answer in time"},
    {0x8010006B, "SCARD_W_WRONG_CHV", "wrong PIN"},
    {0x8010006C, "SCARD_W_CHV_BLOCKED", "the PIN is blocked"},
    {0x8010006E, "SCARD_W_CANCELLED_BY_USER", "cancelled by the user"},
};
}  // namespace

std::string DescribeStatus(uint32_t code) {
  char hex[16];
  std::snprintf(hex, sizeof(hex), "0x%08X", code);
  for (const StatusName& n : kNames) {
    if (n.code == code) return std::string(n.name) + " (" + hex + "): " + n.words;
  }
  return std::string("status ") + hex;
}
