// Renders a trained scene from the cameras of a dataset, each beside its photograph and their difference (four times
// enlarged), to look at.
//
//   render_views SCENE.ply DATASET OUT_FOLDER [LONGEST_EDGE [EVERY]]
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>

#include "base/image.h"
#include "base/log_store.h"
#include "base/paths.h"
#include "gpu/compute_stream.h"
#include "gpu/transfer.h"
#include "gpu/vulkan_context.h"
#include "gs/dataset.h"
#include "gs/ply.h"
#include "gs/renderer.h"

namespace {

using namespace quor;

uint8_t toByte(float value) {
  return static_cast<uint8_t>(std::clamp(value, 0.0f, 1.0f) * 255.0f + 0.5f);
}

Image sideBySide(const Image& photo, const std::vector<float>& render) {
  Image out{3 * photo.width, photo.height, {}};
  const size_t w = static_cast<size_t>(photo.width), h = static_cast<size_t>(photo.height);
  out.rgb.resize(9 * w * h);
  for (size_t i = 0; i < 3 * w * h; ++i) {
    const size_t row = i / (3 * w), at = row * 9 * w + i % (3 * w);
    out.rgb[at] = photo.rgb[i];
    out.rgb[at + 3 * w] = toByte(render[i]);
    out.rgb[at + 6 * w] = toByte(4 * std::abs(render[i] - static_cast<float>(photo.rgb[i]) / 255.0f));
  }
  return out;
}

void renderViews(const std::filesystem::path& scene, const std::filesystem::path& dataset,
                 const std::filesystem::path& out, int resolution, int every) {
  LogStore log(100);
  log.setEcho(true, LogLevel::Warning);
  const std::atomic<bool> cancel = false;
  const gs::Dataset data = gs::loadDataset({dataset, resolution, true, every, {}, {}}, log, cancel);
  const gs::GaussianSet set = gs::readPly(scene);

  gs::VulkanContext context({});
  gs::KernelRegistry registry(context);
  gs::ComputeStream stream(context, registry);
  gs::Transfer transfer(context);
  gs::SplatStore splats(context, gs::SplatStore::Use::RenderOnly);
  gs::Renderer renderer(context, registry, gs::Renderer::Mode::RenderOnly);
  splats.upload(transfer, set);
  std::filesystem::create_directories(out);
  for (const gs::View& view : data.heldOut) {
    renderer.reserve(splats.count(), view.camera.width, view.camera.height);
    renderer.project(stream, splats, view.camera, set.shDegree, static_cast<float>(0.01 * data.geometry.extent));
    renderer.rasterize(stream, {0, 0, 0});
    stream.submit();
    std::vector<float> image(view.image.rgb.size());
    transfer.download(renderer.image(), image.data(), 0, image.size() * sizeof(float));
    const auto path = out / fromUtf8(toUtf8(fromUtf8(view.name).stem()) + ".png");
    writePng(path, sideBySide(view.image, image));
    std::printf("%s\n", toUtf8(path).c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: render_views SCENE.ply DATASET OUT_FOLDER [LONGEST_EDGE [EVERY]]\n");
    return 2;
  }
  try {
    renderViews(fromUtf8(argv[1]), fromUtf8(argv[2]), fromUtf8(argv[3]), argc > 4 ? std::atoi(argv[4]) : 0,
                argc > 5 ? std::max(std::atoi(argv[5]), 1) : 8);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "error: %s\n", e.what());
    return 1;
  }
}
