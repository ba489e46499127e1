// Key containers on the token, in the object format that the provider's PKCS#11 path uses, so
// that one token can be reached through the provider's module and through this service alike:
// one object per container whose CKA_LABEL is the container name, an optional key-ID record in
// its CKA_VALUE, and key pairs and certificates tied to it by CKA_ID.
//
// The container object takes one of these forms, searched in this order:
//   1. class 0x80000001 (the first vendor-defined class), for tokens that accept it;
//   2. CKO_DATA with CKA_APPLICATION "NivraCSP container", made where the vendor class is refused;
//   3. CKO_DATA with CKA_APPLICATION "nivra-vendor-class-80000001": how the project's PKCS#11
//      forwarding helper keeps vendor-class objects on tokens that refuse them.
#pragma once
#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

namespace nivra::cardservice {

struct TokenView {
  CK_FUNCTION_LIST* p11;
  CK_SESSION_HANDLE session;
};

struct Container {
  CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
  std::string name;
};

// Key specifications of the wire (CryptoAPI's AT_KEYEXCHANGE and AT_SIGNATURE).
constexpr uint32_t kKeySpecExchange = 1;
constexpr uint32_t kKeySpecSignature = 2;

// Longest container name the wire carries (without its NUL).
constexpr size_t kMaxContainerName = 255;

// Every container on the token, each form in turn.
CK_RV ListContainers(TokenView token, std::vector<Container>* out);

// The container named `name`: the first form that holds exactly one object with that label.
// *found is false when no form does (two objects with one label count as none).
CK_RV FindContainer(TokenView token, const std::string& name, Container* out, bool* found);

// Creates the container object in the vendor form, or in the data form when the token refuses
// the vendor class.
CK_RV CreateContainer(TokenView token, const std::string& name, Container* out);

// The CKA_ID of the container's key pair for `keySpec` (2: signature, any other: exchange): from
// the key-ID record when the container has one, else the name followed by "_cspS" or "_cspX".
CK_RV ContainerKeyId(TokenView token, const Container& container, uint32_t keySpec,
                     std::string* id);

// Destroys the RSA keys and X.509 certificates of both key IDs, then the container object.
CK_RV DeleteContainer(TokenView token, const Container& container);

// Destroys the RSA key objects (and with `certificatesToo` the X.509 certificates) whose
// CKA_ID is `id`; other objects with that ID stay.
CK_RV DestroyKeyObjects(TokenView token, const std::string& id, bool certificatesToo);

}  // namespace nivra::cardservice
