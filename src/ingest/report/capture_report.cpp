#include "ingest/report/capture_report.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/failures.h"
#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "base/parallel.h"
#include "base/text/text.h"
#include "ingest/report/frame_measure.h"

namespace quor {
namespace {

constexpr size_t kFewestFrames = 9;   // with fewer, a median says little
constexpr double kBlurred = 0.2;      // of the median sharpness
constexpr double kUnevenStops = 1.5;  // between the 5th and the 95th of a hundred frames
constexpr double kGamma = 2.2;
constexpr size_t kComparedBefore = 100;  // frames, for duplicates
constexpr double kSameContent = 0.05;    // thumbnails' mean difference, of their contrast
constexpr double kLeastContrast = 4;     // levels; a wall without texture is no duplicate of itself
constexpr double kJump = 4;              // thumbnails' mean difference, of the median between neighbours
constexpr double kLeastJump = 12;        // levels
constexpr size_t kStrays = 2;            // photographs of a camera of their own

using Frames = std::vector<const FrameMeasure*>;

double medianOf(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

double difference(const FrameMeasure& a, const FrameMeasure& b) {
  int sum = 0;
  for (size_t i = 0; i < a.thumbnail.size(); ++i) sum += std::abs(int{a.thumbnail[i]} - int{b.thumbnail[i]});
  return sum / static_cast<double>(a.thumbnail.size());
}

// The thumbnail's mean distance from its own mean.
double contrast(const FrameMeasure& frame) {
  double mean = 0, sum = 0;
  for (const uint8_t value : frame.thumbnail) mean += value / static_cast<double>(frame.thumbnail.size());
  for (const uint8_t value : frame.thumbnail) sum += std::abs(value - mean);
  return sum / static_cast<double>(frame.thumbnail.size());
}

std::string listOf(const std::vector<std::string>& names) {
  constexpr size_t kMostListed = 8;
  std::string text;
  for (size_t i = 0; i < std::min(names.size(), kMostListed); ++i) text += (i == 0 ? "" : ", ") + names[i];
  if (names.size() > kMostListed) text += formatText(" and %zu more", names.size() - kMostListed);
  return text;
}

void findBlurred(const Frames& frames, InputKind kind, std::vector<Finding>& findings) {
  // A darker picture has smaller differences, and is no less sharp.
  const auto score = [](const FrameMeasure& frame) {
    return frame.sharpness / (frame.brightness * frame.brightness + 1);
  };
  std::vector<double> scores;
  for (const FrameMeasure* frame : frames) scores.push_back(score(*frame));
  const double median = medianOf(scores);
  Finding finding{"blurred", {}, {}};
  for (const FrameMeasure* frame : frames) {
    if (score(*frame) < kBlurred * median) finding.frames.push_back(frame->name);
  }
  if (finding.frames.empty()) return;
  finding.text =
      formatText("%zu of %zu pictures are far less sharp than the others", finding.frames.size(), frames.size()) +
      (kind == InputKind::Images ? ": leave them out or take them again: " : ": ") + listOf(finding.frames) + ".";
  findings.push_back(std::move(finding));
}

void findUnevenExposure(const Frames& frames, std::vector<Finding>& findings) {
  std::vector<double> stops;
  for (const FrameMeasure* frame : frames) stops.push_back(kGamma * std::log2(std::max(frame->brightness, 1.0) / 255));
  const double median = medianOf(stops);
  std::vector<double> sorted = stops;
  std::ranges::sort(sorted);
  const double spread = sorted[sorted.size() - 1 - sorted.size() / 20] - sorted[sorted.size() / 20];
  if (spread < kUnevenStops) return;
  Finding finding{"exposure", {}, {}};
  for (size_t i = 0; i < frames.size(); ++i) {
    if (std::abs(stops[i] - median) > kUnevenStops / 2) finding.frames.push_back(frames[i]->name);
  }
  finding.text = formatText(
                     "The brightness of the pictures is spread over %.1f stops, which leaves haze in the scene: "
                     "lock the exposure when you take them again, or leave out those farthest off: ",
                     spread) +
                 listOf(finding.frames) + ".";
  findings.push_back(std::move(finding));
}

void findDuplicates(const Frames& frames, std::vector<Finding>& findings) {
  Finding finding{"duplicates", {}, {}};
  Frames kept;
  for (const FrameMeasure* frame : frames) {
    const double detail = contrast(*frame);
    const auto first = kept.end() - static_cast<std::ptrdiff_t>(std::min(kept.size(), kComparedBefore));
    const bool seen = detail > kLeastContrast && std::any_of(first, kept.end(), [&](const FrameMeasure* other) {
                        return difference(*frame, *other) < kSameContent * detail;
                      });
    if (seen) {
      finding.frames.push_back(frame->name);
    } else {
      kept.push_back(frame);
    }
  }
  if (finding.frames.empty()) return;
  finding.text = formatText(
                     "%zu of %zu pictures show the same as another one and add time, not quality; they can be "
                     "left out: ",
                     finding.frames.size(), frames.size()) +
                 listOf(finding.frames) + ".";
  findings.push_back(std::move(finding));
}

void findJumps(const Frames& frames, std::vector<Finding>& findings) {
  std::vector<double> steps;
  for (size_t i = 1; i < frames.size(); ++i) steps.push_back(difference(*frames[i - 1], *frames[i]));
  const double least = std::max(kJump * medianOf(steps), kLeastJump);
  Finding finding{"jumps", {}, {}};
  for (size_t i = 0; i < steps.size(); ++i) {
    if (steps[i] > least) finding.frames.push_back(frames[i + 1]->name);
  }
  if (finding.frames.empty()) return;
  finding.text = formatText(
                     "The video jumps in %zu places, by a cut or a fast turn, where the cameras may fall apart: "
                     "give the parts as files of their own, or film the way between them. Behind the jumps: ",
                     finding.frames.size()) +
                 listOf(finding.frames) + ".";
  findings.push_back(std::move(finding));
}

void findStrayCameras(const ExtractionResult& result, const std::map<std::string, std::string>& names,
                      std::vector<Finding>& findings) {
  if (result.groups.size() < 2) return;
  Finding finding{"cameras", {}, {}};
  for (const CameraGroup& group : result.groups) {
    if (group.images.size() > kStrays) continue;
    for (const std::string& image : group.images) finding.frames.push_back(names.at(image));
  }
  if (finding.frames.empty() || 2 * finding.frames.size() > result.frames.size()) return;
  finding.text = formatText(
                     "The photographs come from %zu cameras, lenses or sizes. Those that stand alone are hard to "
                     "solve; leave them out: ",
                     result.groups.size()) +
                 listOf(finding.frames) + ".";
  findings.push_back(std::move(finding));
}

}  // namespace

std::vector<Finding> findFaults(const std::vector<FrameMeasure>& frames, InputKind kind) {
  std::map<std::string, Frames> streams;
  for (const FrameMeasure& frame : frames) streams[frame.stream].push_back(&frame);
  std::vector<Finding> findings;
  for (const auto& [name, stream] : streams) {
    if (stream.size() < kFewestFrames) continue;
    findBlurred(stream, kind, findings);
    if (kind == InputKind::Images || kind == InputKind::Video) {
      findUnevenExposure(stream, findings);
      findDuplicates(stream, findings);
    }
    if (kind == InputKind::Video) findJumps(stream, findings);
  }
  return findings;
}

CaptureReport reportCapture(const ExtractionResult& result, InputKind kind, const std::function<bool()>& cancelled) {
  std::map<std::string, std::string> names;
  std::vector<std::optional<FrameMeasure>> measured(result.frames.size());
  parallelFor(measured.size(), [&](size_t i) {
    if (cancelled()) throw Cancelled();
    measured[i] = measureFrame(result.frames[i]);
  });
  CaptureReport report;
  for (size_t i = 0; i < measured.size(); ++i) {
    const std::string file = toUtf8(result.frames[i].filename());
    const auto source = result.sources.find(file);
    names[file] = source == result.sources.end() ? file : source->second;
    if (!measured[i]) continue;
    measured[i]->name = names[file];
    measured[i]->stream = file.substr(std::min(file.find('_'), file.size()));
    report.frames.push_back(std::move(*measured[i]));
  }
  report.findings = findFaults(report.frames, kind);
  if (kind == InputKind::Images) findStrayCameras(result, names, report.findings);
  return report;
}

void saveCaptureReport(const std::filesystem::path& path, const std::vector<CaptureReport>& reports) {
  nlohmann::ordered_json document{{"frames", nlohmann::ordered_json::array()},
                                  {"findings", nlohmann::ordered_json::array()}};
  const auto rounded = [](double value) { return std::round(value * 100) / 100; };
  for (const CaptureReport& report : reports) {
    for (const FrameMeasure& frame : report.frames) {
      document["frames"].push_back(
          {{"name", frame.name}, {"sharpness", rounded(frame.sharpness)}, {"brightness", rounded(frame.brightness)}});
    }
    for (const Finding& finding : report.findings) {
      document["findings"].push_back({{"kind", finding.kind}, {"frames", finding.frames}, {"text", finding.text}});
    }
  }
  AtomicFile file(path);
  file.stream() << document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
  file.commit();
}

}  // namespace quor
