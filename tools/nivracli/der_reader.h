// A reader of DER elements in place, enough to walk the few structures nivracli takes apart
// itself (PKCS#8 wrappers, CMS enveloped data).
#pragma once
#include <windows.h>

#include <cstddef>
#include <vector>

namespace nivracli {

constexpr BYTE kDerInteger = 0x02;
constexpr BYTE kDerOctetString = 0x04;
constexpr BYTE kDerOid = 0x06;
constexpr BYTE kDerSequence = 0x30;
constexpr BYTE kDerSet = 0x31;
constexpr BYTE kDerContextConstructed0 = 0xA0;
constexpr BYTE kDerContextPrimitive0 = 0x80;

// One element: its tag, where it starts, and where its contents start and end.
struct DerElement {
  BYTE tag = 0;
  size_t start = 0;
  size_t begin = 0;
  size_t end = 0;
};

// Reads the element at `pos`, which must end by `end`; false when it is malformed. Only definite
// lengths of up to four bytes are read.
bool ReadDerElement(const std::vector<BYTE>& der, size_t pos, size_t end, DerElement* out);

// The element's whole encoding (tag and length included), or its contents.
std::vector<BYTE> DerWhole(const std::vector<BYTE>& der, const DerElement& e);
std::vector<BYTE> DerContents(const std::vector<BYTE>& der, const DerElement& e);

}  // namespace nivracli
