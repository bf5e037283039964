#include <algorithm>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <new>
#include <system_error>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/parallel.h"
#include "base/text/text.h"
#include "ingest/camera_groups.h"
#include "ingest/frame_extractor.h"
#include "ingest/photo/imported_photo.h"
#include "ingest/sampling.h"
#include "project/classify.h"

namespace quor {
namespace {

namespace fs = std::filesystem;

struct ImportOutcome {
  ImportedPhoto photo;
  std::string unreadable;      // the reason, if it could not be read
  std::exception_ptr failure;  // of the whole import
};

// Reads photographs on all processors and hands them out in order. Only a few wait to be taken at any time: a folder
// may hold more than memory does.
class PhotoReader {
 public:
  PhotoReader(const std::vector<fs::path>& paths, const IngestSettings& settings,
              const std::function<bool()>& cancelled)
      : paths_(paths), settings_(settings), cancelled_(cancelled) {
    const size_t threads = std::min(paths.size(), processorCount());
    ahead_ = 4 * threads;
    workers_ = startThreads(threads, [this] { work(); });
    inline_ = workers_.empty();
  }

  ~PhotoReader() {
    stop();
    workers_.clear();
  }

  // Throws IngestError "Cancelled".
  ImportOutcome take() {
    if (inline_) return read(paths_[taken_++], encoder_);
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return stopped_ || done_.contains(taken_); });
    if (stopped_) throw Cancelled();
    ImportOutcome outcome = std::move(done_.extract(taken_++).mapped());
    changed_.notify_all();
    return outcome;
  }

 private:
  void stop() {
    const std::scoped_lock lock(mutex_);
    stopped_ = true;
    changed_.notify_all();
  }

  // The index of the next photograph to read; nothing at the end.
  std::optional<size_t> begin() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return stopped_ || begun_ < taken_ + ahead_; });
    if (stopped_ || begun_ == paths_.size()) return std::nullopt;
    return begun_++;
  }

  void work() {
    std::optional<JpegEncoder> encoder;
    while (const std::optional<size_t> index = begin()) {
      if (cancelled_()) return stop();
      ImportOutcome outcome = read(paths_[*index], encoder);
      const std::scoped_lock lock(mutex_);
      done_.emplace(*index, std::move(outcome));
      changed_.notify_all();
    }
  }

  ImportOutcome read(const fs::path& path, std::optional<JpegEncoder>& encoder) {
    ImportOutcome outcome;
    try {
      if (!encoder) encoder.emplace(settings_.jpegQuality);
      outcome.photo = importPhoto(path, settings_.maxDimension, *encoder);
    } catch (const IngestError&) {
      outcome.failure = std::current_exception();
    } catch (const std::bad_alloc&) {
      outcome.unreadable = "there is not enough memory for it";
    } catch (const std::runtime_error& e) {
      outcome.unreadable = e.what();
    } catch (...) {
      outcome.failure = std::current_exception();
    }
    return outcome;
  }

  const std::vector<fs::path>& paths_;
  const IngestSettings& settings_;
  const std::function<bool()>& cancelled_;
  size_t ahead_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<size_t, ImportOutcome> done_;
  size_t begun_ = 0;
  size_t taken_ = 0;
  bool stopped_ = false;
  bool inline_ = false;                 // no thread was granted: take() reads
  std::optional<JpegEncoder> encoder_;  // of take() then
  std::vector<std::jthread> workers_;
};

std::vector<fs::path> imagesAt(const fs::path& path) {
  std::error_code ignored;
  if (fs::is_directory(path, ignored)) return findMedia(path).images;
  return fs::is_regular_file(path, ignored) ? std::vector{path} : std::vector<fs::path>();
}

// As the user knows it: below the folder that was given.
std::string shownName(const fs::path& image, const fs::path& folder) {
  const fs::path below = image.lexically_relative(folder);
  return withoutControls(toUtf8(below.empty() || below == "." ? image.filename() : below));
}

}  // namespace

ExtractionResult FrameExtractor::importImages(const fs::path& path, const IngestSettings& settings,
                                              const fs::path& outputFolder, const IngestProgress& progress) {
  const std::vector<fs::path> images = imagesAt(path);
  ExtractionResult result;
  CameraGroups groups;
  PhotoReader reader(images, settings, cancelled_);
  for (size_t i = 0; i < images.size(); ++i) {
    if (cancelled_()) throw Cancelled();
    progress("Importing images", static_cast<float>(i) / static_cast<float>(images.size()));
    const ImportOutcome outcome = reader.take();
    if (outcome.failure) std::rethrow_exception(outcome.failure);
    if (!outcome.unreadable.empty()) {
      log_.warning("Skipped unreadable image: " + shownName(images[i], path) + " (" + outcome.unreadable + ")");
      ++result.unreadable;
      continue;
    }
    const std::string name = frameName(static_cast<int64_t>(result.frames.size()) + 1, "");
    writeFrameFile(outputFolder / name, outcome.photo.jpeg);
    result.frames.push_back(outputFolder / name);
    groups.add(name, {outcome.photo.width, outcome.photo.height}, outcome.photo.info);
    result.sources.emplace(name, shownName(images[i], path));
    if (outcome.photo.info.position) result.positions.emplace(name, *outcome.photo.info.position);
  }
  if (result.frames.empty()) {
    throw IngestError("No images found in " + toUtf8(path) + ". Supported: jpg, jpeg, png, bmp, tga, tif, webp, heic");
  }
  progress("Importing images", 1);
  log_.info("Imported " + std::to_string(result.frames.size()) + " images");
  result.groups = groups.finish();
  return result;
}

}  // namespace quor
