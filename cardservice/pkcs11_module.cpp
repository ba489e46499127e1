#include "cardservice/pkcs11_module.h"

#include <dlfcn.h>

#include <cstdio>

namespace nivra::cardservice {

Pkcs11Module::~Pkcs11Module() {
  if (functions_) functions_->C_Finalize(nullptr);
  if (library_) dlclose(library_);
}

bool Pkcs11Module::Load(const std::string& path, std::string* error) {
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    const char* why = dlerror();
    *error = "cannot load " + path + ": " + (why ? why : "unknown error");
    return false;
  }
  auto getList = reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"));
  CK_FUNCTION_LIST* list = nullptr;
  if (!getList || getList(&list) != CKR_OK || !list) {
    *error = path + " has no usable C_GetFunctionList";
    dlclose(library);
    return false;
  }
  CK_C_INITIALIZE_ARGS args = {};
  args.flags = CKF_OS_LOCKING_OK;
  CK_RV rv = list->C_Initialize(&args);
  if (rv == CKR_CANT_LOCK) {
    rv = list->C_Initialize(nullptr);
    needsSerialising_ = true;
  }
  if (rv != CKR_OK) {
    char text[96];
    std::snprintf(text, sizeof text, "C_Initialize of the module failed with 0x%lx", rv);
    *error = text;
    dlclose(library);
    return false;
  }
  library_ = library;
  functions_ = list;
  return true;
}

}  // namespace nivra::cardservice
