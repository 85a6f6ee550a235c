#include "filters/PacketVocabulary.h"

#include "expr/ExpressionEvalOp.h"
#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Metadata.h"
#include "framework/kor/Packet.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <utility>

using V = CZorPacketVocabulary;

// clang-format off
const V::SEntry V::sm_Entries[V::kEntryCount] = {
    {"TIMESCALE", 0x10000000, kHost, 0},         {"TIMEBASETS", 0x10000001, kHost, 0},
    {"TIME", 0x10000002, kHost, 0},              {"TS", 0x10000003, kField, 0},
    {"RTS", 0x10000004, kField, 0},              {"STREAM", 0x10000005, kField, 0},
    {"TYPE", 0x10000006, kField, 0},             {"VIDEO", 0x10000007, kConstant, 9},
    {"AUDIO", 0x10000008, kConstant, 1},         {"TEXT", 0x10000009, kConstant, 2},
    {"TEXTSTR", 0x1000000A, kStringField, 0},    {"DATA", 0x1000000B, kStringField, 0},
    {"METADATA", 0x1000000C, kStringField, 0},   {"TIMEBASE", 0x1000000D, kConstant, 4},
    {"GPS", 0x1000000E, kConstant, 12},          {"TRELLUM", 0x1000000F, kConstant, 13},
    {"TRELLUMPACKETTYPE", 0x10000010, kField, 0},{"TL3_C_PCK", 0x10000011, kConstant, 0},
    {"TL3_K_PCK", 0x10000012, kConstant, 1},     {"TL3_P_PCK", 0x10000013, kConstant, 2},
    {"TL3_S_PCK", 0x10000014, kConstant, 3},     {"TL3_V_PCK", 0x10000015, kConstant, 4},
    {"GDLIST", 0x10000016, kConstant, 11},       {"RECEIVEDTIME", 0x10000017, kHost, 0},
    {"LOCKED", 0x10000018, kHost, 0},            {"TIMESTAMPVALID", 0x10000019, kField, 0},
    {"TIMEBASEFLAGS", 0x1000001A, kField, 0},    {"TBFCONTINUOUS", 0x1000001B, kConstant, 1},
    {"TBFENDOFSEQ", 0x1000001C, kConstant, 2},   {"SIZE", 0x1000001D, kField, 0},
    {"FRAMETYPE", 0x1000001E, kField, 0},        {"IFRAME", 0x1000001F, kConstant, 0},
    {"PFRAME", 0x10000020, kConstant, 1},        {"BFRAME", 0x10000021, kConstant, 3},
    {"PBFRAME", 0x10000022, kConstant, 2},       {"EIFRAME", 0x10000023, kConstant, 4},
    {"EPFRAME", 0x1000002E, kConstant, 5},       {"VIDEOWIDTH", 0x10000024, kField, 0},
    {"VIDEOHEIGHT", 0x10000025, kField, 0},      {"ASPECTRATIOX", 0x10000026, kField, 0},
    {"ASPECTRATIOY", 0x10000027, kField, 0},     {"CODEC", 0x10000028, kField, 0},
    {"FORMATID", 0x10000029, kField, 0},         {"AUDIOCHANNELS", 0x1000002A, kField, 0},
    {"AUDIOSAMPLERATE", 0x1000002B, kField, 0},  {"AUDIOBYTERATE", 0x1000002C, kField, 0},
    {"AUDIOBITS", 0x1000002D, kField, 0},        {"VMDLEVEL", 0x1000002F, kField, 0},
    {"LAYER", 0x10000030, kField, 0},            {"DISCARD", 0x10000031, kAction, 0},
    {"DISCARDSAVED", 0x10000032, kAction, 0},    {"PUSH", 0x10000033, kAction, 0},
    {"SWAP", 0x10000034, kAction, 0},            {"POP", 0x10000035, kAction, 0},
    {"CALLBACK", 0x10000036, kAction, 0},        {"DELAY", 0x10000037, kHost, 0},
    {"EXPANDREFS", 0x10000038, kAction, 0},      {"SCHEMA", 0x10000039, kField, 0},
    {"COPY", 0x1000003A, kAction, 0},            {"DUMP", 0x20000007, kAction, 0},
};
// clang-format on

