// Key generation, single-part signing, decryption and encryption, and random numbers.
#include "tools/p11fwd/fwd_convert.h"
#include "tools/p11fwd/fwd_link.h"

using namespace nivra::p11fwd;
using namespace nivra::p11wire;

namespace {

template <WireOp op>
CK_RV OperationInit(CK_SESSION_HANDLE session, const CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  return Guarded([&]() -> CK_RV {
    if (!mechanism) return CKR_ARGUMENTS_BAD;
    OperationInitRequest request;
    request.session = session;
    request.mechanism = MechanismOf(*mechanism);
    request.key = key;
    return Link().Call<op>(request).rv;
  });
}

template <WireOp op>
CK_RV OneShot(CK_SESSION_HANDLE session, const CK_BYTE* input, CK_ULONG inputLength,
              CK_BYTE* output, CK_ULONG* outputLength) {
  return Guarded([&]() -> CK_RV {
    if (!outputLength || !ValidBuffer(input, inputLength)) return CKR_ARGUMENTS_BAD;
    DataRequest request;
    request.session = session;
    request.data = OptionalBytes(input, inputLength);
    request.wantOutput = output != nullptr;
    request.capacity = *outputLength;
    return ApplyOutput(Link().Call<op>(request), output, *outputLength, outputLength);
  });
}

}  // namespace

CK_DEFINE_FUNCTION(CK_RV, C_GenerateKeyPair)(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                             CK_ATTRIBUTE_PTR pPublicKeyTemplate,
                                             CK_ULONG ulPublicKeyAttributeCount,
                                             CK_ATTRIBUTE_PTR pPrivateKeyTemplate,
                                             CK_ULONG ulPrivateKeyAttributeCount,
                                             CK_OBJECT_HANDLE_PTR phPublicKey,
                                             CK_OBJECT_HANDLE_PTR phPrivateKey) {
  return Guarded([&]() -> CK_RV {
    if (!pMechanism || !phPublicKey || !phPrivateKey ||
        !ValidBuffer(pPublicKeyTemplate, ulPublicKeyAttributeCount) ||
        !ValidBuffer(pPrivateKeyTemplate, ulPrivateKeyAttributeCount))
      return CKR_ARGUMENTS_BAD;
    GenerateKeyPairRequest request;
    request.session = hSession;
    request.mechanism = MechanismOf(*pMechanism);
    request.publicTemplate = TemplateValues(pPublicKeyTemplate, ulPublicKeyAttributeCount);
    request.privateTemplate = TemplateValues(pPrivateKeyTemplate, ulPrivateKeyAttributeCount);
    auto reply = Link().Call<WireOp::kGenerateKeyPair>(request);
    if (reply.rv == CKR_OK) {
      *phPublicKey = reply.publicKey;
      *phPrivateKey = reply.privateKey;
    }
    return reply.rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_SignInit)(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                      CK_OBJECT_HANDLE hKey) {
  return OperationInit<WireOp::kSignInit>(hSession, pMechanism, hKey);
}

CK_DEFINE_FUNCTION(CK_RV, C_Sign)(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                                  CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen) {
  return OneShot<WireOp::kSign>(hSession, pData, ulDataLen, pSignature, pulSignatureLen);
}

CK_DEFINE_FUNCTION(CK_RV, C_DecryptInit)(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                         CK_OBJECT_HANDLE hKey) {
  return OperationInit<WireOp::kDecryptInit>(hSession, pMechanism, hKey);
}

CK_DEFINE_FUNCTION(CK_RV, C_Decrypt)(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData,
                                     CK_ULONG ulEncryptedDataLen, CK_BYTE_PTR pData,
                                     CK_ULONG_PTR pulDataLen) {
  return OneShot<WireOp::kDecrypt>(hSession, pEncryptedData, ulEncryptedDataLen, pData, pulDataLen);
}

CK_DEFINE_FUNCTION(CK_RV, C_EncryptInit)(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                         CK_OBJECT_HANDLE hKey) {
  return OperationInit<WireOp::kEncryptInit>(hSession, pMechanism, hKey);
}

CK_DEFINE_FUNCTION(CK_RV, C_Encrypt)(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                                     CK_BYTE_PTR pEncryptedData, CK_ULONG_PTR pulEncryptedDataLen) {
  return OneShot<WireOp::kEncrypt>(hSession, pData, ulDataLen, pEncryptedData, pulEncryptedDataLen);
}

CK_DEFINE_FUNCTION(CK_RV, C_GenerateRandom)(CK_SESSION_HANDLE hSession, CK_BYTE_PTR RandomData,
                                            CK_ULONG ulRandomLen) {
  return Guarded([&]() -> CK_RV {
    if (!ValidBuffer(RandomData, ulRandomLen)) return CKR_ARGUMENTS_BAD;
    DataRequest request;
    request.session = hSession;
    request.wantOutput = true;
    request.capacity = ulRandomLen;
    auto reply = Link().Call<WireOp::kGenerateRandom>(request);
    if (reply.rv != CKR_OK) return reply.rv;
    if (reply.output.bytes.size() != ulRandomLen) return CKR_DEVICE_ERROR;
    for (CK_ULONG i = 0; i < ulRandomLen; ++i) RandomData[i] = reply.output.bytes[i];
    return CKR_OK;
  });
}
