#include "sfm/match/pair_selection.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <mutex>
#include <numbers>
#include <optional>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "base/files/atomic_file.h"
#include "base/text/text.h"
#include "sfm/georeference/wgs84.h"
#include "sfm/match/colmap_database.h"
#include "sfm/match/image_similarity.h"
#include "sfm/refine/rig.h"

namespace quor {
namespace {

using Images = std::vector<DatabaseImage>;
using Pairs = std::set<ImagePair>;

constexpr size_t kManyImages = 150;
constexpr size_t kAlike = 30, kNextByName = 3, kNearby = 20;    // partners of an image among many
constexpr size_t kNextMoments = 3;                              // at least, that a rig's moment is matched with
constexpr double kSeeingTheSame = 70 * std::numbers::pi / 180;  // at most, between the axes of a sphere's views

void add(Pairs& pairs, const DatabaseImage& a, const DatabaseImage& b) {
  if (a.id != b.id) pairs.insert(std::minmax(a.id, b.id));
}

void addAlike(Pairs& pairs, const SolveContext& solve, const Images& images) {
  ColmapDatabase database(solve.files.database);
  std::mutex access;
  const ImageSimilarity similarity(images.size(), [&](size_t i) {
    const std::scoped_lock lock(access);
    ColmapDatabase::Descriptors found = database.descriptors(images[i].id);
    if (found.columns != ImageSimilarity::kDescriptor) found.data.clear();
    return std::move(found.data);
  });
  for (size_t i = 0; i < images.size(); ++i) {
    for (const size_t other : similarity.mostAlike(i, kAlike)) add(pairs, images[i], images[other]);
  }
}

void addNextByName(Pairs& pairs, Images images) {
  std::ranges::sort(images, {}, &DatabaseImage::name);
  for (size_t i = 0; i < images.size(); ++i) {
    for (size_t k = i + 1; k < std::min(images.size(), i + 1 + kNextByName); ++k) add(pairs, images[i], images[k]);
  }
}

void addNearby(Pairs& pairs, const SolveContext& solve, const Images& images) {
  const auto& positions = solve.project.extraction.positions;
  if (positions.empty()) return;
  const LocalFrame frame(positions.begin()->second);
  std::vector<std::pair<const DatabaseImage*, Eigen::Vector3d>> placed;
  for (const DatabaseImage& image : images) {
    const auto found = positions.find(image.name);
    if (found != positions.end()) placed.emplace_back(&image, frame.place(found->second));
  }
  for (const auto& [image, here] : placed) {
    std::vector<std::pair<double, const DatabaseImage*>> others;
    others.reserve(placed.size());
    for (const auto& [other, there] : placed) others.emplace_back((here - there).squaredNorm(), other);
    const auto end = others.begin() + static_cast<std::ptrdiff_t>(std::min(others.size(), kNearby + 1));
    std::ranges::partial_sort(others, end);
    for (auto each = others.begin(); each != end; ++each) add(pairs, *image, *each->second);
  }
}

Pairs likelyPairs(const SolveContext& solve, const Images& images) {
  Pairs pairs;
  addAlike(pairs, solve, images);
  addNextByName(pairs, images);
  addNearby(pairs, solve, images);
  solve.log.info(
      formatText("Of %zu photographs those that look alike are matched: %zu of %zu pairs (--pairs all "
                 "matches every one).",
                 images.size(), pairs.size(), images.size() * (images.size() - 1) / 2));
  return pairs;
}

// Sequential matching of rigs: the moments stand in the order of their names, and of two moments those images are
// matched that can see the same things.
class RigPairs {
 public:
  RigPairs(const refine::RigLayout& layout, Images images) : layout_(layout) {
    std::ranges::sort(images, {}, &DatabaseImage::name);
    std::map<size_t, size_t> units;  // by moment
    for (const DatabaseImage& image : images) {
      const refine::Mount* mount = layout.find(image.name);
      const bool first = !mount || units.try_emplace(mount->moment, units_.size()).second;
      if (first) units_.emplace_back();
      units_[mount ? units.at(mount->moment) : units_.size() - 1].push_back({image, mount});
    }
  }

