#include <vtcore/ui/common/target_action/target_action.h>

#include <QMetaMethod>
#include <QMetaObject>
#include <QMetaType>

namespace vtcore {
namespace {

// The index of the method `action` of `target` that can take `sender`, or -1.
int actionIndex(const QObject* target, const QByteArray& action, const QObject* sender) {
  if (!target || action.isEmpty())
    return -1;
  const QMetaObject* meta = target->metaObject();
  const int index = meta->indexOfMethod(action.constData());
  if (index < 0)
    return -1;
  const QMetaMethod method = meta->method(index);
  if (method.parameterCount() != 1)
    return -1;
  // The sender is passed as the method's own parameter type, so that type
  // must be a QObject pointer the sender really is: anything else would hand
  // the method a pointer of the wrong class.
  const QMetaType parameter = method.parameterMetaType(0);
  if (!(parameter.flags() & QMetaType::PointerToQObject))
    return -1;
  const QMetaObject* wanted = parameter.metaObject();
  if (!wanted)
    return -1;
  if (sender && !sender->metaObject()->inherits(wanted))
    return -1;
  return index;
}

} // namespace

QByteArray normalizedAction(const char* action) {
  if (!action || !*action)
    return {};
  // SLOT(x) and SIGNAL(x) prefix the signature with a code digit.
  if (action[0] >= '0' && action[0] <= '2' && action[1] != '\0')
    ++action;
  return QMetaObject::normalizedSignature(action);
}

bool respondsToAction(const QObject* target, const char* action, const QObject* sender) {
  return actionIndex(target, normalizedAction(action), sender) >= 0;
}

bool sendAction(QObject* target, const char* action, QObject* sender) {
  const int index = actionIndex(target, normalizedAction(action), sender);
  if (index < 0)
    return false;
  // moc requires QObject to be the first base of every meta-object class, so
  // the QObject pointer is also a valid pointer to the parameter's class.
  void* arguments[] = {nullptr, &sender};
  QMetaObject::metacall(target, QMetaObject::InvokeMetaMethod, index, arguments);
  return true;
}

TargetAction::TargetAction(QObject* target, const char* action)
    : m_target(target), m_action(normalizedAction(action)) {}

void TargetAction::setAction(const char* action) {
  m_action = normalizedAction(action);
}

bool TargetAction::respondsFor(const QObject* sender) const {
  return actionIndex(m_target.data(), m_action, sender) >= 0;
}

bool TargetAction::send(QObject* sender) const {
  return sendAction(m_target.data(), m_action.constData(), sender);
}

} // namespace vtcore
