#pragma once
// Conversions between the caller's PKCS#11 structures (Windows layout) and wire messages, and
// the frame that every exported entry runs in.
#include <new>
#include <vector>

#include "tools/p11wire/pkcs11_abi.h"
#include "tools/p11wire/wire_messages.h"

namespace nivra::p11fwd {

// Runs the body of an exported entry; nothing is thrown across the module boundary.
template <class Fn>
CK_RV Guarded(Fn&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return CKR_HOST_MEMORY;
  } catch (...) {
    return CKR_GENERAL_ERROR;
  }
}

// A pointer-and-length argument. The pointer is not read when the length is 0, so a marker
// pointer (all bits set) passes safely.
p11wire::WireOptBytes OptionalBytes(const void* data, CK_ULONG length);

// True when a pointer-and-length argument is acceptable: a null pointer needs a length of 0.
inline bool ValidBuffer(const void* data, CK_ULONG length) { return data || length == 0; }

// A template of values (creation, search, set, key generation). An attribute with a null pointer
// travels without a value but with its length, so the module gives its own answer to it.
p11wire::WireTemplate TemplateValues(const CK_ATTRIBUTE* attributes, CK_ULONG count);

// The query form of a C_GetAttributeValue template: types, whether a buffer was given, capacities.
p11wire::WireTemplate TemplateQuery(const CK_ATTRIBUTE* attributes, CK_ULONG count);

// Writes the helper's answers back into the caller's template: every ulValueLen, and the values
// that fitted. False when the answers do not match the template (count or sizes), which means a
// broken link; the template may then be partly written.
bool ApplyAnswers(const p11wire::WireTemplate& answers, CK_ATTRIBUTE* attributes, CK_ULONG count);

p11wire::WireMechanism MechanismOf(const CK_MECHANISM& mechanism);

// Applies the reply of a list call (slots, mechanisms) to the caller's list and count, following
// the size-query protocol: the count is written on success and on CKR_BUFFER_TOO_SMALL, the
// entries only on success with a list. Returns the call's result (CKR_DEVICE_ERROR for a reply
// that would overrun the caller's `capacity`).
template <class Id>
CK_RV ApplyList(const p11wire::ListReply& reply, Id* list, CK_ULONG capacity, CK_ULONG* count) {
  if (reply.rv != CKR_OK && reply.rv != CKR_BUFFER_TOO_SMALL) return reply.rv;
  if (reply.rv == CKR_OK && list) {
    if (reply.ids.size() > capacity || reply.ids.size() != reply.count) return CKR_DEVICE_ERROR;
    for (size_t i = 0; i < reply.ids.size(); ++i) list[i] = reply.ids[i];
  }
  *count = reply.count;
  return reply.rv;
}

// Applies the reply of a single-part operation (sign, decrypt, encrypt) to the caller's output
// buffer and length, following the same protocol.
CK_RV ApplyOutput(const p11wire::DataReply& reply, CK_BYTE* output, CK_ULONG capacity,
                  CK_ULONG* length);

void CopyInfo(const p11wire::WireInfo& from, CK_INFO* to);
void CopySlotInfo(const p11wire::WireSlotInfo& from, CK_SLOT_INFO* to);
void CopyTokenInfo(const p11wire::WireTokenInfo& from, CK_TOKEN_INFO* to);
void CopySessionInfo(const p11wire::WireSessionInfo& from, CK_SESSION_INFO* to);

}  // namespace nivra::p11fwd
