#include <vtcore/core/diagnostics/exception/exception.h>

#include <cstdio>
#include <execinfo.h>
#include <mutex>

namespace {

std::string currentCallChain() {
  void* frames[64];
  const int count = backtrace(frames, 64);
  std::string chain;
  // Frame 0 is this function and frame 1 the constructor: the chain starts
  // at the code that made the exception.
  for (int i = 2; i < count; ++i) {
    char address[32];
    std::snprintf(address, sizeof address, "0x%lx", reinterpret_cast<unsigned long>(frames[i]));
    if (!chain.empty())
      chain += "  ";
    chain += address;
  }
  return chain;
}

std::mutex& handlerMutex() {
  static std::mutex mutex;
  return mutex;
}

vtcore::AssertionHandler& installedHandler() {
  static vtcore::AssertionHandler handler;
  return handler;
}

} // namespace

KWException::KWException(std::string name, std::string reason, UserInfo userInfo)
    : m_name(std::move(name)), m_reason(std::move(reason)), m_userInfo(std::move(userInfo)) {
  if (!m_userInfo.contains(KWExceptionStackTraceKey)) {
    auto chain = currentCallChain();
    if (!chain.empty())
      m_userInfo.emplace(KWExceptionStackTraceKey, std::move(chain));
  }
}

std::string KWException::description() const {
  return m_reason;
}

namespace vtcore {

AssertionHandler setAssertionHandler(AssertionHandler handler) {
  std::lock_guard lock(handlerMutex());
  std::swap(installedHandler(), handler);
  return handler;
}

void handleAssertionFailure(const AssertionFailure& failure) {
  AssertionHandler handler;
  {
    std::lock_guard lock(handlerMutex());
    handler = installedHandler();
  }
  if (handler) {
    handler(failure);
    return;
  }
  throw KWException("KWInternalInconsistencyException", failure.description);
}

} // namespace vtcore
