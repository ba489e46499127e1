// The two forms a container object takes on a token. The vendor form is an object of class
// 0x80000001. Tokens that refuse vendor-defined classes hold the data form instead: a CKO_DATA
// object with the same label, CKA_TOKEN and CKA_MODIFIABLE, marked by CKA_APPLICATION
// "NivraCSP container" (and CKA_PRIVATE false, so that it is found before a login, as the vendor
// form is). Every container search looks for both, the vendor form first.
#pragma once
#include <cstddef>

#include "pkcs11/cryptoki.h"
#include "pkcs11/token_objects.h"

namespace nivra::pkcs11 {

enum class ContainerForm { kVendor, kData };

// The forms in the order searches take them.
inline constexpr ContainerForm kContainerForms[] = {ContainerForm::kVendor, ContainerForm::kData};

// The CKA_APPLICATION value that marks the data form (without NUL).
inline constexpr char kContainerApplication[] = "NivraCSP container";

// Adds the attributes that select the form in a search: its class, and for the data form the
// application marker.
void AddContainerForm(AttributeList* query, ContainerForm form);

// The creation template of the container named name[0..nameLength) in `form`: class, label,
// CKA_TOKEN and CKA_MODIFIABLE true; the data form adds its marker and CKA_PRIVATE false.
void ContainerTemplate(AttributeList* object, ContainerForm form, const char* name,
                       size_t nameLength);

// True when a token's answer to creating the vendor form says that it does not hold objects of
// that class.
bool RefusesVendorClass(CK_RV rv);

// Finds up to `capacity` container objects whose label is name[0..nameLength) (any label when
// nameLength is 0): the vendor form first, then the data form. *found is the number written.
CK_RV FindContainerObjects(CK_SESSION_HANDLE session, const char* name, size_t nameLength,
                           CK_OBJECT_HANDLE* handles, CK_ULONG capacity, CK_ULONG* found);

}  // namespace nivra::pkcs11
