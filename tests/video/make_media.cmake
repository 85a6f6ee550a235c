# Makes the test inputs of the media source from ffmpeg's generated sources (lavfi): small clips
# in every container and codec the source claims, plus inputs that are wrong on purpose. Run as
#   cmake -DFFMPEG=<ffmpeg> -DOUT=<dir> -P make_media.cmake
# Nothing here is committed; the build tree holds the results.
file(MAKE_DIRECTORY ${OUT})

function(ffmpeg output)
    execute_process(COMMAND ${FFMPEG} -nostdin -hide_banner -loglevel error -y ${ARGN} ${OUT}/${output}
                    RESULT_VARIABLE result ERROR_VARIABLE error)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "ffmpeg could not make ${output}: ${error}")
    endif()
endfunction()

# Two seconds of a moving test card at 25 frames per second: 50 frames, a key frame every 25.
set(card -f lavfi -i testsrc2=size=176x144:rate=25:duration=2)
set(tone -f lavfi -i sine=frequency=440:sample_rate=8000:duration=2)
set(x264 -c:v libx264 -preset ultrafast -g 25 -keyint_min 25 -sc_threshold 0 -pix_fmt yuv420p)

# H.264 with B-frames and AAC audio in MP4; PCM audio in MKV; HEVC in MKV.
ffmpeg(h264_aac.mp4 ${card} -f lavfi -i sine=frequency=440:sample_rate=48000:duration=2
       ${x264} -bf 2 -c:a aac -b:a 64k -shortest)
ffmpeg(h264_pcm.mkv ${card} ${tone} ${x264} -bf 2 -c:a pcm_s16le -shortest)
ffmpeg(hevc.mkv ${card} -c:v libx265 -preset ultrafast -x265-params log-level=none:keyint=25:min-keyint=25:scenecut=0:bframes=2
       -pix_fmt yuv420p)
# MJPEG with G.711 A-law audio in AVI; MPEG-4 part 2 with B-frames and mu-law audio in AVI.
ffmpeg(mjpeg_alaw.avi ${card} ${tone} -c:v mjpeg -q:v 5 -pix_fmt yuvj420p -c:a pcm_alaw -shortest)
ffmpeg(mpeg4_mulaw.avi ${card} ${tone} -c:v mpeg4 -g 25 -bf 2 -q:v 5 -c:a pcm_mulaw -shortest)
# H.264 with MPEG audio in MPEG-TS (Annex B with the parameter sets in band).
ffmpeg(h264_mp2.ts ${card} ${tone} ${x264} -bf 0 -c:a mp2 -ar 16000 -b:a 64k -shortest)
# Raw streams: H.264 (Annex B) and MJPEG.
ffmpeg(baseline.h264 ${card} ${x264} -profile:v baseline -f h264)
ffmpeg(card.mjpeg ${card} -c:v mjpeg -q:v 5 -pix_fmt yuvj420p -f mjpeg)

# A picture size change mid-way: two raw H.264 streams one after the other.
ffmpeg(part1.h264 -f lavfi -i testsrc2=size=176x144:rate=25:duration=1 ${x264} -f h264)
ffmpeg(part2.h264 -f lavfi -i testsrc2=size=320x240:rate=25:duration=1 ${x264} -f h264)
ffmpeg(size_change.h264 -i concat:${OUT}/part1.h264|${OUT}/part2.h264 -c copy -f h264)

# Wrong on purpose: audio only; a codec the source does not pass. (Cut and damaged files are
# made by the tests from these, at positions they choose.)
ffmpeg(tone.wav ${tone})
ffmpeg(ffv1.mkv ${card} -c:v ffv1)
# The first clip again with its index first, so that a copy cut short still describes its data.
ffmpeg(h264_faststart.mp4 -i ${OUT}/h264_aac.mp4 -c copy -movflags +faststart)
