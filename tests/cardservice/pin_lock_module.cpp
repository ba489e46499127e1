// A PKCS#11 module for tests: SoftHSM2 with one behaviour of real cards added. SoftHSM2 never
// locks a user PIN, so this module does, as a card would: after three wrong user PINs in a row,
// C_Login for the user answers CKR_PIN_LOCKED until C_InitPIN sets a new PIN. Everything else
// is SoftHSM2's own function.
#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include <atomic>

namespace {

constexpr int kWrongPinsBeforeLock = 3;

CK_FUNCTION_LIST* g_softhsm = nullptr;
CK_FUNCTION_LIST g_list;
std::atomic<int> g_wrongPins{0};

CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG length) {
  if (user == CKU_USER && g_wrongPins >= kWrongPinsBeforeLock) return CKR_PIN_LOCKED;
  CK_RV rv = g_softhsm->C_Login(session, user, pin, length);
  if (user == CKU_USER && rv == CKR_PIN_INCORRECT) ++g_wrongPins;
  if (user == CKU_USER && rv == CKR_OK) g_wrongPins = 0;
  return rv;
}

CK_RV InitPin(CK_SESSION_HANDLE session, CK_UTF8CHAR_PTR pin, CK_ULONG length) {
  CK_RV rv = g_softhsm->C_InitPIN(session, pin, length);
  if (rv == CKR_OK) g_wrongPins = 0;
  return rv;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) CK_RV C_GetFunctionList(
    CK_FUNCTION_LIST_PTR_PTR list) {
  void* softhsm = g_softhsm ? nullptr : dlopen("/usr/lib/softhsm/libsofthsm2.so", RTLD_NOW);
  auto get = softhsm ? reinterpret_cast<CK_C_GetFunctionList>(dlsym(softhsm, "C_GetFunctionList"))
                     : nullptr;
  if (get && get(&g_softhsm) == CKR_OK) {
    g_list = *g_softhsm;
    g_list.C_Login = Login;
    g_list.C_InitPIN = InitPin;
  }
  *list = &g_list;
  return g_softhsm ? CKR_OK : CKR_GENERAL_ERROR;
}
