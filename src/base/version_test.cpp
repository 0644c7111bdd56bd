#include <zelutility/version.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

// Reads "major.minor.patch" strictly: three decimal parts and nothing after them.
bool ParseVersion(const std::string& text, int* major, int* minor, int* patch) {
  int consumed = -1;
  return std::sscanf(text.c_str(), "%d.%d.%d%n", major, minor, patch, &consumed) == 3 &&
         consumed == static_cast<int>(text.size());
}

TEST(Version, LibraryAgreesWithHeader) {
  ASSERT_NE(ZELGetVersionString(), nullptr);
  EXPECT_STREQ(ZELGetVersionString(), ZELUTILITY_VERSION_STRING);
  EXPECT_EQ(ZELGetVersionNumber(), ZELUTILITY_VERSION_NUMBER);
  // The text and the number must describe the same version.
  int major = -1, minor = -1, patch = -1;
  ASSERT_TRUE(ParseVersion(ZELGetVersionString(), &major, &minor, &patch)) << ZELGetVersionString();
  EXPECT_EQ(major, ZELUTILITY_VERSION_MAJOR);
  EXPECT_EQ(minor, ZELUTILITY_VERSION_MINOR);
  EXPECT_EQ(patch, ZELUTILITY_VERSION_PATCH);
  EXPECT_EQ(ZELGetVersionNumber(), major * 10000 + minor * 100 + patch);
  // The number packs two decimal digits each for minor and patch.
  EXPECT_GE(minor, 0);
  EXPECT_LT(minor, 100);
  EXPECT_GE(patch, 0);
  EXPECT_LT(patch, 100);
}

}  // namespace