  Pairs pairs(size_t overlap) const {
    Pairs pairs;
    for (const auto& unit : units_) addWithin(pairs, unit);
    const size_t images = layout_.mounts().size(), moments = std::max<size_t>(layout_.moments(), 1);
    const size_t near = std::max(kNextMoments, overlap * moments / std::max<size_t>(images, 1));
    for (const size_t step : sequenceSteps(near, overlap)) {
      for (size_t i = 0; i + step < units_.size(); ++i) addBetween(pairs, units_[i], units_[i + step]);
    }
    return pairs;
  }

 private:
  struct View {
    DatabaseImage image;
    const refine::Mount* mount;
  };
  using Unit = std::vector<View>;

  const std::optional<Eigen::Quaterniond>& rotation(const View& view) const {
    static const std::optional<Eigen::Quaterniond> kUnknown;
    return view.mount ? layout_.sensors()[view.mount->sensor].rotation : kUnknown;
  }
  static bool seeTheSame(const std::optional<Eigen::Quaterniond>& a, const std::optional<Eigen::Quaterniond>& b) {
    if (!a || !b) return true;
    const auto axis = Eigen::Vector3d::UnitZ();
    return (a->inverse() * axis).dot(b->inverse() * axis) > std::cos(kSeeingTheSame);
  }
  // Lenses whose places in the rig are to be found share features at their rims.
  void addWithin(Pairs& pairs, const Unit& unit) const {
    for (const View& a : unit) {
      for (const View& b : unit) {
        if (!rotation(a)) add(pairs, a.image, b.image);
      }
    }
  }
  void addBetween(Pairs& pairs, const Unit& first, const Unit& second) const {
    for (const View& a : first) {
      for (const View& b : second) {
        if (seeTheSame(rotation(a), rotation(b))) add(pairs, a.image, b.image);
      }
    }
  }

  const refine::RigLayout& layout_;
  std::vector<Unit> units_;  // a moment's images, or an image by itself
};

}  // namespace

std::filesystem::path writePairList(const SolveContext& solve, const std::string& name,
                                    const std::vector<ImagePair>& pairs) {
  std::unordered_map<uint32_t, std::string> names;
  for (const DatabaseImage& image : ColmapDatabase(solve.files.database).images()) {
    // COLMAP separates the two names of a line by a blank and takes a number sign for a comment.
    const auto blank = [](unsigned char c) { return std::isspace(c) != 0; };
    if (image.name.starts_with('#') || std::ranges::any_of(image.name, blank)) {
      throw std::runtime_error("COLMAP cannot read the image name '" + image.name + "' in a list of pairs");
    }
    names[image.id] = image.name;
  }
  std::filesystem::path list = solve.files.lists / name;
  AtomicFile file(list);
  for (const ImagePair& pair : pairs) file.stream() << names[pair.first] << ' ' << names[pair.second] << '\n';
  file.commit();
  return list;
}

bool limitsPairs(const SolveContext& solve, Matcher matcher) {
  return matcher == Matcher::Exhaustive && solve.project.sparse.pairs == PairChoice::Likely &&
         solve.images > kManyImages;
}

std::vector<ImagePair> selectPairs(const SolveContext& solve, Matcher matcher) {
  const Images images = ColmapDatabase(solve.files.database).images();
  const refine::RigLayout layout(solve.project.extraction.groups);
  const auto overlap = static_cast<size_t>(std::max(solve.project.sparse.sequentialOverlap, 1));
  if (matcher == Matcher::Sequential) {
    if (layout.empty()) return sequentialPairs(images, overlap);
    const Pairs pairs = RigPairs(layout, images).pairs(overlap);
    return {pairs.begin(), pairs.end()};
  }
  if (limitsPairs(solve, matcher)) {
    const Pairs pairs = likelyPairs(solve, images);
    return {pairs.begin(), pairs.end()};
  }
  return exhaustivePairs(images);
}

}  // namespace quor
