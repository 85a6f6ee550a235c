#include "video/PacketSource.h"

#include "entry/Registry.h"
#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/bel/BelThread.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "video/ProgressLine.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <unistd.h>

namespace {

// Seconds: far below a frame, far above the rounding of clock arithmetic.
constexpr double kTimeTolerance = 1e-6;
// Packets a run at speed 0 delivers before it lets the message loop do other work.
constexpr long kSlicepackets = 256;
// Packets a network input's reader may hold ready before it waits for delivery.
constexpr std::size_t kReaderQueue = 64;

double WallSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double UnixSeconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string BaseName(const std::string& url) {
    const std::size_t slash = url.find_last_of('/');
    return slash == std::string::npos || slash + 1 == url.size() ? url : url.substr(slash + 1);
}

} // namespace

// Reads a network input on its own thread, so that a stream that stalls or stops answering
// never blocks the thread that delivers packets. The queue is short: when delivery stalls, the
// reader waits, and the stall reaches the network.
class CZorPacketSource::CReader final : public CBelThread {
public:
    explicit CReader(CZorPacketSource& owner) : m_Owner(owner) {}
    ~CReader() override { Stop(); }
    CReader(const CReader&) = delete;
    CReader& operator=(const CReader&) = delete;

    // Makes a blocking read give up, and waits for the thread to end.
    void Stop() {
        {
            std::lock_guard<std::mutex> lock(m_Mutex);
            m_Stop = true;
        }
        m_Changed.notify_all();
        m_Owner.m_pDemuxer->Abort(true);
        Join();
        m_Owner.m_pDemuxer->Abort(false);
    }

    // The next packet read, or the input's end (result End or Failed, *error set); answers
    // false when nothing is ready yet. Notes read since the last call go to *notes.
    bool Pop(SMediaPacket* packet, CMediaDemuxer::EResult* result, std::string* error,
             std::vector<std::string>* notes) {
        std::lock_guard<std::mutex> lock(m_Mutex);
        notes->swap(m_Notes);
        if (!m_Queue.empty()) {
            *packet = std::move(m_Queue.front());
            m_Queue.pop_front();
            *result = CMediaDemuxer::EResult::Packet;
            m_Changed.notify_all();
            return true;
        }
        if (!m_Finished) {
            return false;
        }
        *result = m_Result;
        *error = m_Error;
        return true;
    }

private:
    void Run() override {
        for (;;) {
            {
                std::unique_lock<std::mutex> lock(m_Mutex);
                m_Changed.wait(lock, [this] { return m_Stop || m_Queue.size() < kReaderQueue; });
                if (m_Stop) {
                    return;
                }
            }
            SMediaPacket packet;
            const CMediaDemuxer::EResult result = m_Owner.m_pDemuxer->Read(&packet);
            std::vector<std::string> notes = m_Owner.m_pDemuxer->TakeNotes();
            bool wake = false;
            {
                std::lock_guard<std::mutex> lock(m_Mutex);
                if (m_Stop) {
                    return; // stopped while reading: what was read is of no use
                }
                m_Notes.insert(m_Notes.end(), notes.begin(), notes.end());
                wake = m_Queue.empty();
                if (result == CMediaDemuxer::EResult::Packet) {
                    m_Queue.push_back(std::move(packet));
                } else {
                    m_Result = result;
                    m_Error = m_Owner.m_pDemuxer->Error();
                    m_Finished = true;
                }
            }
            if (wake || m_Finished) {
                m_Owner.PostMessage(kPacketsReady, 0, 0);
            }
            if (result != CMediaDemuxer::EResult::Packet) {
                return;
            }
        }
    }

    CZorPacketSource& m_Owner;
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::deque<SMediaPacket> m_Queue;
    std::vector<std::string> m_Notes;
    bool m_Stop = false;
    bool m_Finished = false;
    CMediaDemuxer::EResult m_Result = CMediaDemuxer::EResult::End;
    std::string m_Error;
};

// CZorPacketSourcePort

CZorPacketSourcePort::CZorPacketSourcePort(CZorPacketSource* source, EMediaKind kind)
    : CKorModule(kind == EMediaKind::Video ? "PacketSource" : "PacketSourceAudio"),
      m_pSource(source), m_Kind(kind) {
    m_pSource->Attach(this);
}

CZorPacketSourcePort::~CZorPacketSourcePort() {
    if (m_pSource) {
        m_pSource->Detach(this);
    }
}

