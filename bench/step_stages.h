// What each stage of a step has to do at the least, from the numbers of the scene alone: bytes that must move when
// every value that a stage needs is read once and every one it makes is written once, and multiply-adds. The arithmetic
// of the blending is a count of the instructions in the inner loops; that three of ten evaluated pairs contribute is
// the usual figure of trained scenes.
#pragma once

#include <cstdint>
#include <cstring>

namespace quor::bench {

struct StepSize {
  double splats = 0, visible = 0, instances = 0, pixels = 0, pairs = 0;  // pairs of pixel and splat evaluated
  int degree = 0;
};

struct StageWork {
  double bytes = 0, multiplyAdds = 0;
};

inline StageWork stageWork(const char* stage, const StepSize& s) {
  const auto is = [&](const char* name) { return std::strcmp(stage, name) == 0; };
  const double rest = 12.0 * ((s.degree + 1) * (s.degree + 1) - 1);  // of SH above degree 0, a splat
  const double perSplat = 4.0 * (s.degree > 0 ? 59 : 14), keyPasses = 4, tilePasses = 2;
  if (is("photograph")) return {6.0 * s.pixels, 0};
  if (is("projection")) return {68.0 * s.splats + (68 + rest) * s.visible, 200.0 * s.visible};
  // Each pass of eight bits reads the keys twice and the values once, and writes both.
  if (is("depth sort")) return {16.0 * s.splats + 20.0 * keyPasses * s.splats, 0};
  if (is("tile lists")) return {2 * (8.0 * s.splats + 32.0 * s.visible) + 4.0 * s.instances, 60.0 * s.instances};
  if (is("tile sort")) return {20.0 * tilePasses * s.instances, 0};
  if (is("forward")) return {40.0 * s.instances + 24.0 * s.pixels, 18.0 * s.pairs};
  // Rendered image and photograph read, gradients written; seven planes blurred along both axes.
  if (is("loss")) return {12.0 * s.pixels + 3.0 * s.pixels + 16.0 * s.pixels, 3 * 190.0 * s.pixels};
  if (is("backward")) return {76.0 * s.instances + 24.0 * s.pixels, (18 + 0.3 * 57) * s.pairs};
  if (is("projection backward")) return {(perSplat + 60) * s.splats + (84 + rest) * s.visible, 400.0 * s.visible};
  if (is("optimiser")) return {7 * perSplat * s.splats + 56.0 * s.splats, 12 * perSplat / 4 * s.splats};
  return {};
}

}  // namespace quor::bench
