// What a front end that speaks JSON says about a finished training run.
#pragma once

#include <string>

#include "gs/train/train_job.h"
#include "project/project.h"

namespace quor {

// One line, without a line feed.
std::string resultDocument(const Project& project, const gs::TrainResult& result);

}  // namespace quor