void CZorPacketSourcePort::Poll() {
    if (m_pSource) {
        m_pSource->Poll();
    }
}

void CZorPacketSourcePort::Flush() {
    if (m_pSource) {
        m_pSource->Flush();
    } else {
        DownStreamModule()->Flush();
    }
}

// CZorPacketSource

CZorPacketSource::CZorPacketSource() : m_pDemuxer(std::make_unique<CMediaDemuxer>()) {
    MakeWindow();
}

CZorPacketSource::~CZorPacketSource() {
    m_pReader.reset();
    DropWaiting();
    CKorVideoPacket::ReleaseVideoFormat(m_pVideoFormat);
    for (CZorPacketSourcePort*& port : m_pPorts) {
        if (port) {
            port->m_pSource = nullptr;
        }
    }
}

void CZorPacketSource::Attach(CZorPacketSourcePort* port) {
    m_pPorts[port->m_Kind == EMediaKind::Video ? 0 : 1] = port;
}

void CZorPacketSource::Detach(CZorPacketSourcePort* port) {
    for (CZorPacketSourcePort*& known : m_pPorts) {
        if (known == port) {
            known = nullptr;
        }
    }
    // Packets bound for a port that went are released with it.
    for (auto it = m_Out.begin(); it != m_Out.end();) {
        if (it->m_pPort == port) {
            it->m_pPacket->Release();
            it = m_Out.erase(it);
        } else {
            ++it;
        }
    }
}

bool CZorPacketSource::Open(const std::string& url, const SMediaOpenOptions& options) {
    m_Url = url;
    m_Name = url;
    if (!m_pDemuxer->Open(url, options)) {
        m_Error = m_Name + ": " + m_pDemuxer->Error();
        m_InputEnded = true;
        return false;
    }
    m_Opened = true;
    DumpNotes(m_pDemuxer->TakeNotes());
    if (m_pDemuxer->HasAudio()) {
        const SMediaAudioFormat& audio = m_pDemuxer->AudioFormat();
        WAVEFORMATEX format{};
        format.wFormatTag = audio.m_Tag;
        format.nChannels = static_cast<WORD>(audio.m_Channels);
        format.nSamplesPerSec = static_cast<DWORD>(audio.m_Rate);
        format.nAvgBytesPerSec = static_cast<DWORD>(audio.m_AvgBytes);
        format.nBlockAlign = static_cast<WORD>(audio.m_BlockAlign);
        format.wBitsPerSample = static_cast<WORD>(audio.m_Bits);
        format.cbSize = static_cast<WORD>(audio.m_Extra.size());
        // The demuxer leaves out audio whose set-up data this record cannot hold.
        static_assert(sizeof(m_AudioRecord) ==
                      sizeof(WAVEFORMATEX) + CKorAudioPacket::kMaxFormatExtra);
        static_assert(kMediaAudioSetUpBytes == CKorAudioPacket::kMaxFormatExtra);
        std::memcpy(m_AudioRecord, &format, sizeof(format));
        std::copy_n(audio.m_Extra.begin(), audio.m_Extra.size(), m_AudioRecord + sizeof(format));
        m_AudioSeqNumber = CKorPacket::GetNewFormatSeqNumber();
    }
    if (m_pDemuxer->IsNetwork()) {
        m_pReader = std::make_unique<CReader>(*this);
        m_pReader->Start();
    }
    return true;
}

bool CZorPacketSource::SetSpeed(double speed) {
    if (!(speed >= 0.0) || std::isinf(speed)) {
        return false;
    }
    // The input's clock goes on from where it is now at the new pace.
    if (m_Mode == EMode::Paced && !m_AnchorPending && m_Speed > 0.0 && speed > 0.0) {
        const double now = BelDoubleTime();
        m_AnchorDue += (now - m_AnchorClock) * m_Speed;
        m_AnchorClock = now;
    } else {
        m_AnchorPending = true;
    }
    m_Speed = speed;
    if (m_Mode == EMode::Paced) {
        KillAlarm();
        Emit(-1);
    }
    return true;
}

void CZorPacketSource::SetLoop(bool loop) {
    m_Loop = loop;
    m_pDemuxer->SetLoop(loop);
}

void CZorPacketSource::Start() {
    if (m_Opened && m_Mode != EMode::Paced) {
        m_Mode = EMode::Paced;
        m_AnchorPending = true;
        StartProgress();
        Emit(-1);
    }
}

