#include "io/WavSource.h"

#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"

namespace {

constexpr WORD kTagPcm = 1;
constexpr WORD kTagALaw = 6;
constexpr WORD kTagMuLaw = 7;
// Seconds: far below a sample period, far above the rounding of clock arithmetic.
constexpr double kTimeTolerance = 1e-6;

// Seconds from the start of the data to a byte position in it.
double DataSeconds(const WAVEFORMATEX& format, unsigned long position) {
    const WORD tag = format.wFormatTag;
    // One block is one sample frame for PCM and G.711; other tags pack several samples per
    // block, so their byte rate is the only general measure of time.
    if (tag == kTagPcm || tag == kTagALaw || tag == kTagMuLaw || format.nAvgBytesPerSec == 0) {
        const unsigned long frames = position / format.nBlockAlign; // whole sample frames
        return static_cast<double>(frames) / format.nSamplesPerSec;
    }
    return static_cast<double>(position) / format.nAvgBytesPerSec;
}

} // namespace

CWavSourceModule::CWavSourceModule(CWavReader& reader, long formatSeqNumber)
    : CKorModule("WavSource"), m_Reader(reader), m_FormatSeqNumber(formatSeqNumber) {}

CWavSourceModule::~CWavSourceModule() {
    if (m_pPending) {
        m_pPending->Release();
    }
}

double CWavSourceModule::SecondsAt(unsigned long position) const {
    return DataSeconds(m_Reader.Format(), position);
}

CKorAudioPacket* CWavSourceModule::ReadPacket() {
    const WAVEFORMATEX& format = m_Reader.Format();
    const unsigned long want = kPacketBytes - kPacketBytes % format.nBlockAlign;
    const unsigned long position = m_Reader.Position();
    CKorAudioPacket* packet = g_AudioPacketSource.NewPacket(static_cast<long>(kPacketBytes));
    const unsigned long got = m_Reader.Read(packet->GetData(), want);
    if (got == 0) {
        packet->Release();
        return nullptr;
    }
    packet->SetDataSize(got);
    packet->SetAudioFormat(&format, m_FormatSeqNumber);
    const double seconds = SecondsAt(position);
    packet->SetTimeStamp(
        static_cast<std::uint32_t>(static_cast<unsigned long long>(seconds * 1000.0)));
    packet->SetTimeStampValid(true);
    packet->SetRealTimeStamp(seconds);
    return packet;
}

bool CWavSourceModule::DeliverPending() {
    if (m_pPending && DownStreamModule()->Receive(m_pPending)) {
        m_pPending = nullptr;
        ++m_Delivered;
    }
    return m_pPending == nullptr;
}

long CWavSourceModule::Emit() {
    const long before = m_Delivered;
    while (DeliverPending()) {
        // The tolerance keeps a timer that fires at its due time from finding itself early.
        if (m_Paced &&
            SecondsAt(m_Reader.Position()) > BelDoubleTime() - m_StartClock + kTimeTolerance) {
            break;
        }
        CKorAudioPacket* packet = ReadPacket();
        if (!packet) {
            m_Paced = false;
            break;
        }
        m_pPending = packet;
    }
    return m_Delivered - before;
}

long CWavSourceModule::Pump() {
    Stop();
    return Emit();
}

void CWavSourceModule::Start() {
    m_Paced = true;
    m_StartClock = BelDoubleTime() - SecondsAt(m_Reader.Position());
    Emit();
    ScheduleNext();
}

void CWavSourceModule::Stop() {
    m_Paced = false;
    KillAlarm();
}

void CWavSourceModule::ScheduleNext() {
    // While a refused packet waits, downstream's poll (not the clock) moves things on.
    if (m_Paced && !m_pPending) {
        SetAlarmAt(m_StartClock + SecondsAt(m_Reader.Position()));
    }
}

void CWavSourceModule::TimeOut(long) {
    Emit();
    ScheduleNext();
}

void CWavSourceModule::Poll() {
    Emit();
    ScheduleNext();
}

void CWavSourceModule::Flush() {
    if (m_pPending) {
        m_pPending->Release();
        m_pPending = nullptr;
    }
    DownStreamModule()->Flush();
}

