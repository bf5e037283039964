#include "pipeline/result_document.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "base/files/paths.h"

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
  // A path may hold bytes that are no UTF-8; a replacement character is better than no document.
  return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace quor
