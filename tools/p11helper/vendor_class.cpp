#include "tools/p11helper/vendor_class.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace nivra::p11helper {
namespace {

using p11wire::WireAttribute;
using p11wire::WireTemplate;

constexpr char kMarkerPrefix[] = "nivra-vendor-class-";
constexpr size_t kMarkerPrefixSize = sizeof kMarkerPrefix - 1;
constexpr size_t kMarkerHexDigits = 8;

std::vector<uint8_t> WireUlong(uint32_t v) {
  return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
          static_cast<uint8_t>(v >> 24)};
}

bool ReadWireUlong(const WireAttribute& a, uint32_t* v) {
  if (!a.hasValue || a.value.size() != 4) return false;
  *v = a.value[0] | (a.value[1] << 8) | (a.value[2] << 16) | (static_cast<uint32_t>(a.value[3]) << 24);
  return true;
}

WireAttribute ValueAttribute(uint32_t type, std::vector<uint8_t> value) {
  WireAttribute a;
  a.type = type;
  a.hasValue = true;
  a.length = static_cast<uint32_t>(value.size());
  a.value = std::move(value);
  return a;
}

}  // namespace

bool IsVendorClass(uint32_t objectClass) { return objectClass >= CKO_VENDOR_DEFINED; }

std::string VendorMarker(uint32_t objectClass) {
  char hex[kMarkerHexDigits + 1];
  std::snprintf(hex, sizeof hex, "%08x", objectClass);
  return std::string(kMarkerPrefix) + hex;
}

bool ParseVendorMarker(const uint8_t* value, size_t size, uint32_t* objectClass) {
  if (size != kMarkerPrefixSize + kMarkerHexDigits ||
      std::memcmp(value, kMarkerPrefix, kMarkerPrefixSize) != 0)
    return false;
  std::string hex(reinterpret_cast<const char*>(value) + kMarkerPrefixSize, kMarkerHexDigits);
  if (hex.find_first_not_of("0123456789abcdef") != std::string::npos) return false;
  uint32_t parsed = static_cast<uint32_t>(std::strtoul(hex.c_str(), nullptr, 16));
  if (!IsVendorClass(parsed)) return false;
  *objectClass = parsed;
  return true;
}

bool NamesVendorClass(const WireTemplate& wire) {
  uint32_t objectClass = 0;
  for (const WireAttribute& a : wire)
    if (a.type == CKA_CLASS && ReadWireUlong(a, &objectClass)) return IsVendorClass(objectClass);
  return false;
}

ClassUse RewriteClassForStorage(WireTemplate* wire, bool creating) {
  uint32_t objectClass = 0;
  WireAttribute* classAttribute = nullptr;
  for (WireAttribute& a : *wire)
    if (a.type == CKA_CLASS && ReadWireUlong(a, &objectClass)) classAttribute = &a;
  if (!classAttribute) return ClassUse::kAny;
  if (objectClass == CKO_DATA) return ClassUse::kData;
  if (!IsVendorClass(objectClass)) return ClassUse::kAny;

  classAttribute->value = WireUlong(CKO_DATA);
  bool hasPrivate = false;
  WireTemplate rewritten;
  for (WireAttribute& a : *wire) {
    if (a.type == CKA_APPLICATION) continue;
    if (a.type == CKA_PRIVATE) hasPrivate = true;
    rewritten.push_back(std::move(a));
  }
  std::string marker = VendorMarker(objectClass);
  rewritten.push_back(ValueAttribute(CKA_APPLICATION, std::vector<uint8_t>(marker.begin(), marker.end())));
  if (creating && !hasPrivate) rewritten.push_back(ValueAttribute(CKA_PRIVATE, {CK_FALSE}));
  *wire = std::move(rewritten);
  return ClassUse::kVendor;
}

uint32_t StoredVendorClass(CK_FUNCTION_LIST* module, CK_SESSION_HANDLE session,
                           CK_OBJECT_HANDLE object) {
  CK_OBJECT_CLASS objectClass = 0;
  uint8_t application[kMarkerPrefixSize + kMarkerHexDigits];
  CK_ATTRIBUTE query[] = {{CKA_CLASS, &objectClass, sizeof objectClass},
                          {CKA_APPLICATION, application, sizeof application}};
  // Objects other than data objects, or data objects with a longer application, fail here.
  if (module->C_GetAttributeValue(session, object, query, 2) != CKR_OK || objectClass != CKO_DATA)
    return 0;
  uint32_t vendorClass = 0;
  return ParseVendorMarker(application, query[1].ulValueLen, &vendorClass) ? vendorClass : 0;
}

bool QueryTouchesClass(const WireTemplate& query) {
  for (const WireAttribute& a : query)
    if (a.type == CKA_CLASS || a.type == CKA_APPLICATION || a.type == CKA_OBJECT_ID) return true;
  return false;
}

void PresentVendorAnswers(uint32_t objectClass, WireTemplate* answers, uint32_t* rv) {
  bool hidden = false;
  for (WireAttribute& a : *answers) {
    if (a.type == CKA_CLASS && a.length == 4) {
      if (!a.value.empty()) a.value = WireUlong(objectClass);
    } else if (a.type == CKA_APPLICATION || a.type == CKA_OBJECT_ID) {
      a.length = p11wire::kWireUnavailable;
      a.value.clear();
      hidden = true;
    }
  }
  if (hidden && *rv == CKR_OK) *rv = CKR_ATTRIBUTE_TYPE_INVALID;
}

}  // namespace nivra::p11helper