namespace {

constexpr int kVmdLevelAttribute = 1;
// Referenced packets may refer to further packets; a cycle must not hang the filter.
constexpr int kMaxReferenceDepth = 16;

int ToInt(double value) {
    return static_cast<std::int32_t>(TruncateToWord(value));
}

const WAVEFORMATEX* AudioFormat(const CKorPacket* packet) {
    if (packet->GetKind() != CKorPacket::KIND_AUDIO)
        return nullptr;
    auto* audio = static_cast<const CKorAudioPacket*>(packet);
    return audio->HasAudioFormat() ? audio->GetAudioFormat() : nullptr;
}

const BITMAPINFOHEADER* VideoFormat(const CKorPacket* packet) {
    if (packet->GetKind() != CKorPacket::KIND_VIDEO)
        return nullptr;
    return static_cast<const CKorVideoPacket*>(packet)->GetBitmapInfo();
}

void AppendEscaped(std::string& out, std::string_view text) {
    for (char c : text) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
}

std::string Unescape(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            ++i;
            out += text[i] == 'n' ? '\n' : text[i];
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string Decimal(int value) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%d", value);
    return buffer;
}

bool IsIdentifier(std::string_view name) {
    if (name.empty() || !std::isalpha(static_cast<unsigned char>(name[0])))
        return false;
    for (char c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)))
            return false;
    return true;
}

} // namespace

// The time stamp is an unsigned 32-bit count that scripts see signed: folding values from the
// other half of the range lets a script write back what it computed from an unsigned reading.
std::uint32_t CZorPacketVocabulary::ToTimeStamp(double value) {
    if (value > 2147483647.0)
        value -= 4294967296.0;
    else if (value < -2147483648.0)
        value += 4294967296.0;
    return TruncateToWord(value);
}

int CZorPacketVocabulary::FindEntry(std::string_view name) {
    for (int i = 0; i < kEntryCount; ++i)
        if (name == sm_Entries[i].m_Name)
            return i;
    return -1;
}

void CZorPacketVocabulary::RegisterNames(ExpressionEvalContext& context) {
    for (const SEntry& entry : sm_Entries)
        context.RegisterHostVariable(entry.m_Name);
}

ExpressionCheckResult CZorPacketVocabulary::CheckScript(std::string_view text) {
    ExpressionEvalContext context;
    RegisterNames(context);
    return ExpressionParser::Check(text, context);
}

CZorPacketVocabulary::CZorPacketVocabulary(IZorPacketFilterHost& host, CKorPacket*& current)
    : m_Host(host), m_pCurrent(current) {
    for (int i = 0; i < kEntryCount; ++i) {
        const SEntry& entry = sm_Entries[i];
        const int index = entry.m_Kind == kConstant || entry.m_Kind == kField
                              ? Lookup(entry.m_Name, true)
                              : RegisterHostVariable(entry.m_Name);
        if (index != i)
            BelDisplayAssert("index == i", __FILE__, __LINE__);
        SetNumber(index, entry.m_Kind == kConstant ? entry.m_Constant : -1.0);
    }
}

CZorPacketVocabulary::~CZorPacketVocabulary() {
    DropSaved();
    if (m_pDumpFile)
        std::fclose(m_pDumpFile);
}

