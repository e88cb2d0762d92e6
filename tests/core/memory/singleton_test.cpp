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
}

TEST_F(SingletonTest, ReleaseSharedInstanceDestroysAndTheNextRequestMakesANewOne) {
  Mixer::sharedInstance();
  const int made = mixersMade, destroyed = mixersDestroyed;
  Mixer::releaseSharedInstance();
  EXPECT_EQ(mixersDestroyed, destroyed + 1);
  Mixer::sharedInstance();
  EXPECT_EQ(mixersMade, made + 1);
  Mixer::releaseSharedInstance();
  Mixer::releaseSharedInstance(); // nothing left: no effect
  EXPECT_EQ(mixersDestroyed, destroyed + 2);
}

TEST_F(SingletonTest, ReleaseAllReleasesEveryRegisteredClassButNeverListsTheCollector) {
  Mixer::sharedInstance();
  Transport* transport = Transport::sharedInstance();
  auto names = _KWSingletonCollector::sharedInstance()->registeredClassNames();
  EXPECT_TRUE(names.contains("Mixer"));
  EXPECT_TRUE(names.contains("Transport"));
  EXPECT_FALSE(names.contains("_KWSingletonCollector"));

  const int destroyed = mixersDestroyed;
  KWSingleton::releaseAllSingletons();
  EXPECT_EQ(mixersDestroyed, destroyed + 1);
  EXPECT_EQ(Mixer::classObject().singleton(), nullptr);
  EXPECT_EQ(Transport::classObject().singleton(), nullptr);
  EXPECT_NE(Transport::sharedInstance(), nullptr);
  (void)transport;
  EXPECT_EQ(_KWSingletonCollector::sharedInstance()->registeredClassNames(),
            std::set<std::string>{"Transport"})
      << "a fresh collector registers what is requested afterwards";
}

TEST_F(SingletonTest, AClassWithoutStorageRaisesESSingleton) {
  try {
    Storeless::sharedInstance();
    FAIL() << "no exception";
  } catch (const KWException& error) {
    EXPECT_EQ(error.name(), "ESSingleton");
    EXPECT_EQ(error.reason(), "+singleton not implemented");
  }
  try {
    Storeless::classObject().setSingleton(nullptr);
    FAIL() << "no exception";
  } catch (const KWException& error) {
    EXPECT_EQ(error.name(), "ESSingleton");
    EXPECT_EQ(error.reason(), "+setSingleton: not implemented");
  }
  // The class lock was released on the way out.
  std::thread([] { std::lock_guard lock(Storeless::classObject().lock()); }).join();
}

TEST_F(SingletonTest, RacingFirstRequestsGetOneInstance) {
  Mixer::releaseSharedInstance();
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
