#!/usr/bin/env bash
# Writes seed inputs for zor_video_fuzz from the test clips: one codec byte, then the clip's
# elementary stream as a camera sends it.   make_seeds.sh CLIPDIR OUTDIR
set -euo pipefail
clips=$1
out=$2
mkdir -p "$out"
seed() { # seed NAME CODEC_BYTE CLIP FORMAT [ffmpeg options]
    local name=$1 byte=$2 clip=$3 format=$4
    shift 4
    { printf "\\x$byte"; ffmpeg -nostdin -v error -i "$clips/$clip" -frames:v 12 -c:v copy "$@" -f "$format" -; } > "$out/$name"
}
seed h264 00 qcif.ts h264
seed h264-grey 06 qcif.ts h264
seed hevc 01 qcif-hevc.ts hevc
seed mjpeg 02 cif-mjpeg.avi mjpeg
seed mpeg4 03 small-mpeg4.avi m4v
