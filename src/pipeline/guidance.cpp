#include "pipeline/guidance.h"

namespace quor {

const std::string& guidanceText() {
  static const std::string text = R"(Ombrelux: from photographs to a 3D Gaussian splat scene

WHAT IT DOES
Ombrelux turns pictures of one place or object, taken from many sides, into a
scene.ply that can be looked at from any side. Three stages lead there:
  1. frames   pictures are collected, or cut from video, and blurred ones dropped
  2. cameras  COLMAP works out where each picture was taken from
  3. train    splats are fitted on the GPU until they look like the pictures
Nothing is uploaded. A project folder keeps everything: project.json (inputs and
settings), output/scene.ply, output/checkpoint.quor and output/training.log.

IN THIS VERSION only the third stage runs by itself. Solve the cameras with COLMAP
first, so that one folder holds images/ and sparse/0, and undistort it (COLMAP's
image_undistorter) when its cameras are not SIMPLE_PINHOLE, PINHOLE, SIMPLE_RADIAL,
RADIAL or OPENCV. Then:
  OmbreluxCLI import FOLDER --json             a new project, trained
  OmbreluxCLI train PROJECT --resume --iterations 30000 --json      go on with it
  OmbreluxCLI help                             every command and option

TAKING THE PICTURES
The cameras can be solved only where neighbouring pictures show the same details,
and a splat is only as sharp as the pictures that show it.
- Overlap: 60-80 % between neighbours. Every spot should be in at least three
  pictures, better five, taken from different places.
- Move, do not turn. Turning on the spot gives no depth; take a step between
  pictures. Keep the steps small near things: about 10 degrees around an object.
- Object: two or three full circles at different heights, the last looking down at
  about 45 degrees, and close the circle where it began. 60-150 pictures.
- Room: walk along the walls looking across the room, then the middle; go through
  doors slowly, with pictures before, in and after the frame. 150-400 pictures.
- House or garden: circles at two heights, then closer passes. 200-500 pictures.
- More pictures of the same view add time, not quality. Missing sides cannot be
  made up later: what no picture shows will be fog.

LIGHT AND CAMERA
- Lock exposure, white balance and focus, and keep one lens and one zoom; pictures
  whose brightness changes leave floating haze. No flash: its shadows move.
- Even light is best: an overcast sky, or all lamps on. Be quick outdoors, for
  shadows wander.
- No motion blur: 1/200 s or faster by hand, more light before a higher ISO, and
  stand still for each picture. Stop down (f/5.6-f/11) so that all is sharp.
- Keep still what is in view: people, leaves in wind, screens, your own shadow.
- Glass, mirrors, water, chrome and bare white walls give the solver nothing to
  hold. Lay something with a pattern near them and keep it in view.
- Keep the full resolution; do not crop, straighten or filter pictures.

VIDEO
Walk slowly, at half of normal pace, in 4K, with a fast shutter, stabilisation off
if it crops or warps. About 2-3 frames a second are enough; 200-300 frames make a
good room. A long pan is of no use, a walk is.

360 CAMERAS
Hold the camera above your head on a thin stick, so that you cover little of the
view, and walk the room in loops at two heights. Stay a metre from walls. Flat views
are cut from every sphere; hide the part below that shows you and the stick. With
dual-fisheye clips the outer rim is the weakest part: trim it.

DRONES
Fly two circles at different heights with the camera tilted 30-60 degrees down, then
a grid with 75 % overlap; straight-down pictures alone leave walls empty. Fix the
exposure. Keep rotor blades and, with a fisheye lens, the rim of the aircraft out of
the frame or crop it.

READING THE CAMERA SOLVE
- Registered images: 95 % or more is good. Below 80 % parts of the scene will be
  missing; below half, take more pictures in between.
- Several models (sparse/0, sparse/1, ...) mean that the set fell apart: a link of
  overlapping pictures is missing. Only one model is trained.
- Mean reprojection error: below 1 pixel is good, above 2 means blur, a wrong camera
  model or things that moved.
- Sparse points: some thousands at least; a few hundred make a poor start.

TRAINING AND ITS NUMBERS
- Start with a quick look (--resolution 800 --iterations 3000), then train for the
  final result at 1600 or the images' own size with 15000-30000 iterations.
- vanilla grows splats where detail is missing. mcmc keeps to a budget (--budget):
  choose it when the file size matters.
- Every eighth picture is held out and never trained on; PSNR and SSIM say how well
  the scene predicts those. PSNR above 27 dB is good, above 30 very good, below 22
  look at the pictures and the solve before training longer. SSIM runs up to 1.
- Fog near the cameras: uneven exposure or too few pictures there. Soft everywhere:
  blur, or too low a resolution. Double edges: a bad camera solve.
- Out of GPU memory: lower --resolution or --budget.

FOR ASSISTANTS
- Ask what is to be captured, with which camera, and whether the pictures exist
  already. If they do, judge overlap, blur and exposure before starting.
- Use --json: standard output is then one JSON object with the paths, the number of
  splats, the steps, the seconds, and psnr and ssim. Progress is on standard error.
- Exit codes: 0 done, 1 failed (one sentence says why), 2 the command line is wrong,
  130 cancelled. Pass the sentence on as it stands.
- Training takes minutes to hours. Run one at a time: it uses the whole GPU.
- An interrupt during training stops it early and still writes scene and checkpoint.
)";
  return text;
}

}  // namespace quor
