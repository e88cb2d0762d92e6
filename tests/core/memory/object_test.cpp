#include <vtcore/core/memory/objects/object.h>

#include <gtest/gtest.h>
#include <tests/support/log_capture.h>

#include <thread>
#include <vector>

namespace {

// Counts destructions so tests can see exactly when the last release ran.
class Tracked : public vtcore::Object {
  VTCORE_OBJECT(Tracked, vtcore::Object)

public:
  explicit Tracked(int* destroyed) : m_destroyed(destroyed) {}
  ~Tracked() override { ++*m_destroyed; }

private:
  int* m_destroyed;
};

TEST(ObjectLayer, RefsShareOneObjectWhoseClassIsFoundByName) {
  int destroyed = 0;
  {
    auto first = vtcore::makeObject<Tracked>(&destroyed);
    {
      vtcore::Ref<vtcore::Object> base = first; // converting copy retains too
      vtcore::Ref<vtcore::Object> copy = vtcore::Ref<vtcore::Object>::adopt(base->copy());
      EXPECT_EQ(first->retainCount(), 3u);
    }
    vtcore::Ref<Tracked> moved = std::move(first);
    EXPECT_EQ(moved->retainCount(), 1u);
    EXPECT_EQ(moved->objectClass().name(), "(anonymous namespace)::Tracked") << "its full type";
    EXPECT_EQ(vtcore::Class::named(moved->objectClass().name()), &moved->objectClass());
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(vtcore::Class::named("NoSuchClass"), nullptr);
  EXPECT_TRUE(Tracked::classObject().isSubclassOf(vtcore::Object::classObject()));
}

TEST(ObjectLayer, AClashOfNamesIsReportedAndNeverMerged) {
  vtcore::test::CapturedLog log;
  vtcore::Class first("Clash", nullptr);
  vtcore::Class second("Clash", nullptr);
  EXPECT_EQ(first.name(), "Clash");
  EXPECT_EQ(second.name(), "Clash#2");
  EXPECT_EQ(vtcore::Class::named("Clash#2"), &second);
  const auto records = log.sink().records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, 3);
}

TEST(ObjectLayer, AutoreleasedObjectsEndWithTheirInnermostPoolOrTheirThread) {
  int destroyed = 0;
  {
    vtcore::AutoreleasePool outer;
    (new Tracked(&destroyed))->autorelease();
    {
      vtcore::AutoreleasePool inner;
      (new Tracked(&destroyed))->autorelease();
    }
    EXPECT_EQ(destroyed, 1) << "the inner pool released only its own object";
  }
  EXPECT_EQ(destroyed, 2);
  std::thread([&destroyed] { (new Tracked(&destroyed))->autorelease(); }).join();
  EXPECT_EQ(destroyed, 3) << "without a pool, at the end of the thread";
}

TEST(ObjectLayer, RetainsAndReleasesFromManyThreadsBalance) {
  int destroyed = 0;
  auto object = vtcore::makeObject<Tracked>(&destroyed);
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&object] {
      for (int i = 0; i < 10000; ++i)
        vtcore::Ref<Tracked> copy = object; // one retain and one release
    });
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(object->retainCount(), 1u);
  object = {};
  EXPECT_EQ(destroyed, 1);
}

} // namespace
