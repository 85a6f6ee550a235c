// CMediaDemuxer: one media input, a file or a network stream, read through libavformat into
// compressed packets with everything a recorder's source states about them:
//  - timestamps in microseconds from the start of the input (the container's presentation and
//    decoding times; a looping input keeps counting up), each with a validity flag;
//  - the frame type of each video packet (I, P, B) read from the coded picture itself, and
//    whether it starts a coded sequence (key frame);
//  - a shared video format (FOURCC, size, codec set-up data) whose generation changes when the
//    stream's parameters change mid-way;
//  - H.264 and HEVC as Annex B with the parameter sets in band before each key frame.
// Video packets before the first key frame (of the input, or after a seek) cannot be decoded
// and are skipped, as a camera stream is joined at a key frame.
//
// Threads: Open, Read, Seek and the accessors belong to one thread at a time (a reader thread
// for network inputs); Abort may be called from any thread. Packets and formats handed out are
// self-contained and may move to another thread.
//
// Failures are answers, never exceptions: Open and Read say what went wrong in Error() as a
// short reason ("cannot open (No such file or directory)", "no video stream"); things worth a
// line that do not stop the input (damaged data skipped, a size change) are queued as notes.
#pragma once

#include "video/AnnexB.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

struct AVCodecContext;
struct AVCodecParserContext;
struct AVFormatContext;
struct AVPacket;
struct AVStream;

enum class EMediaKind { Video, Audio };

struct SMediaVideoFormat {
    int m_Generation = 0;       // 1 for the input's first format, one more at every change
    std::uint32_t m_FourCC = 0; // the compression FOURCC ('H264', 'MJPG' ...)
    int m_Width = 0;
    int m_Height = 0;
    // The decoder's set-up data: for H.264 and HEVC the parameter sets in Annex B form.
    std::vector<std::uint8_t> m_ExtraData;
};

// What one of the system's audio packets holds: data bytes, and extra bytes in its format
// record. Audio that does not fit is left out with a note.
constexpr int kMediaAudioPacketBytes = 1440;
constexpr int kMediaAudioSetUpBytes = 32;

struct SMediaAudioFormat {
    std::uint16_t m_Tag = 0; // WAVEFORMATEX format tag
    int m_Channels = 0;
    int m_Rate = 0;
    int m_Bits = 0;
    int m_BlockAlign = 0;
    int m_AvgBytes = 0;
    std::vector<std::uint8_t> m_Extra;
    // Samples (PCM, G.711) may be cut at any block; other codings travel a frame per packet.
    bool m_Samples = false;
    // 16-bit big-endian samples, turned little-endian on the way out.
    bool m_SwapBytes = false;
};

// One compressed packet. Move-only; owns its libavformat packet.
struct SMediaPacket {
    SMediaPacket();
    ~SMediaPacket();
    SMediaPacket(SMediaPacket&& other) noexcept;
    SMediaPacket& operator=(SMediaPacket&& other) noexcept;
    SMediaPacket(const SMediaPacket&) = delete;
    SMediaPacket& operator=(const SMediaPacket&) = delete;

    const std::uint8_t* Data() const;
    std::size_t Size() const;
    // Bytes the payload takes in the form it is delivered (see WritePayload).
    std::size_t PayloadSize() const;
    // Writes the payload as delivered: H.264 and HEVC in Annex B form, with the format's
    // parameter sets before a key frame that does not carry its own. Answers the bytes written
    // (at most PayloadSize()), 0 for a malformed unit.
    std::size_t WritePayload(std::uint8_t* out) const;

    AVPacket* m_pPacket = nullptr;
    EMediaKind m_Kind = EMediaKind::Video;
    int m_StreamIndex = 0;
    // Presentation and decoding time (µs from the input's start); the decoding time is the
    // presentation time when the input gives none.
    bool m_PtsValid = false;
    std::int64_t m_PtsUs = 0;
    std::int64_t m_DtsUs = 0;
    std::int64_t m_DurationUs = 0;
    int m_FrameType = kNalFrameI;
    bool m_Key = false;
    std::shared_ptr<const SMediaVideoFormat> m_pVideoFormat;
    // Video: NAL length prefix size to convert (0: copy as it is).
    int m_NalLengthSize = 0;
    bool m_AddParameterSets = false;
};

struct SMediaOpenOptions {
    // Forces an input format ("h264", "mjpeg", "mpegts" ...); empty: probe the input.
    std::string m_Format;
    // Options handed to libavformat as they are (rtsp_transport=tcp, framerate=10 ...).
    std::vector<std::pair<std::string, std::string>> m_Options;
    // A network input that stays silent this long fails.
    double m_TimeoutSeconds = 5.0;
    bool m_WantAudio = true;
};

class CMediaDemuxer {
public:
    enum class EResult { Packet, End, Failed };

    CMediaDemuxer();
    ~CMediaDemuxer();
    CMediaDemuxer(const CMediaDemuxer&) = delete;
    CMediaDemuxer& operator=(const CMediaDemuxer&) = delete;

