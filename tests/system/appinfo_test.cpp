#include <vtcore/system/appinfo.h>

#include <gtest/gtest.h>

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

  utsname names{};
  ASSERT_EQ(uname(&names), 0);
  const std::string system = utf8(KWOSVersion()), kernel = std::string(", kernel ") + names.release;
  EXPECT_TRUE(system.ends_with(kernel) && system.size() > kernel.size()) << system;
}

TEST(ApplicationInfo, PrettyNameIsReadAsTheShellWouldReadIt) {
  const struct {
    const char *text, *prettyName; // null: none
  } cases[] = {{"NAME=\"Debian\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nID=debian\n",
                "Debian GNU/Linux 12 (bookworm)"},
               {"PRETTY_NAME='Fedora Linux 39'", "Fedora Linux 39"},
               {"PRETTY_NAME=Arch\r\n", "Arch"},
               {"PRETTY_NAME=\"Say \\\"hi\\\" \\$HOME\"", "Say \"hi\" $HOME"},
               {"PRETTY_NAME=\"first\"\nPRETTY_NAME=\"second\"", "second"},
               {"# PRETTY_NAME=\"comment\"\nNAME=x", nullptr},
               {"PRETTY_NAME=\"unterminated", nullptr},
               {"PRETTY_NAME=", nullptr},
               {"", nullptr}};
  for (const auto& c : cases) {
    const auto name = vtcore::detail::osReleasePrettyName(c.text);
    EXPECT_EQ(name, c.prettyName ? std::optional<std::string>(c.prettyName) : std::nullopt)
        << c.text;
  }
}

} // namespace
