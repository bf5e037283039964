#include "project/camera_report.h"

#include <array>
#include <fstream>
#include <stdexcept>
#include <type_traits>

#include "base/files/atomic_file.h"
#include "settings/json_members.h"

namespace quor {
namespace {

constexpr std::array kTrustNames = {"sound", "doubtful", "folded"};

// visit(key, member) for every member of a record.
template <typename Record, typename Visit>
void visitMembers(Record& record, Visit&& visit) {
  using Kind = std::remove_const_t<Record>;
  if constexpr (std::is_same_v<Kind, CameraReport::Jump>) {
    visit("first", record.first);
    visit("second", record.second);
    visit("matches", record.matches);
    visit("degrees", record.degrees);
  } else if constexpr (std::is_same_v<Kind, CameraReport::NotPlaced>) {
    visit("image", record.image);
    visit("reason", record.reason);
  } else if constexpr (std::is_same_v<Kind, CameraReport::Link>) {
    visit("first", record.first);
    visit("second", record.second);
    visit("points", record.points);
  } else if constexpr (std::is_same_v<Kind, CameraReport::Gap>) {
    visit("first", record.first);
    visit("second", record.second);
    visit("degrees", record.degrees);
  } else if constexpr (std::is_same_v<Kind, CameraReport::Attempt>) {
    visit("name", record.name);
    visit("registered", record.registered);
    visit("foldScore", record.foldScore);
    visit("reprojectionError", record.reprojectionError);
    visit("seconds", record.seconds);
    visit("kept", record.kept);
  } else if constexpr (std::is_same_v<Kind, CameraReport::Seconds>) {
    visit("features", record.features);
    visit("matching", record.matching);
    visit("placing", record.placing);
    visit("undistorting", record.undistorting);
  } else {
    visit("summary", record.summary);
    visit("advice", record.advice);
    visit("images", record.images);
    visit("registered", record.registered);
    visit("models", record.modelSizes);
    visit("points", record.points);
    visit("reprojectionError", record.reprojectionError);
    visit("trackLength", record.trackLength);
    visit("neighbours", record.neighbours);
    visit("jumps", record.jumps);
    visit("notPlaced", record.notPlaced);
    visit("weakestLink", record.weakestLink);
    visit("turningShare", record.turningShare);
    visit("coverageDegrees", record.coverageDegrees);
    visit("missingSides", record.gaps);
    visit("attempts", record.attempts);
    visit("checkSeconds", record.checkSeconds);
    visit("seconds", record.seconds);
  }
}

template <typename Value>
constexpr bool kIsRecord = std::is_class_v<Value> && !std::is_same_v<Value, std::string> && !requires(Value value) {
  value.begin();
};

template <typename Record>
Json toJson(const Record& record) {
  Json json = Json::object();
  visitMembers(record, [&]<typename Value>(const char* key, const Value& value) {
    if constexpr (requires { value.has_value(); }) {
      if (!value) return;
      if constexpr (kIsRecord<typename Value::value_type>) {
        json[key] = toJson(*value);
      } else {
        json[key] = *value;
      }
    } else if constexpr (kIsRecord<Value>) {
      json[key] = toJson(value);
    } else if constexpr (requires { requires kIsRecord<typename Value::value_type>; }) {
      json[key] = Json::array();
      for (const auto& element : value) json[key].push_back(toJson(element));
    } else {
      json[key] = value;
    }
  });
  return json;
}

// Members that are missing keep their defaults; throws std::runtime_error for one of a wrong type.
template <typename Record>
void readRecord(const Json& json, Record& record) {
  visitMembers(record, [&]<typename Value>(const char* key, Value& value) {
    if constexpr (requires { value.has_value(); }) {
      if (!findMember(json, key)) return;
      if constexpr (kIsRecord<typename Value::value_type>) {
        const Json* member = findObject(json, key);
        if (!member) return;
        typename Value::value_type read;
        readRecord(*member, read);
        value = read;
      } else {
        readMember(json, key, value.emplace());
      }
    } else if constexpr (kIsRecord<Value>) {
      if (const Json* member = findObject(json, key)) readRecord(*member, value);
    } else if constexpr (requires { requires kIsRecord<typename Value::value_type>; }) {
      const Json* list = findArray(json, key);
      if (!list) return;
      for (const Json& element : *list) {
        if (element.is_object()) readRecord(element, value.emplace_back());
      }
    } else {
      readMember(json, key, value);
    }
  });
}

Json reportJson(const CameraReport& report) {
  Json json = toJson(report);
  json["verdict"] = trustName(report.trust);
  json["foldScore"] = report.foldScore();
  return json;
}

CameraReport fromJson(const Json& json) {
  CameraReport report;
  readRecord(json, report);
  std::string trust;
  readMember(json, "verdict", trust);
  for (size_t i = 0; i < kTrustNames.size(); ++i) {
    if (trust == kTrustNames[i]) report.trust = static_cast<CameraTrust>(i);
  }
  return report;
}

}  // namespace

const char* trustName(CameraTrust trust) {
  return kTrustNames[static_cast<size_t>(trust)];
}

std::string cameraReportText(const CameraReport& report) {
  return reportJson(report).dump(2, ' ', false, Json::error_handler_t::replace);
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
