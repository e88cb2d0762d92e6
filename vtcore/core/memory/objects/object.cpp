#include <vtcore/core/diagnostics/log/log.h>
#include <vtcore/core/memory/objects/object.h>

#include <cstdio>
#include <cstdlib>
#include <cxxabi.h>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

namespace vtcore {
namespace {

struct ClassRegistry {
  std::mutex mutex;
  std::unordered_map<std::string, Class*> classes;
};

// Class objects are function-local statics of their classes, destroyed at
// exit in an order nobody controls: the registry is never destroyed, so a late
// class destructor always finds it.
ClassRegistry& registry() {
  static auto* theRegistry = new ClassRegistry;
  return *theRegistry;
}

// The deferred-release pools of one thread. Entry 0 is the thread's implicit
// pool, which takes what is autoreleased outside every scope and is drained
// when the thread ends.
struct PoolStack {
  std::vector<std::vector<Object*>> pools{1};

  void drain(std::size_t depth) {
    // Releasing may destroy objects whose destructors autorelease again, into
    // this same pool: drain until it stays empty. Index access, because the
    // outer vector may grow meanwhile.
    while (!pools[depth].empty()) {
      std::vector<Object*> batch;
      batch.swap(pools[depth]);
      for (Object* object : batch)
        object->release();
    }
  }

  ~PoolStack() {
    for (std::size_t depth = pools.size(); depth-- > 0;)
      drain(depth);
  }
};

PoolStack& poolStack() {
  thread_local PoolStack stack;
  return stack;
}

} // namespace

std::string detail::typeName(const std::type_info& type) {
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> readable(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  return status == 0 && readable ? std::string(readable.get()) : std::string(type.name());
}

Class::Class(std::string name, const Class* superclass)
    : m_name(std::move(name)), m_superclass(superclass) {
  const std::string taken = m_name;
  {
    auto& classes = registry();
    std::lock_guard lock(classes.mutex);
    if (classes.classes.emplace(m_name, this).second)
      return;
    // Keyed by name, the pools and the singleton registry would merge the
    // two classes and hand out one as the other: the second gets a name of
    // its own.
    for (int suffix = 2;; ++suffix) {
      m_name = taken + "#" + std::to_string(suffix);
      if (classes.classes.emplace(m_name, this).second)
        break;
    }
  }
  KWLogCString(3, true, "vtcore", "two classes are both named %s: the second one is known as %s",
               taken.c_str(), m_name.c_str());
}

Class::~Class() {
  auto& classes = registry();
  std::lock_guard lock(classes.mutex);
  auto found = classes.classes.find(m_name);
  if (found != classes.classes.end() && found->second == this)
    classes.classes.erase(found);
}

bool Class::isSubclassOf(const Class& other) const noexcept {
  for (const Class* cls = this; cls; cls = cls->m_superclass)
    if (cls == &other)
      return true;
  return false;
}

Class* Class::named(std::string_view name) {
  auto& classes = registry();
  std::lock_guard lock(classes.mutex);
  auto found = classes.classes.find(std::string(name));
  return found == classes.classes.end() ? nullptr : found->second;
}

Object::~Object() = default;

const Class& Object::classObject() {
  static Class theClass("Object", nullptr);
  return theClass;
}

Object* Object::retain() {
  m_retainCount.fetch_add(1, std::memory_order_relaxed);
  return this;
}

void Object::release() {
  // The last release must see every write made by the other owners before
  // they let go: release order on the decrement, acquire before destroying.
  if (m_retainCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
    delete this;
}

unsigned long Object::retainCount() const {
  return m_retainCount.load(std::memory_order_relaxed);
}

Object* Object::autorelease() {
  AutoreleasePool::add(this);
  return this;
}

Object* Object::copy() {
  return retain();
}

std::string Object::description() const {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
  return "<" + objectClass().name() + ": " + address + ">";
}

std::size_t Object::hash() const {
  return std::hash<const void*>{}(this);
}

bool Object::isEqual(const Object* other) const {
  return other == this;
}

AutoreleasePool::AutoreleasePool() {
  auto& stack = poolStack();
  stack.pools.emplace_back();
  m_depth = stack.pools.size() - 1;
}

AutoreleasePool::~AutoreleasePool() {
  auto& stack = poolStack();
  stack.drain(m_depth);
  stack.pools.resize(m_depth);
}

void AutoreleasePool::drain() {
  poolStack().drain(m_depth);
}

void AutoreleasePool::add(Object* object) {
  if (!object)
    return;
  poolStack().pools.back().push_back(object);
}

} // namespace vtcore
