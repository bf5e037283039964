#!/bin/sh
# NSIS, told to make a 64-bit installer as the programs are; CPack has no way to pass an argument that holds a blank.
exec makensis '-XTarget amd64-unicode' "$@"
