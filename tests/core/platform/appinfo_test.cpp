#include <vtcore/core/platform/appinfo.h>

#include <gtest/gtest.h>

#include <sys/utsname.h>

namespace {

// Setting a name and version is covered by the exception report's text.
TEST(ApplicationInfo, NameDefaultsToTheProcessAndTheSystemEndsWithTheKernel) {
  std::string name, version, system;
  EXPECT_EQ(KWApplicationName().toUTF8String(name), program_invocation_short_name);
  EXPECT_EQ(KWApplicationVersion().toUTF8String(version), "");
  utsname names{};
  ASSERT_EQ(uname(&names), 0);
  const std::string kernel = std::string(", kernel ") + names.release;
  KWOSVersion().toUTF8String(system);
  EXPECT_TRUE(system.ends_with(kernel) && system.size() > kernel.size()) << system;
}

TEST(ApplicationInfo, PrettyNameIsReadAsTheShellWouldReadIt) {
  const struct {
    const char *text, *prettyName; // null: none
  } cases[] = {{"NAME=\"Debian\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nID=debian\n",
                "Debian GNU/Linux 12 (bookworm)"},
               {"PRETTY_NAME='Fedora Linux 39'", "Fedora Linux 39"},
               {"PRETTY_NAME=\"Say \\\"hi\\\" \\$HOME\"", "Say \"hi\" $HOME"},
               {"# PRETTY_NAME=\"comment\"\nNAME=x", nullptr},
               {"PRETTY_NAME=\"unterminated", nullptr}};
  for (const auto& c : cases)
    EXPECT_EQ(vtcore::detail::osReleasePrettyName(c.text),
              c.prettyName ? std::optional<std::string>(c.prettyName) : std::nullopt)
        << c.text;
}

} // namespace
