#pragma once

// The calibration of a unit: the phone models and the readings of their reference units, the layout
// of the factory file, and the factors that follow from both.

#include <cstdint>
#include <optional>

namespace spectral {

constexpr std::uint32_t kUnknownModel = 0;
constexpr std::uint32_t kModels = 4;

// The phone model 1..4 of this name, or kUnknownModel.
std::uint32_t model_of(const char* name);

constexpr bool is_model(std::uint32_t model) { return model >= 1 && model <= kModels; }

// The channel whose reading stands on this line (from 1) of the factory file, or -1.
int channel_on_line(std::int64_t line);

// The reading on a line: the low 16 bits of its number, which is decimal, hexadecimal (0x) or octal
// (0) and may have blanks before and any text behind it. Nothing for a line without a number, or
// with one that does not fit an int.
std::optional<std::uint16_t> parse_reading(const char* line);

// Whether all six readings are what a working unit gives, 100..50000.
bool are_plausible(const std::uint16_t* reading);

// The factor that brings this unit's reading of a channel to that of the model's reference unit.
float calibration_factor(std::uint32_t model, int channel, std::uint16_t reading);

// A value with its factor applied, at most the full scale.
float calibrate(float value, float factor);

}  // namespace spectral