bool CZorPacketVocabulary::CompileScript(std::string_view text, SCompiled* compiled,
                                         std::string* messages) {
    ExpressionCheckResult check = ExpressionParser::Check(text, *this, false);
    for (const std::string& line : check.m_Messages)
        *messages += line;
    if (!check.m_Ok)
        return false;
    std::vector<int> bound;
    for (const ExpressionCheckResult::Variable& use : check.m_Variables) {
        const int index = FindEntry(use.m_Name);
        if (index < 0)
            continue;
        const EKind kind = sm_Entries[index].m_Kind;
        if (kind != kConstant && kind != kField)
            continue;
        // An assignment, or a string use, must see the vocabulary's rule rather than a slot.
        if (use.m_WriteNumber || use.m_ReadString || use.m_WriteString)
            RegisterHostVariable(use.m_Name);
        if (kind == kField && use.m_ReadNumber && !IsHostVariable(index))
            bound.push_back(index);
    }
    // The check has reported the messages; the second parse repeats them, so they are dropped.
    compiled->m_Tree = ExpressionParser::Parse(text, *this, [](const std::string&) {});
    compiled->m_Bound = std::move(bound);
    return compiled->m_Tree != nullptr;
}

void CZorPacketVocabulary::RebindFields() {
    const CKorPacket* p = m_pCurrent;
    if (!p) {
        for (int index : m_Bound)
            SetNumber(index, -1.0);
        return;
    }
    const int kind = p->GetKind();
    for (int index : m_Bound) {
        // The fields nearly every filter reads, without the call; the rest as PacketField says.
        double value;
        if (index == TYPE)
            value = kind;
        else if (index == FRAMETYPE && kind == CKorPacket::KIND_VIDEO)
            value = static_cast<const CKorVideoPacket*>(p)->GetFrameType();
        else if (index == STREAM)
            value = p->GetStreamNo();
        else
            value = PacketField(index, *p, kind);
        SetNumber(index, value);
    }
}

// ---------------------------------------------------------------------------------------------
// Reading and writing

double CZorPacketVocabulary::ReadField(int index) {
    switch (index) {
    case TIMESCALE:
        return m_Host.GetTimeScale();
    case TIMEBASETS:
        return static_cast<double>(m_Host.GetModuleTime());
    case TIME:
        return BelDoubleTime();
    case RECEIVEDTIME:
        // Taken on first use rather than on arrival: the clock costs more than a small filter,
        // and nothing can observe the difference within one synchronous evaluation.
        if (!m_ReceivedTimeTaken) {
            m_ReceivedTime = BelDoubleTime();
            m_ReceivedTimeTaken = true;
        }
        return m_ReceivedTime;
    case LOCKED:
        return m_Host.IsFilterLocked() ? 1.0 : 0.0;
    case DELAY:
        return LastDelay();
    default:
        break;
    }
    const SEntry& entry = sm_Entries[index];
    if (entry.m_Kind != kField)
        return entry.m_Constant;
    const CKorPacket* p = m_pCurrent;
    return p ? PacketField(index, *p, p->GetKind()) : -1.0;
}

