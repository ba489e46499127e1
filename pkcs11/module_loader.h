// The configured PKCS#11 module. Its path is the registry value "LibPkcs11" under
// HKEY_LOCAL_MACHINE "SOFTWARE\\NivraCSP", read once per process; the module is loaded once, its
// function list kept for the life of the process, and it is never unloaded.
#pragma once
#include <cstddef>

#include "pkcs11/cryptoki.h"
#include "pkcs11/p11_status.h"

namespace nivra::pkcs11 {

constexpr size_t kModulePathChars = 260;

// Reads the module path unless it is already known (a non-empty path is never read again).
// NTE_FAIL when the key cannot be opened or the value cannot be read; the value's registry type
// is not checked.
Status ReadModulePath();

// ReadModulePath, then LoadLibraryW on the path and C_GetFunctionList. A path that does not
// load, a module without C_GetFunctionList, or a C_GetFunctionList that does not answer CKR_OK
// with a list gives NTE_PROVIDER_DLL_FAIL and the module is freed again.
Status LoadPkcs11Module();

// The loaded module's function list; null until LoadPkcs11Module has succeeded.
CK_FUNCTION_LIST* P11();

// The path as read (empty before ReadModulePath has found one).
const wchar_t* ModulePath();

}  // namespace nivra::pkcs11
