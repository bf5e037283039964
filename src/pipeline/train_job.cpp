#include "base/files/paths.h"
#include "pipeline/pipeline.h"

namespace quor {

gs::TrainJob makeTrainJob(const Project& project) {
  const TrainingSettings& settings = project.training;
  gs::TrainJob job;
  job.dataset = project.externalDataset.empty() ? project.solvedFolder() : fromUtf8(project.externalDataset);
  job.output = {project.outputFolder(),   project.sceneFile(),   project.sceneSplatFile(),
                project.checkpointFile(), project.trainingLog(), project.evaluationFolder()};
  job.resolution = settings.trainingResolution;
  job.technique = settings.technique;
  job.iterations = settings.iterations;
  job.shDegree = settings.shDegree;
  job.downscaleLevels = settings.numDownscales;
  job.ssimWeight = settings.ssimWeight;
  job.refineEvery = settings.refineEvery;
  job.splatBudget = settings.splatBudget;
  job.background = settings.background;
  job.evalMode = settings.evalMode;
  job.testEvery = settings.testEvery;
  job.exportPly = settings.exportPLY;
  job.exportSplat = settings.exportSplat;
  job.resume = settings.continueFromCheckpoint;
  job.liveView = settings.visualizerEnabled;
  return job;
}

}  // namespace quor
