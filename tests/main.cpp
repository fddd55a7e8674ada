#include <gmock/gmock.h>

#include <cstdio>

// Standard input is closed to writing, as for a camera process: a bring-up without nodes writes to
// descriptor 0.
int main(int argc, char** argv) {
  if (std::freopen("/dev/null", "r", stdin) == nullptr) return 1;
  ::testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
