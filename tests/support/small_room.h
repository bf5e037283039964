// A made-up room with its true cameras as a dataset in memory, small enough to train on within seconds.
#pragma once

#include "gs/data/dataset.h"
#include "gs/train/schedule.h"
#include "sample_capture/capture.h"
#include "sample_capture/scene.h"

namespace quor::test {

// 20 views of 96 x 64 pixels, four of them held out. Rendered once for all tests of the program.
inline const gs::Dataset& smallRoom() {
  static const gs::Dataset dataset = [] {
    const sample::Scene scene(1);
    const auto poses = sample::orbitViews({20, {96, 64}, 1});
    gs::Dataset d;
    std::vector<gs::Camera> cameras;
    for (size_t i = 0; i < poses.size(); ++i) {
      gs::View view;
      view.name = sample::photoName(i);
      view.camera = {poses[i].width, poses[i].height, poses[i].fx,       poses[i].fy,
                     poses[i].cx,    poses[i].cy,     poses[i].rotation, poses[i].translation};
      view.image = gs::StoredImage(sample::renderView(scene, poses[i]));
      cameras.push_back(view.camera);
      (i % 5 == 2 ? d.heldOut : d.training).push_back(std::move(view));
    }
    d.points = sample::trueModel(scene, poses, 1500, 1).model.points;
    d.geometry = gs::sceneGeometry(cameras);
    return d;
  }();
  return dataset;
}

inline gs::TrainJob quickJob(gs::Technique technique, int iterations) {
  gs::TrainJob job;
  job.technique = technique;
  job.iterations = iterations;
  job.downscaleLevels = 1;
  job.shDegreeInterval = 100;
  job.densifyFrom = 100;
  job.densifyGradient = 0.0004f;
  job.mcmcTarget = 2500;
  return gs::resolved(job);
}

}  // namespace quor::test
