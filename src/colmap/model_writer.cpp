#include "colmap/model_writer.h"

#include <bit>
#include <ostream>
#include <stdexcept>

#include "base/files/atomic_file.h"
#include "base/text/text.h"

namespace quor::gs::colmap {
namespace {

static_assert(std::endian::native == std::endian::little, "COLMAP's binary files are little-endian.");

constexpr double kNoError = -1;

struct TrackElement {
  uint32_t image = 0;
  uint32_t observation = 0;
};
using Tracks = std::vector<std::vector<TrackElement>>;

Tracks tracksOf(const Model& model, const std::vector<Observations>& observations) {
  if (!observations.empty() && observations.size() != model.images.size()) {
    throw std::logic_error("A COLMAP model needs one list of observations for each image.");
  }
  Tracks tracks(model.points.count());
  for (size_t i = 0; i < observations.size(); ++i) {
    for (size_t k = 0; k < observations[i].size(); ++k) {
      const size_t point = observations[i][k].point;
      if (point == Observation::kNoPoint) continue;
      if (point >= tracks.size()) throw std::logic_error("An observation names a point that the model does not have.");
      tracks[point].push_back({model.images[i].id, static_cast<uint32_t>(k)});
    }
  }
  return tracks;
}

int64_t pointId(size_t point) {
  return point == Observation::kNoPoint ? -1 : static_cast<int64_t>(point) + 1;
}

double errorOf(const Points& points, size_t point) {
  return points.errors.empty() ? kNoError : double{points.errors[point]};
}

template <typename T>
void put(std::ostream& out, T value) {
  out.write(reinterpret_cast<const char*>(&value), sizeof value);
}

std::string number(double value) {
  return formatText("%.17g", value);
}

void writeBinaryCameras(std::ostream& out, const Model& model) {
  put<uint64_t>(out, model.cameras.size());
  for (const auto& [id, camera] : model.cameras) {
    put(out, id);
    put(out, camera.model);
    put(out, camera.width);
    put(out, camera.height);
    for (const double value : camera.params) put(out, value);
  }
}

void writeBinaryImage(std::ostream& out, const Image& image, const Observations& observations) {
  put(out, image.id);
  for (const double value : image.qvec) put(out, value);
  for (const double value : image.tvec) put(out, value);
  put(out, image.cameraId);
  out.write(image.name.c_str(), static_cast<std::streamsize>(image.name.size() + 1));
  put<uint64_t>(out, observations.size());
  for (const Observation& observation : observations) {
    put(out, observation.x);
    put(out, observation.y);
    put(out, pointId(observation.point));
  }
}

void writeBinaryPoints(std::ostream& out, const Points& points, const Tracks& tracks) {
  put<uint64_t>(out, points.count());
  for (size_t i = 0; i < points.count(); ++i) {
    put(out, pointId(i));
    for (size_t k = 0; k < 3; ++k) put<double>(out, points.positions[3 * i + k]);
    for (size_t k = 0; k < 3; ++k) put(out, points.colors[3 * i + k]);
    put(out, errorOf(points, i));
    put<uint64_t>(out, tracks[i].size());
    for (const TrackElement& element : tracks[i]) {
      put(out, element.image);
      put(out, element.observation);
    }
  }
}

void writeTextCameras(std::ostream& out, const Model& model) {
  out << "# CAMERA_ID, MODEL, WIDTH, HEIGHT, PARAMS[]\n";
  for (const auto& [id, camera] : model.cameras) {
    out << id << ' ' << modelName(camera.model) << ' ' << camera.width << ' ' << camera.height;
    for (const double value : camera.params) out << ' ' << number(value);
    out << '\n';
  }
}

void writeTextImage(std::ostream& out, const Image& image, const Observations& observations) {
  out << image.id;
  for (const double value : image.qvec) out << ' ' << number(value);
  for (const double value : image.tvec) out << ' ' << number(value);
  out << ' ' << image.cameraId << ' ' << image.name << '\n';
  const char* separator = "";
  for (const Observation& observation : observations) {
    out << separator << number(observation.x) << ' ' << number(observation.y) << ' ' << pointId(observation.point);
    separator = " ";
  }
  out << '\n';
}

void writeTextPoints(std::ostream& out, const Points& points, const Tracks& tracks) {
  out << "# POINT3D_ID, X, Y, Z, R, G, B, ERROR, TRACK[] as (IMAGE_ID, POINT2D_IDX)\n";
  for (size_t i = 0; i < points.count(); ++i) {
    out << pointId(i);
    for (size_t k = 0; k < 3; ++k) out << ' ' << number(points.positions[3 * i + k]);
    for (size_t k = 0; k < 3; ++k) out << ' ' << int{points.colors[3 * i + k]};
    out << ' ' << number(errorOf(points, i));
    for (const TrackElement& element : tracks[i]) out << ' ' << element.image << ' ' << element.observation;
    out << '\n';
  }
}

}  // namespace

void writeModel(const std::filesystem::path& dir, const Model& model, const std::vector<Observations>& observations,
                Encoding encoding) {
  const Tracks tracks = tracksOf(model, observations);
  const bool binary = encoding == Encoding::Binary;
  const std::string suffix = binary ? ".bin" : ".txt";
  std::filesystem::create_directories(dir);

  AtomicFile cameras(dir / ("cameras" + suffix));
  (binary ? writeBinaryCameras : writeTextCameras)(cameras.stream(), model);

  AtomicFile images(dir / ("images" + suffix));
  if (binary) {
    put<uint64_t>(images.stream(), model.images.size());
  } else {
    images.stream() << "# IMAGE_ID, QW, QX, QY, QZ, TX, TY, TZ, CAMERA_ID, NAME\n# POINTS2D[] as (X, Y, POINT3D_ID)\n";
  }
  for (size_t i = 0; i < model.images.size(); ++i) {
    const Observations& seen = observations.empty() ? Observations{} : observations[i];
    (binary ? writeBinaryImage : writeTextImage)(images.stream(), model.images[i], seen);
  }

  AtomicFile points(dir / ("points3D" + suffix));
  (binary ? writeBinaryPoints : writeTextPoints)(points.stream(), model.points, tracks);

  cameras.commit();
  images.commit();
  points.commit();
  // Newer versions repeat the poses of a binary model here, and make them anew from the images.
  std::error_code ignored;
  for (const char* name : {"rigs.bin", "frames.bin"}) std::filesystem::remove(dir / name, ignored);
}

}  // namespace quor::gs::colmap
