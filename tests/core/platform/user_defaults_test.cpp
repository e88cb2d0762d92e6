// The user-defaults store: values as the host store reads them, writes that
// keep every other key, never damage the file, and survive concurrent
// writers in other processes.
#include <tests/support/log_capture.h>
#include <vtcore/core/platform/log_sink.h>
#include <vtcore/core/platform/user_defaults.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

TEST(DefaultsIntegerValue, ReadsLikeTheHostStore) {
  const json values = json::parse(R"([42, "42", "  -7 apples", "apples", "", 3.9, -3.9, 1e300,
      -1e300, 18446744073709551615, true, null, [1], {}])");
  const long long expected[] = {42,        42,        -7,        0, 0, 3, -3,
                                LLONG_MAX, LLONG_MIN, LLONG_MAX, 1, 0, 0, 0};
  ASSERT_EQ(values.size(), std::size(expected));
  for (std::size_t i = 0; i < values.size(); ++i)
    EXPECT_EQ(vtcore::defaultsIntegerValue(values[i]), expected[i]) << values[i].dump();
}

class UserDefaultsTest : public ::testing::Test {
protected:
  void SetUp() override {
    char pattern[] = "/tmp/vtcore-defaults-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    m_folder = pattern;
    m_file = m_folder / "app" / "defaults.json";
    fs::create_directories(m_file.parent_path());
  }
  void TearDown() override { fs::remove_all(m_folder); }
  std::string readFile() const {
    std::stringstream text;
    text << std::ifstream(m_file, std::ios::binary).rdbuf();
    return text.str();
  }
  fs::path m_folder, m_file;
};

TEST_F(UserDefaultsTest, SynchronizeSeesEveryReplacementEvenOfTheSameSizeAtOnce) {
  vtcore::UserDefaults reader(m_file), writer(m_file);
  EXPECT_FALSE(reader.hasKey("V"));          // read (and cached) while the file is missing
  for (int value = 1; value <= 9; ++value) { // same size, within one clock tick
    ASSERT_TRUE(writer.setObject(value, "V"));
    EXPECT_TRUE(reader.synchronize());
    EXPECT_EQ(reader.integerForKey("V"), value);
  }
}

TEST_F(UserDefaultsTest, ADamagedFileIsNeverOverwritten) {
  const std::string damaged = R"({"Keep": 1, "Half": )";
  std::ofstream(m_file) << damaged;
  vtcore::test::CapturedLog log;
  vtcore::UserDefaults defaults(m_file);
  EXPECT_FALSE(defaults.synchronize());
  EXPECT_FALSE(defaults.setObject(2, "New"));
  EXPECT_EQ(log.sink().records().size(), 1u) << "one logged error per refused write";
  EXPECT_FALSE(defaults.removeObjectForKey("Keep"));
  EXPECT_EQ(readFile(), damaged);
}

TEST_F(UserDefaultsTest, ConcurrentWritersInTwoProcessesLoseNothingAndNeverTearTheFile) {
  constexpr int kWrites = 60;
  auto key = [](int w, int i) { return "writer" + std::to_string(w) + "-" + std::to_string(i); };
  std::ofstream(m_file) << "{}";
  pid_t writers[2];
  for (int w = 0; w < 2; ++w) {
    writers[w] = fork();
    ASSERT_GE(writers[w], 0);
    if (writers[w] == 0) {
      vtcore::UserDefaults defaults(m_file);
      bool ok = true;
      for (int i = 0; i < kWrites; ++i)
        ok = defaults.setObject(json::array({w, i, std::string(200, 'x')}), key(w, i)) && ok;
      _exit(ok ? 0 : 1);
    }
  }
  // Meanwhile every read of the file parses.
  for (int done = 0; done < 2;) {
    const std::string text = readFile();
    ASSERT_FALSE(json::parse(text, nullptr, false).is_discarded()) << "torn file:\n" << text;
    int status = 0;
    for (pid_t& writer : writers)
      if (writer > 0 && waitpid(writer, &status, WNOHANG) == writer) {
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        writer = -1;
        ++done;
      }
  }
  // Each writer's stale view never overwrote the other's keys.
  const json onDisk = json::parse(readFile());
  EXPECT_EQ(onDisk.size(), 2u * kWrites) << onDisk.dump();
}

TEST_F(UserDefaultsTest, StandardStoreFollowsTheEnvironmentAndTheApplicationId) {
  setenv("XDG_CONFIG_HOME", m_folder.c_str(), 1);
  unsetenv("VTCORE_DEFAULTS_FILE");
  vtcore::UserDefaults::setApplicationIdentifier("app");
  EXPECT_EQ(vtcore::UserDefaults::standard().path(), m_file);
  vtcore::UserDefaults::setApplicationIdentifier("");
  EXPECT_EQ(vtcore::UserDefaults::applicationIdentifier(),
            std::string(program_invocation_short_name));
}

} // namespace
