#include <vtcore/system/appinfo.h>

#include <gtest/gtest.h>

#include <cstring>
#include <sys/utsname.h>

namespace {

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  return text.toUTF8String(out);
}

TEST(ApplicationInfo, NameAndVersionDefaultToTheProcessAndCanBeSet) {
  EXPECT_EQ(utf8(KWApplicationName()), program_invocation_short_name);
  EXPECT_EQ(utf8(KWApplicationVersion()), "");
  vtcore::setApplicationName(u"Session Studio");
  vtcore::setApplicationVersion(u"4.2 (812)");
  EXPECT_EQ(utf8(KWApplicationName()), "Session Studio");
  EXPECT_EQ(utf8(KWApplicationVersion()), "4.2 (812)");
  vtcore::setApplicationName(u"");
  vtcore::setApplicationVersion(u"");
  EXPECT_EQ(utf8(KWApplicationName()), program_invocation_short_name);
}

TEST(ApplicationInfo, SystemVersionNamesTheKernelRelease) {
  utsname names{};
  ASSERT_EQ(uname(&names), 0);
  const std::string version = utf8(KWOSVersion());
  EXPECT_TRUE(version.ends_with(std::string(", kernel ") + names.release)) << version;
  EXPECT_GT(version.size(), std::string(", kernel ").size() + std::strlen(names.release));
}

struct OsReleaseCase {
  const char* text;
  const char* prettyName; // null: none
};

class OsRelease : public testing::TestWithParam<OsReleaseCase> {};

TEST_P(OsRelease, PrettyNameIsReadAsTheShellWouldReadIt) {
  auto name = vtcore::detail::osReleasePrettyName(GetParam().text);
  if (GetParam().prettyName)
    EXPECT_EQ(name, std::optional<std::string>(GetParam().prettyName));
  else
    EXPECT_EQ(name, std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(
    Table, OsRelease,
    testing::Values(
        OsReleaseCase{"NAME=\"Debian GNU/Linux\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"
                      "ID=debian\n",
                      "Debian GNU/Linux 12 (bookworm)"},
        OsReleaseCase{"PRETTY_NAME='Fedora Linux 39'", "Fedora Linux 39"},
        OsReleaseCase{"PRETTY_NAME=Arch\r\n", "Arch"},
        OsReleaseCase{"PRETTY_NAME=\"Say \\\"hi\\\" \\$HOME\"", "Say \"hi\" $HOME"},
        OsReleaseCase{"PRETTY_NAME=\"first\"\nPRETTY_NAME=\"second\"", "second"},
        OsReleaseCase{"# PRETTY_NAME=\"comment\"\nNAME=x", nullptr},
        OsReleaseCase{"PRETTY_NAME=\"unterminated", nullptr},
        OsReleaseCase{"PRETTY_NAME=", nullptr}, OsReleaseCase{"", nullptr}));

} // namespace
