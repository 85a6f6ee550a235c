// Media source: a video file or a network stream as compressed video packets on "video" (and the
// input's audio on "audio"), filled in as a recorder's camera source fills them.
//
//     local src = zor.CreatePacketSource{ url = "examples/data/pedestrians.mp4" }
//     local sink = zor.sink{ path = "video" }
//     src.speed = 0          -- as fast as downstream takes them (1: real time, 2: twice ...)
//     src.Start()
//     zor.run_until_idle()   -- the whole file, a slice at a time
//     assert(src.done and sink.count() == 300)
//
// Each video packet holds one access unit (H.264 and HEVC as Annex B, parameter sets before each
// key frame), its presentation time in ms (valid unless the input gave none) and in seconds as
// the real timestamp, the container's stream index as stream number, the frame type read from the
// coded picture, and the shared format record (size, FOURCC, the codec's set-up data after the
// header) whose sequence number changes when the stream's parameters change.
//
// Invariants:
//  - Packets leave in the input's order, one at a time. A refused packet waits as the one pending
//    packet and is offered again when downstream polls either output; nothing is dropped or
//    repeated, and nothing overtakes it.
//  - A paced run releases each packet when the framework clock reaches its decoding time
//    (divided by the speed), so a virtual clock gives a real-time run's packets without waiting.
//  - A network input is read on a thread of its own into a short queue; delivery, timers and
//    formats stay on the thread that made the source.
//  - Whatever the input does (ends, breaks, stops answering), the source reports it once with the
//    input's name and stops; it never throws, blocks past its timeout or leaks a packet.
#pragma once

#include "entry/ZorExport.h"
#include "framework/bel/WinTypes.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Module.h"
#include "framework/kor/PinComponent.h"
#include "video/MediaDemuxer.h"

#include <deque>
#include <memory>
#include <string>

class CJokCommandContext;
class CKorPacket;
class CKorVideoFormat;
class CProgressLine;
class CZorPacketSource;

// One output of the source (video or audio): the module that starts that path's chain.
class ZOR_EXPORT CZorPacketSourcePort final : public CKorModule {
public:
    // Attaches itself to the source, which from then on sends packets of that kind through it.
    CZorPacketSourcePort(CZorPacketSource* source, EMediaKind kind);
    ~CZorPacketSourcePort() override;

    // Downstream asks for more: the source offers its waiting packet, then carries on.
    void Poll() override;
    // Drops the source's waiting packets and flushes both outputs' chains.
    void Flush() override;

private:
    friend class CZorPacketSource;
    CZorPacketSource* m_pSource;
    EMediaKind m_Kind;
};

class ZOR_EXPORT CZorPacketSource : public CKorModuleBase {
public:
    // Audio data per packet at most: the framework's audio packet size.
    static constexpr long kAudioPacketBytes = kMediaAudioPacketBytes;

    CZorPacketSource();
    // Stops the reader thread and releases every packet the source still holds.
    ~CZorPacketSource() override;
    CZorPacketSource(const CZorPacketSource&) = delete;
    CZorPacketSource& operator=(const CZorPacketSource&) = delete;

    // Opens the input (once). Answers false with Error() naming the input and the reason.
    bool Open(const std::string& url, const SMediaOpenOptions& options);
    const CMediaDemuxer& Demuxer() const { return *m_pDemuxer; }
    const std::string& Url() const { return m_Url; }

    // Delivers paced by timestamps at Speed() from the next packet on; at speed 0 as fast as
    // downstream takes, a slice at a time on the message loop. Live inputs go as they arrive.
    void Start();
    // Stops delivering; Start goes on from where it stopped.
    void Stop();
    bool IsRunning() const { return m_Mode != EMode::Stopped; }
    // Delivers as fast as downstream takes, now, until it refuses, the input ends (or has no
    // packet ready, for network inputs) or maxPackets went (negative: no limit). Downstream's
    // next poll carries on. Answers how many packets went.
    long Run(long maxPackets = -1);
    // Goes to the key frame at or before seconds; the packets the source holds are dropped and
    // the outputs' chains flushed. Answers false (with a diagnostic line) when it cannot.
    bool Seek(double seconds);

    double Speed() const { return m_Speed; }
    // 0: as fast as downstream takes; otherwise a factor of real time. Negative is refused.
    bool SetSpeed(double speed);
    bool Loop() const { return m_Loop; }
    void SetLoop(bool loop);
    // No progress line (it is only ever drawn on a terminal).
    void SetQuiet(bool quiet) { m_Quiet = quiet; }
    bool IsQuiet() const { return m_Quiet; }

    // The input has ended (or failed) and every packet has gone.
    bool IsDone() const { return m_InputEnded && m_Out.empty(); }
    // Why the input stopped early ("<input>: <reason>"), or empty.
    const std::string& Error() const { return m_Error; }
    long Delivered() const { return m_Delivered; }
    // Seconds (presentation time) of the last packet delivered.
    double Position() const { return m_Position; }
    // The current video format (borrowed), once the first video packet has been made.
    const CKorVideoFormat* VideoFormat() const { return m_pVideoFormat; }

