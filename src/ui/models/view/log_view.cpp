#include "ui/models/view/log_view.h"

#include <algorithm>
#include <iterator>

#include "base/text/text.h"
#include "base/text/time_text.h"

namespace quor::ui {

bool LogView::update() {
  if (log_.lastSequence() == seen_) return false;
  bool news = false;
  for (LogEntry& entry : log_.entriesAfter(seen_)) {
    seen_ = entry.sequence;
    Line line{entry.level, formatLocalTime(entry.time, "%H:%M:%S ") + levelPrefix(entry.level), entry.sequence};
    line.text += withoutControls(std::move(entry.text));
    ++counts_[static_cast<size_t>(line.level)];
    if (lets(line)) {
      shown_.push_back(line);
      news = true;
    }
    all_.push_back(std::move(line));
  }
  while (all_.size() > capacity_) {
    --counts_[static_cast<size_t>(all_.front().level)];
    all_.pop_front();
  }
  while (!shown_.empty() && (all_.empty() || shown_.front().sequence < all_.front().sequence)) shown_.pop_front();
  return news;
}

std::string LogView::emptyText() const {
  return all_.empty() ? "Nothing has been logged yet." : "No line fits the filter.";
}

void LogView::show(LogLevel level, bool shown) {
  levels_[static_cast<size_t>(level)] = shown;
  filter();
}

void LogView::setSearch(const std::string& text) {
  search_ = text;
  lowered_ = toLower(text);
  filter();
}

std::string LogView::copyText() const {
  std::string text;
  for (const Line& line : shown_) text += line.text + '\n';
  return text;
}

void LogView::clear() {
  all_.clear();
  shown_.clear();
  counts_ = {};
}

bool LogView::lets(const Line& line) const {
  if (!shows(line.level)) return false;
  return lowered_.empty() || toLower(line.text).find(lowered_) != std::string::npos;
}

void LogView::filter() {
  shown_.clear();
  std::ranges::copy_if(all_, std::back_inserter(shown_), [this](const Line& line) { return lets(line); });
}

}  // namespace quor::ui
