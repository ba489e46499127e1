// How templates that name a vendor class are rewritten for storage (their presentation is
// checked against SoftHSM2 in helper_objects_test.cpp).
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/p11fwd/wire_test_values.h"
#include "tools/p11helper/vendor_class.h"

namespace nivra::p11helper {
namespace {

using p11test::Bytes;
using p11wire::WireAttribute;
using p11wire::WireTemplate;
constexpr auto Value = p11test::ValueAttribute;
constexpr auto Text = p11test::TextBytes;
const Bytes kContainerClass = {0x01, 0, 0, 0x80};

// A template as (type, value) pairs in type order, for comparing whole templates.
std::vector<std::pair<uint32_t, Bytes>> Sorted(const WireTemplate& t) {
  std::vector<std::pair<uint32_t, Bytes>> pairs;
  for (const WireAttribute& a : t) pairs.emplace_back(a.type, a.value);
  std::sort(pairs.begin(), pairs.end());
  return pairs;
}

TEST(VendorMarker, NamesTheClassInEightHexDigitsAndNothingElseParses) {
  uint32_t cls = 0;
  std::string m = VendorMarker(0x8000ABCD);
  ASSERT_TRUE(ParseVendorMarker(reinterpret_cast<const uint8_t*>(m.data()), m.size(), &cls));
  EXPECT_EQ(cls, 0x8000ABCDu);
  for (std::string bad : {"nivra-vendor-class-0000000", "nivra-vendor-class-800000012",
                          "nivra-vendor-class-8000000G", "nivra-vendor-class-00000001",
                          "nivra-vendor-class-8000000A", "other-vendor-class-80000001", ""})
    EXPECT_FALSE(ParseVendorMarker(reinterpret_cast<const uint8_t*>(bad.data()), bad.size(), &cls))
        << bad;
}

TEST(VendorRewrite, OnlyVendorClassesBecomeMarkedDataObjectsPublicByDefault) {
  const auto Marker = Value(CKA_APPLICATION, Text("nivra-vendor-class-80000001"));
  const auto Data = Value(CKA_CLASS, {0, 0, 0, 0});
  const auto Key = Value(CKA_CLASS, {3, 0, 0, 0});
  struct Case {
    WireTemplate given;
    bool creating;
    ClassUse use;
    WireTemplate stored;
  };
  const Case cases[] = {
      // The caller's application gives way to the marker; privacy is added only on creation.
      {{Value(CKA_CLASS, kContainerClass), Value(CKA_LABEL, Text("Box")),
        Value(CKA_APPLICATION, Text("a"))},
       true, ClassUse::kVendor,
       {Data, Value(CKA_LABEL, Text("Box")), Marker, Value(CKA_PRIVATE, {CK_FALSE})}},
      {{Value(CKA_CLASS, kContainerClass), Value(CKA_PRIVATE, {CK_TRUE})}, true, ClassUse::kVendor,
       {Data, Marker, Value(CKA_PRIVATE, {CK_TRUE})}},
      {{Value(CKA_CLASS, kContainerClass)}, false, ClassUse::kVendor, {Data, Marker}},
      // Standard classes are left alone.
      {{Data}, false, ClassUse::kData, {Data}},
      {{Key, Value(CKA_ID, Text("k"))}, true, ClassUse::kAny, {Key, Value(CKA_ID, Text("k"))}},
      {{Value(CKA_ID, Text("k"))}, false, ClassUse::kAny, {Value(CKA_ID, Text("k"))}},
  };
  for (const Case& c : cases) {
    WireTemplate t = c.given;
    EXPECT_EQ(RewriteClassForStorage(&t, c.creating), c.use) << &c - cases;
    EXPECT_EQ(Sorted(t), Sorted(c.stored)) << &c - cases;
  }
}

}  // namespace
}  // namespace nivra::p11helper
