#include <vtcore/ui/common/target_action/delegate.h>
#include <vtcore/ui/common/target_action/target_action.h>

#include <gtest/gtest.h>

#include <memory>
#include <utility>

// A sender class and a subclass, to check the argument types.
class ActionSender : public QObject {
  Q_OBJECT
};
class DerivedSender : public ActionSender {
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
  void derived(DerivedSender* sender) { record(sender); }
  void anything(QObject* sender) { record(sender); }
  void twoArguments(ActionSender* sender, int) { record(sender); }
  void byValue(int) { record(nullptr); }

private:
  void record(QObject* sender) {
    lastSender = sender;
    ++calls;
  }
};

TEST(TargetAction, ActionIsSentWithTheSenderOnlyWhenTheTargetAnswersIt) {
  ActionTarget target;
  ActionSender sender;
  DerivedSender derived;
  // Answered: slots and Q_INVOKABLE methods, signatures with blanks and as
  // made by SLOT(), parameters of the sender's class or of a base class.
  // Not answered: a missing method, a wrong number of arguments, an argument
  // the sender is not, a parameter that is no object pointer, no signature.
  const std::pair<const char*, QObject*> answered[] = {
      {"clicked(ActionSender*)", &sender},    {"invokable(ActionSender*)", &sender},
      {"clicked( ActionSender * )", &sender}, {SLOT(clicked(ActionSender*)), &sender},
      {"clicked(ActionSender*)", &derived},   {"anything(QObject*)", &sender},
      {"derived(DerivedSender*)", &derived}};
  for (const auto& [action, from] : answered) {
    EXPECT_TRUE(vtcore::respondsToAction(&target, action, from)) << action;
    EXPECT_TRUE(vtcore::sendAction(&target, action, from)) << action;
    EXPECT_EQ(target.lastSender, from) << action;
  }
  for (const char* action : {"missing(ActionSender*)", "twoArguments(ActionSender*,int)",
                             "derived(DerivedSender*)", "byValue(int)", "clicked", ""}) {
    EXPECT_FALSE(vtcore::respondsToAction(&target, action, &sender)) << action;
    EXPECT_FALSE(vtcore::sendAction(&target, action, &sender)) << action;
  }
  EXPECT_FALSE(vtcore::sendAction(&target, nullptr, &sender));
  EXPECT_FALSE(vtcore::sendAction(nullptr, "clicked(ActionSender*)", &sender));
  EXPECT_EQ(target.calls, 7);
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

struct SampleDelegate : vtcore::Delegate {};

TEST(DelegatePointer, DeadDelegatesReadAsNullButTheirCopiesLive) {
  auto original = std::make_unique<SampleDelegate>();
  vtcore::DelegatePointer<SampleDelegate> pointer = original.get();
  EXPECT_TRUE(pointer);
  // A copy is a delegate of its own: it outlives the original.
  SampleDelegate copy(*original);
  vtcore::DelegatePointer<SampleDelegate> toCopy = &copy;
  original.reset();
  EXPECT_FALSE(pointer);
  EXPECT_EQ(toCopy.get(), &copy);
}

#include "target_action_test.moc"
