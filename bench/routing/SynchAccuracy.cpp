// Release accuracy of the synchroniser on the real clock: a stream of timestamped packets at a
// fixed rate through one synchroniser, each release compared with the instant the module clock
// read the packet's timestamp. Prints the median, 99th percentile and maximum of |lateness|.
//
//     zor_synch_accuracy [seconds=20] [packets per second=25] [scale=1.0]
#include "framework/bel/BelMessageLoop.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "routing/Synch.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <vector>

namespace {

// Offers its queue downstream, in order, whenever polled.
class CQueueSource : public CKorModule {
public:
    CQueueSource() : CKorModule("QueueSource") {}
    ~CQueueSource() override {
        for (CKorPacket* packet : m_Queue) {
            packet->Release();
        }
    }
    void Add(CKorPacket* packet) { m_Queue.push_back(packet); } // takes the reference
    void Poll() override {
        while (!m_Queue.empty() && DownStreamModule()->Receive(m_Queue.front())) {
            m_Queue.pop_front();
        }
    }

private:
    std::deque<CKorPacket*> m_Queue;
};

// Notes, for every packet, how far past its timestamp the synchroniser's clock was (in wall
// milliseconds) when it arrived.
class CLatenessProbe : public CKorModule {
public:
    explicit CLatenessProbe(const CZorSynchModule& synch)
        : CKorModule("LatenessProbe"), m_Synch(synch) {}
    int Receive(CKorPacket* packet) override {
        const double late =
            (m_Synch.GetPreciseTime() - static_cast<double>(packet->GetTimeStamp())) /
            m_Synch.GetScaleFactor();
        m_Lateness.push_back(late);
        packet->Release();
        return 1;
    }
    std::vector<double> m_Lateness;

private:
    const CZorSynchModule& m_Synch;
};

double Percentile(std::vector<double> values, double fraction) {
    std::sort(values.begin(), values.end());
    const auto index = static_cast<size_t>(fraction * static_cast<double>(values.size() - 1) + 0.5);
    return values[std::min(index, values.size() - 1)];
}

} // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 20.0;
    const double rate = argc > 2 ? std::atof(argv[2]) : 25.0;
    const double scale = argc > 3 ? std::atof(argv[3]) : 1.0;
    const int count = static_cast<int>(seconds * rate * scale);
    if (count < 2) {
        std::fprintf(stderr, "usage: %s [seconds] [packets per second] [scale]\n", argv[0]);
        return 2;
    }

    CQueueSource source;
    CZorSynchModule synch(CBelString(""));
    CLatenessProbe probe(synch);
    source | synch | probe;
    for (int i = 0; i < count; ++i) {
        CKorPacket* packet = g_DataPacketSource.NewPacket(64);
        packet->SetTimeStamp(static_cast<std::uint32_t>(std::lround(1000.0 * i / rate)));
        packet->SetTimeStampValid(true);
        source.Add(packet);
    }
    synch.SetScaleFactor(scale);
    synch.SetTime(0);
    source.Poll();
    CBelMessageLoop::Current().RunFor(seconds + 0.5);

    std::vector<double> lateness;
    for (double late : probe.m_Lateness) {
        lateness.push_back(std::fabs(late));
    }
    if (lateness.empty()) {
        std::fprintf(stderr, "nothing was released\n");
        return 1;
    }
    std::printf("synchroniser release accuracy, real clock, scale %.2f, %.0f packets/s, %zu "
                "releases\n",
                scale, rate, lateness.size());
    std::printf("  |release - due|  median %.3f ms   p99 %.3f ms   max %.3f ms\n",
                Percentile(lateness, 0.5), Percentile(lateness, 0.99),
                *std::max_element(lateness.begin(), lateness.end()));
    return lateness.size() == static_cast<size_t>(count) ? 0 : 1;
}
