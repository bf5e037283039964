// The report on the held-out views: scores.csv with every view's figures, and for each view a PNG with the photograph
// on the left and the rendered image on the right.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "base/image/image.h"
#include "gs/render/image_loss.h"

namespace quor::gs {

// Removes the report of an earlier run, which describes another scene. Other files in the folder stay.
void removeEvalReport(const std::filesystem::path& folder) noexcept;

class EvalReport {
 public:
  explicit EvalReport(std::filesystem::path folder) : folder_(std::move(folder)) {}

  // Never throws for a file that cannot be written; finish() says so. `render` has the photograph's size.
  void add(const std::string& view, const Image& photograph, const ImageScores& scores, const Image& render);

  // Writes what is left. Throws std::runtime_error with the first failure.
  void finish();

 private:
  struct Comparison {
    std::filesystem::path file;
    Image image;
  };

  void writePictures();
  void writeScores() const;

  std::filesystem::path folder_;
  std::string scores_ = "view,psnr,ssim,l1\n";
  std::set<std::string> taken_;  // file names, lower case
  std::vector<Comparison> waiting_;
  std::string failure_;
};

// A file name (without extension) that is valid on every file system, from a view's name: folders become part of it. It
// differs from all in `taken`, even ignoring case, and is added there.
std::string pictureName(const std::string& viewName, std::set<std::string>& taken);

}  // namespace quor::gs
