// The test controls of the fake PKCS#11 module (p11fake.dll). Tests load the module by the same
// path the provider is configured with, so both reach one instance, and set it up through these
// exports before the provider initialises it.
#pragma once
#include <windows.h>

#include <cstdint>

#include "pkcs11/cryptoki.h"

// How C_WaitForSlotEvent answers.
enum FakeWaitMode : uint32_t {
  kFakeWaitNotSupported = 0,  // CKR_FUNCTION_NOT_SUPPORTED, as software tokens answer
  kFakeWaitError = 1,         // the configured error, at once
  kFakeWaitEvents = 2,        // blocks until an event is raised or the module is finalised
};

// Slot identifiers of the fake: kFakeFirstSlotId + index.
constexpr CK_SLOT_ID kFakeFirstSlotId = 0x100;
constexpr char kFakeUserPin[] = "1234";
constexpr char kFakeSoPin[] = "5678";

struct FakeModuleControl {
  HMODULE module = nullptr;
  // Back to the start state: two slots, "Fake slot 0" with an empty token, "Fake slot 1" without
  // a token; normal answers everywhere; counters zero.
  void(__cdecl* Reset)() = nullptr;
  // C_Initialize answers rv (CKR_OK: normal). With `initialise` 0 the module stays uninitialised.
  void(__cdecl* SetInitializeResult)(CK_RV rv, int initialise) = nullptr;
  // C_GetFunctionList answers rv.
  void(__cdecl* SetFunctionListResult)(CK_RV rv) = nullptr;
  // Replaces the slots by `count` slots without tokens, descriptions "Fake slot <i>" or blanks.
  void(__cdecl* SetSlots)(uint32_t count, int blankDescriptions) = nullptr;
  void(__cdecl* SetTokenPresent)(uint32_t index, int present) = nullptr;
  // The slot's description (at most 64 bytes; padded with blanks).
  void(__cdecl* SetSlotDescription)(uint32_t index, const char* text) = nullptr;
  // Strict templates, as SoftHSM2 has them: a private RSA key needs every component and an X.509
  // certificate a CKA_SUBJECT (else CKR_TEMPLATE_INCOMPLETE); like SoftHSM2, the refused object
  // stays on the token as it was made.
  void(__cdecl* SetStrictTemplates)(int strict) = nullptr;
  // Every creation of an object of `objectClass` answers rv (CKR_OK: normal).
  void(__cdecl* SetCreateResult)(CK_OBJECT_CLASS objectClass, CK_RV rv) = nullptr;
  void(__cdecl* SetWaitMode)(uint32_t mode, CK_RV errorRv) = nullptr;
  void(__cdecl* RaiseEvent)(CK_SLOT_ID slot) = nullptr;
  // Every C_Login answers rv from now on (CKR_OK: check the PIN).
  void(__cdecl* SetLoginResult)(CK_RV rv) = nullptr;
  // C_Decrypt returns these bytes instead of its input (null: echo the input again).
  void(__cdecl* SetDecryptResult)(const uint8_t* bytes, uint32_t length) = nullptr;
  // Number of calls of the named function since the last reset.
  uint32_t(__cdecl* CallCount)(const char* name) = nullptr;
  // 1 while the module is initialised.
  int(__cdecl* Initialised)() = nullptr;
  // The module's function list, for setting up objects from the test.
  CK_FUNCTION_LIST* functions = nullptr;

  // Loads the module (by full path) and resolves every control; false when anything is missing.
  bool Load(const wchar_t* path);
};