CWavSourceCom::CWavSourceCom(const char* file, const char* path)
    : CKorOutputPinComponent("WavSource") {
    if (!m_Reader.Open(file)) {
        m_Error = m_Reader.Error();
        return;
    }
    const WAVEFORMATEX& format = m_Reader.Format();
    if (format.nBlockAlign > CWavSourceModule::kPacketBytes) {
        m_Error = std::string(file) + ": blocks of " + std::to_string(format.nBlockAlign) +
                  " bytes do not fit a packet";
        return;
    }
    if (format.cbSize > CKorAudioPacket::kMaxFormatExtra) {
        m_Error = std::string(file) + ": the format record's " + std::to_string(format.cbSize) +
                  " extra bytes do not fit a packet";
        return;
    }
    m_Open = true;
    m_FormatSeqNumber = CKorPacket::GetNewFormatSeqNumber();
    m_Tag = format.wFormatTag;
    m_Channels = format.nChannels;
    m_Rate = format.nSamplesPerSec;
    m_Bits = format.wBitsPerSample;
    m_BlockAlign = format.nBlockAlign;
    m_AvgBytes = format.nAvgBytesPerSec;
    m_Truncated = m_Reader.IsTruncated();
    ConnectPath(path);
}

CKorModule* CWavSourceCom::CreateContext(const char* path) {
    if (CKorModule* existing = _GetContext(path)) {
        return existing;
    }
    if (!m_Open) {
        return nullptr;
    }
    if (m_pModule) {
        BelDump("CWavSourceCom::CreateContext -> a WAV source gives packets out on one path; it "
                "cannot join '%s'.\n",
                path);
        return nullptr;
    }
    m_pModule = new CWavSourceModule(m_Reader, m_FormatSeqNumber);
    return RememberContext(path, m_pModule);
}

const CJokPropertyMap<CWavSourceCom>& CWavSourceCom::PropertyMap() {
    static const CJokPropertyMap<CWavSourceCom> map = [] {
        CJokPropertyMap<CWavSourceCom> m;
        m.AddFunction("run", &CWavSourceCom::Run, "&CWavSourceCom::Run")
            .AddFunction("start", &CWavSourceCom::Start, "&CWavSourceCom::Start")
            .AddFunction("stop", &CWavSourceCom::Stop, "&CWavSourceCom::Stop")
            .AddNotifiedBoolean("done", &CWavSourceCom::DoneHandler, "&CWavSourceCom::DoneHandler",
                                1)
            .AddNotifiedDouble("delivered", &CWavSourceCom::DeliveredHandler,
                               "&CWavSourceCom::DeliveredHandler", 1)
            .AddNotifiedDouble("duration", &CWavSourceCom::DurationHandler,
                               "&CWavSourceCom::DurationHandler", 1)
            .AddDouble("tag", &CWavSourceCom::m_Tag, "&CWavSourceCom::m_Tag", 1)
            .AddDouble("channels", &CWavSourceCom::m_Channels, "&CWavSourceCom::m_Channels", 1)
            .AddDouble("rate", &CWavSourceCom::m_Rate, "&CWavSourceCom::m_Rate", 1)
            .AddDouble("bits", &CWavSourceCom::m_Bits, "&CWavSourceCom::m_Bits", 1)
            .AddDouble("blockAlign", &CWavSourceCom::m_BlockAlign, "&CWavSourceCom::m_BlockAlign",
                       1)
            .AddDouble("avgBytes", &CWavSourceCom::m_AvgBytes, "&CWavSourceCom::m_AvgBytes", 1)
            .AddBoolean("truncated", &CWavSourceCom::m_Truncated, "&CWavSourceCom::m_Truncated", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CWavSourceCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKorOutputPinComponent::GetProperty(name, flags);
}

int CWavSourceCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKorOutputPinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CWavSourceCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKorOutputPinComponent::GetPropertyEnumerator());
}

bool CWavSourceCom::NeedsModule(CJokCommandContext* context, const char* method) {
    if (m_pModule) {
        return true;
    }
    CBelString message;
    message.Format("wav_source.%s: the source is on no data path (give it a path or connect it)",
                   method);
    context->OutputErrorString(message);
    return false;
}

int CWavSourceCom::Run(CJokCommandContext* context) {
    if (NeedsModule(context, "run")) {
        context->SetReturnValueNoRef(
            CJokGdDouble::Allocate(static_cast<double>(m_pModule->Pump())));
    }
    return 1;
}

int CWavSourceCom::Start(CJokCommandContext* context) {
    if (NeedsModule(context, "start")) {
        m_pModule->Start();
    }
    return 1;
}

int CWavSourceCom::Stop(CJokCommandContext*) {
    if (m_pModule) {
        m_pModule->Stop();
    }
    return 1;
}

int CWavSourceCom::DoneHandler(int* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule ? m_pModule->IsDone() : 0;
    return 1;
}

int CWavSourceCom::DeliveredHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule ? static_cast<double>(m_pModule->Delivered()) : 0.0;
    return 1;
}

int CWavSourceCom::DurationHandler(double* value, int set) {
    if (set || !m_Open) {
        return 0;
    }
    *value = DataSeconds(m_Reader.Format(), m_Reader.DataSize());
    return 1;
}
