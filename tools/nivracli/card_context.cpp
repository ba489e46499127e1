#include "card_context.h"

#include <cstdio>

#include "cli_error.h"
#include "pkcs11/cryptoki.h"

namespace nivracli {

namespace {

std::vector<Context>& OpenLogins() {
  static std::vector<Context> logins;
  return logins;
}

bool Acquire(const Args& args, const std::string& containerString, DWORD flags, HCRYPTPROV* prov) {
  *prov = 0;
  return CryptAcquireContextA(prov, containerString.empty() ? nullptr : containerString.c_str(),
                              args.Provider().c_str(), PROV_RSA_FULL, flags) != FALSE;
}

[[noreturn]] void FailCardMissing(const std::string& card, DWORD code) {
  if (card.empty()) Fail("no card is reachable", code);
  FailWith("card \"" + card + "\" is not reachable (no such token slot, or no token in it): " +
               DescribeStatus(code),
           kExitNoCard);
}

}  // namespace

Context& Context::operator=(Context&& other) noexcept {
  if (this != &other) {
    if (prov_ != 0) CryptReleaseContext(prov_, 0);
    prov_ = other.prov_;
    other.prov_ = 0;
  }
  return *this;
}

Context::~Context() {
  if (prov_ != 0) CryptReleaseContext(prov_, 0);
}

std::string ContainerString(const std::string& card, const std::string& container) {
  return card.empty() ? container : "\\\\.\\" + card + "\\" + container;
}

Context OpenCard(const Args& args, const std::string& card) {
  HCRYPTPROV prov = 0;
  if (!Acquire(args, card.empty() ? "" : "\\\\.\\" + card, CRYPT_VERIFYCONTEXT, &prov)) {
    FailCardMissing(card, GetLastError());
  }
  return Context(prov);
}

void LogIn(const Args& args, const std::string& card) {
  if (!args.Has("pin")) return;
  Context ctx = OpenCard(args, card);
  std::string pin = args.Get("pin");
  if (!CryptSetProvParam(ctx.get(), PP_KEYEXCHANGE_PIN, reinterpret_cast<const BYTE*>(pin.c_str()), 0)) {
    FailLast("the card refused the PIN");
  }
  OpenLogins().push_back(std::move(ctx));
}

Context OpenContainer(const Args& args, const std::string& container, DWORD flags, bool needsLogin) {
  const std::string card = ChosenCard(args);
  if (needsLogin) LogIn(args, card);
  if (args.Has("silent")) flags |= CRYPT_SILENT;
  HCRYPTPROV prov = 0;
  if (Acquire(args, ContainerString(card, container), flags, &prov)) return Context(prov);
  const DWORD code = GetLastError();
  if (code == static_cast<DWORD>(NTE_BAD_KEYSET) || code == static_cast<DWORD>(NTE_NOT_FOUND)) {
    // Tell a missing card from a missing container: can the card itself be opened?
    HCRYPTPROV probe = 0;
    if (!Acquire(args, card.empty() ? "" : "\\\\.\\" + card, CRYPT_VERIFYCONTEXT, &probe)) {
      FailCardMissing(card, GetLastError());
    }
    CryptReleaseContext(probe, 0);
    if (code == static_cast<DWORD>(NTE_BAD_KEYSET)) {
      FailWith("container \"" + container + "\" is not on the card: " + DescribeStatus(code),
               kExitNoContainer);
    }
  }
  if (code == static_cast<DWORD>(NTE_EXISTS)) {
    FailWith("container \"" + container + "\" already exists on the card: " + DescribeStatus(code),
             kExitNoContainer);
  }
  Fail("opening container \"" + container + "\"", code);
}

void GetUserKey(const Context& ctx, DWORD keySpec, Key* key) {
  if (CryptGetUserKey(ctx.get(), keySpec, key->out())) return;
  const DWORD code = GetLastError();
  FailWith(std::string("the container holds no ") + KeySpecName(keySpec) +
               " key pair: " + DescribeStatus(code),
           ExitStatusFor(code) == kExitFailed ? kExitFailed : kExitNoKey);
}

Bytes ReadCardCertificate(HCRYPTKEY key) {
  DWORD length = 0;
  if (!CryptGetKeyParam(key, KP_CERTIFICATE, nullptr, &length, 0)) {
    const DWORD code = GetLastError();
    if (code == static_cast<DWORD>(NTE_NOT_FOUND)) return Bytes();
    Fail("reading the certificate from the card", code);
  }
  Bytes cert(length);
  if (!CryptGetKeyParam(key, KP_CERTIFICATE, cert.data(), &length, 0)) {
    FailLast("reading the certificate from the card");
  }
  cert.resize(length);
  return cert;
}

std::vector<std::string> EnumContainers(const Context& card) {
  std::vector<std::string> names;
  char name[256];
  DWORD flags = CRYPT_FIRST;
  for (;;) {
    DWORD length = sizeof(name);
    if (!CryptGetProvParam(card.get(), PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &length, flags)) {
      const DWORD code = GetLastError();
      if (code == ERROR_NO_MORE_ITEMS) break;
      Fail("listing the containers", code);
    }
    names.emplace_back(name);
    flags = 0;
  }
  return names;
}

std::vector<std::string> ReachableCards(const Args& args) {
  std::vector<std::string> cards;
  if (args.Has("card")) {
    cards.push_back(args.Card());
    return cards;
  }
  // The provider must start the module first: a module initialised by this program would refuse
  // the provider's own initialisation. With no card at all this acquire fails: no cards.
  HCRYPTPROV first = 0;
  if (!Acquire(args, "", CRYPT_VERIFYCONTEXT, &first)) return cards;
  Context keepStarted(first);
  wchar_t path[MAX_PATH];
  DWORD size = sizeof(path);
  if (RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\NivraCSP", L"LibPkcs11", RRF_RT_REG_SZ, nullptr,
                   path, &size) != ERROR_SUCCESS) {
    return cards;
  }
  HMODULE module = LoadLibraryW(path);
  if (module == nullptr) return cards;
  auto getList = reinterpret_cast<CK_C_GetFunctionList>(
      reinterpret_cast<void*>(GetProcAddress(module, "C_GetFunctionList")));
  CK_FUNCTION_LIST* f = nullptr;
  if (getList == nullptr || getList(&f) != CKR_OK) return cards;
  const CK_RV init = f->C_Initialize(nullptr);
  if (init != CKR_OK && init != CKR_CRYPTOKI_ALREADY_INITIALIZED) return cards;
  CK_ULONG count = 0;
  if (f->C_GetSlotList(CK_TRUE, nullptr, &count) != CKR_OK) return cards;
  std::vector<CK_SLOT_ID> slots(count);
  if (f->C_GetSlotList(CK_TRUE, slots.data(), &count) != CKR_OK) return cards;
  slots.resize(count);
  for (CK_SLOT_ID slot : slots) {
    CK_SLOT_INFO info{};
    CK_TOKEN_INFO token{};
    if (f->C_GetSlotInfo(slot, &info) != CKR_OK || f->C_GetTokenInfo(slot, &token) != CKR_OK) continue;
    if (!(token.flags & CKF_TOKEN_INITIALIZED)) continue;  // a blank token holds nothing yet
    std::string name(reinterpret_cast<const char*>(info.slotDescription), sizeof(info.slotDescription));
    while (!name.empty() && name.back() == ' ') name.pop_back();
    if (!name.empty()) cards.push_back(name);
  }
  return cards;
}

