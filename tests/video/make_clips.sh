#!/usr/bin/env bash
# Makes the camera-like test clips with ffmpeg's generated sources: a fixed textured scene with
# sensor noise, empty for 2 s, then a dark figure walking across it for 4 s, then empty again.
#   make_clips.sh OUTDIR [bench]   (files that exist are kept)
# "bench" adds the longer clips the benchmarks decode.
set -euo pipefail
out=$1
mode=${2:-tests}
mkdir -p "$out"

# scene W H SECONDS FIGURE_W FIGURE_H: the filter graph of the scene at that size.
scene() {
    local w=$1 h=$2 secs=$3 fw=$4 fh=$5
    echo "color=c=0x6a7460:s=${w}x${h}:r=25:d=${secs},noise=alls=100:allf=u,gblur=sigma=$((w / 176))," \
         "drawbox=x=0:y=ih*0.62:w=iw:h=ih*0.1:c=0x9a9080:t=fill,drawbox=x=iw*0.1:y=ih*0.1:w=iw*0.25:h=ih*0.4:c=0x504840:t=fill," \
         "drawbox=x=iw*0.7:y=ih*0.05:w=iw*0.2:h=ih*0.5:c=0xb0b8c0:t=fill,drawgrid=w=iw/11:h=ih/9:t=1:c=0x40404080," \
         "noise=alls=5:allf=t+u[bg];" \
         "color=c=0x2a2420:s=${fw}x${fh}:r=25:d=${secs}[fig];" \
         "[bg][fig]overlay=x='-${fw}+(t-2)*(W+${fw})/4':y=H*0.45:enable='between(t,2,6)'"
}

make() { # make FILE ARGS...: runs ffmpeg unless the file is there
    local file=$out/$1
    shift
    [ -s "$file" ] && return 0
    ffmpeg -nostdin -hide_banner -loglevel error -y "$@" "$file.tmp.${file##*.}"
    mv "$file.tmp.${file##*.}" "$file"
}

h264_camera=(-c:v libx264 -preset veryfast -profile:v main -bf 0 -g 25 -sc_threshold 0 -pix_fmt yuv420p)

make cif.ts -f lavfi -i "$(scene 352 288 8 16 48)" "${h264_camera[@]}" -b:v 400k
make cif-bframes.ts -f lavfi -i "$(scene 352 288 2 16 48)" -c:v libx264 -preset veryfast \
    -bf 2 -g 25 -pix_fmt yuv420p -b:v 400k
make qcif.ts -f lavfi -i "$(scene 176 144 1 8 24)" "${h264_camera[@]}" -b:v 100k
make hd.ts -f lavfi -i "$(scene 1920 1080 0.4 80 240)" "${h264_camera[@]}" -b:v 4M
make qcif-hevc.ts -f lavfi -i "$(scene 176 144 0.4 8 24)" -c:v libx265 -preset veryfast \
    -x265-params log-level=error:bframes=0 -pix_fmt yuv420p -b:v 100k
make cif-mjpeg.avi -f lavfi -i "$(scene 352 288 1 16 48)" -c:v mjpeg -q:v 4 -pix_fmt yuvj420p
make cif-mjpeg422.avi -f lavfi -i "$(scene 352 288 1 16 48)" -c:v mjpeg -q:v 4 -pix_fmt yuvj422p
# H.264 as a file muxer stores it: parameter sets only in the set-up data, lengths not start codes.
make qcif-avcc.mkv -f lavfi -i "$(scene 176 144 1 8 24)" "${h264_camera[@]}" -b:v 100k
make small-mpeg4.avi -f lavfi -i "$(scene 174 98 1 8 24)" -c:v mpeg4 -q:v 4 -pix_fmt yuv420p

if [ "$mode" = bench ]; then
    make bench-cif.ts -f lavfi -i "$(scene 352 288 16 16 48)" "${h264_camera[@]}" -b:v 400k
    make bench-hd.ts -f lavfi -i "$(scene 1920 1080 4 80 240)" "${h264_camera[@]}" -b:v 4M
fi
