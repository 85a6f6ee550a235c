#include "tests/support/Harness.h"

#include "framework/bel/BelClock.h"
#include "framework/bel/BelMessageLoop.h"
#include "framework/kor/PacketSource.h"

#include <cstring>

namespace zortest {

CTestSource::~CTestSource() {
    if (m_pPending) {
        m_pPending->Release();
    }
}

bool CTestSource::Push(CKorPacket* packet) {
    if (m_pPending) {
        packet->Release();
        return false;
    }
    if (DownStreamModule()->Receive(packet)) {
        return true;
    }
    m_pPending = packet;
    return false;
}

void CTestSource::Poll() {
    ++m_PollCount;
    if (m_pPending && DownStreamModule()->Receive(m_pPending)) {
        m_pPending = nullptr;
    }
}

void CTestSource::Flush() {
    if (m_pPending) {
        m_pPending->Release();
        m_pPending = nullptr;
    }
    CKorModule::Flush();
}

CTestSink::~CTestSink() {
    Clear();
}

int CTestSink::Receive(CKorPacket* packet) {
    if (m_Refuse) {
        ++m_RefusedCount;
        return 0;
    }
    m_Packets.push_back(packet);
    return 1;
}

void CTestSink::Flush() {
    ++m_FlushCount;
}

void CTestSink::Clear() {
    for (CKorPacket* packet : m_Packets) {
        packet->Release();
    }
    m_Packets.clear();
}

CKorPacket* MakeDataPacket(long timeStamp, int streamNo, int size) {
    CKorPacket* packet = g_DataPacketSource.NewPacket(size);
    packet->SetTimeStamp(static_cast<std::uint32_t>(timeStamp));
    packet->SetTimeStampValid(true);
    packet->SetStreamNo(streamNo);
    packet->SetDataSize(static_cast<unsigned long>(size));
    return packet;
}

CKorVideoPacket* MakeVideoPacket(long timeStamp, int frameType, int streamNo) {
    CKorVideoPacket* packet = g_VideoPacketSource.NewPacket(64);
    packet->SetTimeStamp(static_cast<std::uint32_t>(timeStamp));
    packet->SetTimeStampValid(true);
    packet->SetStreamNo(streamNo);
    packet->SetFrameType(frameType);
    packet->SetDataSize(64);
    return packet;
}

CKorAudioPacket* MakePcmPacket(long timeStamp, const std::vector<short>& samples,
                               unsigned sampleRate) {
    const long bytes = static_cast<long>(samples.size() * sizeof(short));
    CKorAudioPacket* packet = g_AudioPacketSource.NewPacket(samples.data(), bytes, 0);
    static const long formatSeq = CKorPacket::GetNewFormatSeqNumber();
    WAVEFORMATEX format{1, 1, sampleRate, sampleRate * 2, 2, 16, 0};
    packet->SetAudioFormat(&format, formatSeq);
    packet->SetTimeStamp(static_cast<std::uint32_t>(timeStamp));
    packet->SetTimeStampValid(true);
    packet->SetRealTimeStamp(static_cast<double>(timeStamp) / 1000.0);
    return packet;
}

CVirtualClockScope::CVirtualClockScope() {
    BelUseVirtualClock(true);
}

CVirtualClockScope::~CVirtualClockScope() {
    BelUseVirtualClock(false);
}

void CVirtualClockScope::Advance(double milliseconds) {
    CBelMessageLoop::Current().Advance(milliseconds);
}

} // namespace zortest
