// zor.wav_source: reads a WAV file and gives its sample data out as audio packets.
//
//     local wav = zor.wav_source{ file = "examples/data/speech.wav", path = "audio" }
//     local sink = zor.sink{ path = "audio" }
//     wav.run()                    -- everything, as fast as downstream takes it
//     assert(wav.done)
//
// Each packet comes from the framework's audio packet source (capacity 1440 bytes) and holds at
// most 1440 bytes of whole blocks, the file's format record with one format sequence number for
// the whole file, a valid timestamp (ms) and a real timestamp (s) taken from the position of its
// first sample. Any format tag is passed on as found.
//
// Two ways to drive it:
//  - run() offers packets until downstream refuses one or the data ends. A refused packet waits
//    in the source; when downstream polls, the source offers it again and carries on.
//  - start() paces the packets on the message loop by their timestamps, from now on the
//    framework clock (zor.run, or zor.advance on the virtual clock); stop() ends the pacing.
// The file is opened when the source is made, so a missing or malformed file is reported then.
#pragma once

#include "framework/jok/PropertyMap.h"
#include "framework/kor/Module.h"
#include "framework/kor/PinComponent.h"
#include "framework/wave/WavFile.h"

class CKorAudioPacket;

class CWavSourceModule : public CKorModule {
public:
    // At most this many bytes of data per packet, the audio packet source's packet size.
    static constexpr unsigned long kPacketBytes = 1440;

    // Borrows reader, which must be open and outlive the module.
    CWavSourceModule(CWavReader& reader, long formatSeqNumber);
    ~CWavSourceModule() override;

    // Offers packets until one is refused or the data ends; answers how many were taken.
    long Pump();
    // Paces the packets by timestamp from now on the framework clock.
    void Start();
    void Stop();

    void Poll() override;
    void Flush() override;
    void TimeOut(long now) override;

    bool IsDone() const { return !m_pPending && m_Reader.Position() >= m_Reader.DataSize(); }
    long Delivered() const { return m_Delivered; }

private:
    // A new packet of the next data (one reference), or nullptr at the end.
    CKorAudioPacket* ReadPacket();
    // Seconds from the start of the data to the given byte position.
    double SecondsAt(unsigned long position) const;
    // Offers the pending packet; answers whether nothing waits any more.
    bool DeliverPending();
    // Offers packets while due (all when not paced); answers how many were taken.
    long Emit();
    void ScheduleNext();

    CWavReader& m_Reader;
    long m_FormatSeqNumber;
    CKorPacket* m_pPending = nullptr; // one reference
    long m_Delivered = 0;
    bool m_Paced = false;
    double m_StartClock = 0.0; // framework clock (s) at the start of pacing
};

class CWavSourceCom : public CKorOutputPinComponent {
public:
    // Opens file; check IsOpen() / Error() before use. Joins path unless it is empty.
    CWavSourceCom(const char* file, const char* path);

    bool IsOpen() const { return m_Open; }
    const std::string& Error() const { return m_Error; }

    CKorModule* CreateContext(const char* path) override;
    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

private:
    static const CJokPropertyMap<CWavSourceCom>& PropertyMap();
    bool NeedsModule(CJokCommandContext* context, const char* method);
    int Run(CJokCommandContext* context);
    int Start(CJokCommandContext* context);
    int Stop(CJokCommandContext* context);
    int DoneHandler(int* value, int set);
    int DeliveredHandler(double* value, int set);
    int DurationHandler(double* value, int set);

    CWavReader m_Reader;
    bool m_Open = false;
    std::string m_Error;
    long m_FormatSeqNumber = 0;
    CWavSourceModule* m_pModule = nullptr; // owned by the bus
    // The format's fields as script numbers (read-only properties).
    double m_Tag = 0, m_Channels = 0, m_Rate = 0, m_Bits = 0, m_BlockAlign = 0, m_AvgBytes = 0;
    int m_Truncated = 0;
};
