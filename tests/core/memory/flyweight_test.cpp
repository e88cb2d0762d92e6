#include <vtcore/core/diagnostics/exception/exception.h>
#include <vtcore/core/memory/objects/flyweight.h>

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>
#include <vector>

namespace {

std::atomic<int> setups{0};
std::atomic<int> destroyed{0};

class Glyph : public KWFlyweight {
  VTCORE_OBJECT(Glyph, KWFlyweight)

public:
  explicit Glyph(char32_t c = 0) : m_c(c) {}
  ~Glyph() override { ++destroyed; }
  void setupIntrinsicStateData() override { ++setups; }
  char32_t m_c;
};

class Chord : public KWFlyweight {
  VTCORE_OBJECT(Chord, KWFlyweight)
};

std::size_t pooledGlyphs() {
  return _KWPoolOfFlyweights::sharedInstance()->countOfFlyweightsOfClassName(
      Glyph::classObject().name());
}

namespace engraving {
// Spelled like the Glyph above, in another namespace: another class.
class Glyph : public KWFlyweight {
  VTCORE_OBJECT(Glyph, KWFlyweight)

public:
  double width = 1.5;
};
} // namespace engraving

// Declares no class object of its own, so it shares Glyph's pool.
class BoldGlyph : public Glyph {
public:
  int weight = 700;
};

class FlyweightTest : public testing::Test {
protected:
  void SetUp() override { setups = destroyed = 0; }
  void TearDown() override {
    KWFlyweight::releasePoolOfFlyweights(Glyph::classObject());
    KWFlyweight::releasePoolOfFlyweights(Chord::classObject());
    KWFlyweight::releasePoolOfFlyweights(engraving::Glyph::classObject());
  }
};

TEST_F(FlyweightTest, EqualHashesOfOneClassShareOneInstanceSetUpOnce) {
  auto a = makeFlyweight<Glyph>(97, U'a');
  auto again = makeFlyweight<Glyph>(97, U'x');
  auto b = makeFlyweight<Glyph>(98, U'b');
  EXPECT_EQ(again->m_c, U'a') << "the pooled instance, not the new one";
  EXPECT_EQ(setups, 2);
  EXPECT_EQ(destroyed, 1) << "the redundant instance was released";
  EXPECT_EQ(pooledGlyphs(), 2u);
  EXPECT_EQ(a->retainCount(), 3u) << "the pool and two callers";

  // A hash collision between classes gives two flyweights, equal by hash.
  auto chord = makeFlyweight<Chord>(97);
  EXPECT_NE(static_cast<vtcore::Object*>(a.get()), static_cast<vtcore::Object*>(chord.get()));
  EXPECT_TRUE(a->isEqual(chord.get()));
  try {
    vtcore::makeObject<Glyph>()->init();
    ADD_FAILURE() << "init is not the designated initialiser";
  } catch (const KWException& error) {
    EXPECT_EQ(error.reason(), "-init: not the designated initializer");
  }
}

TEST_F(FlyweightTest, WithoutAutoRemovalAFlyweightStaysPooledUntilItsPoolIsReleased) {
  makeFlyweight<Glyph>(1);
  auto held = makeFlyweight<Glyph>(3);
  KWFlyweight::releasePoolOfFlyweights(Glyph::classObject());
  EXPECT_EQ(destroyed, 1) << "only the one nobody else held";
  EXPECT_EQ(held->retainCount(), 1u);
  EXPECT_EQ(pooledGlyphs(), 0u);
}

TEST_F(FlyweightTest, AutoRemovalTakesTheLastUserOutOfThePool) {
  {
    auto glyph = makeFlyweight<Glyph>(5);
    glyph->setWillAutoRemoveFromPool(true);
    auto second = glyph; // retain count 3: releasing it is not the last user
  }
  EXPECT_EQ(destroyed, 1);
  Glyph* glyph = makeFlyweight<Glyph>(5).get(); // only the pool holds it now
  EXPECT_EQ(setups, 2) << "a fresh flyweight was made for the same hash";
  glyph->setWillAutoRemoveFromPool(true); // switching it on at count 1 ends it
  EXPECT_EQ(destroyed, 2);
  EXPECT_EQ(pooledGlyphs(), 0u);
}

TEST_F(FlyweightTest, AClassIsItsFullTypeNotItsSpelling) {
  auto glyph = makeFlyweight<Glyph>(42, U'g');
  auto engraved = makeFlyweight<engraving::Glyph>(42);
  ASSERT_TRUE(engraved);
  EXPECT_NE(static_cast<vtcore::Object*>(glyph.get()),
            static_cast<vtcore::Object*>(engraved.get()));
  EXPECT_EQ(engraved->width, 1.5);
  EXPECT_EQ(setups, 1) << "the engraving glyph has no setup of its own";
  // A subclass without a class object of its own gets null, never a Glyph
  // passed off as a BoldGlyph.
  EXPECT_FALSE(makeFlyweight<BoldGlyph>(42));
}

TEST_F(FlyweightTest, HoldersReleasingAtOnceNeverLeaveThePoolTheOnlyHolder) {
  // Two holders of an auto-removed flyweight let go at the same moment, many
  // times over: whichever is last must take it out of the pool. The worker
  // spins rather than sleeps between rounds, so that both releases really
  // meet.
  constexpr int kRounds = 10000;
  vtcore::Ref<Glyph> mine, theirs;
  std::atomic<int> go{0}, done{0};
  std::thread worker([&] {
    for (int round = 1; round <= kRounds; ++round) {
      while (go.load(std::memory_order_acquire) != round) {
        if (go.load(std::memory_order_relaxed) < 0)
          return;
      }
      theirs = nullptr;
      done.store(round, std::memory_order_release);
    }
  });
  int leftInPool = 0, round = 1;
  for (; round <= kRounds; ++round) {
    mine = makeFlyweight<Glyph>(7);
    mine->setWillAutoRemoveFromPool(true);
    theirs = mine;
    go.store(round, std::memory_order_release);
    mine = nullptr;
    while (done.load(std::memory_order_acquire) != round) {
    }
    if ((leftInPool = static_cast<int>(pooledGlyphs())) != 0)
      break;
  }
  go.store(-1, std::memory_order_release);
  worker.join();
  EXPECT_EQ(leftInPool, 0) << "left in the pool after round " << round;
  EXPECT_EQ(destroyed, kRounds);
}

} // namespace
