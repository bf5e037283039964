#include "ui/models/project/results.h"

#include <stdexcept>

#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "gs/files/checkpoint.h"
#include "gs/files/ply.h"
#include "gs/files/splat_file.h"
#include "ui/models/number_text.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

const char* endingOf(ExportFormat format) {
  return format == ExportFormat::Ply ? ".ply" : ".splat";
}

bool hasEnding(const fs::path& path, const char* ending) {
  return toLower(toUtf8(path.extension())) == ending;
}

void copyWhole(const fs::path& from, const fs::path& to) {
  std::ifstream source(from, std::ios::binary);
  if (!source) throw std::runtime_error("Cannot read " + toUtf8(from) + ".");
  AtomicFile file(to);
  file.stream() << source.rdbuf();
  file.commit();
}

void writeScene(const fs::path& scene, ExportFormat format, const fs::path& target) {
  const bool checkpoint = hasEnding(scene, ".quor");
  if (format == ExportFormat::Ply && !checkpoint) return copyWhole(scene, target);
  const gs::GaussianSet set = checkpoint ? gs::readCheckpoint(scene).set : gs::readPly(scene);
  if (format == ExportFormat::Ply) {
    gs::writePly(target, set, "Ombrelux");
  } else {
    gs::writeSplat(target, set);
  }
}

const char* verdictOn(double psnr) {
  return psnr >= 30 ? "very good" : psnr >= 27 ? "good" : psnr >= 22 ? "fair" : "poor: look at the pictures below";
}

}  // namespace

void Results::show(ProjectFacts facts) {
  facts_ = std::move(facts);
  if (selected && *selected >= facts_->scores.size()) selected.reset();
}

std::string Results::sceneLine() const {
  if (!facts_ || !facts_->scene) return "There is no scene yet.";
  const std::string size = sizeText(facts_->scene->bytes);
  return facts_->splats > 0 ? withThousands(facts_->splats) + " splats, " + size : size;
}

std::string Results::scoreLine() const {
  if (!facts_ || facts_->scores.empty()) return {};
  double psnr = 0;
  double ssim = 0;
  for (const ViewScore& score : facts_->scores) {
    psnr += score.psnr;
    ssim += score.ssim;
  }
  const auto count = static_cast<double>(facts_->scores.size());
  return formatText("%.2f dB PSNR and %.3f SSIM over %zu %s kept back from training: %s", psnr / count, ssim / count,
                    facts_->scores.size(), facts_->scores.size() == 1 ? "picture" : "pictures",
                    verdictOn(psnr / count));
}

std::string Results::scoreText(const ViewScore& score) {
  return score.view + formatText(": PSNR %.2f dB, SSIM %.3f", score.psnr, score.ssim);
}

Button Results::exportButton(ExportFormat format) const {
  Button button{std::string("Save ") + endingOf(format) + "...",
                format == ExportFormat::Ply ? "The scene in full, for most viewers and editors."
                                            : "A small file for viewers on the web, without reflections.",
                true};
  if (!facts_ || !facts_->scene) {
    button = {button.label, "There is no scene yet: train it first, or open one.", false};
  } else if (exporting()) {
    button = {button.label, "The scene is still being written.", false};
  }
  return button;
}

std::string Results::suggestedName(ExportFormat format) const {
  if (!facts_ || !facts_->scene) return {};
  const fs::path& scene = facts_->scene->path;
  std::string name = toUtf8(scene.stem());
  // A project's scene is called after the project, so that several can lie in one folder.
  if (scene.parent_path().filename() == "output" && scene.parent_path().parent_path() == facts_->folder) {
    name = toUtf8(facts_->folder.filename());
    constexpr std::string_view kTail = "_ombrelux";
    if (name.ends_with(kTail)) name.resize(name.size() - kTail.size());
  }
  return name + endingOf(format);
}

void Results::exportScene(ExportFormat format, fs::path target) {
  if (!exportButton(format).enabled || target.empty()) return;
  if (!hasEnding(target, endingOf(format))) target += endingOf(format);
  const fs::path scene = facts_->scene->path;
  const auto failed = [this](const std::string& sentence) {
    parts_.log.error("The scene was not saved: " + sentence);
    parts_.notify({"The scene was not saved", {sentence, "Choose another place, or make room on the disk."}, true});
  };
  exporter_.run(
      "Saving " + toUtf8(target.filename()),
      [scene, format, target] {
        if (isSamePlace(scene, target)) throw std::runtime_error(toUtf8(target) + " is the open scene itself.");
        writeScene(scene, format, target);
        return target;
      },
      [this](const fs::path& written) {
        parts_.log.info("Saved " + toUtf8(written));
        parts_.notify({"Scene saved", {toUtf8(written)}, false, written.parent_path()});
      },
      failed);
}

Button Results::folderButton() const {
  if (!facts_) return {"Open folder", "Open a project or a scene first.", false};
  return {"Open folder", "Shows " + toUtf8(facts_->folder) + " in the file manager.", true};
}

void Results::openFolder() {
  if (folderButton().enabled && parts_.openFolder) parts_.openFolder(facts_->folder);
}

}  // namespace quor::ui
