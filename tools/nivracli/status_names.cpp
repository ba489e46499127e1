#include "status_names.h"

#include <cstdio>

namespace {
struct StatusName {
  uint32_t code;
  const char* name;
  const char* words;
  ExitStatus exit;
};

const StatusName kNames[] = {
    {0, "ERROR_SUCCESS", "success", kExitOk},
    {2, "ERROR_FILE_NOT_FOUND", "the provider DLL or a registry value was not found", kExitFailed},
    {87, "ERROR_INVALID_PARAMETER", "a parameter is missing or invalid", kExitFailed},
    {120, "ERROR_CALL_NOT_IMPLEMENTED", "the operation is not offered by this provider", kExitFailed},
    {234, "ERROR_MORE_DATA", "the buffer is too small; the needed size was returned", kExitFailed},
    {259, "ERROR_NO_MORE_ITEMS", "there are no more items", kExitFailed},
    {0x80090001, "NTE_BAD_UID", "the key belongs to another context", kExitFailed},
    {0x80090002, "NTE_BAD_HASH", "the hash algorithm cannot be used here", kExitFailed},
    {0x80090003, "NTE_BAD_KEY", "the key cannot be used here", kExitFailed},
    {0x80090004, "NTE_BAD_LEN", "a length is out of range (a PIN too short or too long?)", kExitFailed},
    {0x80090005, "NTE_BAD_DATA", "the data are malformed", kExitFailed},
    {0x80090006, "NTE_BAD_SIGNATURE", "the signature does not verify", kExitBadSignature},
    {0x80090008, "NTE_BAD_ALGID", "the algorithm is not supported", kExitFailed},
    {0x80090009, "NTE_BAD_FLAGS", "the flags are not allowed here (key size not offered?)", kExitFailed},
    {0x8009000A, "NTE_BAD_TYPE", "the parameter or blob type is not supported", kExitFailed},
    {0x8009000B, "NTE_BAD_KEY_STATE", "the key cannot be exported in this form", kExitFailed},
    {0x8009000D, "NTE_NO_KEY", "the container holds no such key pair", kExitNoKey},
    {0x8009000E, "NTE_NO_MEMORY", "out of memory", kExitFailed},
    {0x8009000F, "NTE_EXISTS", "the container already exists", kExitNoContainer},
    {0x80090010, "NTE_PERM", "not allowed on this context (verify-only)", kExitFailed},
    {0x80090011, "NTE_NOT_FOUND", "no card was found, or the key has no certificate", kExitNoCard},
    {0x80090015, "NTE_BAD_PUBLIC_KEY", "the key has no public part to export", kExitFailed},
    {0x80090016, "NTE_BAD_KEYSET", "the key container or the card cannot be opened", kExitNoContainer},
    {0x80090019, "NTE_PROV_DLL_NOT_FOUND", "the provider DLL could not be loaded", kExitFailed},
    {0x8009001D, "NTE_PROVIDER_DLL_FAIL", "the provider DLL failed to load or initialise", kExitFailed},
    {0x8009001F, "NTE_BAD_KEYSET_PARAM", "the container string is malformed or too long", kExitFailed},
    {0x80090020, "NTE_FAIL", "internal failure", kExitFailed},
    {0x80090021, "NTE_SYS_ERR", "a system resource could not be created", kExitFailed},
    {0x80090022, "NTE_SILENT_CONTEXT", "the operation needs a user interface (give --pin)", kExitFailed},
    {0x80090026, "NTE_INVALID_HANDLE", "the handle is not valid", kExitFailed},
    {0x80090027, "NTE_INVALID_PARAMETER", "a parameter is not valid", kExitFailed},
    {0x80090029, "NTE_NOT_SUPPORTED", "the card or back end does not support this", kExitFailed},
    {0x80091004, "CRYPT_E_UNKNOWN_ALGO", "the message uses an algorithm that is not supported", kExitFailed},
    {0x8009100E, "CRYPT_E_NO_SIGNER", "the message has no such signer", kExitFailed},
    {0x80091010, "CRYPT_E_STREAM_MSG_NOT_READY", "the message is incomplete", kExitFailed},
    {0x80092004, "CRYPT_E_NOT_FOUND", "the object or property was not found", kExitNoKey},
    {0x8009200B, "CRYPT_E_NO_KEY_PROPERTY", "the certificate names no private key", kExitNoKey},
    {0x8009200C, "CRYPT_E_NO_DECRYPT_CERT",
     "no certificate with a private key in the user's store matches a recipient", kExitNoKey},
    {0x80093102, "CRYPT_E_ASN1_BADTAG", "the file is not in the expected DER form", kExitFailed},
    {0x80096004, "TRUST_E_CERT_SIGNATURE", "the certificate's signature does not verify", kExitBadSignature},
    {0x8010000A, "SCARD_E_TIMEOUT", "the card did not answer in time", kExitFailed},
    {0x8010000C, "SCARD_E_NO_SMARTCARD", "no card is in the reader", kExitNoCard},
    {0x8010000D, "SCARD_E_UNKNOWN_CARD", "the card is not present or not known", kExitNoCard},
    {0x8010002A, "SCARD_E_INVALID_CHV", "wrong PIN", kExitWrongPin},
    {0x8010006B, "SCARD_W_WRONG_CHV", "wrong PIN", kExitWrongPin},
    {0x8010006C, "SCARD_W_CHV_BLOCKED", "the PIN is blocked (unblock it with the administrator PIN)",
     kExitPinLocked},
    {0x8010006E, "SCARD_W_CANCELLED_BY_USER", "cancelled by the user", kExitFailed},
    {0x8010006F, "SCARD_W_CARD_NOT_AUTHENTICATED", "no PIN has been presented to the card", kExitWrongPin},
};

const StatusName* Find(uint32_t code) {
  for (const StatusName& n : kNames) {
    if (n.code == code) return &n;
  }
  return nullptr;
}
}  // namespace

std::string DescribeStatus(uint32_t code) {
  char hex[16];
  std::snprintf(hex, sizeof(hex), "0x%08X", code);
  const StatusName* n = Find(code);
  if (n != nullptr) return std::string(n->name) + " (" + hex + "): " + n->words;
  return std::string("status ") + hex + ": not a status this tool knows";
}

ExitStatus ExitStatusFor(uint32_t code) {
  const StatusName* n = Find(code);
  return n != nullptr ? n->exit : kExitFailed;
}
