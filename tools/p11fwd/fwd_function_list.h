#pragma once
// The module's CK_FUNCTION_LIST: every standard entry, those the link does not carry answering
// CKR_FUNCTION_NOT_SUPPORTED.
#include "tools/p11wire/pkcs11_abi.h"

namespace nivra::p11fwd {

CK_FUNCTION_LIST* ForwardingFunctionList();

}  // namespace nivra::p11fwd
