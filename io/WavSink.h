// zor.wav_sink: writes the audio packets it receives to a WAV file.
//
//     local out = zor.wav_sink{ file = "out.wav", path = "audio" }
//     ...                          -- packets flow
//     assert(out.close())          -- patches the header; also done when the sink goes
//
// The file takes the format of the first audio packet (or the format given when the sink is
// made). PCM is written with the 16-byte format record; G.711 A-law (tag 6), mu-law (tag 7) and
// any other tag with the full record and a fact chunk, as common players expect. Packets of
// another format are dropped with one diagnostic line per change; packets of other kinds are
// taken and ignored. The sink never refuses a packet. Chained audio packets (Append) are
// written in chain order.
#pragma once

#include "framework/jok/PropertyMap.h"
#include "framework/kor/Module.h"
#include "framework/kor/PinComponent.h"
#include "framework/wave/WavFile.h"

#include <string>

class CKorAudioPacket;
class CWavSinkCom;

class CWavSinkModule : public CKorModule {
public:
    explicit CWavSinkModule(CWavSinkCom* owner);
    // Always takes the packet (answer 1).
    int Receive(CKorPacket* packet) override;

private:
    CWavSinkCom* m_pOwner; // owns this module through its bus
};

class CWavSinkCom : public CKorInputPinComponent {
public:
    // Makes sure file can be written (check IsUsable() / Error()); with format (borrowed, may be
    // nullptr) the file is opened for it at once. Joins path unless it is empty.
    CWavSinkCom(const char* file, const char* path, const WAVEFORMATEX* format);
    ~CWavSinkCom() override;

    bool IsUsable() const { return m_Error.empty(); }
    const std::string& Error() const { return m_Error; }

    CKorModule* CreateContext(const char* path) override;
    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    // Borrows packet.
    void Write(const CKorPacket* packet);
    // Answers false when the file could not be written completely.
    bool Close();

private:
    static const CJokPropertyMap<CWavSinkCom>& PropertyMap();
    void WriteOne(const CKorAudioPacket* packet);
    bool OpenFor(const WAVEFORMATEX& format);
    int CloseMethod(CJokCommandContext* context);
    int BytesHandler(double* value, int set);

    std::string m_File;
    std::string m_Error;
    CWavWriter m_Writer;
    bool m_Closed = false;
    bool m_Failed = false;  // a write failed: later ones are not tried
    long m_RejectedSeq = 0; // format sequence number last complained about
    double m_Packets = 0;   // audio packets written
    double m_Dropped = 0;   // audio packets not written (wrong format, after close, failure)
    double m_Ignored = 0;   // packets of other kinds
};
