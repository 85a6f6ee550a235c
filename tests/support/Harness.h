// The test harness every module test uses: a packet-pushing source, a collecting sink that can
// refuse on demand, packet builders and a virtual-clock scope.
#pragma once

#include "framework/kor/Module.h"
#include "framework/kor/Packet.h"

#include <vector>

namespace zortest {

// Pushes packets downstream the way a real upstream module does: a refused packet is kept and
// offered again on Poll.
class CTestSource : public CKorModule {
public:
    CTestSource() : CKorModule("TestSource") {}
    ~CTestSource() override;
    // Takes the packet's reference; answers whether downstream took it now.
    bool Push(CKorPacket* packet);
    void Poll() override;
    void Flush() override;
    CKorPacket* Pending() const { return m_pPending; }
    int PollCount() const { return m_PollCount; }

private:
    CKorPacket* m_pPending = nullptr;
    int m_PollCount = 0;
};

// Keeps one reference to every packet it takes; refuses while m_Refuse is set.
class CTestSink : public CKorModule {
public:
    CTestSink() : CKorModule("TestSink") {}
    ~CTestSink() override;
    int Receive(CKorPacket* packet) override;
    void Flush() override;
    void Clear();
    const std::vector<CKorPacket*>& Packets() const { return m_Packets; }
    int Count() const { return static_cast<int>(m_Packets.size()); }
    bool m_Refuse = false;
    int m_RefusedCount = 0;
    int m_FlushCount = 0;

private:
    std::vector<CKorPacket*> m_Packets;
};

// Releases every packet it takes, as the consumer at the end of a chain does (benchmarks end
// their chains with it: it keeps nothing, so it costs nothing but the release).
class CConsumingSink : public CKorModule {
public:
    CConsumingSink() : CKorModule("ConsumingSink") {}
    int Receive(CKorPacket* packet) override {
        packet->Release();
        return 1;
    }
};

// Packet builders: each answers a new packet with one reference.
CKorPacket* MakeDataPacket(long timeStamp, int streamNo = 0, int size = 16);
CKorVideoPacket* MakeVideoPacket(long timeStamp, int frameType, int streamNo = 0);
CKorAudioPacket* MakePcmPacket(long timeStamp, const std::vector<short>& samples,
                               unsigned sampleRate = 8000);

// Switches the framework clock to virtual time for the life of the scope.
class CVirtualClockScope {
public:
    CVirtualClockScope();
    ~CVirtualClockScope();
    // Moves the virtual clock on, firing the calling thread's due timers in order.
    void Advance(double milliseconds);
};

} // namespace zortest
