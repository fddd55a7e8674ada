#include "reliability/furnish.h"

namespace sweep {

using spectralsim::Phone;

void furnish(Furnished furnished, Phone* phone) {
  if (furnished == Furnished::kCalibrated) {
    phone->model("tamberlo").factory_file("\n\n\n\n\n\n1764\n3021\n1240\n8113\n0\n6350\n6511\n");
  } else if (furnished == Furnished::kDetectorAnswers) {
    phone->chip().pin(0x35, 0x3F).pin(0x36, 0xC0).pin(0x37, 0xFF).pin(0x38, 0x00).pin(0x39, 0x0C);
  }
}

}  // namespace sweep
