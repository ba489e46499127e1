#pragma once
// Objects of a vendor-defined class (CKA_CLASS >= CKO_VENDOR_DEFINED, such as the provider's
// container objects, 0x80000001) that the native module refuses. They are stored as CKO_DATA
// objects whose CKA_APPLICATION is a marker naming the class ("nivra-vendor-class-80000001"),
// and shown to the caller with their vendor class: in creation, in searches by class, and when
// their attributes are read. CKA_APPLICATION and CKA_OBJECT_ID of such an object are hidden.
#include <cstdint>
#include <string>

#include "tools/p11wire/pkcs11_abi.h"
#include "tools/p11wire/wire_messages.h"

namespace nivra::p11helper {

bool IsVendorClass(uint32_t objectClass);

// The CKA_APPLICATION marker that stands for `objectClass`.
std::string VendorMarker(uint32_t objectClass);

// The class named by a marker value; false when `value` is not a marker.
bool ParseVendorMarker(const uint8_t* value, size_t size, uint32_t* objectClass);

// True when the template's CKA_CLASS is a vendor-defined class.
bool NamesVendorClass(const p11wire::WireTemplate& wire);

// What a template says about the object class, after RewriteClassForStorage.
enum class ClassUse {
  kAny,     // no class, or a class that needs nothing done
  kVendor,  // a vendor class, rewritten to CKO_DATA plus its marker
  kData,    // CKO_DATA itself: stored vendor objects must be left out of such a search
};

// Rewrites a creation or search template that names a vendor class: the class becomes CKO_DATA
// and the marker is set as CKA_APPLICATION (replacing any application the caller gave). When
// `creating`, a template without CKA_PRIVATE gets CKA_PRIVATE = CK_FALSE: vendor objects are
// read before login, as a card presents them.
ClassUse RewriteClassForStorage(p11wire::WireTemplate* wire, bool creating);

// The vendor class of a stored object, or 0 when `object` is not a stored vendor object (or
// cannot be read).
uint32_t StoredVendorClass(CK_FUNCTION_LIST* module, CK_SESSION_HANDLE session,
                           CK_OBJECT_HANDLE object);

// True when a query template asks for an attribute that a stored vendor object presents
// differently (class, application, object identifier).
bool QueryTouchesClass(const p11wire::WireTemplate& query);

// Adjusts the answers of an attribute query on a stored vendor object of class `objectClass`:
// CKA_CLASS reports the vendor class, CKA_APPLICATION and CKA_OBJECT_ID are unavailable (and an
// otherwise successful call then answers CKR_ATTRIBUTE_TYPE_INVALID, as for an object that has
// no such attribute).
void PresentVendorAnswers(uint32_t objectClass, p11wire::WireTemplate* answers, uint32_t* rv);

}  // namespace nivra::p11helper
