#include "io/WavSink.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/kor/Packet.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// The fields that decide how the data is laid out; the rest is derived or decoration.
bool SameLayout(const WAVEFORMATEX& a, const WAVEFORMATEX& b) {
    return a.wFormatTag == b.wFormatTag && a.nChannels == b.nChannels &&
           a.nSamplesPerSec == b.nSamplesPerSec && a.nBlockAlign == b.nBlockAlign &&
           a.wBitsPerSample == b.wBitsPerSample;
}

} // namespace

CWavSinkModule::CWavSinkModule(CWavSinkCom* owner) : CKorModule("WavSink"), m_pOwner(owner) {}

int CWavSinkModule::Receive(CKorPacket* packet) {
    m_pOwner->Write(packet);
    packet->Release();
    return 1;
}

CWavSinkCom::CWavSinkCom(const char* file, const char* path, const WAVEFORMATEX* format)
    : CKorInputPinComponent("WavSink"), m_File(file) {
    if (format) {
        if (!OpenFor(*format)) {
            return;
        }
    } else {
        // Find out now rather than at the first packet, when nobody could be told.
        std::FILE* probe = std::fopen(file, "wb");
        if (!probe) {
            m_Error = m_File + ": cannot create (" + std::strerror(errno) + ")";
            return;
        }
        std::fclose(probe);
    }
    ConnectPath(path);
}

CWavSinkCom::~CWavSinkCom() {
    Close();
}

bool CWavSinkCom::OpenFor(const WAVEFORMATEX& format) {
    if (m_Writer.Open(m_File, format)) {
        return true;
    }
    m_Error = m_Writer.Error();
    m_Failed = true;
    return false;
}

CKorModule* CWavSinkCom::CreateContext(const char* path) {
    if (CKorModule* existing = _GetContext(path)) {
        return existing;
    }
    return RememberContext(path, new CWavSinkModule(this));
}

void CWavSinkCom::Write(const CKorPacket* packet) {
    if (packet->GetKind() != CKorPacket::KIND_AUDIO) {
        ++m_Ignored;
        return;
    }
    for (auto* audio = static_cast<const CKorAudioPacket*>(packet); audio; audio = audio->Next()) {
        WriteOne(audio);
    }
}

void CWavSinkCom::WriteOne(const CKorAudioPacket* packet) {
    const WAVEFORMATEX* format = packet->GetAudioFormat();
    if (m_Closed || m_Failed || !format) {
        ++m_Dropped;
        return;
    }
    if (!m_Writer.IsOpen() && !OpenFor(*format)) {
        BelDump("CWavSinkCom::Write -> %s\n", m_Error.c_str());
        ++m_Dropped;
        return;
    }
    if (!SameLayout(*format, m_Writer.Format())) {
        if (packet->GetFormatSeqNumber() != m_RejectedSeq) {
            m_RejectedSeq = packet->GetFormatSeqNumber();
            BelDump("CWavSinkCom::Write -> %s: format changed (tag %u, %u Hz, %u channels); "
                    "packets dropped.\n",
                    m_File.c_str(), format->wFormatTag, format->nSamplesPerSec, format->nChannels);
        }
        ++m_Dropped;
        return;
    }
    if (!m_Writer.Write(packet->GetData(), packet->GetDataSize())) {
        m_Failed = true;
        BelDump("CWavSinkCom::Write -> %s: write failed.\n", m_File.c_str());
        ++m_Dropped;
        return;
    }
    ++m_Packets;
}

bool CWavSinkCom::Close() {
    if (m_Closed) {
        return !m_Failed;
    }
    m_Closed = true;
    if (!m_Writer.IsOpen()) {
        // Nothing arrived, so no format is known: a header-less file would mislead players.
        if (m_Error.empty()) {
            std::remove(m_File.c_str());
        }
        return !m_Failed;
    }
    if (!m_Writer.Close()) {
        m_Failed = true;
        m_Error = m_File + ": " + m_Writer.Error();
    }
    return !m_Failed;
}

const CJokPropertyMap<CWavSinkCom>& CWavSinkCom::PropertyMap() {
    static const CJokPropertyMap<CWavSinkCom> map = [] {
        CJokPropertyMap<CWavSinkCom> m;
        m.AddFunction("close", &CWavSinkCom::CloseMethod, "&CWavSinkCom::CloseMethod")
            .AddNotifiedDouble("bytes", &CWavSinkCom::BytesHandler, "&CWavSinkCom::BytesHandler", 1)
            .AddDouble("packets", &CWavSinkCom::m_Packets, "&CWavSinkCom::m_Packets", 1)
            .AddDouble("dropped", &CWavSinkCom::m_Dropped, "&CWavSinkCom::m_Dropped", 1)
            .AddDouble("ignored", &CWavSinkCom::m_Ignored, "&CWavSinkCom::m_Ignored", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CWavSinkCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKorInputPinComponent::GetProperty(name, flags);
}

int CWavSinkCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKorInputPinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CWavSinkCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKorInputPinComponent::GetPropertyEnumerator());
}

int CWavSinkCom::CloseMethod(CJokCommandContext* context) {
    if (!Close()) {
        CBelString message;
        message.Format("wav_sink.close: %s", m_Error.empty() ? "write failed" : m_Error.c_str());
        context->OutputErrorString(message);
        return 1;
    }
    context->SetReturnValueNoRef(CJokGdBoolean::Allocate(1));
    return 1;
}

int CWavSinkCom::BytesHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_Writer.DataSize());
    return 1;
}
