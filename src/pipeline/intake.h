// From what somebody names to a project: what lies at the paths, which media they hold, and the folder that their
// project belongs in. Every failure is a std::runtime_error with a whole sentence; only the advice in it is worded by
// the front end, which knows what its user can do instead.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "project/classify.h"
#include "project/project.h"

namespace quor {

// Throws "No such file or folder: PATH".
Classification classifyExisting(const std::string& path);

// A folder with a model but without the photographs is the likeliest mistake of somebody who has a reconstruction, so
// it gets advice instead of a bare no.
void refuseModelWithoutImages(const std::string& path, const char* advice);

// What a path that cannot be built from is followed by, each beginning with a blank.
struct IntakeAdvice {
  const char* forProject;
  const char* forDataset;
};

// The media at all the paths, each once. With a kind only those that can be of it, all of them of that kind; without
// one every video is opened and says itself what it is.
std::vector<InputSource> collectMedia(const std::vector<std::string>& paths, std::optional<InputKind> kind,
                                      const IntakeAdvice& advice);

// Throws when the project's folder holds the project of another capture, which is still there: two captures of the same
// name must not end in one project. `advice` ends the sentence.
void refuseAnothersProject(const Project& project, const std::string& advice);

// The project of these media, in its folder and saved. The same media again start their project over. `configure` gives
// the settings; `outDir` as in Project::create().
Project createProject(const std::vector<InputSource>& inputs, const std::filesystem::path& outDir,
                      const std::function<void(Project&)>& configure, const std::string& advice);

}  // namespace quor
