#include "tools/p11helper/abi_widths.h"

#include <algorithm>
#include <cstring>

namespace nivra::p11helper {
namespace {

using p11wire::WireAttribute;
using p11wire::WireTemplate;

constexpr size_t kWireUlong = 4;
constexpr size_t kNativeUlong = sizeof(CK_ULONG);

// Reads the 32-bit little-endian element `index` of a wire value.
CK_ULONG WireElement(const std::vector<uint8_t>& v, size_t index) {
  const uint8_t* p = v.data() + index * kWireUlong;
  return static_cast<CK_ULONG>(p[0]) | (static_cast<CK_ULONG>(p[1]) << 8) |
         (static_cast<CK_ULONG>(p[2]) << 16) | (static_cast<CK_ULONG>(p[3]) << 24);
}

void PutWireElement(std::vector<uint8_t>* v, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) v->push_back(static_cast<uint8_t>(value >> shift));
}

bool IsPssMechanism(CK_MECHANISM_TYPE type) {
  switch (type) {
    case CKM_RSA_PKCS_PSS:
    case CKM_SHA1_RSA_PKCS_PSS:
    case CKM_SHA224_RSA_PKCS_PSS:
    case CKM_SHA256_RSA_PKCS_PSS:
    case CKM_SHA384_RSA_PKCS_PSS:
    case CKM_SHA512_RSA_PKCS_PSS:
      return true;
    default:
      return false;
  }
}

}  // namespace

bool IsUlongAttribute(CK_ATTRIBUTE_TYPE type) {
  switch (type) {
    case CKA_CLASS:
    case CKA_CERTIFICATE_TYPE:
    case CKA_CERTIFICATE_CATEGORY:
    case CKA_JAVA_MIDP_SECURITY_DOMAIN:
    case CKA_NAME_HASH_ALGORITHM:
    case CKA_KEY_TYPE:
    case CKA_MODULUS_BITS:
    case CKA_PRIME_BITS:
    case CKA_SUB_PRIME_BITS:
    case CKA_VALUE_BITS:
    case CKA_VALUE_LEN:
    case CKA_KEY_GEN_MECHANISM:
    case CKA_OTP_FORMAT:
    case CKA_OTP_LENGTH:
    case CKA_OTP_TIME_INTERVAL:
    case CKA_OTP_CHALLENGE_REQUIREMENT:
    case CKA_OTP_TIME_REQUIREMENT:
    case CKA_OTP_COUNTER_REQUIREMENT:
    case CKA_OTP_PIN_REQUIREMENT:
    case CKA_HW_FEATURE_TYPE:
    case CKA_PIXEL_X:
    case CKA_PIXEL_Y:
    case CKA_RESOLUTION:
    case CKA_CHAR_ROWS:
    case CKA_CHAR_COLUMNS:
    case CKA_BITS_PER_PIXEL:
    case CKA_MECHANISM_TYPE:
    case CKA_ALLOWED_MECHANISMS:
      return true;
    default:
      return false;
  }
}

bool CarriesNativePointers(CK_ATTRIBUTE_TYPE type) {
  return (type & CKF_ARRAY_ATTRIBUTE) != 0 && type != CKA_ALLOWED_MECHANISMS;
}

uint32_t NarrowUlong(CK_ULONG value) {
  return FitsWire(value) ? static_cast<uint32_t>(value) : p11wire::kWireUnavailable;
}

NativeTemplate NativeTemplate::FromValues(const WireTemplate& wire) {
  NativeTemplate t;
  t.attributes_.reserve(wire.size());
  t.buffers_.reserve(wire.size());
  for (const WireAttribute& a : wire) {
    std::vector<uint8_t> buffer;
    if (a.hasValue && IsUlongAttribute(a.type) && a.value.size() % kWireUlong == 0) {
      size_t count = a.value.size() / kWireUlong;
      buffer.resize(count * kNativeUlong);
      for (size_t i = 0; i < count; ++i) {
        CK_ULONG element = WireElement(a.value, i);
        std::memcpy(buffer.data() + i * kNativeUlong, &element, kNativeUlong);
      }
    } else {
      buffer = a.value;
    }
    t.buffers_.push_back(std::move(buffer));
    std::vector<uint8_t>& stored = t.buffers_.back();
    stored.reserve(1);  // a present value of length 0 still needs a non-null pointer
    CK_ATTRIBUTE native;
    native.type = a.type;
    native.pValue = a.hasValue ? stored.data() : nullptr;
    native.ulValueLen = a.hasValue ? stored.size() : a.length;
    t.attributes_.push_back(native);
  }
  return t;
}

