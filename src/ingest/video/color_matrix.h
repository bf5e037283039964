// JPEG files are read as BT.601 whatever their picture was made with, and video is BT.709 as a rule.
#pragma once

struct AVFrame;

namespace quor {

// Turns a writable YUVJ420P picture that says that its matrix is another one into BT.601. The luma correction of a
// pixel uses its nearest chroma sample.
void convertToJpegMatrix(AVFrame& frame);

}  // namespace quor