void CZorPacketSource::Stop() {
    m_Mode = EMode::Stopped;
    KillAlarm();
    FinishProgress();
}

long CZorPacketSource::Run(long maxPackets) {
    const EMode before = m_Mode;
    m_Mode = EMode::Running;
    KillAlarm();
    StartProgress();
    const long delivered = Emit(maxPackets);
    // A limit reached hands back to the mode before; a refusal leaves downstream's polls to go on.
    if (maxPackets >= 0 && delivered >= maxPackets && !m_HeadRefused) {
        m_Mode = before;
        m_AnchorPending = true;
        if (m_Mode == EMode::Paced) {
            Emit(-1);
        }
    }
    return delivered;
}

bool CZorPacketSource::Seek(double seconds) {
    if (!m_Opened) {
        return false;
    }
    m_pReader.reset();
    const bool moved = m_pDemuxer->Seek(seconds);
    DumpNotes(m_pDemuxer->TakeNotes());
    if (!moved) {
        BelDump("CZorPacketSource::Seek -> %s: %s\n", m_Name.c_str(), m_pDemuxer->Error().c_str());
    } else {
        Flush();
        m_InputEnded = false;
        m_Error.clear();
        m_Position = seconds;
        m_AnchorPending = true;
    }
    if (m_pDemuxer->IsNetwork() && !m_InputEnded) {
        m_pReader = std::make_unique<CReader>(*this);
        m_pReader->Start();
    }
    if (moved && m_Mode != EMode::Stopped) {
        KillAlarm();
        Emit(-1);
    }
    return moved;
}

void CZorPacketSource::Poll() {
    if (m_Mode == EMode::Stopped && !m_HeadRefused) {
        return;
    }
    Emit(-1);
}

void CZorPacketSource::Flush() {
    DropWaiting();
    for (CZorPacketSourcePort* port : m_pPorts) {
        if (port) {
            port->DownStreamModule()->Flush();
        }
    }
}

void CZorPacketSource::DropWaiting() {
    ++m_Epoch;
    for (SOut& out : m_Out) {
        out.m_pPacket->Release();
    }
    m_Out.clear();
    m_HeadRefused = false;
}

void CZorPacketSource::TimeOut(long) {
    Emit(-1);
}

void CZorPacketSource::WindowProc(HWND, unsigned message, unsigned, long) {
    if (message == kPacketsReady && m_Mode != EMode::Stopped) {
        Emit(-1);
    }
}

double CZorPacketSource::DueClock(double due) const {
    return m_AnchorClock + (due - m_AnchorDue) / m_Speed;
}

bool CZorPacketSource::OfferHead() {
    SOut head = m_Out.front();
    m_Out.pop_front();
    const unsigned epoch = m_Epoch;
    // Downstream may call back into the source (a script stops, seeks or flushes it), so the
    // queue is consistent before the call and checked after it.
    if (head.m_pPort->DownStreamModule()->Receive(head.m_pPacket)) {
        m_HeadRefused = false;
        ++m_Delivered;
        m_Position = head.m_Position;
        UpdateProgress();
        return true;
    }
    if (epoch != m_Epoch) {
        head.m_pPacket->Release(); // a seek or flush voided it meanwhile
        return false;
    }
    m_Out.push_front(head);
    m_HeadRefused = true;
    return false;
}

long CZorPacketSource::Emit(long maxPackets) {
    if (m_InEmit > 0) {
        return 0; // the delivery under way goes on with whatever changed
    }
    ++m_InEmit;
    long delivered = 0;
    const bool live = m_pDemuxer->IsLive();
    for (;;) {
        if (!m_Out.empty()) {
            if (!m_HeadRefused) {
                if (m_Mode == EMode::Stopped) {
                    break;
                }
                if (m_Mode == EMode::Paced && m_Speed > 0.0 && !live) {
                    if (m_AnchorPending) {
                        m_AnchorClock = BelDoubleTime();
                        m_AnchorDue = m_Out.front().m_Due;
                        m_AnchorPending = false;
                    }
                    // The alarm is set a hair early, so that rounding in the clock's sums can
                    // never hold a packet back past its due time.
                    const double due = DueClock(m_Out.front().m_Due) - kTimeTolerance;
                    if (due > BelDoubleTime()) {
                        SetAlarmAt(due);
                        break;
                    }
                }
            }
            if (maxPackets >= 0 && delivered >= maxPackets) {
                break;
            }
            if (!OfferHead()) {
                break; // refused: downstream's poll brings it back
            }
            ++delivered;
            continue;
        }
        if (m_Mode == EMode::Stopped || (maxPackets >= 0 && delivered >= maxPackets)) {
            break;
        }
        if (m_Mode == EMode::Paced && (m_Speed == 0.0 || live) && delivered >= kSlicepackets) {
            SetAlarm(0); // the rest in the next slice, after the loop's other work
            break;
        }
        if (!Supply()) {
            break;
        }
    }
    --m_InEmit;
    return delivered;
}

