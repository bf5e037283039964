// From the paths that a user names to a project: what lies there, which media it holds, and the folder that their
// project belongs in. Every failure is a std::runtime_error with a whole sentence; the front end words the advice in
// it, because it knows what its user can do instead.
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

// The advice that follows a path which cannot be built from; each begins with a blank.
struct IntakeAdvice {
  const char* forProject;
  const char* forDataset;
};

// The media at all the paths, each once. With a kind, only media that can be of it, all taken as that kind; without
// one, every video is opened to find its kind.
std::vector<InputSource> collectMedia(const std::vector<std::string>& paths, std::optional<InputKind> kind,
                                      const IntakeAdvice& advice);

// Throws when the project's folder holds the project of another capture that still exists: two captures of the same
// name must not end in one project. `advice` ends the sentence.
void refuseAnothersProject(const Project& project, const std::string& advice);

// Makes the project's folders and saves its record before a run. Throws when another run holds the folder.
void saveBeforeRun(const Project& project);

// The project of these media, in its folder and saved. The same media again start their project over. `configure` gives
// the settings; `outDir` as in Project::create().
Project createProject(const std::vector<InputSource>& inputs, const std::filesystem::path& outDir,
                      const std::function<void(Project&)>& configure, const std::string& advice);

}  // namespace quor
