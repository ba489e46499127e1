// CRSA itself and the key lifecycle operations: create, destroy, duplicate, set, bit length.
#include "crypto/rsa_key.h"

#include <new>

namespace nivra::crypto {

namespace {

CBigNumber CRSA::*const kComponents[] = {&CRSA::d,  &CRSA::n,  &CRSA::e,  &CRSA::p,
                                         &CRSA::q,  &CRSA::dP, &CRSA::dQ, &CRSA::qInv};

bool IsDerForm(uint32_t what) { return what >= kRsaFormPublic && what <= kRsaFormShortPrivate; }

}  // namespace

Status CRSA::CopyFrom(const CRSA& other) {
  for (CBigNumber CRSA::*c : kComponents) {
    if ((this->*c).CopyFrom(other.*c) != 0) return kErrNoMemory;
  }
  hasCrt = other.hasCrt;
  hasPrivate = other.hasPrivate;
  hasPublic = other.hasPublic;
  return kOk;
}

void CRSA::Clear() {
  for (CBigNumber CRSA::*c : kComponents) (this->*c).Release();
  hasCrt = hasPrivate = hasPublic = 0;
}

CBigNumber* CRSA::Component(uint32_t id) {
  if (id < kRsaComponentD || id > kRsaComponentQInv) return nullptr;
  return &(this->*kComponents[id - kRsaComponentD]);
}

const CBigNumber* CRSA::Component(uint32_t id) const {
  return const_cast<CRSA*>(this)->Component(id);
}

void CRSA::RaiseFlags() {
  if (!n.IsZero() && !e.IsZero()) hasPublic = 1;
  if (!n.IsZero() && !d.IsZero()) hasPrivate = 1;
  if (!p.IsZero() && !q.IsZero() && !dP.IsZero() && !dQ.IsZero() && !qInv.IsZero()) hasCrt = 1;
}

Status RsaCreateKey(CRSA** out) {
  if (out == nullptr) return kErrNullArgument;
  *out = new (std::nothrow) CRSA();
  return *out == nullptr ? kErrNoMemory : kOk;
}

Status RsaDestroyKey(CRSA* key) {
  delete key;
  return kOk;
}

Status RsaDuplicateKey(const CRSA* key, CRSA** out) {
  if (key == nullptr || out == nullptr) return kErrNullArgument;
  CRSA* copy = nullptr;
  Status status = RsaCreateKey(&copy);
  if (status != kOk) return status;
  status = copy->CopyFrom(*key);
  if (status != kOk) {
    delete copy;
    return status;
  }
  *out = copy;
  return kOk;
}

Status RsaSetKey(CRSA* key, uint32_t what, const uint8_t* data, size_t len) {
  if (key == nullptr || (data == nullptr && len > 0)) return kErrNullArgument;
  if (IsDerForm(what)) return RsaParseDer(*key, what, data, len);
  CBigNumber* component = key->Component(what);
  if (component == nullptr) return kErrUnknownForm;
  if (len > UINT32_MAX || component->FromBytes(data, 0, static_cast<uint32_t>(len)) != 0) {
    return kErrNoMemory;
  }
  key->RaiseFlags();
  return kOk;
}

Status RsaKeyBits(CRSA* key, uint32_t* bits) {
  if (key == nullptr || bits == nullptr) return kErrNullArgument;
  if (key->n.IsZero() && key->n.Mul(key->p, key->q) != 0) return kErrNoMemory;
  *bits = key->n.BitLength();
  return kOk;
}

}  // namespace nivra::crypto
