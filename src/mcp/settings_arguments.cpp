// The project settings that an assistant may overwrite, under the names of the command line's options.
#include <limits>
#include <type_traits>
#include <utility>

#include "mcp/arguments.h"

namespace quor::mcp {

namespace {

template <class Record, class Field>
std::function<void(Project&, const Json&)> overwrite(Record Project::*record, Field Record::*field) {
  return [=](Project& project, const Json& value) {
    if constexpr (std::is_integral_v<Field> && !std::is_same_v<Field, bool>) {
      // Written as 7e3 it is a whole number all the same.
      (project.*record).*field = static_cast<Field>(value.get<double>());
    } else {
      (project.*record).*field = value.get<Field>();
    }
  };
}

Argument fraction(const char* name, const char* description, double IngestSettings::*field) {
  Argument argument{name, ArgumentType::Number, description};
  argument.most = 1;
  argument.openAbove = true;
  argument.apply = overwrite(&Project::ingest, field);
  return argument;
}

template <class Record>
Argument integer(const char* name, const char* description, double least, int Record::*field, Record Project::*record,
                 double most = std::numeric_limits<int>::max()) {
  Argument argument{name, ArgumentType::Integer, description};
  argument.least = least;
  argument.most = most;
  argument.apply = overwrite(record, field);
  return argument;
}

Argument flag(const char* name, const char* description, bool TrainingSettings::*field) {
  Argument argument{name, ArgumentType::Boolean, description};
  argument.apply = overwrite(&Project::training, field);
  return argument;
}

Argument choice(const char* name, const char* description, std::vector<const char*> choices,
                const std::function<void(Project&, const std::string&)>& apply) {
  Argument argument{name, ArgumentType::Choice, description};
  argument.choices = std::move(choices);
  argument.apply = [apply](Project& project, const Json& value) { apply(project, value.get<std::string>()); };
  return argument;
}

Argument angle(const char* name, const char* description, double most, bool open, double IngestSettings::*field) {
  Argument argument{name, ArgumentType::Number, description};
  argument.most = most;
  argument.open = open;
  argument.apply = overwrite(&Project::ingest, field);
  return argument;
}

}  // namespace

Arguments frameSettings() {
  using Ingest = IngestSettings;
  return {
      integer("frames", "Frames to take from each video, before blurred ones are dropped (default 200)", 1,
              &Ingest::targetFrameCount, &Project::ingest),
      integer("max_dimension", "Longest edge of the frames in pixels (default 1920)", 1, &Ingest::maxDimension,
              &Project::ingest),
      angle("fisheye_fov", "Dual-fisheye video: one lens's diagonal angle in degrees (default 190)", 360, true,
            &Ingest::fisheyeFieldOfView),
      angle("hide_below",
            "Dual-fisheye video: ignore what lies this many degrees or more below the horizon when cameras are "
            "solved, such as the stick, the operator or the aircraft (default 0: nothing; 45 to 60 is usual)",
            90, false, &Ingest::fisheyeMaskBelow),
      fraction("trim_edges",
               "Dual-fisheye video: fraction of the lens rim to ignore when cameras are solved (default 0; 0.03 to 0.1 "
               "for a soft rim or an aircraft in it)",
               &Ingest::fisheyeEdgeMargin),
      fraction("crop_edges",
               "Dual-fisheye video: fraction cut from every side of the undistorted frames before training (default 0)",
               &Ingest::fisheyeCropEdges),
      fraction("crop_bottom",
               "Dual-fisheye video: fraction cut from the bottom of the undistorted frames before training (default 0)",
               &Ingest::fisheyeCropBottom),
  };
}

Arguments cameraSettings() {
  Argument model{
      "camera_model", ArgumentType::Text,
      "COLMAP camera model, in capitals, such as OPENCV, SIMPLE_RADIAL, PINHOLE or OPENCV_FISHEYE (chosen by "
      "the kind of media when left out)"};
  model.apply = overwrite(&Project::sparse, &SparseSettings::cameraModel);
  return {
      choice("matcher",
             "Which frames are compared: all with all, neighbours in time, or by a vocabulary tree (default: "
             "exhaustive for photographs, sequential with any video)",
             {"exhaustive", "sequential", "vocab_tree"},
             [](Project& project, const std::string& word) { parseMatcher(word, project.sparse.matcher); }),
      model,
      choice("mapper", "COLMAP's incremental mapper (the default) or the global one", {"incremental", "global"},
             [](Project& project, const std::string& word) {
               project.sparse.mapper = word == "global" ? MapperKind::Global : MapperKind::Incremental;
             }),
  };
}

Arguments trainingSettings() {
  using Training = TrainingSettings;
  Argument budget{"budget", ArgumentType::Integer,
                  "Most splats (default 0: vanilla as many as fit in GPU memory, mcmc automatic)"};
  budget.most = 1e9;
  budget.apply = overwrite(&Project::training, &Training::splatBudget);
  return {
      integer("iterations", "Training iterations (default 7000)", 1, &Training::iterations, &Project::training),
      choice("technique",
             "vanilla grows splats where detail is missing (the default), mcmc keeps to a fixed budget of splats",
             {"vanilla", "mcmc"},
             [](Project& project, const std::string& word) { parseTechnique(word, project.training.technique); }),
      budget,
      integer("resolution", "Longest edge of the training images in pixels (default 0: their own size)", 0,
              &Training::trainingResolution, &Project::training),
      integer("sh_degree", "Degree of the view-dependent colour (default 3)", 0, &Training::shDegree,
              &Project::training, 3),
      flag("export_splat", "Also write the compact output/scene.splat (default false)", &Training::exportSplat),
      flag("evaluate", "Hold out every eighth picture and score the scene on them (default true)", &Training::evalMode),
  };
}

}  // namespace quor::mcp
