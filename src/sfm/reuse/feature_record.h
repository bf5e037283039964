// What is still right of an earlier solve's features and matches. They stay in the project's database.db; beside it,
// features.json records the content of every frame and the options that its features were extracted and matched with.
// A solve begins by removing what the record does not vouch for, so that only what has changed is computed again.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "sfm/solve_context.h"

namespace quor {

class FeatureRecord {
 public:
  // Reads every frame of the groups, to know its content. Reads nothing of an earlier solve.
  FeatureRecord(const SolveContext& solve, const std::vector<ImageGroup>& groups);

  // Leaves in the database what still holds: features of unchanged frames, and the matches between these where they
  // would be matched in the same way. Removes the database when nothing does, or when it cannot be read. Forgets the
  // earlier record, so that whatever ends this solve early, the database of the next is not trusted too far.
  void keepWhatHolds();

  // Vouches for the database as it is now: for the features, and for the matches too once there are any.
  void saveFeatures() const { save(""); }
  void saveMatches(MatchedBy how) const;

 private:
  void save(const std::string& matching) const;
  std::string matchingOptions(MatchedBy how) const;
  std::map<std::string, std::string> sameFrames(const std::map<std::string, std::string>& earlier) const;
  bool keepFrames(const std::map<std::string, std::string>& earlier, const std::string& matching) const;

  const SolveContext& solve_;
  const std::vector<ImageGroup>& groups_;
  std::map<std::string, std::string> frames_;  // content and options, by name
};

}  // namespace quor