    void Poll();
    void Flush();
    void TimeOut(long now) override;
    void WindowProc(HWND window, unsigned message, unsigned wParam, long lParam) override;

private:
    friend class CZorPacketSourcePort;
    class CReader;
    enum class EMode { Stopped, Paced, Running };
    struct SOut {
        CKorPacket* m_pPacket; // one reference
        CZorPacketSourcePort* m_pPort;
        double m_Due;      // input seconds at which a paced run releases it
        double m_Position; // presentation seconds
    };
    static constexpr unsigned kPacketsReady = 0x0401;

    void Attach(CZorPacketSourcePort* port);
    void Detach(CZorPacketSourcePort* port);
    // Offers what is due; reads on while the mode asks for more. Answers the packets delivered.
    long Emit(long maxPackets);
    bool OfferHead();
    // Turns the next input packet into packets waiting to go; false when none is ready.
    bool Supply();
    // The next input packet; *waiting when a network input has none ready yet.
    CMediaDemuxer::EResult Next(SMediaPacket* packet, bool* waiting);
    void EndInput();
    void Convert(const SMediaPacket& packet);
    void ConvertVideo(const SMediaPacket& packet, CZorPacketSourcePort* port);
    void ConvertAudio(const SMediaPacket& packet, CZorPacketSourcePort* port);
    void UseVideoFormat(const SMediaVideoFormat& format);
    void DumpNotes(const std::vector<std::string>& notes);
    double DueClock(double due) const;
    void Anchor();
    void Schedule();
    void DropWaiting();
    void StartProgress();
    void UpdateProgress();
    void FinishProgress();

    std::unique_ptr<CMediaDemuxer> m_pDemuxer;
    std::unique_ptr<CReader> m_pReader; // network inputs only
    std::string m_Url;
    std::string m_Name; // the input as messages name it
    bool m_Opened = false;
    CZorPacketSourcePort* m_pPorts[2] = {nullptr, nullptr};
    std::deque<SOut> m_Out;
    bool m_HeadRefused = false; // the first waiting packet was offered and refused
    int m_InEmit = 0;
    unsigned m_Epoch = 0; // counts seeks and flushes, which void the packets on their way
    SMediaPacket m_Read;
    EMode m_Mode = EMode::Stopped;
    double m_Speed = 1.0;
    bool m_Loop = false;
    bool m_Quiet = false;
    bool m_InputEnded = false;
    std::string m_Error;
    long m_Delivered = 0;
    double m_Position = 0.0;
    double m_AnchorClock = 0.0;  // framework clock (s) when the anchor packet was due
    double m_AnchorDue = 0.0;    // its input time (s)
    bool m_AnchorPending = true; // the next packet to go sets the anchor
    double m_RealTimeOrigin = 0.0;
    bool m_HaveRealTimeOrigin = false;
    // The video format as packets carry it, and the input format it was made from.
    CKorVideoFormat* m_pVideoFormat = nullptr; // one reference
    std::shared_ptr<const SMediaVideoFormat> m_pVideoFormatSource;
    std::vector<BYTE> m_VideoRecord;
    // The audio format record (WAVEFORMATEX and its extra bytes), one sequence number per input.
    alignas(4) BYTE m_AudioRecord[18 + 32] = {};
    long m_AudioSeqNumber = 0;
    long m_AudioTooLarge = 0;
    std::unique_ptr<CProgressLine> m_pProgress;
};

// The scriptable component: creation parameters, properties and methods over CZorPacketSource.
class CPacketSource final : public CKorOutputPinComponent {
public:
    struct SParameters {
        std::string m_Url;
        std::string m_VideoPath = "video";
        std::string m_AudioPath = "audio";
        SMediaOpenOptions m_Options;
    };

    explicit CPacketSource(const SParameters& parameters);

    bool IsOpen() const { return m_Open; }
    const std::string& Error() const { return m_Source.Error(); }
    CZorPacketSource& Source() { return m_Source; }

    CKorModule* CreateContext(const char* path) override;
    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

private:
    static const CJokPropertyMap<CPacketSource>& PropertyMap();
    int Start(CJokCommandContext* context);
    int Stop(CJokCommandContext* context);
    int Run(CJokCommandContext* context);
    int Seek(CJokCommandContext* context);
    int SpeedHandler(double* value, int set);
    int LoopHandler(int* value, int set);
    int QuietHandler(int* value, int set);
    int DoneHandler(int* value, int set);
    int RunningHandler(int* value, int set);
    int DeliveredHandler(double* value, int set);
    int PositionHandler(double* value, int set);
    int WidthHandler(double* value, int set);
    int HeightHandler(double* value, int set);
    int CompressionHandler(CBelString* value, int set);
    int ErrorHandler(CBelString* value, int set);
    int TruncatedHandler(int* value, int set);

    // Goes before the bus's contexts (the ports), which it detaches from itself as it goes.
    CZorPacketSource m_Source;
    SParameters m_Parameters;
    bool m_Open = false;
    // Read-only facts of the input, as script values.
    CBelString m_UrlText;
    CBelString m_Codec;
    CBelString m_AudioCodec;
    double m_Duration = 0.0;
    double m_FrameRate = 0.0;
    double m_AudioTag = 0.0;
    int m_Live = 0;
    int m_HasAudio = 0;
};

// "CreatePacketSource{ url =, dataPath =, audioPath =, format =, options =, timeout = }"
int CreatePacketSource(CJokCommandContext* context);
