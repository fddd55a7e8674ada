#pragma once

// Binding the flicker-analysis library, which is loaded at run time and called through three entry
// points. Each facade has a binding of its own in its fields, guarded by its m_flk_lib_mtx.

namespace spectral {

constexpr char kAnalysisLibraryPath[] = "/vendor/lib64/libzelk_flicker.so";
constexpr int kAnalysisTones = 3;

// Finds the strongest frequencies (Hz) in 2000 samples, and their spectral powers: kAnalysisTones
// of each. Both arrays stay as they are where no library is loaded.
template <typename Facade>
void analyse(Facade& facade, const float* samples, float* frequencies, float* powers);

}  // namespace spectral
