// RSA entries of the fake. It does no arithmetic: raw RSA (CKM_RSA_X_509) returns its input
// unchanged (or, for C_Decrypt, the bytes a test injected), which lets tests see exactly the
// blocks the provider builds and feed it any block they like. Key generation stores the two
// templates with a modulus of the requested size.
#include <cstring>

#include "fake_state.h"

using namespace fake;

namespace {

CK_RV StartOperation(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key,
                     Operation operation, const char* name) {
  FAKE_ENTRY(name);
  if (SessionSlot(s, session) == nullptr) return CKR_SESSION_HANDLE_INVALID;
  if (mechanism == nullptr || mechanism->mechanism != CKM_RSA_X_509) return CKR_MECHANISM_INVALID;
  if (VisibleObject(s, session, key) == nullptr) return CKR_KEY_HANDLE_INVALID;
  Session& state = s.sessions[session];
  if (state.operation != Operation::kNone) return CKR_OPERATION_ACTIVE;
  state.operation = operation;
  state.key = key;
  return CKR_OK;
}

CK_RV RunOperation(CK_SESSION_HANDLE session, CK_BYTE* in, CK_ULONG inLength, CK_BYTE* out,
                   CK_ULONG* outLength, Operation operation, const char* name) {
  FAKE_ENTRY(name);
  if (SessionSlot(s, session) == nullptr) return CKR_SESSION_HANDLE_INVALID;
  Session& state = s.sessions[session];
  if (state.operation != operation) return CKR_OPERATION_NOT_INITIALIZED;
  const Bytes result = operation == Operation::kDecrypt && !s.decryptResult.empty()
                           ? s.decryptResult
                           : Bytes(in, in + inLength);
  if (out == nullptr) {
    *outLength = static_cast<CK_ULONG>(result.size());
    return CKR_OK;
  }
  state.operation = Operation::kNone;
  if (*outLength < result.size()) {
    *outLength = static_cast<CK_ULONG>(result.size());
    return CKR_BUFFER_TOO_SMALL;
  }
  std::memcpy(out, result.data(), result.size());
  *outLength = static_cast<CK_ULONG>(result.size());
  return CKR_OK;
}

CK_RV EncryptInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  return StartOperation(session, mechanism, key, Operation::kEncrypt, "C_EncryptInit");
}

CK_RV Encrypt(CK_SESSION_HANDLE session, CK_BYTE* in, CK_ULONG inLength, CK_BYTE* out,
              CK_ULONG* outLength) {
  return RunOperation(session, in, inLength, out, outLength, Operation::kEncrypt, "C_Encrypt");
}

CK_RV DecryptInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  return StartOperation(session, mechanism, key, Operation::kDecrypt, "C_DecryptInit");
}

CK_RV Decrypt(CK_SESSION_HANDLE session, CK_BYTE* in, CK_ULONG inLength, CK_BYTE* out,
              CK_ULONG* outLength) {
  return RunOperation(session, in, inLength, out, outLength, Operation::kDecrypt, "C_Decrypt");
}

Object FromTemplate(const CK_ATTRIBUTE* attributes, CK_ULONG count) {
  Object object;
  for (CK_ULONG i = 0; i < count; ++i) {
    const auto* bytes = static_cast<const uint8_t*>(attributes[i].pValue);
    object[attributes[i].type].assign(bytes, bytes + attributes[i].ulValueLen);
  }
  return object;
}

CK_RV GenerateKeyPair(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism,
                      CK_ATTRIBUTE* publicTemplate, CK_ULONG publicCount,
                      CK_ATTRIBUTE* privateTemplate, CK_ULONG privateCount,
                      CK_OBJECT_HANDLE* publicKey, CK_OBJECT_HANDLE* privateKey) {
  FAKE_ENTRY("C_GenerateKeyPair");
  Slot* slot = SessionSlot(s, session);
  if (slot == nullptr) return CKR_SESSION_HANDLE_INVALID;
  if (mechanism == nullptr || mechanism->mechanism != CKM_RSA_PKCS_KEY_PAIR_GEN) {
    return CKR_MECHANISM_INVALID;
  }
  if (!slot->token.userLoggedIn) return CKR_USER_NOT_LOGGED_IN;
  Object pub = FromTemplate(publicTemplate, publicCount);
  Object priv = FromTemplate(privateTemplate, privateCount);
  CK_ULONG bits = 0;
  auto it = pub.find(CKA_MODULUS_BITS);
  if (it == pub.end() || it->second.size() != sizeof(bits)) return CKR_TEMPLATE_INCOMPLETE;
  std::memcpy(&bits, it->second.data(), sizeof(bits));
  // A recognisable modulus: top bit set, then the bytes counting down.
  Bytes modulus(bits / 8);
  for (size_t i = 0; i < modulus.size(); ++i) modulus[i] = static_cast<uint8_t>(0xC1 - i);
  pub[CKA_MODULUS] = modulus;
  priv[CKA_MODULUS] = modulus;
  *publicKey = s.nextHandle++;
  *privateKey = s.nextHandle++;
  slot->token.objects[*publicKey] = std::move(pub);
  slot->token.objects[*privateKey] = std::move(priv);
  return CKR_OK;
}

}  // namespace

void FillCryptoFunctions(CK_FUNCTION_LIST& list) {
  list.C_EncryptInit = EncryptInit;
  list.C_Encrypt = Encrypt;
  list.C_DecryptInit = DecryptInit;
  list.C_Decrypt = Decrypt;
  list.C_GenerateKeyPair = GenerateKeyPair;
}
