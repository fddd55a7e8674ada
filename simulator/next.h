#pragma once

#include <dlfcn.h>

#include <atomic>

namespace spectralsim {

// The original function behind a symbol that the simulator preempts. It is looked up at the first
// call. The constructor is constexpr because calls may come before any initialiser has run.
template <typename Function>
class Next {
 public:
  // `version` is the current version of a symbol that also has an older one, which a look-up
  // without a version might find.
  constexpr explicit Next(const char* name, const char* version = nullptr)
      : m_name(name), m_version(version) {}

  Function* get() {
    Function* function = m_function.load(std::memory_order_relaxed);
    if (function == nullptr) {
      function = reinterpret_cast<Function*>(look_up());
      m_function.store(function, std::memory_order_relaxed);
    }
    return function;
  }

  template <typename... Arguments>
  auto operator()(Arguments... arguments) {
    return get()(arguments...);
  }

 private:
  void* look_up() const {
    void* found = m_version != nullptr ? dlvsym(RTLD_NEXT, m_name, m_version) : nullptr;
    return found != nullptr ? found : dlsym(RTLD_NEXT, m_name);
  }

  const char* m_name;
  const char* m_version;
  std::atomic<Function*> m_function{nullptr};
};

}  // namespace spectralsim