CMediaDemuxer::EResult CZorPacketSource::Next(SMediaPacket* packet, bool* waiting) {
    *waiting = false;
    if (!m_pReader) {
        const CMediaDemuxer::EResult result = m_pDemuxer->Read(packet);
        if (m_pDemuxer->HasNotes()) {
            DumpNotes(m_pDemuxer->TakeNotes());
        }
        if (result == CMediaDemuxer::EResult::Failed) {
            m_Error = m_Name + ": " + m_pDemuxer->Error();
        }
        return result;
    }
    CMediaDemuxer::EResult result = CMediaDemuxer::EResult::End;
    std::string error;
    std::vector<std::string> notes;
    *waiting = !m_pReader->Pop(packet, &result, &error, &notes);
    DumpNotes(notes);
    if (result == CMediaDemuxer::EResult::Failed) {
        m_Error = m_Name + ": " + error;
    }
    return result;
}

bool CZorPacketSource::Supply() {
    if (m_InputEnded) {
        return false;
    }
    bool waiting = false;
    const CMediaDemuxer::EResult result = Next(&m_Read, &waiting);
    if (waiting) {
        return false;
    }
    if (result != CMediaDemuxer::EResult::Packet) {
        if (result == CMediaDemuxer::EResult::Failed) {
            BelDump("CZorPacketSource::Read -> %s\n", m_Error.c_str());
        }
        EndInput();
        return false;
    }
    Convert(m_Read);
    return true;
}

void CZorPacketSource::EndInput() {
    m_InputEnded = true;
    FinishProgress();
}

void CZorPacketSource::Convert(const SMediaPacket& packet) {
    if (!m_HaveRealTimeOrigin) {
        // Files count real time from their start; a live stream from when it was received.
        m_RealTimeOrigin =
            m_pDemuxer->IsLive() ? UnixSeconds() - static_cast<double>(packet.m_PtsUs) / 1e6 : 0.0;
        m_HaveRealTimeOrigin = true;
    }
    if (packet.m_Kind == EMediaKind::Video) {
        if (m_pPorts[0]) {
            ConvertVideo(packet, m_pPorts[0]);
        }
    } else if (m_pPorts[1]) {
        ConvertAudio(packet, m_pPorts[1]);
    }
}

namespace {

void StampPacket(CKorPacket* out, const SMediaPacket& packet, std::int64_t offsetUs,
                 double realTimeOrigin) {
    const std::int64_t us = packet.m_PtsUs + offsetUs;
    // Nearest millisecond; times before the input's start wrap as the signed field expects.
    const std::int64_t ms = us >= 0 ? (us + 500) / 1000 : -((-us + 500) / 1000);
    out->SetTimeStamp(static_cast<std::uint32_t>(ms));
    out->SetTimeStampValid(packet.m_PtsValid);
    out->SetRealTimeStamp(realTimeOrigin + static_cast<double>(us) / 1e6);
    out->SetStreamNo(packet.m_StreamIndex);
}

} // namespace

void CZorPacketSource::ConvertVideo(const SMediaPacket& packet, CZorPacketSourcePort* port) {
    if (packet.m_pVideoFormat != m_pVideoFormatSource) {
        UseVideoFormat(*packet.m_pVideoFormat);
        m_pVideoFormatSource = packet.m_pVideoFormat;
    }
    const std::size_t size = packet.PayloadSize();
    CKorVideoPacket* out =
        g_VideoPacketSource.NewPacket(static_cast<long>(std::max<std::size_t>(size, 1)));
    const std::size_t written = packet.WritePayload(out->GetData());
    if (written == 0) {
        out->Release();
        BelDump("CZorPacketSource::Read -> %s: malformed video packet at %.3f s skipped\n",
                m_Name.c_str(), static_cast<double>(packet.m_PtsUs) / 1e6);
        return;
    }
    out->SetDataSize(written);
    StampPacket(out, packet, 0, m_RealTimeOrigin);
    out->SetFrameType(packet.m_FrameType);
    out->SetBitmapFormat(m_pVideoFormat);
    const double due = static_cast<double>(packet.m_DtsUs) / 1e6;
    m_Out.push_back(SOut{out, port, due, static_cast<double>(packet.m_PtsUs) / 1e6});
}