double CZorPacketVocabulary::PacketField(int index, const CKorPacket& packet, int kind) {
    const CKorPacket* p = &packet;
    switch (index) {
    case TS:
        return static_cast<double>(p->GetTimeStamp());
    case RTS:
        return p->GetRealTimeStamp();
    case STREAM:
        return p->GetStreamNo();
    case TYPE:
        return kind;
    case TRELLUMPACKETTYPE:
        return kind == CKorPacket::KIND_TRELLUM
                   ? static_cast<const CKorTrellumPacket*>(p)->GetPacketType()
                   : -1.0;
    case TIMESTAMPVALID:
        return p->IsTimeStampValid() ? 1.0 : 0.0;
    case TIMEBASEFLAGS:
        return kind == CKorPacket::KIND_TIMEBASE
                   ? static_cast<const CKorTimeBasePacket*>(p)->GetFlags()
                   : 0.0;
    case SIZE:
        if (kind == CKorPacket::KIND_TEXT)
            return static_cast<const CKorTextPacket*>(p)->Text().GetLength();
        return static_cast<double>(p->GetDataSize());
    case FRAMETYPE:
        return kind == CKorPacket::KIND_VIDEO
                   ? static_cast<const CKorVideoPacket*>(p)->GetFrameType()
                   : -1.0;
    case LAYER:
        return kind == CKorPacket::KIND_VIDEO ? static_cast<const CKorVideoPacket*>(p)->GetLayer()
                                              : -1.0;
    case VIDEOWIDTH:
    case VIDEOHEIGHT: {
        const BITMAPINFOHEADER* header = VideoFormat(p);
        if (!header)
            return -1.0;
        return index == VIDEOWIDTH ? header->biWidth : header->biHeight;
    }
    case ASPECTRATIOX:
    case ASPECTRATIOY: {
        if (kind != CKorPacket::KIND_VIDEO)
            return -1.0;
        auto* aspect = static_cast<const CKorAspectRatioMD*>(p->FindMetadata(kMetadataAspectRatio));
        return aspect ? static_cast<double>(aspect->GetAspectRatio(index == ASPECTRATIOX)) : -1.0;
    }
    case CODEC:
        if (const BITMAPINFOHEADER* header = VideoFormat(p))
            return static_cast<double>(header->biCompression);
        if (const WAVEFORMATEX* format = AudioFormat(p))
            return static_cast<double>(format->wFormatTag);
        return -1.0;
    case FORMATID:
        return static_cast<double>(p->GetFormatSeqNumber());
    case AUDIOCHANNELS:
    case AUDIOSAMPLERATE:
    case AUDIOBYTERATE:
    case AUDIOBITS: {
        const WAVEFORMATEX* format = AudioFormat(p);
        if (!format)
            return -1.0;
        switch (index) {
        case AUDIOCHANNELS:
            return format->nChannels;
        case AUDIOSAMPLERATE:
            return format->nSamplesPerSec;
        case AUDIOBYTERATE:
            return format->nAvgBytesPerSec;
        default:
            return format->wBitsPerSample;
        }
    }
    case VMDLEVEL: {
        int level = 0;
        return p->GetAttribute(kVmdLevelAttribute, &level) ? level : -1.0;
    }
    case SCHEMA:
        return kind == CKorPacket::KIND_TEXT ? static_cast<const CKorTextPacket*>(p)->GetSchema()
                                             : 0.0;
    default:
        return 0.0;
    }
}

double CZorPacketVocabulary::ReadValue(int index) {
    if (index < 0 || index >= Size())
        return 0.0;
    if (index >= kEntryCount)
        return GetNumber(index);
    return sm_Entries[index].m_Kind == kAction ? 0.0 : ReadField(index);
}

double CZorPacketVocabulary::ReadHostNumber(int index) {
    if (index >= kEntryCount)
        return GetNumber(index);
    return sm_Entries[index].m_Kind == kAction ? PerformAction(index) : ReadField(index);
}

void CZorPacketVocabulary::WriteHostNumber(int index, double value) {
    WriteValue(index, value);
}

void CZorPacketVocabulary::WriteValue(int index, double value) {
    if (index < 0 || index >= Size())
        return;
    if (index >= kEntryCount) {
        SetNumber(index, value);
        return;
    }
    switch (index) {
    case TIMESCALE:
        m_Host.SetTimeScale(value);
        return;
    case TIMEBASETS:
        m_Host.SetModuleTime(static_cast<std::int32_t>(TruncateToWord(value)));
        return;
    case LOCKED:
        SetLocked(value);
        return;
    case DELAY:
        SetDelay(value);
        return;
    default:
        break;
    }
    CKorPacket* p = m_pCurrent;
    if (!p)
        return;
    switch (index) {
    case TS:
        p->SetTimeStamp(ToTimeStamp(value));
        break;
    case RTS:
        p->SetRealTimeStamp(value);
        break;
    case STREAM:
        p->SetStreamNo(ToInt(value));
        break;
    case TIMESTAMPVALID:
        p->SetTimeStampValid(value != 0.0);
        break;
    case VMDLEVEL:
        p->SetAttribute(kVmdLevelAttribute, ToInt(value));
        break;
    default:
        break; // constants and read-only fields ignore assignments
    }
}

void CZorPacketVocabulary::ReadHostString(int index, std::string& out) {
    ReadText(index, out);
}

