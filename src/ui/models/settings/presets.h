// Quality in words: each preset stands for the handful of numbers that decide how long a build takes and how good its
// scene is.
#pragma once

#include <array>

#include "project/project.h"

namespace quor::ui {

enum class Preset { Quick, Standard, Best, Custom };
inline constexpr std::array kPresets = {Preset::Quick, Preset::Standard, Preset::Best};

const char* presetName(Preset preset);
// Purpose and cost in a sentence or two; the numbers in another line.
const char* presetMeaning(Preset preset);
std::string presetNumbers(const Project& settings);

// Custom changes nothing.
void applyPreset(Preset preset, Project& settings);
// The preset whose numbers these are, Custom when one of them is another.
Preset presetOf(const Project& settings);

}  // namespace quor::ui
