#include "pipeline/guidance.h"

namespace quor {

namespace {

constexpr const char* kIntroduction = R"(Ombrelux: from photographs and video to a 3D Gaussian splat scene

WHAT IT DOES
Ombrelux turns pictures of one place or object, taken from many sides, into a
scene.ply that can be looked at from any side. Three stages lead there:
  1. frames   photos are collected, video is sampled, blurred frames are dropped
  2. sparse   COLMAP works out where each picture was taken from
  3. train    splats are fitted on the GPU until they look like the pictures
Everything happens on this computer; nothing is uploaded. The project folder, named
after the media plus _ombrelux, keeps it all: project.json (inputs and settings),
output/scene.ply, output/checkpoint.quor, output/training.log, and in output/eval/
the held-out pictures beside their renders.

FOR ASSISTANTS
- Ask what is to be captured, with which camera, and whether the pictures exist
  already. If not, give advice first: a poor capture cannot be mended later.
- One build at a time; it takes minutes to hours. With the tools, ombrelux_run,
  ombrelux_import, ombrelux_train and ombrelux_batch answer at once with a job id:
  ask ombrelux_job_status every 10 to 60 seconds until the state is finished or
  failed, then ombrelux_job_result. Jobs end with the server: when it is closed
  during training, scene and checkpoint are written first, and ombrelux_train with
  resume goes on from there.
- On the command line: `run MEDIA`, `import DATASET`, `train PROJECT --resume`, `batch
  FILE`; `help` lists all. With --json standard output is one JSON object. A setting
  such as trim_edges is the option --trim-edges there.
- Paths are those of this computer; give absolute ones.
- Failures come as one sentence that says what to do; pass it on as it stands.
- Start with a quick look (resolution 800, iterations 3000). When the cameras and the
  held-out score are good, train for the final result: resolution 1600 or the
  pictures' own, 15000 to 30000 iterations.
- After a build tell the user the path of scene.ply, the share of pictures that were
  registered, the held-out PSNR, and what would make it better.
)";

constexpr const char* kAdvice = R"(TAKING THE PICTURES
The cameras can be solved only where neighbouring pictures show the same details,
and a splat is only as sharp as the pictures that show it.
- Overlap: 60 to 80 % between neighbours. Every spot should be in at least three
  pictures, better five, taken from different places.
- Move, do not turn. Turning on the spot gives no depth: take a step to the side
  between pictures, small near things, about 10 degrees around an object.
- How far: near enough that what matters fills most of the picture, with some
  surroundings around it; then one closer pass for the details. Change the distance
  in steps, no more than twice nearer from one pass to the next.
- Object: two or three full circles at different heights, the last looking down at
  about 45 degrees; end each where it began. 60 to 150 pictures.
- Room: walk along the walls looking across the room, then the middle; go through
  doors slowly, with pictures before, in and after the frame. 150 to 400 pictures.
- House or garden: circles at two heights, then closer passes. 200 to 500 pictures.
- More pictures of the same view add time, not quality. Missing sides cannot be
  made up later: what no picture shows will be fog.

LIGHT AND CAMERA
- Lock exposure, white balance and focus, and keep one lens and one zoom. Pictures
  whose brightness changes leave floating haze. On a phone, hold a finger on the
  subject until the lock shows. No flash: its shadows move.
- Even light is best: an overcast sky, or all lamps on. Be quick outdoors, for
  shadows wander.
- No motion blur: 1/200 s or faster by hand; more light before a higher ISO; stand
  still for each picture. Stop down (f/5.6 to f/11) so that all is sharp.
- Keep still what is in view: people, leaves in wind, screens, your own shadow.
- Glass, mirrors, water, chrome and bare white walls give the solver nothing to
  hold. Lay something with a pattern near them and keep it in view.
- Keep the full resolution; do not crop, straighten, filter or stitch pictures.

VIDEO
Walk slowly, at half your normal pace, in 4K, with a shutter of 1/200 s or faster and
stabilisation off if it crops or warps. A long pan is of no use; a walk is. 200 to 300
frames make a good room (setting: frames); blurred ones are dropped by themselves.

360 CAMERAS
Hold the camera above your head on a thin stick, so that you cover little of the
view, and walk loops at two heights, a metre or more from the walls. Stitched
360-degree video is cut into flat views. Unstitched dual-fisheye video (.insv) keeps
both lenses as they are, which gives sharper pictures:
- fisheye_fov: the angle of one lens, 190 degrees when nothing else is known.
- hide_below: ignores what lies that many degrees below the horizon when cameras are
  solved; 45 to 60 hides the stick and most of the operator.
- trim_edges: ignores the rim of each lens, where pictures are soft: 0.03 to 0.05.
- crop_edges, crop_bottom: cut the frames that are trained on, for what must not
  appear in the scene at all. Start without; each cut costs overlap.

DRONES
Fly two circles at different heights with the camera tilted 30 to 60 degrees down,
then a grid with 75 % overlap; straight-down pictures alone leave walls empty. Fix
exposure and white balance, and fly when shadows are short or the sky is overcast.
- Fisheye and 360 cameras in the air show rotors, arms or landing gear at the rim of
  the lens. They move with the camera and pull the solve apart: trim_edges 0.05 to
  0.1, and hide_below 60 when the camera sits on top of the aircraft.
- What is still seen of the aircraft in the scene goes with crop_edges 0.05 to 0.15
  or, when it is only at the lower end, crop_bottom. Then build from sparse again.
- Land, people and water that move are best kept out of the circles.

READING THE CAMERA SOLVE
- Registered images: 95 % or more is good. Below 80 % parts of the scene will be
  missing; below half, take more pictures in between.
- Several models mean that the set fell apart: a link of overlapping pictures is
  missing. Only the largest is trained. The exhaustive matcher may join them.
- Mean reprojection error: 0.3 to 1 pixel is good; above 2 means blur, a camera model
  that does not fit, or things that moved.
- Sparse points: fewer than 30 for each picture make a poor start: more texture,
  more light, larger frames.

READING THE TRAINING
- Every eighth picture is held out and never trained on; PSNR and SSIM say how well
  the scene predicts those. PSNR above 27 dB is good, above 30 very good; below 22
  look at the pictures and the solve before training longer. SSIM runs up to 1; 0.9
  is good. They compare runs of one capture, not captures with each other.
- Fog near the cameras: uneven exposure or too few pictures there. Soft everywhere:
  blur, or too low a resolution. Double edges: a bad camera solve.
- vanilla grows splats where detail is missing. mcmc keeps to a budget: choose it
  when the size of the file or of the GPU's memory matters.
- Out of GPU memory: lower resolution or budget.
)";

}  // namespace

const std::string& guidanceText() {
  static const std::string text = std::string(kIntroduction) + "\n" + kAdvice;
  return text;
}

const std::string& captureAdviceText() {
  static const std::string text = kAdvice;
  return text;
}

}  // namespace quor
