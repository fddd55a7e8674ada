// Analysis libraries for the tests: a whole one that counts its instances, and, with one of the
// WITHOUT_ macros defined, one that lacks an entry point.

#include <cstdint>

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

FAKE_EXPORT int fake_instances;
int fake_instances;

// What FlickerCreate was last given, and whether it is to return null.
FAKE_EXPORT void* fake_config;
void* fake_config;
FAKE_EXPORT std::int32_t fake_flags;
std::int32_t fake_flags;
FAKE_EXPORT bool fake_creates_nothing;
bool fake_creates_nothing;
FAKE_EXPORT int fake_processed;
int fake_processed;

#ifndef WITHOUT_CREATE
FAKE_EXPORT void* FlickerCreate(void* config, std::int32_t flags) {
  fake_config = config;
  fake_flags = flags;
  if (fake_creates_nothing) return nullptr;
  ++fake_instances;
  return &fake_instances;
}
#endif

#ifndef WITHOUT_PROCESS
FAKE_EXPORT void FlickerProcess(void*, const float*, float*, float*) { ++fake_processed; }
#endif

#ifndef WITHOUT_DESTROY
FAKE_EXPORT void FlickerDestroy(void* instance) {
  if (instance == &fake_instances) --fake_instances;
}
#endif