void CZorPacketSource::UseVideoFormat(const SMediaVideoFormat& format) {
    std::size_t extra = format.m_ExtraData.size();
    if (extra > static_cast<std::size_t>(CKorVideoFormat::kMaxExtraSize)) {
        BelDump("CZorPacketSource::Read -> %s: codec set-up data of %zu bytes left out\n",
                m_Name.c_str(), extra);
        extra = 0;
    }
    BITMAPINFOHEADER header{};
    header.biSize = static_cast<DWORD>(sizeof(BITMAPINFOHEADER) + extra);
    header.biWidth = format.m_Width;
    header.biHeight = format.m_Height;
    header.biPlanes = 1;
    header.biBitCount = 24;
    header.biCompression = format.m_FourCC;
    // The decoded picture as 24-bit RGB: what a compressed frame never exceeds.
    header.biSizeImage =
        static_cast<DWORD>(format.m_Width) * static_cast<DWORD>(format.m_Height) * 3;
    m_VideoRecord.resize(sizeof(header) + extra);
    std::memcpy(m_VideoRecord.data(), &header, sizeof(header));
    std::copy_n(format.m_ExtraData.begin(), extra, m_VideoRecord.begin() + sizeof(header));
    CKorVideoFormat* record = CKorVideoPacket::GetVideoFormat(
        reinterpret_cast<const BITMAPINFOHEADER*>(m_VideoRecord.data()),
        CKorPacket::GetNewFormatSeqNumber(), 0);
    CKorVideoPacket::ReleaseVideoFormat(m_pVideoFormat);
    m_pVideoFormat = record;
}

void CZorPacketSource::ConvertAudio(const SMediaPacket& packet, CZorPacketSourcePort* port) {
    const SMediaAudioFormat& format = m_pDemuxer->AudioFormat();
    const auto* record = reinterpret_cast<const WAVEFORMATEX*>(m_AudioRecord);
    const std::uint8_t* data = packet.Data();
    const std::size_t size = packet.Size();
    if (!format.m_Samples && size > static_cast<std::size_t>(kAudioPacketBytes)) {
        if (m_AudioTooLarge++ == 0) {
            BelDump("CZorPacketSource::Read -> %s: audio frames over %ld bytes do not fit an "
                    "audio packet and are left out (first at %.3f s)\n",
                    m_Name.c_str(), kAudioPacketBytes, static_cast<double>(packet.m_PtsUs) / 1e6);
        }
        return;
    }
    // Samples are cut into packets of whole blocks; other codings go a frame per packet.
    const std::size_t block = std::max(format.m_BlockAlign, 1);
    const std::size_t piece =
        format.m_Samples ? kAudioPacketBytes - kAudioPacketBytes % block : size;
    for (std::size_t offset = 0; offset < size; offset += piece) {
        const std::size_t length = std::min(piece, size - offset);
        CKorAudioPacket* out = g_AudioPacketSource.NewPacket(kAudioPacketBytes);
        BYTE* target = out->GetData();
        if (format.m_SwapBytes) {
            for (std::size_t i = 0; i + 1 < length; i += 2) {
                target[i] = data[offset + i + 1];
                target[i + 1] = data[offset + i];
            }
        } else {
            std::memcpy(target, data + offset, length);
        }
        out->SetDataSize(length);
        out->SetAudioFormat(record, m_AudioSeqNumber);
        const std::size_t blocks = offset / block; // whole sample frames before this piece
        const auto offsetUs = static_cast<std::int64_t>(static_cast<double>(blocks) * 1e6 /
                                                        std::max(format.m_Rate, 1));
        StampPacket(out, packet, offsetUs, m_RealTimeOrigin);
        const double at = static_cast<double>(packet.m_PtsUs + offsetUs) / 1e6;
        m_Out.push_back(SOut{out, port, at, at});
    }
}

void CZorPacketSource::DumpNotes(const std::vector<std::string>& notes) {
    for (const std::string& note : notes) {
        BelDump("CZorPacketSource::Read -> %s: %s\n", m_Name.c_str(), note.c_str());
    }
}

