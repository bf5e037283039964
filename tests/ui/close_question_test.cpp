#include "ui/close_question.h"

#include <imgui.h>

#include "ui/workspace_fixture.h"

namespace quor::ui {
namespace {

class CloseQuestionTest : public test::WorkspaceTest {
 protected:
  CloseQuestionTest() {
    ImGui::CreateContext();
    ImGui::GetIO().IniFilename = nullptr;
    ImGui::GetIO().DisplaySize = {800, 600};
    ImGui::GetIO().Fonts->Build();
  }
  ~CloseQuestionTest() override { ImGui::DestroyContext(); }

  void draw() {
    ImGui::NewFrame();
    question_.draw();
    ImGui::Render();
  }
  // Until COLMAP has begun with something that does not end by itself.
  void solve() {
    const Project project = Project::create({{toUtf8(photos("p", 3)), InputKind::Images}}, {});
    colmap_.on("feature_extractor", "exec sleep 1000\n");
    open({project.root});
    until([&] { return workspace_->run().buildButton().enabled; });
    workspace_->run().build();
    until([&] { return !colmap_.calls().empty(); });
  }

  BatchForm batch_{{log_, trainer_, {}, {}, {}, {}}};
  CloseQuestion question_{*workspace_, batch_};
};

TEST_F(CloseQuestionTest, ClosesAtOnceWhenNothingRunsAndAsksOtherwise) {
  draw();
  EXPECT_FALSE(question_.closed());
  solve();
  question_.ask();
  draw();
  draw();
  EXPECT_FALSE(question_.closed());
  workspace_->run().cancel();
  finishRun();
  draw();
  EXPECT_FALSE(question_.closed());  // the run has ended meanwhile, and nobody has answered
  question_.ask();
  draw();
  EXPECT_TRUE(question_.closed());
}

TEST_F(CloseQuestionTest, TheSystemsRequestEndsACameraSolveSoon) {
  solve();
  question_.interrupt();
  until([&] {
    draw();
    return question_.closed();
  });
  EXPECT_EQ(row(Stage::Sparse).text, "Cancelled");
}

}  // namespace
}  // namespace quor::ui
