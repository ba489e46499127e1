// Key-pair and certificate commands.
#include "cardservice/card_handlers.h"
#include "cardservice/token_access.h"
#include "cardservice/certificate_store.h"
#include "cardservice/key_store.h"

namespace nivra::cardservice {

namespace {

// Bounds of a key generation request.
constexpr uint32_t kMinModulusBits = 512;
constexpr uint32_t kMaxModulusBits = 8192;

CardAnswer PublicKeyAnswer(const PublicKey& key) {
  CardAnswer answer;
  answer.response.publicKey.bits = key.bits;
  answer.response.publicKey.exponent = key.exponent;
  answer.response.publicKey.modulus = key.modulus;
  return answer;
}

CardAnswer RawOperation(CardCall& call, bool privateKey) {
  std::string id;
  WireStatus status = ReadKeyTarget(call, &id);
  if (status != kStatusOk) return Fail(status);
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  bool found = false;
  CK_RV rv = FindKey(call.token, id, privateKey ? CKO_PRIVATE_KEY : CKO_PUBLIC_KEY, &key, &found);
  if (rv != CKR_OK) return FailCkr(rv);
  if (!found) return Fail(privateKey && !ChannelLoggedIn(call) ? kStatusNotAuthenticated : kStatusNoKey);
  std::vector<uint8_t> modulus;
  rv = ReadAttribute(call.p11, call.token.session, key, CKA_MODULUS, &modulus);
  if (rv != CKR_OK) return FailCkr(rv);
  size_t blockLength = WithoutLeadingZeros(modulus).size();
  if (call.request.data.size() != blockLength) return Fail(kStatusBadData);
  CardAnswer answer;
  answer.response.data = call.request.data;
  rv = RawRsa(call.p11, call.state->slot(), key, privateKey, &answer.response.data);
  return rv == CKR_OK ? answer : FailCkr(rv);
}

}  // namespace

CardAnswer GenerateKeyPairCommand(CardCall& call) {
  std::string id;
  WireStatus status = ReadKeyTarget(call, &id);
  if (status != kStatusOk) return Fail(status);
  const uint32_t bits = call.request.bits, exponent = call.request.exponent;
  if (bits < kMinModulusBits || bits > kMaxModulusBits || exponent < 3 || exponent % 2 == 0) {
    return Fail(kStatusBadFlags);
  }
  CK_OBJECT_HANDLE publicKey = CK_INVALID_HANDLE;
  CK_RV rv = GenerateKeyPair(call.token, id, bits, exponent, &publicKey);
  PublicKey key;
  if (rv == CKR_OK) rv = ReadPublicKey(call.token, publicKey, &key);
  return rv == CKR_OK ? PublicKeyAnswer(key) : FailCkr(rv);
}

CardAnswer ReadPublicKeyCommand(CardCall& call) {
  std::string id;
  WireStatus status = ReadKeyTarget(call, &id);
  if (status != kStatusOk) return Fail(status);
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  bool found = false;
  CK_RV rv = FindKey(call.token, id, CKO_PUBLIC_KEY, &key, &found);
  if (rv != CKR_OK) return FailCkr(rv);
  if (!found) return Fail(kStatusNoKey);
  PublicKey publicKey;
  rv = ReadPublicKey(call.token, key, &publicKey);
  if (rv == CKR_ATTRIBUTE_VALUE_INVALID) return Fail(kStatusBadKeyset);  // exponent over 32 bits
  return rv == CKR_OK ? PublicKeyAnswer(publicKey) : FailCkr(rv);
}

CardAnswer ImportKeyPairCommand(CardCall& call) {
  std::string id;
  WireStatus status = ReadKeyTarget(call, &id);
  if (status != kStatusOk) return Fail(status);
  RsaKeyParts key;
  if (!ParsePrivateKeyBlob(call.request.data.data(), call.request.data.size(), &key)) {
    return Fail(kStatusBadData);
  }
  CK_RV rv = ImportKeyPair(call.token, id, key);
  // A token that will not take a private key from outside.
  if (rv == CKR_TEMPLATE_INCONSISTENT || rv == CKR_ATTRIBUTE_VALUE_INVALID) {
    return Fail(kStatusBadFlags);
  }
  return FailCkr(rv);
}

CardAnswer PrivateKeyOpCommand(CardCall& call) { return RawOperation(call, true); }
CardAnswer PublicKeyOpCommand(CardCall& call) { return RawOperation(call, false); }

CardAnswer WriteCertificateCommand(CardCall& call) {
  std::string id;
  WireStatus status = ReadKeyTarget(call, &id);
  if (status != kStatusOk) return Fail(status);
  return FailCkr(WriteCertificate(call.token, id, call.request.data));
}

CardAnswer ReadCertificateCommand(CardCall& call) {
  std::string id;
  WireStatus status = ReadKeyTarget(call, &id);
  if (status != kStatusOk) return Fail(status);
  CardAnswer answer;
  bool found = false;
  CK_RV rv = ReadCertificate(call.token, id, &answer.response.data, &found);
  if (rv != CKR_OK) return FailCkr(rv);
  if (!found || answer.response.data.empty()) return Fail(kStatusNotFound);
  return answer;
}

}  // namespace nivra::cardservice
