// Small tools for talking to token objects through the loaded module: a session of one's own,
// attribute templates, one-shot searches and attribute reads. They return raw CK_RV values;
// callers map them (MapCkrToError) where their step says so.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "pkcs11/cryptoki.h"

namespace nivra::pkcs11 {

// CK_TRUE as an attribute value (one byte).
extern const CK_BBOOL kTrue;

// A session opened for one operation (a search, an RSA operation, an enumeration) and closed
// when the object goes away, on every path.
class OwnSession {
 public:
  OwnSession() = default;
  ~OwnSession();
  OwnSession(const OwnSession&) = delete;
  OwnSession& operator=(const OwnSession&) = delete;

  // C_OpenSession(slotId, serial | read/write). The module must be loaded.
  CK_RV Open(CK_SLOT_ID slotId);
  CK_SESSION_HANDLE handle() const { return handle_; }
  // Gives up ownership: the caller closes the session.
  CK_SESSION_HANDLE Release();

 private:
  CK_SESSION_HANDLE handle_ = 0;
};

// A template of at most kMaxAttributes attributes, in the order they were added. The values are
// referenced, not copied: they must outlive the template's use.
class AttributeList {
 public:
  static constexpr size_t kMaxAttributes = 20;
  void Add(CK_ATTRIBUTE_TYPE type, const void* value, size_t length);
  template <class T>
  void AddValue(CK_ATTRIBUTE_TYPE type, const T& value) {
    Add(type, &value, sizeof(value));
  }
  CK_ATTRIBUTE* data() { return items_; }
  CK_ULONG count() const { return count_; }
  const CK_ATTRIBUTE& operator[](size_t i) const { return items_[i]; }

 private:
  CK_ATTRIBUTE items_[kMaxAttributes] = {};
  CK_ULONG count_ = 0;
};

// C_FindObjectsInit with the template, one C_FindObjects for up to `capacity` objects, then
// C_FindObjectsFinal (also after a failed C_FindObjects). Returns the first failure; *found is
// the number of handles written.
CK_RV FindObjectsOnce(CK_SESSION_HANDLE session, AttributeList& query, CK_OBJECT_HANDLE* handles,
                      CK_ULONG capacity, CK_ULONG* found);

// Reads an attribute's length, then its value, into *value (resized to the length).
CK_RV ReadAttribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type,
                    std::vector<uint8_t>* value);

// Reads a 4-byte attribute (class, key type, certificate type).
CK_RV ReadUlongAttribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                         CK_ATTRIBUTE_TYPE type, CK_ULONG* value);

// Reads CKA_LABEL into label[0..capacity) and terminates it (capacity + 1 bytes must be
// writable); *length receives the label's length. When the label does not fit
// (CKR_BUFFER_TOO_SMALL), *length receives the length it needs and the failure is returned.
CK_RV ReadLabel(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, char* label, size_t capacity,
                size_t* length);

// The length of a big-endian value without its leading zero bytes, and where it starts.
size_t StripLeadingZeros(const uint8_t* value, size_t length, const uint8_t** start);

}  // namespace nivra::pkcs11
