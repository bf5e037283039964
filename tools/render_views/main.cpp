// Renders a trained scene to look at: from the cameras of a dataset, each beside its photograph and their difference
// (four times enlarged), or with --between from N poses on the way from each photograph to the next, where nobody took
// one, between the two photographs. Neighbours that look more than 45 degrees apart are left out.
//
//   render_views [--between N] SCENE.ply DATASET OUT_FOLDER [LONGEST_EDGE [EVERY]]
//
// EVERY is which photographs are rendered (the held-out ones, every 8th, without it), or which gaps (every one).
#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "base/files/paths.h"
#include "base/image/image.h"
#include "base/log/log_store.h"
#include "gpu/compute/compute_stream.h"
#include "gpu/device/vulkan_context.h"
#include "gpu/memory/transfer.h"
#include "gs/data/dataset.h"
#include "gs/files/ply.h"
#include "gs/render/renderer.h"
#include "gs/splat_kernels.h"

namespace {

using namespace quor;

// Between neighbouring photographs whose cameras look further apart than this, no pose is worth rendering.
constexpr double kWidestTurn = 45.0 / 180.0 * 3.14159265358979;

Image toImage(const std::vector<float>& values, int width, int height) {
  Image image{width, height, std::vector<uint8_t>(values.size())};
  std::transform(values.begin(), values.end(), image.rgb.begin(),
                 [](float v) { return static_cast<uint8_t>(std::clamp(v, 0.0f, 1.0f) * 255.0f + 0.5f); });
  return image;
}

Image fourfoldDifference(const Image& a, const Image& b) {
  Image out = a;
  for (size_t i = 0; i < out.rgb.size(); ++i)
    out.rgb[i] = static_cast<uint8_t>(std::min(4 * std::abs(a.rgb[i] - b.rgb[i]), 255));
  return out;
}

// Pictures of one height, from left to right.
Image row(const std::vector<Image>& images) {
  Image out{0, images.front().height, {}};
  for (const Image& image : images) out.width += image.width;
  for (int y = 0; y < out.height; ++y) {
    for (const Image& image : images) {
      const auto line = image.rgb.begin() + ptrdiff_t{3} * image.width * y;
      out.rgb.insert(out.rgb.end(), line, line + ptrdiff_t{3} * image.width);
    }
  }
  return out;
}

using Matrix = std::array<double, 9>;

Matrix product(const Matrix& a, const Matrix& b, bool transposeB) {
  Matrix out{};
  for (size_t i = 0; i < 3; ++i) {
    for (size_t j = 0; j < 3; ++j) {
      for (size_t k = 0; k < 3; ++k) out[3 * i + j] += a[3 * i + k] * (transposeB ? b[3 * j + k] : b[3 * k + j]);
    }
  }
  return out;
}

// The angle between two rotations.
double turn(const Matrix& a, const Matrix& b) {
  const Matrix r = product(b, a, true);
  return std::acos(std::clamp((r[0] + r[4] + r[8] - 1) / 2, -1.0, 1.0));
}

// The camera `t` (0 to 1) of the way from a to b: its centre on the line between theirs, its axes turned about the one
// axis that turns a's into b's (Rodrigues' formula).
gs::Camera between(const gs::Camera& a, const gs::Camera& b, double t) {
  gs::Camera camera = a;
  const Matrix r = product(b.rotation, a.rotation, true);
  const double angle = turn(a.rotation, b.rotation);
  if (angle > 1e-9) {
    const double k = 1 / (2 * std::sin(angle)), s = std::sin(t * angle), c = std::cos(t * angle);
    const std::array<double, 3> u = {k * (r[7] - r[5]), k * (r[2] - r[6]), k * (r[3] - r[1])};
    Matrix part{};
    for (size_t i = 0; i < 3; ++i) {
      for (size_t j = 0; j < 3; ++j) part[3 * i + j] = (1 - c) * u[i] * u[j] + (i == j ? c : 0.0);
      const size_t next = (i + 1) % 3, last = (i + 2) % 3;
      part[3 * last + next] += s * u[i];
      part[3 * next + last] -= s * u[i];
    }
    camera.rotation = product(part, a.rotation, false);
  }
  const auto from = a.centre(), to = b.centre();
  for (size_t i = 0; i < 3; ++i) {
    camera.translation[i] = 0;
    for (size_t j = 0; j < 3; ++j)
      camera.translation[i] -= camera.rotation[3 * i + j] * (from[j] + t * (to[j] - from[j]));
  }
  return camera;
}

// A scene on the GPU.
class Scene {
 public:
  Scene(const std::filesystem::path& path, double extent)
      : stream_(context_, registry_),
        transfer_(context_),
        splats_(context_, gs::SplatStore::Use::RenderOnly),
        renderer_(context_, registry_, gs::Renderer::Mode::RenderOnly),
        nearPlane_(static_cast<float>(0.01 * extent)) {
    const gs::GaussianSet set = gs::readPly(path);
    shDegree_ = set.shDegree;
    splats_.upload(transfer_, set);
  }

