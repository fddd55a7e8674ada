// Analysis libraries for the tests: a whole one that answers what it is told, and, by definition,
// ones without an entry point.

#include <algorithm>
#include <cstdint>

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

FAKE_EXPORT float fake_frequencies[3];
FAKE_EXPORT float fake_powers[3];
FAKE_EXPORT int fake_instances;
float fake_frequencies[3];
float fake_powers[3];
int fake_instances;

#ifndef WITHOUT_CREATE
FAKE_EXPORT void* FlickerCreate(void*, std::int32_t) {
  ++fake_instances;
  return &fake_instances;
}
#endif

#ifndef WITHOUT_PROCESS
FAKE_EXPORT void FlickerProcess(void* instance, const float*, float* frequencies, float* powers) {
  if (instance != &fake_instances) return;
  std::copy(fake_frequencies, fake_frequencies + 3, frequencies);
  std::copy(fake_powers, fake_powers + 3, powers);
}
#endif

#ifndef WITHOUT_DESTROY
FAKE_EXPORT void FlickerDestroy(void* instance) {
  if (instance == &fake_instances) --fake_instances;
}
#endif
