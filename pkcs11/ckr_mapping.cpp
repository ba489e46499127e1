#include "pkcs11/ckr_mapping.h"

namespace nivra::pkcs11 {

using namespace provider;

Status MapCkrToError(CK_RV rv) {
  switch (rv) {
    case CKR_OK:
      return kOk;
    case CKR_CANCEL:
      return kScardCancelledByUser;
    case CKR_HOST_MEMORY:
    case CKR_DEVICE_MEMORY:
      return kNteNoMemory;
    case CKR_SLOT_ID_INVALID:
    case CKR_ARGUMENTS_BAD:
      return kErrInvalidParameter;
    case CKR_DATA_INVALID:
    case CKR_DATA_LEN_RANGE:
      return kNteBadData;
    case CKR_FUNCTION_NOT_SUPPORTED:
      return kNteNotSupported;
    case CKR_PIN_INCORRECT:
    case CKR_PIN_LEN_RANGE:
      return kScardInvalidChv;
    case CKR_PIN_LOCKED:
      return kScardChvBlocked;
    case CKR_TOKEN_NOT_PRESENT:
      return kScardUnknownCard;
    case CKR_USER_NOT_LOGGED_IN:
      return kScardCardNotAuthenticated;
    case CKR_BUFFER_TOO_SMALL:
      return kErrMoreData;
    default:
      return kNteFail;
  }
}

}  // namespace nivra::pkcs11
