// Preempts libc's dlopen: for the analysis library's path it loads the file that the phone has
// there.

#include <dlfcn.h>

#include <cstring>
#include <string>

#include "simulator/kernel.h"
#include "simulator/next.h"

using spectralsim::Kernel;
using spectralsim::Next;

namespace {

constexpr char kNoFile[] = "/nonexistent/libzelk_flicker.so";

}  // namespace

extern "C" __attribute__((visibility("default"))) void* dlopen(const char* path,
                                                               int flags) noexcept {
  static Next<void*(const char*, int)> next("dlopen");
  Kernel* kernel = Kernel::current();
  const bool is_analysis =
      path != nullptr && std::strcmp(path, "/vendor/lib64/libzelk_flicker.so") == 0;
  if (kernel == nullptr || !is_analysis) return next(path, flags);
  const auto found = kernel->load_analysis(path);
  return next(found ? found->c_str() : kNoFile, flags);
}
