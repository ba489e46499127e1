// How templates that name a vendor class are rewritten for storage (their presentation is
// checked against SoftHSM2 in helper_objects_test.cpp).
#include <gtest/gtest.h>

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

// The values of `type` in the template, in order.
std::vector<Bytes> ValuesOf(const WireTemplate& t, uint32_t type) {
  std::vector<Bytes> values;
  for (const WireAttribute& a : t)
    if (a.type == type) values.push_back(a.value);
  return values;
}

TEST(VendorMarker, NamesTheClassInEightHexDigitsAndNothingElseParses) {
  EXPECT_EQ(VendorMarker(0x80000001), "nivra-vendor-class-80000001");
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
  WireTemplate created = {Value(CKA_CLASS, kContainerClass), Value(CKA_LABEL, Text("Box")),
                          Value(CKA_APPLICATION, Text("caller"))};
  EXPECT_EQ(RewriteClassForStorage(&created, true), ClassUse::kVendor);
  EXPECT_EQ(ValuesOf(created, CKA_CLASS), std::vector<Bytes>{Bytes(4, 0)});  // CKO_DATA
  EXPECT_EQ(ValuesOf(created, CKA_APPLICATION),
            std::vector<Bytes>{Text("nivra-vendor-class-80000001")});
  EXPECT_EQ(ValuesOf(created, CKA_PRIVATE), std::vector<Bytes>{Bytes{CK_FALSE}});
  EXPECT_EQ(ValuesOf(created, CKA_LABEL), std::vector<Bytes>{Text("Box")});

  WireTemplate privateOne = {Value(CKA_CLASS, kContainerClass), Value(CKA_PRIVATE, {CK_TRUE})};
  RewriteClassForStorage(&privateOne, true);
  EXPECT_EQ(ValuesOf(privateOne, CKA_PRIVATE), std::vector<Bytes>{Bytes{CK_TRUE}});
  // A search gets the marker but no privacy it did not ask for.
  WireTemplate search = {Value(CKA_CLASS, kContainerClass)};
  EXPECT_EQ(RewriteClassForStorage(&search, false), ClassUse::kVendor);
  EXPECT_TRUE(ValuesOf(search, CKA_PRIVATE).empty());
  EXPECT_EQ(ValuesOf(search, CKA_APPLICATION).size(), 1u);
  // Standard classes are left alone.
  WireTemplate data = {Value(CKA_CLASS, {0, 0, 0, 0})};
  EXPECT_EQ(RewriteClassForStorage(&data, false), ClassUse::kData);
  EXPECT_EQ(data.size(), 1u);
  WireTemplate key = {Value(CKA_CLASS, {3, 0, 0, 0}), Value(CKA_ID, Text("k"))};
  EXPECT_EQ(RewriteClassForStorage(&key, true), ClassUse::kAny);
  EXPECT_EQ(key.size(), 2u);
  WireTemplate none = {Value(CKA_ID, Text("k"))};
  EXPECT_EQ(RewriteClassForStorage(&none, false), ClassUse::kAny);
}

}  // namespace
}  // namespace nivra::p11helper