void CZorPacketVocabulary::WriteHostString(int index, const std::string& value) {
    WriteText(index, value);
    // A new text or payload changes SIZE.
    RebindFields();
}

void CZorPacketVocabulary::ReadText(int index, std::string& out) {
    if (index < 0 || index >= Size()) {
        out.clear();
        return;
    }
    if (index >= kEntryCount || !IsHostVariable(index)) {
        out = GetString(index);
        return;
    }
    out.clear();
    const CKorPacket* p = m_pCurrent;
    if (!p || sm_Entries[index].m_Kind != kStringField)
        return;
    const bool isText = p->GetKind() == CKorPacket::KIND_TEXT;
    switch (index) {
    case TEXTSTR:
        if (isText)
            out = static_cast<const CKorTextPacket*>(p)->Text().str();
        break;
    case DATA:
        if (isText)
            out = static_cast<const CKorTextPacket*>(p)->Text().str();
        else if (p->GetData())
            out.assign(reinterpret_cast<const char*>(p->GetData()), p->GetDataSize());
        break;
    case METADATA:
        for (const CKorMetadataHandler* h = p->GetMetadataHandler(); h; h = h->Next()) {
            const DWORD type = h->GetType();
            if (!out.empty())
                out += ' ';
            for (int shift = 0; shift < 32; shift += 8)
                out += static_cast<char>((type >> shift) & 0xFF);
        }
        break;
    default:
        break;
    }
}

void CZorPacketVocabulary::WriteText(int index, const std::string& value) {
    if (index < 0 || index >= Size())
        return;
    if (index >= kEntryCount || !IsHostVariable(index)) {
        SetString(index, value);
        return;
    }
    CKorPacket* p = m_pCurrent;
    if (!p || sm_Entries[index].m_Kind != kStringField)
        return; // the string form of a numeric name holds nothing
    const bool isText = p->GetKind() == CKorPacket::KIND_TEXT;
    if (index == TEXTSTR || (index == DATA && isText)) {
        if (!isText)
            return;
        auto* text = static_cast<CKorTextPacket*>(p);
        if (HasSchema(text->GetSchema())) {
            BelDump("APF: Packet defined by schema, cannot set text directly.\n");
            return;
        }
        text->SetText(value.c_str());
        return;
    }
    if (index == DATA) {
        if (!p->GetData() || value.size() > p->GetDataCapacity()) {
            BelDump("APF: DATA of %zu bytes does not fit the packet (room for %lu).\n",
                    value.size(), p->GetData() ? p->GetDataCapacity() : 0UL);
            return;
        }
        std::memcpy(p->GetData(), value.data(), value.size());
        p->SetDataSize(static_cast<unsigned long>(value.size()));
        return;
    }
    // METADATA: scripts may strip a packet's metadata; building metadata from text is not
    // offered, as its layout belongs to the components that make each kind.
    if (!value.empty()) {
        BelDump("APF: METADATA can only be cleared.\n");
        return;
    }
    p->SetMetadataHandler(nullptr, false);
}

// ---------------------------------------------------------------------------------------------
// Actions

double CZorPacketVocabulary::PerformAction(int index) {
    double result = 0.0;
    switch (index) {
    case DISCARD:
        if (m_pCurrent) {
            m_pCurrent->Release();
            m_pCurrent = nullptr;
        }
        break;
    case DISCARDSAVED:
        DropSaved();
        return 0.0;
    case PUSH:
        DropSaved();
        m_pSaved = m_pCurrent;
        m_pCurrent = nullptr;
        break;
    case SWAP:
        std::swap(m_pSaved, m_pCurrent);
        break;
    case POP:
        if (m_pCurrent)
            m_pCurrent->Release();
        m_pCurrent = m_pSaved;
        m_pSaved = nullptr;
        break;
    case CALLBACK:
        if (!m_Host.HasFilterCallback())
            return 0.0;
        ReadField(RECEIVEDTIME); // the callback sees the arrival time, not its own
        m_Host.FilterCallback();
        break;
    case EXPANDREFS:
        if (m_pCurrent)
            ExpandReferences(m_pCurrent, 0);
        return 0.0;
    case COPY: {
        if (!m_pCurrent)
            return 0.0;
        CKorPacket* clone = m_pCurrent->Clone();
        if (!clone) {
            BelDisplayAssert("pClone", __FILE__, __LINE__);
            return 0.0;
        }
        m_pCurrent->Release();
        m_pCurrent = clone;
        result = 1.0;
        break;
    }
    case DUMP:
        Dump();
        return 0.0;
    default:
        return 0.0;
    }
    // The current packet may be another one now: bound fields follow it.
    RebindFields();
    return result;
}