void CZorPacketSource::StartProgress() {
    if (m_pProgress || m_Quiet || m_pDemuxer->IsLive() || !isatty(STDERR_FILENO)) {
        return;
    }
    m_pProgress = std::make_unique<CProgressLine>(BaseName(m_Url), [](const std::string& text) {
        std::fputs(text.c_str(), stderr);
        std::fflush(stderr);
    });
    m_pProgress->Start(WallSeconds(), m_Position);
}

void CZorPacketSource::UpdateProgress() {
    if (m_pProgress) {
        m_pProgress->Update(WallSeconds(), m_Position, m_Loop ? 0.0 : m_pDemuxer->Duration());
    }
}

void CZorPacketSource::FinishProgress() {
    if (m_pProgress) {
        m_pProgress->Finish(WallSeconds(), m_Position, m_Loop ? 0.0 : m_pDemuxer->Duration());
        m_pProgress.reset();
    }
}

// CPacketSource

CPacketSource::CPacketSource(const SParameters& parameters)
    : CKorOutputPinComponent("PacketSource"), m_Parameters(parameters) {
    m_Open = m_Source.Open(parameters.m_Url, parameters.m_Options);
    if (!m_Open) {
        return;
    }
    const CMediaDemuxer& input = m_Source.Demuxer();
    m_UrlText = parameters.m_Url.c_str();
    m_Codec = input.VideoCodecName();
    m_Duration = input.Duration();
    m_FrameRate = input.FrameRate();
    m_Live = input.IsLive();
    m_HasAudio = input.HasAudio();
    if (m_HasAudio) {
        m_AudioCodec = input.AudioCodecName();
        m_AudioTag = input.AudioFormat().m_Tag;
    }
    ConnectPath(parameters.m_VideoPath.c_str());
    if (m_HasAudio) {
        ConnectPath(parameters.m_AudioPath.c_str());
    }
}

CKorModule* CPacketSource::CreateContext(const char* path) {
    if (CKorModule* existing = _GetContext(path)) {
        return existing;
    }
    if (!m_Open) {
        return nullptr;
    }
    if (m_Parameters.m_VideoPath == path) {
        return RememberContext(path, new CZorPacketSourcePort(&m_Source, EMediaKind::Video));
    }
    if (m_HasAudio && m_Parameters.m_AudioPath == path) {
        return RememberContext(path, new CZorPacketSourcePort(&m_Source, EMediaKind::Audio));
    }
    BelDump("CPacketSource::CreateContext -> the packet source gives video on '%s'%s%s%s; it has "
            "nothing for '%s'.\n",
            m_Parameters.m_VideoPath.c_str(), m_HasAudio ? " and audio on '" : "",
            m_HasAudio ? m_Parameters.m_AudioPath.c_str() : "", m_HasAudio ? "'" : "", path);
    return nullptr;
}

const CJokPropertyMap<CPacketSource>& CPacketSource::PropertyMap() {
    using C = CPacketSource;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddFunction("Start", &C::Start, "&CPacketSource::Start")
            .AddFunction("Stop", &C::Stop, "&CPacketSource::Stop")
            .AddFunction("Run", &C::Run, "&CPacketSource::Run")
            .AddFunction("Seek", &C::Seek, "&CPacketSource::Seek")
            .AddNotifiedDouble("speed", &C::SpeedHandler, "&CPacketSource::SpeedHandler")
            .AddNotifiedBoolean("loop", &C::LoopHandler, "&CPacketSource::LoopHandler")
            .AddNotifiedBoolean("quiet", &C::QuietHandler, "&CPacketSource::QuietHandler")
            .AddNotifiedBoolean("done", &C::DoneHandler, "&CPacketSource::DoneHandler", 1)
            .AddNotifiedBoolean("running", &C::RunningHandler, "&CPacketSource::RunningHandler", 1)
            .AddNotifiedDouble("delivered", &C::DeliveredHandler,
                               "&CPacketSource::DeliveredHandler", 1)
            .AddNotifiedDouble("position", &C::PositionHandler, "&CPacketSource::PositionHandler",
                               1)
            .AddNotifiedDouble("width", &C::WidthHandler, "&CPacketSource::WidthHandler", 1)
            .AddNotifiedDouble("height", &C::HeightHandler, "&CPacketSource::HeightHandler", 1)
            .AddNotifiedString("compression", &C::CompressionHandler,
                               "&CPacketSource::CompressionHandler", 1)
            .AddNotifiedString("error", &C::ErrorHandler, "&CPacketSource::ErrorHandler", 1)
            .AddNotifiedBoolean("truncated", &C::TruncatedHandler,
                                "&CPacketSource::TruncatedHandler", 1)
            .AddString("url", &C::m_UrlText, "&CPacketSource::m_UrlText", 1)
            .AddString("codec", &C::m_Codec, "&CPacketSource::m_Codec", 1)
            .AddString("audioCodec", &C::m_AudioCodec, "&CPacketSource::m_AudioCodec", 1)
            .AddDouble("duration", &C::m_Duration, "&CPacketSource::m_Duration", 1)
            .AddDouble("frameRate", &C::m_FrameRate, "&CPacketSource::m_FrameRate", 1)
            .AddDouble("audioTag", &C::m_AudioTag, "&CPacketSource::m_AudioTag", 1)
            .AddBoolean("live", &C::m_Live, "&CPacketSource::m_Live", 1)
            .AddBoolean("hasAudio", &C::m_HasAudio, "&CPacketSource::m_HasAudio", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CPacketSource::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKorOutputPinComponent::GetProperty(name, flags);
}

int CPacketSource::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKorOutputPinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CPacketSource::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKorOutputPinComponent::GetPropertyEnumerator());
}

