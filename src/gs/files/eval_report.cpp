#include "gs/files/eval_report.h"

#include <algorithm>
#include <cctype>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "base/parallel.h"
#include "base/text/text.h"

namespace quor::gs {
namespace fs = std::filesystem;
namespace {

constexpr const char* kScoresFile = "scores.csv";
constexpr const char* kPictureEnding = ".png";
// Bytes; file systems take 255, and a number and endings come after it.
constexpr size_t kMaxName = 200;

// Whole characters only.
std::string shortened(std::string text) {
  if (text.size() <= kMaxName) return text;
  size_t end = kMaxName;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  text.resize(end);
  return text;
}

std::string withoutImageEnding(const std::string& name) {
  static constexpr std::string_view kEndings[] = {".jpg", ".jpeg", ".png", ".bmp", ".tga", ".tif", ".tiff", ".webp"};
  const size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return name;
  const std::string ending = toLower(name.substr(dot));
  const bool known = std::find(std::begin(kEndings), std::end(kEndings), ending) != std::end(kEndings);
  return known ? name.substr(0, dot) : name;
}

// RFC 4180.
std::string csvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

Image sideBySide(const Image& left, const Image& right) {
  const size_t row = static_cast<size_t>(left.width) * 3;
  Image both{2 * left.width, left.height, std::vector<uint8_t>(2 * left.rgb.size())};
  for (size_t y = 0; y < static_cast<size_t>(left.height); ++y) {
    std::copy_n(left.rgb.data() + y * row, row, both.rgb.data() + 2 * y * row);
    std::copy_n(right.rgb.data() + y * row, row, both.rgb.data() + (2 * y + 1) * row);
  }
  return both;
}

}  // namespace

std::string pictureName(const std::string& viewName, std::set<std::string>& taken) {
  std::string name = withoutImageEnding(viewName);
  for (char& c : name) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F || std::string_view("/\\:*?\"<>|").find(c) != std::string_view::npos) c = '_';
  }
  name = shortened(std::move(name));
  if (name.empty() || name.front() == '.') name.insert(0, "_");
  // Windows reserves these names for devices, whatever follows the first dot.
  static constexpr std::string_view kDevices[] = {"con", "prn", "aux", "nul", "com", "lpt"};
  const std::string start = toLower(name.substr(0, name.find('.')));
  const bool numbered = start.size() == 4 && std::isdigit(static_cast<unsigned char>(start[3])) != 0;
  const auto found = std::find(std::begin(kDevices), std::end(kDevices), std::string_view(start).substr(0, 3));
  if (found != std::end(kDevices) && (start.size() == 3 || numbered)) name.insert(0, "_");

  std::string unique = name;
  for (int number = 2; !taken.insert(toLower(unique)).second; ++number) unique = name + "_" + std::to_string(number);
  return unique;
}

void removeEvalReport(const fs::path& folder) noexcept {
  try {
    std::error_code error;
    std::vector<fs::path> old;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
      const fs::path& file = entry->path();
      if (file.extension() == kPictureEnding || file.filename() == kScoresFile) old.push_back(file);
    }
    for (const fs::path& file : old) fs::remove(file, error);
  } catch (const std::exception&) {
    // A file that cannot be removed is overwritten or stays.
  }
}

void EvalReport::add(const std::string& view, const Image& photograph, const ImageScores& scores, const Image& render) {
  scores_ += csvField(view) + formatText(",%.4f,%.6f,%.6f\n", scores.psnr(), scores.ssim, scores.l1);
  if (!failure_.empty()) return;
  waiting_.push_back({folder_ / fromUtf8(pictureName(view, taken_) + kPictureEnding), sideBySide(photograph, render)});
  if (waiting_.size() >= std::max(1u, std::thread::hardware_concurrency())) writePictures();
}

void EvalReport::writePictures() {
  std::error_code ignored;  // writePng() reports a folder that cannot be made
  fs::create_directories(folder_, ignored);
  try {
    parallelFor(waiting_.size(), [&](size_t i) { writePng(waiting_[i].file, waiting_[i].image); });
  } catch (const std::exception& e) {
    failure_ = e.what();
  }
  waiting_.clear();
}

void EvalReport::finish() {
  writePictures();
  writeScores();
  if (!failure_.empty()) throw std::runtime_error(failure_);
}

void EvalReport::writeScores() const {
  AtomicFile file(folder_ / kScoresFile);
  file.stream() << scores_;
  file.commit();
}

}  // namespace quor::gs