void CZorPacketVocabulary::ExpandReferences(CKorPacket* packet, int depth) {
    if (depth >= kMaxReferenceDepth)
        return;
    for (int i = 0; i < packet->GetReferenceCount(); ++i) {
        CKorPacket* referenced = packet->GetReference(i);
        if (!referenced)
            continue;
        referenced->AddRef(); // the output gets its own reference; the packet keeps its own
        m_Host.SendToOutput(referenced);
        ExpandReferences(referenced, depth + 1);
    }
}

void CZorPacketVocabulary::DropSaved() {
    if (m_pSaved) {
        m_pSaved->Release();
        m_pSaved = nullptr;
    }
}

void CZorPacketVocabulary::SetDelay(double seconds) {
    const double milliseconds = seconds * 1000.0;
    if (!std::isfinite(milliseconds))
        return;
    m_DelayMilliseconds = milliseconds;
    if (seconds != 0.0) {
        // A second request while held keeps the first alarm: the hold is not extended.
        if (!m_Host.IsFilterLocked()) {
            m_Host.ArmDelayAlarm(static_cast<long>(std::llround(milliseconds)));
            m_Host.LockFilter();
        }
    } else if (m_Host.IsFilterLocked()) {
        m_Host.CancelDelayAlarm();
        m_Host.UnlockFilter();
    }
}

void CZorPacketVocabulary::SetLocked(double value) {
    m_Host.CancelDelayAlarm();
    const bool locked = m_Host.IsFilterLocked();
    if (value != 0.0 && !locked)
        m_Host.LockFilter();
    else if (value == 0.0 && locked)
        m_Host.UnlockFilter();
}

// ---------------------------------------------------------------------------------------------
// Dump file

void CZorPacketVocabulary::SetDumpFile(std::string_view name) {
    if (m_pDumpFile) {
        std::fclose(m_pDumpFile);
        m_pDumpFile = nullptr;
    }
    m_DumpName.assign(name);
}

void CZorPacketVocabulary::Dump() {
    const CKorPacket* p = m_pCurrent;
    if (m_DumpName.empty() || !p)
        return;
    if (!m_pDumpFile) {
        m_pDumpFile = std::fopen(m_DumpName.c_str(), "ab");
        if (!m_pDumpFile)
            return; // an unwritable dump file must not stop the stream
    }
    if (p->GetKind() == CKorPacket::KIND_TEXT) {
        const CBelString& text = static_cast<const CKorTextPacket*>(p)->Text();
        std::fwrite(text.c_str(), 1, static_cast<size_t>(text.GetLength()), m_pDumpFile);
    } else if (p->GetKind() == CKorPacket::KIND_AUDIO) {
        // An audio packet hands out its data as a chain of packets.
        for (auto* a = static_cast<const CKorAudioPacket*>(p); a; a = a->Next())
            if (a->GetData())
                std::fwrite(a->GetData(), 1, a->GetDataSize(), m_pDumpFile);
    } else if (p->GetData()) {
        std::fwrite(p->GetData(), 1, p->GetDataSize(), m_pDumpFile);
    }
    // Flushed at once so that the file can be followed while the stream runs.
    std::fflush(m_pDumpFile);
}

// ---------------------------------------------------------------------------------------------
// Text schemas

