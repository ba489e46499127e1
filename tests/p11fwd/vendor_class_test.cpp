// How vendor-class objects are rewritten for storage and presented back, and the control
// command parser.
#include <gtest/gtest.h>

#include <string>

#include "tests/p11fwd/wire_test_values.h"
#include "tools/p11helper/control_commands.h"
#include "tools/p11helper/vendor_class.h"

namespace nivra::p11helper {
namespace {

using p11wire::WireAttribute;
using p11wire::WireTemplate;
using Bytes = std::vector<uint8_t>;

constexpr auto Value = p11test::ValueAttribute;
constexpr auto Text = p11test::TextBytes;

const WireAttribute* Find(const WireTemplate& t, uint32_t type) {
  for (const WireAttribute& a : t)
    if (a.type == type) return &a;
  return nullptr;
}

TEST(VendorMarker, NamesTheClassInEightHexDigits) {
  EXPECT_EQ(VendorMarker(0x80000001), "nivra-vendor-class-80000001");
  uint32_t cls = 0;
  std::string m = VendorMarker(0x8000ABCD);
  ASSERT_TRUE(ParseVendorMarker(reinterpret_cast<const uint8_t*>(m.data()), m.size(), &cls));
  EXPECT_EQ(cls, 0x8000ABCDu);
}

TEST(VendorMarker, RejectsOtherApplications) {
  uint32_t cls = 0;
  for (std::string bad : {"nivra-vendor-class-0000000", "nivra-vendor-class-800000012",
                          "nivra-vendor-class-8000000G", "nivra-vendor-class-00000001",
                          "nivra-vendor-class-8000000A", "other-vendor-class-80000001", ""})
    EXPECT_FALSE(ParseVendorMarker(reinterpret_cast<const uint8_t*>(bad.data()), bad.size(), &cls))
        << bad;
}

TEST(VendorRewrite, CreationStoresDataObjectWithMarkerAndPublicByDefault) {
  WireTemplate t = {Value(CKA_CLASS, {0x01, 0, 0, 0x80}), Value(CKA_LABEL, Text("Box")),
                    Value(CKA_TOKEN, {CK_TRUE}), Value(CKA_MODIFIABLE, {CK_TRUE}),
                    Value(CKA_APPLICATION, Text("caller"))};
  EXPECT_EQ(RewriteClassForStorage(&t, true), ClassUse::kVendor);
  EXPECT_EQ(Find(t, CKA_CLASS)->value, (Bytes{0, 0, 0, 0}));  // CKO_DATA
  EXPECT_EQ(Find(t, CKA_APPLICATION)->value, Text("nivra-vendor-class-80000001"));
  ASSERT_NE(Find(t, CKA_PRIVATE), nullptr);
  EXPECT_EQ(Find(t, CKA_PRIVATE)->value, Bytes{CK_FALSE});
  EXPECT_EQ(Find(t, CKA_LABEL)->value, Text("Box"));
  int applications = 0;
  for (const WireAttribute& a : t) applications += a.type == CKA_APPLICATION;
  EXPECT_EQ(applications, 1);
}

TEST(VendorRewrite, CallerPrivacyIsKeptAndSearchesGetNoPrivacy) {
  WireTemplate created = {Value(CKA_CLASS, {0x01, 0, 0, 0x80}), Value(CKA_PRIVATE, {CK_TRUE})};
  RewriteClassForStorage(&created, true);
  EXPECT_EQ(Find(created, CKA_PRIVATE)->value, Bytes{CK_TRUE});

  WireTemplate search = {Value(CKA_CLASS, {0x01, 0, 0, 0x80}), Value(CKA_LABEL, Text("Box"))};
  EXPECT_EQ(RewriteClassForStorage(&search, false), ClassUse::kVendor);
  EXPECT_EQ(Find(search, CKA_PRIVATE), nullptr);
  EXPECT_NE(Find(search, CKA_APPLICATION), nullptr);
}

TEST(VendorRewrite, StandardClassesAreLeftAlone) {
  WireTemplate data = {Value(CKA_CLASS, {0, 0, 0, 0})};
  EXPECT_EQ(RewriteClassForStorage(&data, false), ClassUse::kData);
  EXPECT_EQ(data.size(), 1u);
  WireTemplate key = {Value(CKA_CLASS, {3, 0, 0, 0}), Value(CKA_ID, Text("k"))};
  EXPECT_EQ(RewriteClassForStorage(&key, true), ClassUse::kAny);
  EXPECT_EQ(key.size(), 2u);
  WireTemplate none = {Value(CKA_ID, Text("k"))};
  EXPECT_EQ(RewriteClassForStorage(&none, false), ClassUse::kAny);
}

TEST(VendorPresentation, ClassIsVendorAndApplicationIsHidden) {
  WireTemplate answers = {Value(CKA_CLASS, {0, 0, 0, 0}), Value(CKA_LABEL, Text("Box")),
                          Value(CKA_APPLICATION, Text("nivra-vendor-class-80000001"))};
  uint32_t rv = CKR_OK;
  PresentVendorAnswers(0x80000001, &answers, &rv);
  EXPECT_EQ(answers[0].value, (Bytes{0x01, 0, 0, 0x80}));
  EXPECT_EQ(answers[1].value, Text("Box"));
  EXPECT_EQ(answers[2].length, p11wire::kWireUnavailable);
  EXPECT_TRUE(answers[2].value.empty());
  EXPECT_EQ(rv, CKR_ATTRIBUTE_TYPE_INVALID);
}

TEST(VendorPresentation, SizeQueryOfClassStaysFourBytes) {
  WireAttribute sizeOnly;
  sizeOnly.type = CKA_CLASS;
  sizeOnly.length = 4;
  WireTemplate answers = {sizeOnly};
  uint32_t rv = CKR_OK;
  PresentVendorAnswers(0x80000001, &answers, &rv);
  EXPECT_EQ(answers[0].length, 4u);
  EXPECT_TRUE(answers[0].value.empty());
  EXPECT_EQ(rv, CKR_OK);
}

TEST(ControlWords, SplitAtAnyBlanks) {
  EXPECT_EQ(SplitControlWords("  add-slots   40\tblank \n"),
            (std::vector<std::string>{"add-slots", "40", "blank"}));
  EXPECT_TRUE(SplitControlWords("   ").empty());
}

TEST(ControlWords, NumbersAreDecimalOrHex) {
  uint64_t v = 0;
  EXPECT_TRUE(ParseControlNumber("40", &v));
  EXPECT_EQ(v, 40u);
  EXPECT_TRUE(ParseControlNumber("0x20AFA904", &v));
  EXPECT_EQ(v, 0x20AFA904u);
  EXPECT_TRUE(ParseControlNumber("0xffffffffffffffff", &v));
  EXPECT_EQ(v, ~0ull);
  for (std::string bad : {"", "0x", "-1", "12a", "0x1g", "1 2", "18446744073709551616"})
    EXPECT_FALSE(ParseControlNumber(bad, &v)) << bad;
}

}  // namespace
}  // namespace nivra::p11helper
