// The viewport's content and eye: the scene of a file or of the running training, the sparse points, the
// photographs' cameras, and the comparison of a photograph with its render. The drawing is the SceneRenderer's, on its
// own thread; files are read in the background. The interface's thread only.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/image/image.h"
#include "base/log/log_store.h"
#include "ui/models/background.h"
#include "ui/models/project/workspace.h"
#include "ui/models/view/orbit_camera.h"
#include "ui/models/view/view_content.h"
#include "ui/viewport/scene_renderer.h"

namespace quor::ui {

enum class Compare { Off, SideBySide, Wipe };

class Viewport {
 public:
  Viewport(SceneRenderer& renderer, LogStore& log);

  // Loads the files that changed; the eye stays where it is as long as the dataset is the same.
  void setSource(const ViewSource& source);
  // Follows the running training instead of the source's scene.
  void setLive(bool live);
  void update();  // once a frame

  // The user's choices; panels write to them directly.
  Shown shown = Shown::Splats;
  int shDegree = 3;
  float splatScale = 1;
  std::array<float, 3> background = {0, 0, 0};
  bool showCameras = false;
  Compare compare = Compare::Off;
  float wipe = 0.5f;  // share of the width that shows the photograph

  // Moving the eye leaves the photograph.
  OrbitCamera& move();
  const OrbitCamera& eye() const { return eye_; }
  void reset();

  const CameraSet* cameras() const { return cameras_.get(); }
  bool anythingToShow() const;
  // Looks from where a photograph was taken.
  void lookFrom(size_t photo);
  void leavePhoto();
  std::optional<size_t> photo() const { return photo_; }
  // Of the same view as the render, without lens distortion; null while it is being read, or cannot be.
  const Image* photograph() const { return photograph_ ? &*photograph_ : nullptr; }
  // Rises when photograph() has become another.
  uint64_t photographVersion() const { return photographVersion_; }

  // The camera of a picture of at most that many pixels: of the photograph's shape while it is looked from.
  gs::Camera camera(int width, int height) const;
  // Has the picture for that much room drawn.
  void draw(int width, int height);

  bool loading() const { return background_.busy(); }
  const std::string& loadingText() const { return background_.text(); }
  // Why a file could not be read last, a sentence; empty when all could.
  const std::string& problem() const { return problem_; }

 private:
  using Clock = std::chrono::steady_clock;

  void loadDataset(const std::filesystem::path& dataset);
  void loadScene(const std::filesystem::path& file);
  void loadPhotograph();
  void placeEye(const gs::GaussianSet* scene);
  bool moving() const;

  SceneRenderer& renderer_;
  LogStore& log_;
  ViewSource source_;
  bool live_ = false;
  std::shared_ptr<const CameraSet> cameras_;
  bool haveScene_ = false;
  Ball sceneBall_;
  bool eyePlaced_ = false;
  OrbitCamera eye_;
  Clock::time_point lastMove_;
  std::optional<size_t> photo_;
  std::optional<Image> photograph_;
  gs::Camera photographCamera_;
  uint64_t photographVersion_ = 0;
  std::optional<RenderRequest> asked_;
  std::string problem_;
  Background background_;  // last: its work is over before the rest goes
};

// The picture's edges of a camera at `size` world units deep: its centre, then four corners, in pixels of `view`;
// nothing for one that is behind the eye.
std::optional<std::array<std::array<double, 2>, 5>> frustumOnScreen(const gs::Camera& camera, double size,
                                                                    const gs::Camera& view);

}  // namespace quor::ui
