// Slot names as the table records them from 64-byte blank-padded slot descriptions.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "pkcs11/slot_table.h"

namespace nivra::pkcs11 {
namespace {

std::string NameOf(const std::string& description) {
  CK_UTF8CHAR padded[64];
  std::memset(padded, ' ', sizeof(padded));
  std::memcpy(padded, description.data(), description.size());
  char name[kSlotNameChars + 1];
  std::memset(name, 'X', sizeof(name));
  CopySlotName(name, padded);
  return name;
}

TEST(SlotNames, TrailingBlanksAreCut) {
  EXPECT_EQ(NameOf("SoftHSM slot ID 0x31b1d11c"), "SoftHSM slot ID 0x31b1d11c");
}

TEST(SlotNames, InnerAndLeadingBlanksStay) {
  EXPECT_EQ(NameOf("  two  words"), "  two  words");
}

TEST(SlotNames, AllBlankDescriptionGivesEmptyName) { EXPECT_EQ(NameOf(""), ""); }

TEST(SlotNames, FullDescriptionKeepsAll64BytesAndIsTerminated) {
  const std::string full(64, 'a');
  EXPECT_EQ(NameOf(full), full);
  EXPECT_EQ(NameOf(std::string(63, 'b') + "c"), std::string(63, 'b') + "c");
}

TEST(SlotNames, OnlyBlanksAreCutNotOtherWhitespace) {
  EXPECT_EQ(NameOf("slot\t"), "slot\t");
}

}  // namespace
}  // namespace nivra::pkcs11
