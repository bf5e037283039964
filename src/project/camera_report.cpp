#include "project/camera_report.h"

#include <array>
#include <fstream>
#include <stdexcept>

#include "base/files/atomic_file.h"
#include "settings/json_members.h"

namespace quor {
namespace {

constexpr std::array kTrustNames = {"sound", "doubtful", "folded"};

Json toJson(const CameraReport& report) {
  Json json;
  json["verdict"] = trustName(report.trust);
  json["summary"] = report.summary;
  json["advice"] = report.advice;
  json["images"] = report.images;
  json["registered"] = report.registered;
  json["models"] = report.modelSizes;
  json["points"] = report.points;
  json["reprojectionError"] = report.reprojectionError;
  json["trackLength"] = report.trackLength;
  json["foldScore"] = report.foldScore();
  json["neighbours"] = report.neighbours;
  json["jumps"] = Json::array();
  for (const CameraReport::Jump& jump : report.jumps) {
    json["jumps"].push_back(
        {{"first", jump.first}, {"second", jump.second}, {"matches", jump.matches}, {"degrees", jump.degrees}});
  }
  json["notPlaced"] = Json::array();
  for (const CameraReport::NotPlaced& missing : report.notPlaced) {
    json["notPlaced"].push_back({{"image", missing.image}, {"reason", missing.reason}});
  }
  if (const auto& link = report.weakestLink) {
    json["weakestLink"] = {{"first", link->first}, {"second", link->second}, {"points", link->points}};
  }
  json["turningShare"] = report.turningShare;
  if (report.coverageDegrees) json["coverageDegrees"] = *report.coverageDegrees;
  json["attempts"] = Json::array();
  for (const CameraReport::Attempt& attempt : report.attempts) {
    json["attempts"].push_back({{"name", attempt.name},
                                {"registered", attempt.registered},
                                {"foldScore", attempt.foldScore},
                                {"reprojectionError", attempt.reprojectionError},
                                {"seconds", attempt.seconds},
                                {"kept", attempt.kept}});
  }
  json["checkSeconds"] = report.checkSeconds;
  return json;
}

template <typename Read>
void readList(const Json& json, const char* key, Read&& read) {
  const Json* list = findArray(json, key);
  if (!list) return;
  for (const Json& element : *list) {
    if (element.is_object()) read(element);
  }
}

CameraReport fromJson(const Json& json) {
  CameraReport report;
  std::string trust;
  readMember(json, "verdict", trust);
  for (size_t i = 0; i < kTrustNames.size(); ++i) {
    if (trust == kTrustNames[i]) report.trust = static_cast<CameraTrust>(i);
  }
  readMember(json, "summary", report.summary);
  readMember(json, "advice", report.advice);
  readMember(json, "images", report.images);
  readMember(json, "registered", report.registered);
  readMember(json, "models", report.modelSizes);
  readMember(json, "points", report.points);
  readMember(json, "reprojectionError", report.reprojectionError);
  readMember(json, "trackLength", report.trackLength);
  readMember(json, "neighbours", report.neighbours);
  readList(json, "jumps", [&](const Json& element) {
    CameraReport::Jump& jump = report.jumps.emplace_back();
    readMember(element, "first", jump.first);
    readMember(element, "second", jump.second);
    readMember(element, "matches", jump.matches);
    readMember(element, "degrees", jump.degrees);
  });
  readList(json, "notPlaced", [&](const Json& element) {
    CameraReport::NotPlaced& missing = report.notPlaced.emplace_back();
    readMember(element, "image", missing.image);
    readMember(element, "reason", missing.reason);
  });
  if (const Json* element = findObject(json, "weakestLink")) {
    CameraReport::Link link;
    readMember(*element, "first", link.first);
    readMember(*element, "second", link.second);
    readMember(*element, "points", link.points);
    report.weakestLink = link;
  }
  readMember(json, "turningShare", report.turningShare);
  if (findMember(json, "coverageDegrees")) readMember(json, "coverageDegrees", report.coverageDegrees.emplace());
  readList(json, "attempts", [&](const Json& element) {
    CameraReport::Attempt& attempt = report.attempts.emplace_back();
    readMember(element, "name", attempt.name);
    readMember(element, "registered", attempt.registered);
    readMember(element, "foldScore", attempt.foldScore);
    readMember(element, "reprojectionError", attempt.reprojectionError);
    readMember(element, "seconds", attempt.seconds);
    readMember(element, "kept", attempt.kept);
  });
  readMember(json, "checkSeconds", report.checkSeconds);
  return report;
}

}  // namespace

const char* trustName(CameraTrust trust) {
  return kTrustNames[static_cast<size_t>(trust)];
}

std::string cameraReportText(const CameraReport& report) {
  return toJson(report).dump(2, ' ', false, Json::error_handler_t::replace);
}

void CameraReport::save(const Project& project) const {
  constexpr AtomicFileTexts kTexts = {"Cannot write ", "Cannot write ", "", "Cannot write ", ".tmp", true};
  AtomicFile file(project.cameraReportFile(), kTexts);
  file.stream() << cameraReportText(*this) << "\n";
  file.commit();
}

std::optional<CameraReport> CameraReport::load(const Project& project) {
  std::ifstream file(project.cameraReportFile(), std::ios::binary);
  if (!file) return {};
  try {
    const Json json = Json::parse(file);
    if (json.is_object()) return fromJson(json);
  } catch (const std::exception&) {  // damaged: as good as none
  }
  return {};
}

}  // namespace quor