  Image render(const gs::Camera& camera) {
    renderer_.reserve(splats_.count(), camera.width, camera.height);
    renderer_.project(stream_, splats_, camera, shDegree_, nearPlane_);
    renderer_.rasterize(stream_, {0, 0, 0});
    stream_.submit();
    std::vector<float> values(size_t{3} * static_cast<size_t>(camera.width) * static_cast<size_t>(camera.height));
    transfer_.download(renderer_.image(), values.data(), 0, values.size() * sizeof(float));
    return toImage(values, camera.width, camera.height);
  }

 private:
  gs::VulkanContext context_{{}};
  gs::KernelRegistry registry_{context_, {gs::splatKernels()}};
  gs::ComputeStream stream_;
  gs::Transfer transfer_;
  gs::SplatStore splats_;
  gs::Renderer renderer_;
  float nearPlane_;
  int shDegree_ = 0;
};

void write(const std::filesystem::path& folder, const std::string& name, const Image& image) {
  const auto path = folder / fromUtf8(name + ".png");
  std::filesystem::create_directories(path.parent_path());
  writePng(path, image);
  std::printf("%s\n", toUtf8(path).c_str());
}

std::string stem(const gs::View& view) {
  return toUtf8(fromUtf8(view.name).stem());
}

struct Options {
  std::filesystem::path scene, dataset, out;
  int resolution = 0;
  int every = 8;
  int between = 0;
};

void renderBetween(Scene& scene, const std::vector<gs::View>& views, const Options& options) {
  for (size_t i = 0; i + 1 < views.size(); i += static_cast<size_t>(options.every)) {
    const gs::View &a = views[i], &b = views[i + 1];
    const bool alike = a.camera.width == b.camera.width && a.camera.height == b.camera.height;
    if (!alike || turn(a.camera.rotation, b.camera.rotation) > kWidestTurn) continue;
    std::vector<Image> images = {*a.image.pixels()};
    for (int k = 1; k <= options.between; ++k) {
      images.push_back(scene.render(between(a.camera, b.camera, static_cast<double>(k) / (options.between + 1))));
    }
    images.push_back(*b.image.pixels());
    write(options.out, stem(a) + "-" + stem(b), row(images));
  }
}

void renderViews(const Options& options) {
  LogStore log(100);
  log.setEcho(true, LogLevel::Warning);
  const std::atomic<bool> cancel = false;
  const int testEvery = options.between > 0 ? 0 : options.every;
  const gs::Dataset data = gs::loadDataset({options.dataset, options.resolution, true, testEvery, {}, {}}, log, cancel);
  Scene scene(options.scene, data.geometry.extent);
  if (options.between > 0) return renderBetween(scene, data.training, options);
  for (const gs::View& view : data.heldOut) {
    const Image photograph = *view.image.pixels(), image = scene.render(view.camera);
    write(options.out, stem(view), row({photograph, image, fourfoldDifference(photograph, image)}));
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> given(argv + 1, argv + argc);
  Options options;
  if (given.size() > 1 && given[0] == "--between") {
    options.between = std::max(std::atoi(given[1].c_str()), 1);
    options.every = 1;
    given.erase(given.begin(), given.begin() + 2);
  }
  if (given.size() < 3) {
    std::fprintf(stderr, "usage: render_views [--between N] SCENE.ply DATASET OUT_FOLDER [LONGEST_EDGE [EVERY]]\n");
    return 2;
  }
  options.scene = fromUtf8(given[0]);
  options.dataset = fromUtf8(given[1]);
  options.out = fromUtf8(given[2]);
  if (given.size() > 3) options.resolution = std::atoi(given[3].c_str());
  if (given.size() > 4) options.every = std::max(std::atoi(given[4].c_str()), 1);
  try {
    renderViews(options);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "error: %s\n", e.what());
    return 1;
  }
}
