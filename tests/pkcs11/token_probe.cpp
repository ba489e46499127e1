// pkcs11_token_probe: the native side's view for the Windows tests, which start it while the
// helper holds the token.
//
//   pkcs11_token_probe objects <fixture-dir>
//       Logs in to the fixture's SoftHSM2 token as the user and prints one line per object:
//       "object" followed by name=value pairs (byte strings in hex, numbers in decimal) for the
//       attributes the object has.
// Output ends with a line "done"; errors are printed as "error: ...".
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tools/p11helper/native_module.h"

namespace {

using Bytes = std::vector<uint8_t>;

int Fail(const std::string& message) {
  std::printf("error: %s\ndone\n", message.c_str());
  return 1;
}

// Byte strings in hex; numbers and flags (one byte) in decimal.
struct Shown {
  CK_ATTRIBUTE_TYPE type;
  const char* name;
  bool bytes;
};

const Shown kShown[] = {
    {CKA_CLASS, "class", false},       {CKA_LABEL, "label", true},
    {CKA_ID, "id", true},              {CKA_APPLICATION, "application", true},
    {CKA_TOKEN, "token", false},       {CKA_PRIVATE, "private", false},
    {CKA_SENSITIVE, "sensitive", false}, {CKA_MODULUS, "modulus", true},
    {CKA_PUBLIC_EXPONENT, "public_exponent", true}, {CKA_VALUE, "value", true},
};

void PrintObject(CK_FUNCTION_LIST* f, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  std::string line = "object";
  for (const Shown& shown : kShown) {
    CK_ATTRIBUTE a{shown.type, nullptr, 0};
    if (f->C_GetAttributeValue(session, object, &a, 1) != CKR_OK) continue;
    if (a.ulValueLen == CK_UNAVAILABLE_INFORMATION) continue;
    Bytes value(a.ulValueLen);
    a.pValue = value.data();
    if (!value.empty() && f->C_GetAttributeValue(session, object, &a, 1) != CKR_OK) continue;
    line += std::string(" ") + shown.name + "=";
    if (!shown.bytes) {
      CK_ULONG number = 0;
      std::memcpy(&number, value.data(), std::min(value.size(), sizeof(number)));
      line += std::to_string(number);
      continue;
    }
    for (uint8_t b : value) {
      line += "0123456789abcdef"[b >> 4];
      line += "0123456789abcdef"[b & 15];
    }
  }
  std::printf("%s\n", line.c_str());
}

int ListObjects(const std::string& fixture) {
  setenv("SOFTHSM2_CONF", (fixture + "/softhsm2.conf").c_str(), 1);
  nivra::p11helper::NativeModule softhsm;
  std::string error;
  if (!softhsm.Load(nivra::p11helper::kDefaultModulePath, &error)) return Fail(error);
  CK_FUNCTION_LIST* f = softhsm.functions();
  CK_SLOT_ID slots[16];
  CK_ULONG count = 16;
  if (f->C_GetSlotList(CK_TRUE, slots, &count) != CKR_OK || count == 0) return Fail("no token");
  CK_SESSION_HANDLE session = 0;
  if (f->C_OpenSession(slots[0], CKF_SERIAL_SESSION, nullptr, nullptr, &session) != CKR_OK) {
    return Fail("no session");
  }
  CK_UTF8CHAR pin[] = "1234";
  if (f->C_Login(session, CKU_USER, pin, 4) != CKR_OK) return Fail("login refused");
  if (f->C_FindObjectsInit(session, nullptr, 0) != CKR_OK) return Fail("search refused");
  std::vector<CK_OBJECT_HANDLE> objects(1024);
  CK_ULONG found = 0;
  f->C_FindObjects(session, objects.data(), static_cast<CK_ULONG>(objects.size()), &found);
  f->C_FindObjectsFinal(session);
  for (CK_ULONG i = 0; i < found; ++i) PrintObject(f, session, objects[i]);
  f->C_Logout(session);
  f->C_CloseSession(session);
  std::printf("done\n");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "objects") == 0) return ListObjects(argv[2]);
  return Fail("usage: objects <dir>");
}
