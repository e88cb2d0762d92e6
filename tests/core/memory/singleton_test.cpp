#include <vtcore/core/diagnostics/exception/exception.h>
#include <vtcore/core/memory/objects/singleton.h>

#include <gtest/gtest.h>

#include <algorithm>
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

TEST_F(SingletonTest, OneInstanceMadeOnceWhoseReferenceCountingIsSwitchedOff) {
  const int made = mixersMade, destroyed = mixersDestroyed;
  constexpr int kThreads = 8; // racing on the first request
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
  EXPECT_EQ(std::count(seen.begin(), seen.end(), seen[0]), kThreads);
  EXPECT_EQ(mixersMade, made + 1);

  Mixer* mixer = seen[0];
  EXPECT_EQ(mixer->retain(), mixer);
  mixer->release();
  mixer->release();
  mixer->autorelease();
  EXPECT_EQ(mixer->retainCount(), 4294967295UL);
  EXPECT_EQ(mixer->channels, 8) << "still alive after releases";
  EXPECT_EQ(Mixer::classObject().allocWithZone(), nullptr) << "a second allocation yields nothing";

  Mixer::releaseSharedInstance();
  Mixer::releaseSharedInstance(); // nothing left: no effect
  EXPECT_EQ(mixersDestroyed, destroyed + 1);
  Mixer::sharedInstance();
  EXPECT_EQ(mixersMade, made + 2) << "the next request makes a new one";
}

TEST_F(SingletonTest, ReleaseAllReleasesEveryRegisteredClassButNeverListsTheCollector) {
  Mixer::sharedInstance();
  Transport::sharedInstance();
  auto names = _KWSingletonCollector::sharedInstance()->registeredClassNames();
  EXPECT_TRUE(names.contains(Mixer::classObject().name()) &&
              names.contains(Transport::classObject().name()));
  EXPECT_FALSE(names.contains(_KWSingletonCollector::classObject().name()));

  const int destroyed = mixersDestroyed;
  KWSingleton::releaseAllSingletons();
  EXPECT_EQ(mixersDestroyed, destroyed + 1);
  EXPECT_EQ(Mixer::classObject().singleton(), nullptr);
  Transport::sharedInstance();
  EXPECT_EQ(_KWSingletonCollector::sharedInstance()->registeredClassNames(),
            std::set<std::string>{Transport::classObject().name()})
      << "a fresh collector registers what is requested afterwards";
}

namespace studio {
class Mixer : public KWSingleton {
  KW_SINGLETON(Mixer, KWSingleton)
  Mixer() = default;

public:
  int buses = 4;
};
} // namespace studio

TEST_F(SingletonTest, ClassesOfOneSpellingInTwoNamespacesAreTwoSingletons) {
  Mixer* plain = Mixer::sharedInstance();
  studio::Mixer* other = studio::Mixer::sharedInstance();
  ASSERT_NE(static_cast<KWSingleton*>(plain), static_cast<KWSingleton*>(other));
  EXPECT_EQ(other->buses, 4);
  EXPECT_NE(Mixer::classObject().name(), studio::Mixer::classObject().name());
  const int destroyed = mixersDestroyed;
  KWSingleton::releaseAllSingletons();
  EXPECT_EQ(mixersDestroyed, destroyed + 1) << "the collector released the right class";
  EXPECT_EQ(studio::Mixer::classObject().singleton(), nullptr);
}

TEST_F(SingletonTest, RequestsRacingReleaseAllGetAnInstanceTheCollectorKnows) {
  constexpr int kRounds = 2000;
  const int made = mixersMade, destroyed = mixersDestroyed;
  std::atomic<bool> done{false};
  std::atomic<int> nulls{0};
  std::thread requester([&] {
    for (int round = 0; round < kRounds; ++round)
      if (!Mixer::sharedInstance())
        ++nulls;
    done = true;
  });
  while (!done)
    KWSingleton::releaseAllSingletons();
  requester.join();
  KWSingleton::releaseAllSingletons();
  EXPECT_EQ(nulls, 0);
  EXPECT_EQ(mixersMade - made, mixersDestroyed - destroyed)
      << "every instance made was released by a collector";
}

TEST_F(SingletonTest, AClassWithoutStorageRaisesESSingleton) {
  try {
    Storeless::sharedInstance();
    ADD_FAILURE() << "no exception";
  } catch (const KWException& error) {
    EXPECT_EQ(error.name() + ": " + error.reason(), "ESSingleton: +singleton not implemented");
  }
  // The class lock was released on the way out.
  std::thread([] { std::lock_guard lock(Storeless::classObject().lock()); }).join();
}

} // namespace