std::string ChosenCard(const Args& args) {
  if (args.Has("card")) return args.Card();
  const std::vector<std::string> cards = ReachableCards(args);
  if (cards.empty()) FailWith("no card is reachable", kExitNoCard);
  if (cards.size() > 1) UsageError("several cards are reachable: name one with --card");
  return cards.front();
}

}  // namespace nivracli

namespace nivracli {

std::vector<CardContainer> ReadCard(const Args& args, const std::string& card) {
  std::vector<CardContainer> result;
  Context cardContext = OpenCard(args, card);
  for (const std::string& name : EnumContainers(cardContext)) {
    CardContainer container{card, name, {}};
    HCRYPTPROV prov = 0;
    const std::string where = ContainerString(card, name);
    if (!CryptAcquireContextA(&prov, where.c_str(), args.Provider().c_str(), PROV_RSA_FULL, CRYPT_SILENT)) {
      Fail("opening container \"" + name + "\"", GetLastError());
    }
    Context ctx(prov);
    for (DWORD keySpec : {static_cast<DWORD>(AT_SIGNATURE), static_cast<DWORD>(AT_KEYEXCHANGE)}) {
      Key key;
      if (!CryptGetUserKey(ctx.get(), keySpec, key.out())) continue;
      CardKey entry;
      entry.keySpec = keySpec;
      DWORD length = sizeof(entry.bits);
      CryptGetKeyParam(key.get(), KP_KEYLEN, reinterpret_cast<BYTE*>(&entry.bits), &length, 0);
      entry.certificate = ReadCardCertificate(key.get());
      container.keys.push_back(entry);
    }
    result.push_back(container);
  }
  return result;
}

}  // namespace nivracli
