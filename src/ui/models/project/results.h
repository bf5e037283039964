// The results of the open project, or the facts about an open scene: its size and scores, and its export to another
// place in one of two formats.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/log/log_store.h"
#include "ui/models/background.h"
#include "ui/models/button.h"
#include "ui/models/notice.h"
#include "ui/models/project/project_facts.h"

namespace quor::ui {

enum class ExportFormat { Ply, Splat };

class Results {
 public:
  struct Parts {
    LogStore& log;
    std::function<void(Notice)> notify;
    std::function<void(const std::filesystem::path& folder)> openFolder;
  };
  explicit Results(Parts parts) : parts_(std::move(parts)) {}

  void show(ProjectFacts facts);
  void clear() {
    facts_.reset();
    selected.reset();
  }
  // Nothing while nothing is open.
  const std::optional<ProjectFacts>& facts() const { return facts_; }

  // "1,234,567 splats", "27.41 dB PSNR and 0.912 SSIM over 25 pictures that were kept back: good"
  std::string sceneLine() const;
  std::string scoreLine() const;  // empty without scores
  // "IMG_1.jpg: PSNR 27.41 dB, SSIM 0.912"
  static std::string scoreText(const ViewScore& score);

  Button exportButton(ExportFormat format) const;
  std::string suggestedName(ExportFormat format) const;
  // In the background; how it ended becomes a notice. An ending that is not the format's is added to.
  void exportScene(ExportFormat format, std::filesystem::path target);
  bool exporting() const { return exporter_.busy(); }
  const std::string& exportText() const { return exporter_.text(); }

  // The picture of a score that is looked at in full; nothing when none is.
  std::optional<size_t> selected;

  Button folderButton() const;
  void openFolder();

  void update() { exporter_.update(); }

 private:
  Parts parts_;
  std::optional<ProjectFacts> facts_;
  Background exporter_;
};

}  // namespace quor::ui