int CPacketSource::Start(CJokCommandContext* context) {
    if (context->CanProceed(0)) {
        m_Source.Start();
    }
    return 1;
}

int CPacketSource::Stop(CJokCommandContext* context) {
    if (context->CanProceed(0)) {
        m_Source.Stop();
    }
    return 1;
}

int CPacketSource::Run(CJokCommandContext* context) {
    double packets = -1;
    context->GetParam("packets", &packets, 1);
    if (!context->CanProceed(0)) {
        return 1;
    }
    if (!(packets >= -1)) {
        context->OutputErrorString("PacketSource.Run: packets must not be negative");
        return 1;
    }
    const long delivered = m_Source.Run(static_cast<long>(packets));
    context->SetReturnValueNoRef(CJokGdDouble::Allocate(static_cast<double>(delivered)));
    return 1;
}

int CPacketSource::Seek(CJokCommandContext* context) {
    double seconds = 0;
    context->GetParam("seconds", &seconds, 0);
    if (!context->CanProceed(0)) {
        return 1;
    }
    if (!(seconds >= 0) || std::isinf(seconds)) {
        context->OutputErrorString("PacketSource.Seek: seconds must be a time from the start");
        return 1;
    }
    if (m_Live) {
        context->OutputErrorString("PacketSource.Seek: a live input cannot seek");
        return 1;
    }
    context->SetReturnValueNoRef(CJokGdBoolean::Allocate(m_Source.Seek(seconds)));
    return 1;
}

int CPacketSource::SpeedHandler(double* value, int set) {
    if (!set) {
        *value = m_Source.Speed();
        return 1;
    }
    return m_Source.SetSpeed(*value) ? 1 : 0;
}

int CPacketSource::LoopHandler(int* value, int set) {
    if (!set) {
        *value = m_Source.Loop();
        return 1;
    }
    if (m_Live && *value) {
        return 0;
    }
    m_Source.SetLoop(*value != 0);
    return 1;
}

int CPacketSource::QuietHandler(int* value, int set) {
    if (!set) {
        *value = m_Source.IsQuiet();
        return 1;
    }
    m_Source.SetQuiet(*value != 0);
    return 1;
}

int CPacketSource::DoneHandler(int* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_Source.IsDone();
    return 1;
}

int CPacketSource::RunningHandler(int* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_Source.IsRunning();
    return 1;
}

int CPacketSource::DeliveredHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_Source.Delivered());
    return 1;
}

int CPacketSource::PositionHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_Source.Position();
    return 1;
}

namespace {

// The video format packets carry now, or, before the first packet, the input's.
const SMediaVideoFormat* CurrentFormat(const CZorPacketSource& source) {
    return source.Demuxer().VideoFormat().get();
}

} // namespace

int CPacketSource::WidthHandler(double* value, int set) {
    const SMediaVideoFormat* format = CurrentFormat(m_Source);
    if (set || !format) {
        return 0;
    }
    *value = format->m_Width;
    return 1;
}

