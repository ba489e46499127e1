// The record behind every HCRYPTPROV: one per successful acquire.
#pragma once
#include <windows.h>
#include <wincrypt.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "provider/card_backend.h"

namespace nivra::provider {

struct KeyObject;
struct HashObject;

constexpr size_t kProvNameSize = 260;
constexpr size_t kContainerNameSize = 256;
constexpr size_t kPinSize = 256;
constexpr size_t kMaxModulusBytes = 512;

// Public part of one of the container's key pairs, loaded by CardLoadKeyPair.
struct CardKeyPair {
  uint32_t modulusBits;
  uint32_t publicExponent;
  uint8_t modulus[kMaxModulusBytes];  // big-endian, (modulusBits + 7) / 8 bytes
};

struct ProviderContext {
  // Zero-filled allocation; never hands out the one address whose handle would be 0.
  static void* operator new(size_t size);
  static void operator delete(void* p);

  uint32_t provType;
  char provName[kProvNameSize];
  uint32_t verifyOnly;
  uint32_t silent;
  uintptr_t clientWindow;  // PP_CLIENT_HWND stores the pointer value it was given
  uint32_t hardwareRng;
  uint8_t pinLength;
  uint8_t pin[kPinSize];
  char containerName[kContainerNameSize];  // UTF-8; empty means the default container
  std::unique_ptr<std::string> deviceName;  // set when a reader prefix named a device
  uint32_t enumPending;
  char enumName[kContainerNameSize];
  uint32_t backendKind;
  std::unique_ptr<CardDevice> device;  // the selected card (copy of the back end's record)
  CardKeyPair signatureKey;
  CardKeyPair exchangeKey;
  HANDLE contextLock;
  HCRYPTPROV selfHandle;
  uint32_t objectBias;
  HCRYPTPROV softProv;
  CardCaps caps;
  std::vector<KeyObject*> keys;
  std::vector<HashObject*> hashes;

  // The name of the container as the card knows it ("DefaultContainer" when empty).
  std::string CardContainerName() const;
  // The key pair fields for AT_KEYEXCHANGE (1) or AT_SIGNATURE (2).
  CardKeyPair& KeyPair(uint32_t keySpec) { return keySpec == AT_SIGNATURE ? signatureKey : exchangeKey; }
};

// Record behind an HCRYPTKEY.
struct KeyObject {
  uint32_t algId;  // 1/2: container pair; 0x2400/0xA400: module-held RSA public key; else software
  uint32_t flags;
  uint32_t modulusBits;
  uint32_t publicExponent;
  uint32_t modulusBytes;
  uint32_t mode;
  uint32_t effectiveKeyLength;
  uint8_t modulus[kMaxModulusBytes];  // module-held key, big-endian
  HCRYPTKEY softKey;
  HCRYPTKEY selfHandle;
  ProviderContext* owner;

  bool IsContainerPair() const { return algId == AT_KEYEXCHANGE || algId == AT_SIGNATURE; }
  bool IsModuleRsa() const { return algId == CALG_RSA_SIGN || algId == CALG_RSA_KEYX; }
};

// Record behind an HCRYPTHASH.
struct HashObject {
  ALG_ID algId;
  uint8_t hashValue[36];
  uint32_t hashBits;
  uint32_t reserved;
  HCRYPTHASH softHash;
  HCRYPTHASH selfHandle;
  ProviderContext* owner;
};

}  // namespace nivra::provider
