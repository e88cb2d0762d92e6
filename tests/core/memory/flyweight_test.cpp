#include <vtcore/core/diagnostics/exception.h>
#include <vtcore/core/memory/flyweight.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

std::atomic<int> setups{0};
std::atomic<int> destroyed{0};

class Glyph : public KWFlyweight {
  VTCORE_OBJECT(Glyph, KWFlyweight)

public:
  explicit Glyph(char32_t c = 0) : c_(c) {}
  ~Glyph() override { ++destroyed; }
  void setupIntrinsicStateData() override { ++setups; }
  char32_t c_;
};

class Chord : public KWFlyweight {
  VTCORE_OBJECT(Chord, KWFlyweight)
};

std::size_t pooled(const vtcore::Class& cls) {
  return _KWPoolOfFlyweights::sharedInstance()->countOfFlyweightsOfClassName(cls.name());
}

class FlyweightTest : public testing::Test {
protected:
  void SetUp() override { setups = destroyed = 0; }
  void TearDown() override {
    KWFlyweight::releasePoolOfFlyweights(Glyph::classObject());
    KWFlyweight::releasePoolOfFlyweights(Chord::classObject());
  }
};

TEST_F(FlyweightTest, EqualHashesOfOneClassShareOneInstanceSetUpOnce) {
  auto a = makeFlyweight<Glyph>(97, U'a');
  auto again = makeFlyweight<Glyph>(97, U'x');
  auto b = makeFlyweight<Glyph>(98, U'b');
  EXPECT_EQ(a.get(), again.get());
  EXPECT_EQ(again->c_, U'a') << "the pooled instance, not the new one";
  EXPECT_NE(a.get(), b.get());
  EXPECT_EQ(setups, 2);
  EXPECT_EQ(destroyed, 1) << "the redundant instance was released";
  EXPECT_EQ(pooled(Glyph::classObject()), 2u);
  EXPECT_EQ(a->retainCount(), 3u) << "the pool and two callers";
}

TEST_F(FlyweightTest, AHashCollisionBetweenClassesGivesTwoFlyweights) {
  auto glyph = makeFlyweight<Glyph>(7);
  auto chord = makeFlyweight<Chord>(7);
  EXPECT_NE(static_cast<vtcore::Object*>(glyph.get()), static_cast<vtcore::Object*>(chord.get()));
  EXPECT_TRUE(glyph->isEqual(chord.get())) << "equality looks at the hash only";
  EXPECT_FALSE(glyph->isEqual(nullptr));
}

TEST_F(FlyweightTest, WithoutAutoRemovalAFlyweightStaysPooledUntilItsPoolIsReleased) {
  makeFlyweight<Glyph>(1);
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(pooled(Glyph::classObject()), 1u);
  auto held = makeFlyweight<Glyph>(2);
  KWFlyweight::releasePoolOfFlyweights(Glyph::classObject());
  EXPECT_EQ(destroyed, 1) << "only the one nobody else held";
  EXPECT_EQ(held->retainCount(), 1u);
  EXPECT_EQ(pooled(Glyph::classObject()), 0u);
}

TEST_F(FlyweightTest, AutoRemovalTakesTheLastUserOutOfThePool) {
  {
    auto glyph = makeFlyweight<Glyph>(5);
    glyph->setWillAutoRemoveFromPool(true);
    auto second = glyph; // retain count 3: releasing it is not the last user
  }
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(pooled(Glyph::classObject()), 0u);
  auto fresh = makeFlyweight<Glyph>(5);
  EXPECT_EQ(setups, 2) << "a fresh flyweight was made for the same hash";
}

TEST_F(FlyweightTest, SwitchingAutoRemovalOnWhenOnlyThePoolHoldsItDestroysIt) {
  Glyph* glyph = makeFlyweight<Glyph>(9).get(); // only the pool holds it now
  ASSERT_EQ(glyph->retainCount(), 1u);
  glyph->setWillAutoRemoveFromPool(true);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(pooled(Glyph::classObject()), 0u);
}

TEST_F(FlyweightTest, RemovingAnEqualButDifferentInstanceLeavesThePoolAlone) {
  auto unpooled = makeFlyweight<Glyph>(3);
  KWFlyweight::releasePoolOfFlyweights(Glyph::classObject());
  auto pooledGlyph = makeFlyweight<Glyph>(3);
  ASSERT_NE(unpooled.get(), pooledGlyph.get());
  _KWPoolOfFlyweights::sharedInstance()->removeFlyweight(unpooled.get());
  EXPECT_EQ(pooled(Glyph::classObject()), 1u);
  EXPECT_EQ(makeFlyweight<Glyph>(3).get(), pooledGlyph.get());
}

TEST_F(FlyweightTest, ThreadsSharingAndDroppingAutoRemovedFlyweightsLeaveAnEmptyPool) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < 2000; ++i) {
        auto glyph = makeFlyweight<Glyph>(static_cast<unsigned>((i + t) % 8));
        glyph->setWillAutoRemoveFromPool(true);
        EXPECT_EQ(glyph->hash(), static_cast<std::size_t>((i + t) % 8));
      }
    });
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(pooled(Glyph::classObject()), 0u);
  EXPECT_EQ(destroyed.load(), 4 * 2000) << "every instance made, pooled or not, has ended";
  EXPECT_GT(setups.load(), 8) << "flyweights left the pool and were made afresh";
}

TEST_F(FlyweightTest, InitIsNotTheDesignatedInitialiser) {
  auto glyph = vtcore::makeObject<Glyph>();
  try {
    glyph->init();
    FAIL() << "no exception";
  } catch (const KWException& error) {
    EXPECT_EQ(error.name(), "KWFlyweight");
    EXPECT_EQ(error.reason(), "-init: not the designated initializer");
  }
}

} // namespace
