// Small tools for talking to token objects through the loaded module: a session of one's own,
// attribute templates, searches and attribute reads. They return raw CK_RV values.
#pragma once
#include <p11-kit/pkcs11.h>

#include <cstdint>
#include <string>
#include <vector>

namespace nivra::cardservice {

extern const CK_BBOOL kCkTrue;
extern const CK_BBOOL kCkFalse;

// A read/write session opened for one operation and closed on every path.
class OwnSession {
 public:
  explicit OwnSession(CK_FUNCTION_LIST* p11) : p11_(p11) {}
  ~OwnSession();
  OwnSession(const OwnSession&) = delete;
  OwnSession& operator=(const OwnSession&) = delete;

  CK_RV Open(CK_SLOT_ID slot);
  CK_SESSION_HANDLE handle() const { return handle_; }

 private:
  CK_FUNCTION_LIST* p11_;
  CK_SESSION_HANDLE handle_ = CK_INVALID_HANDLE;
};

// A template whose values are copied into the list, so that callers may pass temporaries.
class Template {
 public:
  Template& Bytes(CK_ATTRIBUTE_TYPE type, const void* data, size_t length);
  Template& Text(CK_ATTRIBUTE_TYPE type, const std::string& text) {
    return Bytes(type, text.data(), text.size());
  }
  Template& Ulong(CK_ATTRIBUTE_TYPE type, CK_ULONG value) { return Bytes(type, &value, sizeof value); }
  Template& Bool(CK_ATTRIBUTE_TYPE type, bool value) {
    return Bytes(type, value ? &kCkTrue : &kCkFalse, sizeof(CK_BBOOL));
  }
  // The attributes, pointing into this list's own copies.
  std::vector<CK_ATTRIBUTE> Attributes();
  size_t size() const { return types_.size(); }

 private:
  std::vector<CK_ATTRIBUTE_TYPE> types_;
  std::vector<std::vector<uint8_t>> values_;
};

// Every object that matches `query` (C_FindObjectsInit, C_FindObjects in batches,
// C_FindObjectsFinal), in the order the module returns them.
CK_RV FindAll(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session, Template& query,
              std::vector<CK_OBJECT_HANDLE>* found);

// Reads an attribute's length, then its value.
CK_RV ReadAttribute(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                    CK_ATTRIBUTE_TYPE type, std::vector<uint8_t>* value);

// Reads a CK_ULONG attribute (class, key type, certificate type).
CK_RV ReadUlong(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                CK_ATTRIBUTE_TYPE type, CK_ULONG* value);

// Drops the leading zero bytes of a big-endian value.
std::vector<uint8_t> WithoutLeadingZeros(const std::vector<uint8_t>& value);

}  // namespace nivra::cardservice
