// Contexts of the provider on a card, opened through CryptoAPI, with failures said in words:
// which card was missing, which container, whether the PIN was refused.
#pragma once
#include <windows.h>
#include <wincrypt.h>

#include <string>
#include <vector>

#include "cli_args.h"

namespace nivracli {

using Bytes = std::vector<BYTE>;

// A CryptoAPI context, released when it goes out of scope.
class Context {
 public:
  Context() = default;
  explicit Context(HCRYPTPROV prov) : prov_(prov) {}
  Context(Context&& other) noexcept : prov_(other.prov_) { other.prov_ = 0; }
  Context& operator=(Context&& other) noexcept;
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  ~Context();
  HCRYPTPROV get() const { return prov_; }

 private:
  HCRYPTPROV prov_ = 0;
};

// A key handle, destroyed when it goes out of scope.
class Key {
 public:
  Key() = default;
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key() {
    if (key_ != 0) CryptDestroyKey(key_);
  }
  HCRYPTKEY* out() { return &key_; }
  HCRYPTKEY get() const { return key_; }

 private:
  HCRYPTKEY key_ = 0;
};

// "\\.\<card>\<container>", or the bare container name when no card is named.
std::string ContainerString(const std::string& card, const std::string& container);

// Submits --pin (when given) to the card through a verify-only context on it, so that later
// contexts of this process find the card logged in and no PIN dialog appears. The context stays
// open until the process ends. A refused PIN ends the action (wrong or blocked PIN).
void LogIn(const Args& args, const std::string& card);

// Opens `container` on the card named by --card (or the card the provider picks) with `flags`
// (CRYPT_NEWKEYSET, CRYPT_DELETEKEYSET, CRYPT_SILENT). Logs in first when --pin is given and
// the operation may need it (`needsLogin`). A failure ends the action, telling a missing card
// from a missing container.
Context OpenContainer(const Args& args, const std::string& container, DWORD flags, bool needsLogin);

// A verify-only context on the named card (any card when `card` is empty).
Context OpenCard(const Args& args, const std::string& card);

// The container's key pair of `keySpec`; a missing one ends the action in words.
void GetUserKey(const Context& ctx, DWORD keySpec, Key* key);

// The certificate stored with the container's key of `keySpec`; empty when it has none.
Bytes ReadCardCertificate(HCRYPTKEY key);

// The containers on a card, through PP_ENUMCONTAINERS.
std::vector<std::string> EnumContainers(const Context& card);

// Names of the cards (token slots holding an initialised token) the provider can reach. The provider offers
// no enumeration of its devices through CryptoAPI, so the slot list is read from the PKCS#11
// module the provider is configured with, after the provider itself has started it.
std::vector<std::string> ReachableCards(const Args& args);

// --card, or the only reachable card; a usage error when there are several and none is named.
std::string ChosenCard(const Args& args);

}  // namespace nivracli

namespace nivracli {

// One key pair of a container as the card shows it.
struct CardKey {
  DWORD keySpec = 0;
  DWORD bits = 0;
  Bytes certificate;  // DER; empty when the key has none
};

struct CardContainer {
  std::string card;
  std::string name;
  std::vector<CardKey> keys;  // the pairs present, signature first
};

// Every container of `card` with its key pairs and certificates (read without a PIN).
std::vector<CardContainer> ReadCard(const Args& args, const std::string& card);

}  // namespace nivracli
