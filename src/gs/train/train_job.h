// The trainer's input, and what it reports while it runs and at its end.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>

#include "base/failures.h"
#include "settings/records.h"

namespace quor::gs {

// The files that a run writes.
struct TrainOutputs {
  std::filesystem::path folder;      // made when it is missing; also for temporary files
  std::filesystem::path scene;       // PLY
  std::filesystem::path splat;       // compact binary scene
  std::filesystem::path checkpoint;  // also what a resumed run reads
  std::filesystem::path log;         // a block is appended for each run
  std::filesystem::path evaluation;  // folder of the report on the held-out views
};

// Defaults that a project's settings have too are taken from there. Two differ on purpose: a bare job trains with MCMC,
// at 1600 pixels.
struct TrainJob {
  std::filesystem::path dataset;  // folder that holds images/ and the COLMAP model
  TrainOutputs output;

  int32_t resolution = 1600;  // longest edge of the training images in pixels, 0 = their own size
  Technique technique = Technique::Mcmc;
  int32_t iterations = kTrainingDefaults.iterations;          // below 1 is taken as 1
  int32_t shDegree = kTrainingDefaults.shDegree;              // clamped to 0..3
  int32_t shDegreeInterval = 1000;                            // steps between raising the active degree by one
  int32_t downscaleLevels = kTrainingDefaults.numDownscales;  // coarse to fine: the images start 2^levels times smaller
  int32_t finestLevel = 0;                                    // images are halved at least so many times
  int32_t stepsPerLevel = 0;                                  // 0 = iterations / 3 (Vanilla: at most 3000), at least 1
  float ssimWeight = kTrainingDefaults.ssimWeight;            // L1 gets 1 - weight
  int32_t refineEvery = kTrainingDefaults.refineEvery;        // steps between densification or relocation passes
  uint64_t seed = 0;
  uint64_t splatBudget = kTrainingDefaults.splatBudget;  // upper bound on the splats, 0 = automatic
  std::array<float, 3> background = kTrainingDefaults.background;

  uint64_t mcmcTarget = 150000;  // the count that MCMC grows towards, never above a non-zero splatBudget
  float mcmcGrowUntil = 0.7f;    // fractions of `iterations` at which growth and relocation end
  float mcmcRelocateUntil = 0.85f;
  float mcmcNoiseScale = 40000.0f;
  float mcmcOpacityRegulariser = 0.01f;
  float mcmcScaleRegulariser = 0.01f;     // of scales in units of the scene extent
  float mcmcPositionRateStart = 0.0002f;  // times the scene extent
  float mcmcPositionRateEnd = 0.000002f;
  float mcmcOpacityRateEnd = 0.01f;  // at the last step; MCMC too starts with opacityRate

  int32_t densifyFrom = 500;
  int32_t densifyUntil = 0;  // 0 = min(max(iterations / 2, 1), 15000)
  int32_t opacityResetEvery = 3000;
  float densifyGradient = 0.0002f;
  float denseFraction = 0.01f;  // of the scene extent, between clone and split
  float pruneOpacity = 0.005f;
  float positionRateStart = 0.00016f;  // times the scene extent
  float positionRateEnd = 0.0000016f;

  float opacityRate = 0.05f;
  float scaleRate = 0.005f;
  float rotationRate = 0.001f;
  float shDcRate = 0.0025f;
  float shRestDivisor = 20.0f;

  bool evalMode = kTrainingDefaults.evalMode;
  int32_t testEvery = kTrainingDefaults.testEvery;
  bool exportPly = kTrainingDefaults.exportPLY;
  bool exportSplat = kTrainingDefaults.exportSplat;
  bool resume = kTrainingDefaults.continueFromCheckpoint;  // continue from output.checkpoint
  bool liveView = false;                                   // leave room for a viewer's copy of the splats
  // Seconds of training between two checkpoints; 0 = only one at the end.
  double checkpointSeconds = 300;
};

// "Vanilla" or "MCMC".
const char* techniqueWord(Technique technique);

enum class TrainState : int32_t {
  Idle = 0,
  Loading = 1,
  Training = 2,
  Evaluating = 4,
  Exporting = 5,
  Done = 6,
  Failed = 7,
  Stopped = 8,  // stopped early and exported, or cancelled (then without a result)
};

// "Idle", "Loading", ... as in the run log.
const char* trainStateName(TrainState state);

// A snapshot of the running or last job.
struct TrainStatus {
  TrainState state = TrainState::Idle;
  int32_t step = 0;
  int32_t iterations = 0;
  uint64_t splats = 0;
  float loss = std::numeric_limits<float>::quiet_NaN();  // moving average, NaN while unknown
  double msPerStep = 0;
  double secondsLeft = std::numeric_limits<double>::quiet_NaN();  // of training, NaN while unknown
  std::string text;                                               // the current activity, or why the job failed
  Outcome outcome = Outcome::Success;                             // of a job that has ended
};

struct EvalResult {
  float psnr = 0;  // dB, mean over views of each view's PSNR
  float ssim = 0;
  float l1 = 0;
  uint32_t views = 0;
};

// The outcome of a run; paths only of files that were written.
struct TrainResult {
  uint64_t splats = 0;
  int32_t steps = 0;     // the step reached
  double seconds = 0;    // of training
  bool stopped = false;  // stopped early
  std::optional<std::filesystem::path> ply;
  std::optional<std::filesystem::path> splat;
  std::optional<std::filesystem::path> checkpoint;
  EvalResult evaluation;  // views = 0 when nothing was held out
};

}  // namespace quor::gs
