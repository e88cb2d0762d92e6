// Runs the vtcore tool as a user would: a stored block written by
// `vtcore transients --make` survives byte swapping.
#include <vtcore/music/transients/transients.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace {

std::filesystem::path scratchFile(const char* name) {
  return std::filesystem::temp_directory_path() /
         (std::string("vtcore_music_") + std::to_string(::getpid()) + "_" + name);
}

// Reads the file and removes it.
std::string takeFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  std::filesystem::remove(path);
  return bytes;
}

int runTool(const std::string& arguments) {
  const std::string command = std::string(VTCORE_CLI_PATH) + " " + arguments + " >/dev/null 2>&1";
  return WEXITSTATUS(std::system(command.c_str()));
}

CTransients recordsOf(const std::string& block) {
  CTransients records((block.size() - 1024) / sizeof(CTransient));
  std::memcpy(static_cast<void*>(records.data()), block.data() + 1024,
              records.size() * sizeof(CTransient));
  return records;
}

} // namespace

TEST(TransientsTool, MadeBlockSurvivesSwappingTwice) {
  const auto path = scratchFile("block");
  ASSERT_EQ(runTool("transients --make 25 " + path.string()), 0);
  const auto made = takeFile(path);
  ASSERT_EQ(made.size(), 1024u + 25 * 36);
  // The made block is in this machine's order: its records read directly.
  const CTransients original = recordsOf(made);
  EXPECT_TRUE(original.AreUniqueAndSortedByPos());

  auto swapped = made;
  SwapTransientCallback(swapped.data(), swapped.size(), true);
  EXPECT_NE(std::int64_t{recordsOf(swapped)[0].pos}, std::int64_t{original[0].pos});
  SwapTransientCallback(swapped.data(), swapped.size(), false);
  EXPECT_EQ(swapped, made);
  EXPECT_EQ(recordsOf(swapped), original);
}

TEST(MusicTools, BadArgumentsShortFilesAndSpeakerPicture) {
  EXPECT_EQ(runTool("transients --make -3 x"), 2);
  const auto path = scratchFile("short");
  std::ofstream(path) << "too short";
  EXPECT_EQ(runTool("transients " + path.string()), 1);

  ASSERT_EQ(runTool("channels 8 --svg " + path.string()), 0);
  const std::string svg = takeFile(path);
  for (const char* name : {"<svg ", "</svg>", ">LFE<", ">Lc<", ">Rc<"})
    EXPECT_NE(svg.find(name), std::string::npos) << name;
}