    // Opens the input (once) and chooses its video stream and, when wanted, its audio stream.
    bool Open(const std::string& url, const SMediaOpenOptions& options);
    // The next packet; End at the end of a non-looping input; Failed with Error() set.
    EResult Read(SMediaPacket* packet);
    // Moves to the key frame at or before seconds from the start; answers false with Error().
    bool Seek(double seconds);
    // An input that loops starts again at its end, its timestamps counting on.
    void SetLoop(bool loop) { m_Loop = loop; }
    bool HasNotes() const { return !m_Notes.empty(); }
    // From any thread: a blocking open or read gives up as soon as it can (until called with
    // false).
    void Abort(bool abort = true) { m_Abort = abort; }

    const std::string& Error() const { return m_Error; }
    // Notes since the last call (damaged data skipped, format changes ...).
    std::vector<std::string> TakeNotes();

    // A network input: its reads may block, so it is read on a thread of its own.
    bool IsNetwork() const { return m_Network; }
    // An input without an end or positions (RTSP, RTP, UDP): no seeking, looping or pacing.
    bool IsLive() const { return m_Live; }
    // Seconds; 0 when unknown.
    double Duration() const { return m_DurationSeconds; }
    double FrameRate() const { return m_FrameRate; }
    const char* VideoCodecName() const;
    std::shared_ptr<const SMediaVideoFormat> VideoFormat() const { return m_pVideoFormat; }
    int VideoStream() const { return m_VideoStream; }
    bool HasAudio() const { return m_AudioStream >= 0; }
    int AudioStream() const { return m_AudioStream; }
    const SMediaAudioFormat& AudioFormat() const { return m_AudioFormat; }
    const char* AudioCodecName() const;
    // The file's data ended before its stated duration.
    bool IsTruncated() const { return m_Truncated; }
    // Seconds of the furthest presentation time read so far (loops included).
    double ReadPosition() const { return static_cast<double>(m_EndUs + m_LoopOffsetUs) / 1e6; }

private:
    static int InterruptCallback(void* opaque);
    void Arm(double seconds);
    void Disarm() { m_DeadlineNs = 0; }
    bool Fail(const std::string& reason, int error);
    void Note(std::string note) { m_Notes.push_back(std::move(note)); }
    bool HasWholeFramesOnly() const;
    bool ChooseVideo();
    void ChooseAudio();
    void StartFormat();
    void ResetVideoState();
    bool SeekToStart();
    bool Restart();
    // Fills the packet's timestamps from the libavformat packet.
    void Stamp(SMediaPacket* packet, const AVStream* stream);
    // Answers false when the packet is to be skipped.
    bool ProcessVideo(SMediaPacket* packet);
    // New set-up data: the parameter sets of a key frame, or set-up data the container sends
    // with a packet. A change gives a new format generation (before the first packet, a better
    // first format).
    void CheckParameterSets(const SMediaPacket& packet);
    void NewSetUp(const std::uint8_t* data, std::size_t size, const SMediaPacket& packet);
    void AdoptSetUp(const std::vector<std::uint8_t>& setUp, const SMediaPacket& packet);
    void ChangeFormat(std::vector<std::uint8_t> extraData, int width, int height, double at);
    // Runs libavcodec's parser over a whole unit: its frame type and picture size (0 unknown).
    int ParseFrame(const std::uint8_t* data, std::size_t size, int* width, int* height);
    std::string Seconds(std::int64_t us) const;

    AVFormatContext* m_pFormat = nullptr;
    AVCodecParserContext* m_pParser = nullptr;
    AVCodecContext* m_pParserCodec = nullptr;
    std::unique_ptr<CNalScanner> m_pScanner;
    std::string m_Url;
    std::string m_Error;
    std::vector<std::string> m_Notes;
    std::atomic<bool> m_Abort{false};
    std::atomic<long long> m_DeadlineNs{0};
    std::atomic<bool> m_TimedOut{false};
    double m_TimeoutSeconds = 5.0;
    bool m_Network = false;
    bool m_Live = false;
    std::atomic<bool> m_Loop{false}; // set by the owner while a reader thread reads
    bool m_Truncated = false;
    bool m_IntraOnly = false;
    int m_VideoStream = -1;
    int m_AudioStream = -1;
    double m_DurationSeconds = 0.0;
    double m_FrameRate = 0.0;
    std::shared_ptr<const SMediaVideoFormat> m_pVideoFormat;
    SMediaAudioFormat m_AudioFormat;
    std::vector<std::uint8_t> m_Scratch;
    std::vector<std::uint8_t> m_ParameterSets;
    int m_NalLengthSize = 0;
    bool m_HaveOrigin = false;
    std::int64_t m_OriginUs = 0;     // the input's first presentation time
    std::int64_t m_LoopOffsetUs = 0; // added to every time after a loop
    std::int64_t m_EndUs = 0;        // furthest presentation end read in this pass
    std::int64_t m_NextVideoUs = 0;  // where an unstamped video packet goes
    bool m_SeenKey = false;
    long m_Skipped = 0;
    long m_VideoPackets = 0;
    int m_ReadErrors = 0; // consecutive
};

// The compression FOURCC the source gives a codec (libavcodec's id), 0 for codecs it does not
// pass on; and the codec of a FOURCC, for decoders (AV_CODEC_ID_NONE when unknown).
std::uint32_t MediaFourCCOf(int codecId);
int MediaCodecOfFourCC(std::uint32_t fourCC);
// Keeps libavformat and libavcodec from printing on the process's stderr: every component
// reports its inputs' troubles itself. Set ZOR_FFMPEG_LOG=1 to see their own messages.
void MediaQuietLibraries();
