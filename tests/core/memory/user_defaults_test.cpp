// The user-defaults store: values as the host store reads them, writes that
// keep every other key, never damage the file, and survive concurrent
// writers in other processes.
#include <vtcore/core/diagnostics/log_sink.h>
#include <vtcore/core/memory/user_defaults.h>

#include <gtest/gtest.h>

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
    folder_ = pattern;
    file_ = folder_ / "app" / "defaults.json";
  }
  void TearDown() override { fs::remove_all(folder_); }
  void writeFile(const std::string& text) {
    fs::create_directories(file_.parent_path());
    std::ofstream(file_, std::ios::binary) << text;
  }
  std::string readFile() const {
    std::stringstream text;
    text << std::ifstream(file_, std::ios::binary).rdbuf();
    return text.str();
  }
  fs::path folder_, file_;
};

TEST_F(UserDefaultsTest, WritesKeepKeysOtherWritersStoredMeanwhile) {
  vtcore::UserDefaults first(file_);
  vtcore::UserDefaults second(file_);
  EXPECT_FALSE(first.hasKey("A")); // read (and cached) while the file is missing
  ASSERT_TRUE(second.setObject(1, "B"));
  ASSERT_TRUE(first.setObject(2, "A")); // must not write its stale view back
  ASSERT_TRUE(second.setObject(json::object({{"x", 3}}), "C"));
  ASSERT_TRUE(first.removeObjectForKey("B"));
  EXPECT_TRUE(first.removeObjectForKey("NotThere"));
  EXPECT_EQ(json::parse(readFile()), json({{"A", 2}, {"C", {{"x", 3}}}}));
  EXPECT_TRUE(first.synchronize());
  EXPECT_EQ(first.dictionaryForKey("C"), json({{"x", 3}}));
  EXPECT_FALSE(first.dictionaryForKey("A")) << "not a dictionary";
  EXPECT_EQ(first.integerForKey("Missing"), 0);
}

TEST_F(UserDefaultsTest, SynchronizeSeesEveryReplacementEvenOfTheSameSizeAtOnce) {
  writeFile(R"({"V": 1})");
  vtcore::UserDefaults reader(file_);
  vtcore::UserDefaults writer(file_);
  EXPECT_EQ(reader.integerForKey("V"), 1);
  for (int value = 2; value <= 9; ++value) { // same size, within one clock tick
    ASSERT_TRUE(writer.setObject(value, "V"));
    EXPECT_TRUE(reader.synchronize());
    EXPECT_EQ(reader.integerForKey("V"), value);
  }
  fs::remove(file_);
  EXPECT_TRUE(reader.synchronize());
  EXPECT_FALSE(reader.hasKey("V"));
}

TEST_F(UserDefaultsTest, ADamagedFileIsNeverOverwritten) {
  const std::string damaged = R"({"Keep": 1, "Half": )";
  writeFile(damaged);
  vtcore::MemoryLogSink sink;
  vtcore::LogSink* previous = vtcore::setLogSink(&sink);
  vtcore::UserDefaults defaults(file_);
  EXPECT_FALSE(defaults.synchronize());
  EXPECT_FALSE(defaults.hasKey("Keep"));
  EXPECT_FALSE(defaults.setObject(2, "New"));
  EXPECT_EQ(sink.records().size(), 1u) << "one logged error per refused write";
  EXPECT_FALSE(defaults.removeObjectForKey("Keep"));
  vtcore::setLogSink(previous);
  EXPECT_EQ(readFile(), damaged);
  ASSERT_TRUE(fs::remove(file_));
  EXPECT_TRUE(defaults.setObject(2, "New")) << "a missing file is simply created";
}

TEST_F(UserDefaultsTest, ConcurrentWritersInTwoProcessesLoseNothingAndNeverTearTheFile) {
  constexpr int kWrites = 60;
  auto key = [](int w, int i) { return "writer" + std::to_string(w) + "-" + std::to_string(i); };
  writeFile("{}");
  pid_t writers[2];
  for (int w = 0; w < 2; ++w) {
    writers[w] = fork();
    ASSERT_GE(writers[w], 0);
    if (writers[w] == 0) {
      vtcore::UserDefaults defaults(file_);
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
  const json onDisk = json::parse(readFile());
  EXPECT_EQ(onDisk.size(), 2u * kWrites);
  for (int w = 0; w < 2; ++w)
    for (int i = 0; i < kWrites; ++i)
      EXPECT_TRUE(onDisk.contains(key(w, i))) << key(w, i);
}

TEST_F(UserDefaultsTest, StandardStoreFollowsTheEnvironmentAndTheApplicationId) {
  setenv("XDG_CONFIG_HOME", folder_.c_str(), 1);
  unsetenv("VTCORE_DEFAULTS_FILE");
  vtcore::UserDefaults::setApplicationIdentifier("app");
  EXPECT_EQ(vtcore::UserDefaults::standard().path(), file_);
  setenv("VTCORE_DEFAULTS_FILE", (folder_ / "other.json").c_str(), 1);
  vtcore::UserDefaults::setApplicationIdentifier("");
  EXPECT_EQ(vtcore::UserDefaults::standard().path(), folder_ / "other.json");
  EXPECT_EQ(vtcore::UserDefaults::applicationIdentifier(),
            std::string(program_invocation_short_name));
  unsetenv("VTCORE_DEFAULTS_FILE");
}

} // namespace
