#include "pipeline/result_document.h"

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>

#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "project/camera_report.h"

namespace quor {

namespace {

double rounded(float value) {
  return std::round(static_cast<double>(value) * 1e4) / 1e4;
}

}  // namespace

std::string resultDocument(const Project& project, const gs::TrainResult& result) {
  nlohmann::ordered_json document;
  document["project"] = toUtf8(project.root);
  document["splats"] = result.splats;
  document["iterations"] = result.steps;
  document["seconds"] = std::round(result.seconds * 1e3) / 1e3;
  if (result.ply) document["ply"] = toUtf8(*result.ply);
  if (result.splat) document["splat"] = toUtf8(*result.splat);
  if (result.checkpoint) document["checkpoint"] = toUtf8(*result.checkpoint);
  if (result.evaluation.views > 0) {
    document["psnr"] = rounded(result.evaluation.psnr);
    document["ssim"] = rounded(result.evaluation.ssim);
  }
  if (const auto cameras = CameraReport::load(project)) {
    document["cameras"] = {{"verdict", trustName(cameras->trust)},
                           {"summary", cameras->summary},
                           {"registered", cameras->registered},
                           {"images", cameras->images},
                           {"foldScore", cameras->foldScore()}};
  }
  // A path may hold bytes that are no UTF-8; a replacement character is better than no document.
  return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void saveResult(const Project& project, const gs::TrainResult& result) {
  AtomicFile file(project.resultFile());
  file.stream() << resultDocument(project, result) << "\n";
  file.commit();
}

void saveGeoreference(const Project& project) {
  if (!project.georeference) {
    std::error_code ignored;
    std::filesystem::remove(project.georeferenceFile(), ignored);
    return;
  }
  AtomicFile file(project.georeferenceFile());
  file.stream() << toJson(*project.georeference).dump(2) << "\n";
  file.commit();
}

std::optional<HeldOutQuality> loadQuality(const Project& project) {
  std::ifstream file(project.resultFile(), std::ios::binary);
  const auto document = nlohmann::json::parse(file, nullptr, false);
  if (!document.is_object()) return std::nullopt;
  const auto psnr = document.find("psnr");
  const auto ssim = document.find("ssim");
  if (psnr == document.end() || ssim == document.end() || !psnr->is_number() || !ssim->is_number()) return std::nullopt;
  return HeldOutQuality{psnr->get<double>(), ssim->get<double>()};
}

}  // namespace quor
