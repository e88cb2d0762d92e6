#include <vtcore/core/diagnostics/exception.h>
#include <vtcore/core/memory/singleton.h>

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>
#include <vector>

namespace {

std::atomic<int> mixersMade{0};
std::atomic<int> mixersDestroyed{0};

class Mixer : public KWSingleton {
  KW_SINGLETON(Mixer, KWSingleton)
  Mixer() { ++mixersMade; }
  ~Mixer() override { ++mixersDestroyed; }

public:
  int channels = 8;
};

class Transport : public KWSingleton {
  KW_SINGLETON(Transport, KWSingleton)
  Transport() = default;
};

// A singleton class whose class object provides no instance storage.
class Storeless : public KWSingleton {
  KW_SINGLETON_WITH_CLASS(Storeless, KWSingleton, KWSingletonClass)
  Storeless() = default;
};

class SingletonTest : public testing::Test {
protected:
  void TearDown() override { KWSingleton::releaseAllSingletons(); }
};

TEST_F(SingletonTest, OneInstanceWhoseReferenceCountingIsSwitchedOff) {
  Mixer* mixer = Mixer::sharedInstance();
  ASSERT_NE(mixer, nullptr);
  EXPECT_EQ(Mixer::sharedInstance(), mixer);
  EXPECT_EQ(mixer->retain(), mixer);
  mixer->release();
  mixer->release();
  mixer->autorelease();
  EXPECT_EQ(mixer->copy(), mixer);
  EXPECT_EQ(mixer->retainCount(), 4294967295UL);
  EXPECT_EQ(mixer->channels, 8) << "still alive after releases";
  EXPECT_EQ(Mixer::classObject().allocWithZone(), nullptr) << "a second allocation yields nothing";

  const int made = mixersMade, destroyed = mixersDestroyed;
  Mixer::releaseSharedInstance();
  Mixer::releaseSharedInstance(); // nothing left: no effect
  EXPECT_EQ(mixersDestroyed, destroyed + 1);
  Mixer::sharedInstance();
  EXPECT_EQ(mixersMade, made + 1) << "the next request makes a new one";
}

TEST_F(SingletonTest, ReleaseAllReleasesEveryRegisteredClassButNeverListsTheCollector) {
  Mixer::sharedInstance();
  Transport::sharedInstance();
  auto names = _KWSingletonCollector::sharedInstance()->registeredClassNames();
  EXPECT_TRUE(names.contains("Mixer") && names.contains("Transport"));
  EXPECT_FALSE(names.contains("_KWSingletonCollector"));

  const int destroyed = mixersDestroyed;
  KWSingleton::releaseAllSingletons();
  EXPECT_EQ(mixersDestroyed, destroyed + 1);
  EXPECT_EQ(Mixer::classObject().singleton(), nullptr);
  EXPECT_EQ(Transport::classObject().singleton(), nullptr);
  EXPECT_NE(Transport::sharedInstance(), nullptr);
  EXPECT_EQ(_KWSingletonCollector::sharedInstance()->registeredClassNames(),
            std::set<std::string>{"Transport"})
      << "a fresh collector registers what is requested afterwards";
}

TEST_F(SingletonTest, AClassWithoutStorageRaisesESSingleton) {
  const auto reason = [](const auto& call) -> std::string {
    try {
      call();
    } catch (const KWException& error) {
      return error.name() + ": " + error.reason();
    }
    return "no exception";
  };
  EXPECT_EQ(reason([] { Storeless::sharedInstance(); }), "ESSingleton: +singleton not implemented");
  EXPECT_EQ(reason([] { Storeless::classObject().setSingleton(nullptr); }),
            "ESSingleton: +setSingleton: not implemented");
  // The class lock was released on the way out.
  std::thread([] { std::lock_guard lock(Storeless::classObject().lock()); }).join();
}

TEST_F(SingletonTest, RacingFirstRequestsGetOneInstance) {
  const int made = mixersMade;
  constexpr int kThreads = 8;
  std::barrier start(kThreads);
  std::vector<Mixer*> seen(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      seen[t] = Mixer::sharedInstance();
    });
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(mixersMade, made + 1);
  for (Mixer* mixer : seen)
    EXPECT_EQ(mixer, seen[0]);
}

} // namespace