NativeTemplate NativeTemplate::ForQuery(const WireTemplate& query) {
  NativeTemplate t;
  t.attributes_.reserve(query.size());
  t.buffers_.resize(query.size());
  for (size_t i = 0; i < query.size(); ++i) {
    const WireAttribute& a = query[i];
    CK_ATTRIBUTE native = {a.type, nullptr, 0};
    if (a.hasValue) {
      uint64_t wanted = static_cast<uint64_t>(a.length) * (IsUlongAttribute(a.type) ? 2 : 1);
      size_t capacity = static_cast<size_t>(std::min<uint64_t>(wanted, kMaxAttributeBuffer));
      // One spare byte keeps the pointer valid for a capacity of 0.
      t.buffers_[i].resize(capacity + 1);
      native.pValue = t.buffers_[i].data();
      native.ulValueLen = capacity;
    }
    t.attributes_.push_back(native);
  }
  return t;
}

WireTemplate NativeTemplate::Answers(const WireTemplate& query, uint32_t* rv) const {
  WireTemplate answers;
  answers.reserve(query.size());
  for (size_t i = 0; i < query.size() && i < attributes_.size(); ++i) {
    const WireAttribute& asked = query[i];
    const CK_ATTRIBUTE& native = attributes_[i];
    WireAttribute answer;
    answer.type = asked.type;
    answer.hasValue = asked.hasValue;
    bool ulongArray = IsUlongAttribute(asked.type) &&
                      native.ulValueLen != CK_UNAVAILABLE_INFORMATION &&
                      native.ulValueLen % kNativeUlong == 0;
    if (CarriesNativePointers(asked.type)) {
      answer.length = p11wire::kWireUnavailable;
      if (*rv == CKR_OK) *rv = CKR_ATTRIBUTE_TYPE_INVALID;
    } else if (native.ulValueLen == CK_UNAVAILABLE_INFORMATION) {
      answer.length = p11wire::kWireUnavailable;
    } else if (ulongArray) {
      answer.length = NarrowUlong(native.ulValueLen / kNativeUlong * kWireUlong);
    } else {
      answer.length = NarrowUlong(native.ulValueLen);
    }
    bool fits = asked.hasValue && answer.length != p11wire::kWireUnavailable &&
                answer.length <= asked.length && native.ulValueLen <= buffers_[i].size();
    if (fits && ulongArray) {
      size_t count = native.ulValueLen / kNativeUlong;
      for (size_t k = 0; k < count; ++k) {
        CK_ULONG element;
        std::memcpy(&element, buffers_[i].data() + k * kNativeUlong, kNativeUlong);
        PutWireElement(&answer.value, NarrowUlong(element));
      }
    } else if (fits) {
      answer.value.assign(buffers_[i].begin(), buffers_[i].begin() + native.ulValueLen);
    }
    answers.push_back(std::move(answer));
  }
  return answers;
}

NativeMechanism::NativeMechanism(const p11wire::WireMechanism& wire) {
  mechanism_.mechanism = wire.type;
  const std::vector<uint8_t>& bytes = wire.parameter.bytes;
  if (IsPssMechanism(wire.type) && bytes.size() == 3 * kWireUlong) {
    CK_RSA_PKCS_PSS_PARAMS pss;
    pss.hashAlg = WireElement(bytes, 0);
    pss.mgf = WireElement(bytes, 1);
    pss.sLen = WireElement(bytes, 2);
    parameter_.resize(sizeof pss);
    std::memcpy(parameter_.data(), &pss, sizeof pss);
  } else {
    parameter_ = bytes;
  }
  if (wire.parameter.present) {
    parameter_.reserve(1);
    mechanism_.pParameter = parameter_.data();
    mechanism_.ulParameterLen = parameter_.size();
  }
}

}  // namespace nivra::p11helper
