#include "gs/train/evaluation.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "base/failures.h"
#include "base/text/text.h"
#include "gpu/device/vulkan_context.h"

namespace quor::gs {
namespace {

Image downloadImage(Transfer& transfer, const Renderer& renderer) {
  Image image{renderer.width(), renderer.height(), {}};
  std::vector<float> values(static_cast<size_t>(image.width) * static_cast<size_t>(image.height) * 3);
  transfer.download(renderer.image(), values.data(), 0, values.size() * sizeof(float));
  image.rgb.resize(values.size());
  std::transform(values.begin(), values.end(), image.rgb.begin(), [](float value) {
    // std::fmax(NaN, 0) is 0.
    return static_cast<uint8_t>(std::lround(255.0f * std::fmin(std::fmax(value, 0.0f), 1.0f)));
  });
  return image;
}

}  // namespace

EvalResult evaluate(ComputeStream& stream, Transfer& transfer, Renderer& renderer, const SplatStore& splats,
                    const std::vector<View>& views, const RenderSettings& settings, const std::atomic<bool>& cancel,
                    const OnViewScored& each) {
  double psnr = 0, ssim = 0, l1 = 0;
  GpuBuffer photo;
  for (const View& view : views) {
    if (cancel) throw Cancelled();
    const std::shared_ptr<const Image> photograph = view.image.pixels();
    const size_t bytes = photograph->rgb.size();
    if (photo.size() < bytes) {
      photo = GpuBuffer(stream.context(), (bytes + 3) / 4 * 4, BufferKind::Device, "held-out photograph");
    }
    transfer.upload(photo, photograph->rgb.data(), 0, bytes);
    renderer.reserve(splats.count(), view.camera.width, view.camera.height);
    renderer.project(stream, splats, view.camera, settings.shDegree, settings.nearPlane);
    renderer.rasterize(stream, settings.background);
    const ImageScores scores = renderer.score(stream, photo);
    psnr += scores.psnr();
    ssim += scores.ssim;
    l1 += scores.l1;
    if (each) each(view.name, *photograph, scores, downloadImage(transfer, renderer));
  }
  if (views.empty()) return {};
  const double n = static_cast<double>(views.size());
  return {static_cast<float>(psnr / n), static_cast<float>(ssim / n), static_cast<float>(l1 / n),
          static_cast<uint32_t>(views.size())};
}

std::string describe(const EvalResult& result) {
  return formatText("Held-out views (%d): PSNR %.2f dB, SSIM %.4f, L1 %.4f", static_cast<int>(result.views),
                    static_cast<double>(result.psnr), static_cast<double>(result.ssim), static_cast<double>(result.l1));
}

}  // namespace quor::gs
