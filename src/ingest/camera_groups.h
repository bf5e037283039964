// Photographs sorted by the camera that took them.
#pragma once

#include <string>
#include <vector>

#include "ingest/frame_extractor.h"
#include "ingest/photo/photo.h"

namespace quor {

class CameraGroups {
 public:
  // Pictures belong to one group when their sizes are equal and no value known of both cameras differs: maker, model,
  // focal lengths. Values missing from one picture are taken from the others of its group.
  void add(const std::string& image, ImageSize size, const PhotoInfo& info);

  // Named "photos", or "photos01" and so on when there are several, in the order of their first pictures.
  std::vector<CameraGroup> finish();

 private:
  struct Group {
    ImageSize size;
    PhotoInfo camera;
    std::vector<std::string> images;
  };
  std::vector<Group> groups_;
};

}  // namespace quor
