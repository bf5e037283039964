# cmake -DPROGRAM=... -DVERSION=... -DOUTPUT=... -P man_page.cmake: writes the manual page, with the commands and options as
# the program itself tells them.
execute_process(COMMAND ${PROGRAM} help OUTPUT_VARIABLE help COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "^.*\nUsage: [^\n]*\n" "" help "${help}")
string(REPLACE "\\" "\\e" help "${help}")
string(REPLACE "-" "\\-" help "${help}")
string(REGEX REPLACE "\n([.'])" "\n\\\\&\\1" help "${help}")
file(WRITE ${OUTPUT} ".TH OMBRELUXCLI 1 \"\" \"Ombrelux ${VERSION}\" \"User Commands\"
.SH NAME
OmbreluxCLI, Ombrelux \\- 3D Gaussian splat scenes from photographs and video
.SH SYNOPSIS
.B OmbreluxCLI
.I command
.RI [ arguments ]
.RI [ options ]
.br
.B Ombrelux
.RI [ project | scene.ply | checkpoint.quor | media ]
.SH DESCRIPTION
Turns photographs and video of a place into a 3D Gaussian splat scene: prepares the frames, has COLMAP solve where the
camera stood, and trains on any GPU that has a Vulkan driver.
.B Ombrelux
opens a window, and takes the same commands.
.SH USAGE
.nf
${help}.fi
.SH FILES
.TP
.I ~/.local/share/Ombrelux
log, preferences and crash reports
.TP
.IR NAME _ombrelux/output/scene.ply
the scene
.TP
.IR NAME _ombrelux/output/checkpoint.quor
where
.B \\-\\-resume
goes on
.SH SEE ALSO
.BR colmap (1),
.BR ffmpeg (1)
")
