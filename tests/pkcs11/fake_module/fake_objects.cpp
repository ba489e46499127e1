// Object entries of the fake: objects are attribute maps; any class is accepted, and objects of
// the data and vendor classes have an empty CKA_VALUE unless one is given, as cards present them.
#include <cstring>

#include "fake_state.h"

using namespace fake;

namespace {

bool Flag(const Object& object, CK_ATTRIBUTE_TYPE type) {
  auto it = object.find(type);
  return it != object.end() && !it->second.empty() && it->second[0] != 0;
}

CK_ULONG Ulong(const Object& object, CK_ATTRIBUTE_TYPE type) {
  auto it = object.find(type);
  CK_ULONG value = 0;
  if (it != object.end() && it->second.size() == sizeof(value)) {
    std::memcpy(&value, it->second.data(), sizeof(value));
  }
  return value;
}

bool Matches(const Object& object, const CK_ATTRIBUTE* query, CK_ULONG count) {
  for (CK_ULONG i = 0; i < count; ++i) {
    auto it = object.find(query[i].type);
    if (it == object.end() || it->second.size() != query[i].ulValueLen) return false;
    if (query[i].ulValueLen != 0 &&
        std::memcmp(it->second.data(), query[i].pValue, query[i].ulValueLen) != 0) {
      return false;
    }
  }
  return true;
}

CK_RV CreateObject(CK_SESSION_HANDLE session, CK_ATTRIBUTE* attributes, CK_ULONG count,
                   CK_OBJECT_HANDLE* object) {
  FAKE_ENTRY("C_CreateObject");
  Slot* slot = SessionSlot(s, session);
  if (slot == nullptr) return CKR_SESSION_HANDLE_INVALID;
  Object created;
  for (CK_ULONG i = 0; i < count; ++i) {
    const auto* bytes = static_cast<const uint8_t*>(attributes[i].pValue);
    created[attributes[i].type].assign(bytes, bytes + attributes[i].ulValueLen);
  }
  if (created.find(CKA_CLASS) == created.end()) return CKR_TEMPLATE_INCOMPLETE;
  if (Flag(created, CKA_PRIVATE) && !slot->token.userLoggedIn) return CKR_USER_NOT_LOGGED_IN;
  const CK_ULONG objectClass = Ulong(created, CKA_CLASS);
  auto forced = s.createResults.find(objectClass);
  if (forced != s.createResults.end() && forced->second != CKR_OK) return forced->second;
  if (s.strictTemplates) {
    const bool incompleteKey =
        objectClass == CKO_PRIVATE_KEY && created.find(CKA_PRIVATE_EXPONENT) == created.end();
    const bool noSubject =
        objectClass == CKO_CERTIFICATE && created.find(CKA_SUBJECT) == created.end();
    if (incompleteKey || noSubject) {
      slot->token.objects[s.nextHandle++] = std::move(created);
      return CKR_TEMPLATE_INCOMPLETE;
    }
  }
  if (objectClass == CKO_DATA || objectClass >= CKO_VENDOR_DEFINED) created[CKA_VALUE];
  const CK_OBJECT_HANDLE handle = s.nextHandle++;
  slot->token.objects[handle] = std::move(created);
  *object = handle;
  return CKR_OK;
}

CK_RV DestroyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  FAKE_ENTRY("C_DestroyObject");
  if (VisibleObject(s, session, object) == nullptr) return CKR_OBJECT_HANDLE_INVALID;
  SessionSlot(s, session)->token.objects.erase(object);
  return CKR_OK;
}

CK_RV GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                        CK_ATTRIBUTE* attributes, CK_ULONG count) {
  FAKE_ENTRY("C_GetAttributeValue");
  if (SessionSlot(s, session) == nullptr) return CKR_SESSION_HANDLE_INVALID;
  const Object* found = VisibleObject(s, session, object);
  if (found == nullptr) return CKR_OBJECT_HANDLE_INVALID;
  CK_RV rv = CKR_OK;
  for (CK_ULONG i = 0; i < count; ++i) {
    CK_ATTRIBUTE& a = attributes[i];
    auto it = found->find(a.type);
    if (it == found->end()) {
      a.ulValueLen = CK_UNAVAILABLE_INFORMATION;
      rv = CKR_ATTRIBUTE_TYPE_INVALID;
    } else if (a.pValue == nullptr) {
      a.ulValueLen = static_cast<CK_ULONG>(it->second.size());
    } else if (a.ulValueLen < it->second.size()) {
      a.ulValueLen = CK_UNAVAILABLE_INFORMATION;
      rv = CKR_BUFFER_TOO_SMALL;
    } else {
      if (!it->second.empty()) std::memcpy(a.pValue, it->second.data(), it->second.size());
      a.ulValueLen = static_cast<CK_ULONG>(it->second.size());
    }
  }
  return rv;
}

CK_RV FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* query, CK_ULONG count) {
  FAKE_ENTRY("C_FindObjectsInit");
  Slot* slot = SessionSlot(s, session);
  if (slot == nullptr) return CKR_SESSION_HANDLE_INVALID;
  Session& state = s.sessions[session];
  if (state.searching) return CKR_OPERATION_ACTIVE;
  state.searching = true;
  state.found.clear();
  state.cursor = 0;
  for (const auto& entry : slot->token.objects) {
    if (VisibleObject(s, session, entry.first) != nullptr && Matches(entry.second, query, count)) {
      state.found.push_back(entry.first);
    }
  }
  return CKR_OK;
}

CK_RV FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* objects, CK_ULONG capacity,
                  CK_ULONG* count) {
  FAKE_ENTRY("C_FindObjects");
  if (SessionSlot(s, session) == nullptr) return CKR_SESSION_HANDLE_INVALID;
  Session& state = s.sessions[session];
  if (!state.searching) return CKR_OPERATION_NOT_INITIALIZED;
  *count = 0;
  while (*count < capacity && state.cursor < state.found.size()) {
    objects[(*count)++] = state.found[state.cursor++];
  }
  return CKR_OK;
}

CK_RV FindObjectsFinal(CK_SESSION_HANDLE session) {
  FAKE_ENTRY("C_FindObjectsFinal");
  if (SessionSlot(s, session) == nullptr) return CKR_SESSION_HANDLE_INVALID;
  Session& state = s.sessions[session];
  if (!state.searching) return CKR_OPERATION_NOT_INITIALIZED;
  state.searching = false;
  return CKR_OK;
}

}  // namespace

void FillObjectFunctions(CK_FUNCTION_LIST& list) {
  list.C_CreateObject = CreateObject;
  list.C_DestroyObject = DestroyObject;
  list.C_GetAttributeValue = GetAttributeValue;
  list.C_FindObjectsInit = FindObjectsInit;
  list.C_FindObjects = FindObjects;
  list.C_FindObjectsFinal = FindObjectsFinal;
}
