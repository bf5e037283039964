#include "ui/models/settings/setting_groups.h"

#include <algorithm>

namespace quor::ui {

namespace {

using Group = SettingGroup;

bool hasKind(const Project& project, InputKind kind) {
  return std::ranges::any_of(project.inputs, [&](const InputSource& input) { return input.kind == kind; });
}

}  // namespace

const char* groupTitle(SettingGroup group) {
  switch (group) {
    case Group::Frames:
      return "Frames";
    case Group::Sphere:
      return "360° video";
    case Group::Fisheye:
      return "Dual-fisheye video";
    case Group::Cameras:
      return "Camera solve";
    case Group::Training:
      break;
  }
  return "Training";
}

bool groupApplies(SettingGroup group, const Project& project) {
  switch (group) {
    case Group::Sphere:
      return hasKind(project, InputKind::Video360);
    case Group::Fisheye:
      return hasKind(project, InputKind::DualFisheye);
    case Group::Frames:
    case Group::Cameras:
      return project.externalDataset.empty();
    case Group::Training:
      break;
  }
  return true;
}

bool isShown(const Setting& setting, const Project& project) {
  return setting.label && setting.technique.value_or(project.training.technique) == project.training.technique;
}

Project settingsOf(const Project& project) {
  Project settings;
  settings.takeSettings(project);
  settings.inputs = project.inputs;
  settings.externalDataset = project.externalDataset;
  return settings;
}

}  // namespace quor::ui
