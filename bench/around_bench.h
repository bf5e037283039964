// What the measurements of bench_around share: the splats, how often to measure, and digests of what is left.
#pragma once

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "around_floors.h"
#include "around_report.h"
#include "bench_common.h"
#include "gs/splats/splat_store.h"

namespace quor::bench {

using Step = std::function<void()>;

class AroundBench {
  static constexpr size_t kDeadEvery = 20;  // of the splats, before a pass
  static constexpr double kEnoughMilliseconds = 1500;
  static constexpr size_t kMaxRuns = 15;

 protected:
  AroundBench(gs::VulkanContext& context, gs::KernelRegistry& registry, const Size& size, bool digests)
      : context_(context),
        registry_(registry),
        size_(size),
        digests_(digests),
        floors_(folder_),
        stream_(context, registry),
        transfer_(context),
        set_(benchScene(size_)) {
    for (size_t i = 0; i < set_.count; i += kDeadEvery) set_.opacities[i] = -6;
    for (size_t g = 0; g < gs::kGroupCount; ++g) {  // any values serve as moments
      first_[g] = set_.group(static_cast<gs::Group>(g));
      second_[g] = first_[g];
      std::reverse(second_[g].begin(), second_[g].end());
    }
  }

  double floats(double aSplat) const { return 4.0 * aSplat * static_cast<double>(size_.splats); }

  void measure(std::string name, double bytes, const Step& prepare, const Step& work, const Step& floor) {
    std::vector<double> wall, processor, floors;
    for (double total = 0; wall.size() < 5 || (total < kEnoughMilliseconds && wall.size() < kMaxRuns);
         total += wall.back()) {
      if (prepare) prepare();
      const double before = processorMilliseconds();
      wall.push_back(milliseconds(work));
      processor.push_back(processorMilliseconds() - before);
      floors.push_back(floor ? milliseconds(floor) : 0);
    }
    rows_.push_back({std::move(name), Samples(wall), Samples(processor), bytes, Samples(floors).at(0)});
  }
  void measureCopy(std::string name, double bytes, const Step& prepare, const Step& work) {
    measure(std::move(name), bytes, prepare, work, [&] { floors_.copy(bytes); });
  }

  void upload(gs::SplatStore& splats, uint32_t capacity) {
    splats.upload(transfer_, set_, capacity);
    splats.uploadMoments(transfer_, first_, second_);
  }

  void sayDigest(const std::string& name, uint64_t value) const {
    std::printf("  digest of %s: %016llx\n", name.c_str(), static_cast<unsigned long long>(value));
  }
  void sayDigest(const std::string& name, const gs::GaussianSet& set, const gs::GroupArrays& first = {},
                 const gs::GroupArrays& second = {}) const {
    if (!digests_) return;
    uint64_t all = set.count;
    for (size_t g = 0; g < gs::kGroupCount; ++g) {
      for (const auto* values : {&set.group(static_cast<gs::Group>(g)), &first[g], &second[g]}) {
        all = all * 31 + digest({reinterpret_cast<const char*>(values->data()), 4 * values->size()});
      }
    }
    sayDigest(name, all);
  }
  void sayDigest(const std::string& name, const gs::SplatStore& splats) {
    if (!digests_) return;
    gs::GroupArrays first, second;
    splats.downloadMoments(transfer_, first, second);
    sayDigest(name, splats.download(transfer_), first, second);
  }
  void sayDigest(const std::string& name, const std::filesystem::path& file) const {
    if (!digests_) return;
    std::ifstream stream(file, std::ios::binary);
    sayDigest(name, digest(std::string{std::istreambuf_iterator<char>(stream), {}}));
  }

  gs::VulkanContext& context_;
  gs::KernelRegistry& registry_;
  Size size_;
  bool digests_;
  TemporaryFolder folder_;
  Floors floors_;
  gs::ComputeStream stream_;
  gs::Transfer transfer_;
  gs::GaussianSet set_;
  gs::GroupArrays first_, second_;
  std::vector<Row> rows_;
};

}  // namespace quor::bench
