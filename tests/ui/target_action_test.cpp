#include <vtcore/ui/common/delegate.h>
#include <vtcore/ui/common/target_action.h>
#include <vtcore/ui/common/timer.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>

// A sender class of its own, and a subclass, to check the argument types.
class ActionSender : public QObject {
  Q_OBJECT
};

class SpecialSender : public ActionSender {
  Q_OBJECT
};

class ActionTarget : public QObject {
  Q_OBJECT
public:
  QObject* lastSender = nullptr;
  int calls = 0;

  Q_INVOKABLE void invokable(ActionSender* sender) { record(sender); }

public Q_SLOTS:
  void clicked(ActionSender* sender) { record(sender); }
  void special(SpecialSender* sender) { record(sender); }
  void anything(QObject* sender) { record(sender); }
  void twoArguments(ActionSender* sender, int) { record(sender); }
  void byValue(int) { ++calls; }

private:
  void record(QObject* sender) {
    lastSender = sender;
    ++calls;
  }
};

TEST(TargetAction, ExistingActionIsCalledWithTheSender) {
  ActionTarget target;
  ActionSender sender;
  SpecialSender special;
  // Slots and Q_INVOKABLE methods; signatures as written by hand, with
  // blanks, and as made by SLOT(); parameters of the sender's class or of a
  // base class.
  const struct {
    const char* action;
    QObject* sender;
  } cases[] = {{"clicked(ActionSender*)", &sender},    {"invokable(ActionSender*)", &sender},
               {"clicked( ActionSender * )", &sender}, {SLOT(clicked(ActionSender*)), &sender},
               {"clicked(ActionSender*)", &special},   {"anything(QObject*)", &sender},
               {"special(SpecialSender*)", &special}};
  for (const auto& test : cases) {
    target.lastSender = nullptr;
    EXPECT_TRUE(vtcore::respondsToAction(&target, test.action, test.sender)) << test.action;
    EXPECT_TRUE(vtcore::sendAction(&target, test.action, test.sender)) << test.action;
    EXPECT_EQ(target.lastSender, test.sender) << test.action;
  }
  EXPECT_EQ(target.calls, 7);
}

TEST(TargetAction, ActionTheTargetDoesNotAnswerIsSkipped) {
  ActionTarget target;
  ActionSender sender;
  // Missing method; wrong number of arguments; an argument the sender is not;
  // a parameter that is no object pointer; nothing at all.
  for (const char* action : std::initializer_list<const char*>{
           "missing(ActionSender*)", "twoArguments(ActionSender*,int)", "special(SpecialSender*)",
           "byValue(int)", "clicked", "", nullptr}) {
    EXPECT_FALSE(vtcore::respondsToAction(&target, action, &sender)) << action;
    EXPECT_FALSE(vtcore::sendAction(&target, action, &sender)) << action;
  }
  EXPECT_FALSE(vtcore::sendAction(nullptr, "clicked(ActionSender*)", &sender));
  EXPECT_EQ(target.calls, 0);
}

TEST(TargetAction, DestroyedTargetIsNeverCalled) {
  ActionSender sender;
  auto target = std::make_unique<ActionTarget>();
  vtcore::TargetAction link(target.get(), "clicked(ActionSender*)");
  EXPECT_TRUE(link.send(&sender));
  EXPECT_EQ(target->calls, 1);
  target.reset();
  EXPECT_EQ(link.target(), nullptr);
  EXPECT_FALSE(link.respondsFor(&sender));
  EXPECT_FALSE(link.send(&sender));
}

namespace {

// The shape every control's delegate interface takes.
class SampleDelegate : public vtcore::Delegate {
public:
  virtual std::optional<int> valueFor(int) { return std::nullopt; }
  virtual void didChange(int) {}
};

class AnsweringDelegate : public SampleDelegate {
public:
  std::optional<int> valueFor(int index) override { return index * 10; }
};

} // namespace

TEST(DelegatePointer, UnansweredQuestionsFallBackAndDeadDelegatesReadAsNull) {
  vtcore::DelegatePointer<SampleDelegate> pointer;
  EXPECT_FALSE(pointer);

  SampleDelegate silent;
  pointer = &silent;
  EXPECT_FALSE(pointer->valueFor(3).has_value());

  auto answering = std::make_unique<AnsweringDelegate>();
  pointer = answering.get();
  EXPECT_EQ(pointer->valueFor(3), 30);
  // A copy is a delegate of its own: it outlives the original.
  auto copy = std::make_unique<AnsweringDelegate>(*answering);
  vtcore::DelegatePointer<SampleDelegate> toCopy = copy.get();
  answering.reset();
  EXPECT_FALSE(pointer);
  EXPECT_EQ(toCopy->valueFor(1), 10);
}

#include "target_action_test.moc"