int CPacketSource::HeightHandler(double* value, int set) {
    const SMediaVideoFormat* format = CurrentFormat(m_Source);
    if (set || !format) {
        return 0;
    }
    *value = format->m_Height;
    return 1;
}

int CPacketSource::CompressionHandler(CBelString* value, int set) {
    const SMediaVideoFormat* format = CurrentFormat(m_Source);
    if (set || !format) {
        return 0;
    }
    const char text[5] = {static_cast<char>(format->m_FourCC & 0xFF),
                          static_cast<char>(format->m_FourCC >> 8 & 0xFF),
                          static_cast<char>(format->m_FourCC >> 16 & 0xFF),
                          static_cast<char>(format->m_FourCC >> 24 & 0xFF), 0};
    *value = text;
    return 1;
}

int CPacketSource::ErrorHandler(CBelString* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_Source.Error().c_str();
    return 1;
}

int CPacketSource::TruncatedHandler(int* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_Source.Demuxer().IsTruncated();
    return 1;
}

namespace {

// Reads the "options" record (names and values, alternating) into libavformat's options.
bool ReadOptions(CJokGenericData* value, SMediaOpenOptions* options) {
    if (!value || value->GetType() == JOKGD_NULL) {
        return true;
    }
    if (value->GetType() != JOKGD_VECTOR) {
        return false;
    }
    const auto* record = static_cast<CJokGdVector*>(value);
    if (record->GetSize() % 2 != 0) {
        return false;
    }
    for (int i = 0; i < record->GetSize(); i += 2) {
        const CJokGenericData* name = record->GetElement(i);
        const CJokGenericData* item = record->GetElement(i + 1);
        if (!name || name->GetType() != JOKGD_STRING || !item) {
            return false;
        }
        std::string text;
        if (item->GetType() == JOKGD_STRING) {
            text = static_cast<const CJokGdString*>(item)->GetString().str();
        } else if (item->GetType() == JOKGD_DOUBLE) {
            char number[32];
            std::snprintf(number, sizeof(number), "%.15g",
                          static_cast<const CJokGdDouble*>(item)->GetValue());
            text = number;
        } else if (item->GetType() == JOKGD_BOOLEAN) {
            text = static_cast<const CJokGdBoolean*>(item)->GetValue() ? "1" : "0";
        } else {
            return false;
        }
        options->m_Options.emplace_back(static_cast<const CJokGdString*>(name)->GetString().str(),
                                        std::move(text));
    }
    return true;
}

} // namespace

int CreatePacketSource(CJokCommandContext* context) {
    CBelString url;
    CBelString file;
    CBelString dataPath = "video";
    CBelString audioPath = "audio";
    CBelString format;
    double timeout = 5.0;
    CJokGenericData* options = nullptr;
    context->GetParam("url", &url, 1);
    context->GetParam("file", &file, 1);
    context->GetParam("dataPath", &dataPath, 1);
    context->GetParam("audioPath", &audioPath, 1);
    context->GetParam("format", &format, 1);
    context->GetParam("timeout", &timeout, 1);
    context->GetParam("options", &options, 1);
    CPacketSource::SParameters parameters;
    std::string fault;
    if (context->CanProceed(0)) {
        parameters.m_Url = url.IsEmpty() ? file.str() : url.str();
        parameters.m_VideoPath = dataPath.c_str();
        parameters.m_AudioPath = audioPath.c_str();
        parameters.m_Options.m_Format = format.c_str();
        parameters.m_Options.m_TimeoutSeconds = timeout;
        parameters.m_Options.m_WantAudio = !audioPath.IsEmpty();
        if (url.IsEmpty() == file.IsEmpty()) {
            fault = "give the input as url (a file name or a network address) or as file";
        } else if (dataPath.IsEmpty()) {
            fault = "dataPath must name the video path";
        } else if (!(timeout > 0) || std::isinf(timeout)) {
            fault = "timeout must be a positive number of seconds";
        } else if (!ReadOptions(options, &parameters.m_Options)) {
            fault = "options must be a table of names and values (strings or numbers)";
        }
        if (fault.empty()) {
            auto* source = new CPacketSource(parameters);
            if (source->IsOpen()) {
                ZorReturnNewComponent(context, source);
            } else {
                fault = source->Error();
                source->ExternalRelease();
            }
        }
    }
    if (!fault.empty()) {
        context->OutputErrorString(("CreatePacketSource: " + fault).c_str());
    }
    if (options) {
        options->Release();
    }
    return 1;
}