const CZorPacketVocabulary::SSchema* CZorPacketVocabulary::FindSchema(int code) const {
    for (const SSchema& schema : m_Schemas)
        if (schema.m_Code == code)
            return &schema;
    return nullptr;
}

bool CZorPacketVocabulary::HasSchema(int code) const {
    return FindSchema(code) != nullptr;
}

void CZorPacketVocabulary::CreateSchema(int code) {
    if (auto* schema = const_cast<SSchema*>(FindSchema(code))) {
        schema->m_Fields.clear();
        return;
    }
    m_Schemas.push_back(SSchema{code, {}});
}

std::string CZorPacketVocabulary::AddSchemaField(int code, std::string_view variable) {
    auto* schema = const_cast<SSchema*>(FindSchema(code));
    if (!schema)
        return "no text schema " + Decimal(code);
    const bool isString = !variable.empty() && variable[0] == '$';
    const std::string_view name = isString ? variable.substr(1) : variable;
    if (!IsIdentifier(name))
        return "'" + std::string(variable) + "' is not a variable name";
    if (FindEntry(name) >= 0)
        return "'" + std::string(name) + "' is a predefined name";
    const int index = Lookup(name, true);
    for (const SSchemaField& field : schema->m_Fields)
        if (field.m_Index == index)
            return "'" + std::string(name) + "' is already a field of schema " + Decimal(code);
    schema->m_Fields.push_back(SSchemaField{index, isString});
    return {};
}

// The text of a schema packet is one "name=value" line per field, in the schema's order. Numbers
// are written in their shortest exact form; strings with "\\" and "\n" escaped.
bool CZorPacketVocabulary::BuildSchemaText(int code, std::string* text) {
    const SSchema* schema = FindSchema(code);
    if (!schema)
        return false;
    text->clear();
    for (const SSchemaField& field : schema->m_Fields) {
        *text += NameOf(field.m_Index);
        *text += '=';
        if (field.m_IsString) {
            AppendEscaped(*text, GetString(field.m_Index));
        } else {
            char buffer[32];
            auto [end, ec] =
                std::to_chars(buffer, buffer + sizeof buffer, GetNumber(field.m_Index));
            text->append(buffer, ec == std::errc() ? end : buffer);
        }
        *text += '\n';
    }
    return true;
}

void CZorPacketVocabulary::ExposeSchemaFields() {
    const CKorPacket* p = m_pCurrent;
    if (!p || p->GetKind() != CKorPacket::KIND_TEXT)
        return;
    auto* packet = static_cast<const CKorTextPacket*>(p);
    const SSchema* schema = FindSchema(packet->GetSchema());
    if (!schema)
        return;
    // Fields the text does not mention read as 0 or "", so no value leaks from an earlier packet.
    for (const SSchemaField& field : schema->m_Fields) {
        if (field.m_IsString)
            SetString(field.m_Index, "");
        else
            SetNumber(field.m_Index, 0.0);
    }
    const std::string& text = packet->Text().str();
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        const std::string_view line(text.data() + start, end - start);
        start = end + 1;
        const size_t equals = line.find('=');
        if (equals == std::string_view::npos)
            continue;
        const std::string_view name = line.substr(0, equals);
        const std::string_view value = line.substr(equals + 1);
        for (const SSchemaField& field : schema->m_Fields) {
            if (NameOf(field.m_Index) != name)
                continue;
            if (field.m_IsString) {
                SetString(field.m_Index, Unescape(value));
            } else {
                double number = 0.0;
                std::from_chars(value.data(), value.data() + value.size(), number);
                SetNumber(field.m_Index, number);
            }
            break;
        }
    }
}

void CZorPacketVocabulary::DebugOutput(std::string_view line) {
    BelDump("%.*s", static_cast<int>(line.size()), line.data());
}

void CZorPacketVocabulary::RuntimeMessage(std::string_view text) {
    BelDump("CZorAdvancedPacketFilter::ProcessPacket -> %.*s\n", static_cast<int>(text.size()),
            text.data());
}
