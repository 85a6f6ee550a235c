// The audio encoder component: encodes 16-bit PCM packets on the "audio" path into G.711 mu-law
// ("64 kbps") or G.726 at 32, 24 or 16 kbit/s; everything else passes through untouched.
//
//   local enc = zor.CreateAudioEncoder{}
//   enc.format = "32 kbps"                                   -- G.726-32
//   enc.SetWaveFormatEx{ format = "9a020100401f0000b80b00000c0003000200" } -- G.726-24
//   zor.connect("audio", src, enc, sink)
//
// Invariants:
//  - There is always an encoder: the component starts at "64 kbps", and a refused "format"
//    (a name without an encoder: "40 kbps", "32 kbps (MS IMA ADPCM)", anything else) keeps the
//    old encoder, its state and its name.
//  - Only audio packets with format tag 1 are encoded; each is replaced by its encoding and
//    released. An input longer than one output packet holds (1440 mu-law samples, or 2880, 3840
//    and 5760 samples at G.726-32, -24, -16) is cut into several packets, delivered in order
//    before the next input is taken.
//  - The module is unbuffered: a refused packet waits in the module and the next input is
//    refused until downstream takes it (see UnbufferedModule.h).
#pragma once

#include "audio/AudioEncoder.h"
#include "entry/ZorExport.h"
#include "framework/kor/PacketChainer.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/UnbufferedModule.h"

#include <memory>

class CJokCommandContext;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorAudioEncoder : public CKorUnbufferedModule {
public:
    CZorAudioEncoder();
    ~CZorAudioEncoder() override;

    // Takes one reference on success (non-zero). Refuses while pieces of a cut input are still
    // waiting for downstream.
    int Receive(CKorPacket* packet) override;
    void Poll() override;
    void Flush() override;

    // Makes the encoder of a format name ("64 kbps", "32 kbps", "24 kbps", "16 kbps") and
    // answers true; any other name answers false and changes nothing.
    bool SetFormat(const CBelString& name);
    const CBelString& GetFormat() const { return m_sFormat; }
    // The current encoder (borrowed; never nullptr).
    CAudioEncoderImpl* GetEncoder() const { return m_pEncoder.get(); }

    // The format name the encoder of this record would have, or nullptr when there is none
    // (only tag 7, and tag 666 with 2, 3 or 4 bits per sample, have encoders).
    static const char* FormatNameOf(const WAVEFORMATEX& format);

protected:
    void ProcessPacket() override;

private:
    std::unique_ptr<CAudioEncoderImpl> m_pEncoder;
    CBelString m_sFormat;
    CKorPacketChainer m_Pieces; // pieces of a cut input that downstream has not yet taken
};

class CAudioEncoderCom final : public CKor2PinComponent {
public:
    CAudioEncoderCom();

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    // The encoder module for "audio" (made on first request); nullptr for any other path.
    CKorModule* CreateContext(const char* path) override;

    int FormatHandler(CBelString* value, int set);
    int SetWaveFormatExHandler(CJokCommandContext* context);

    // The encoder module (borrowed; the component's bus owns it).
    CZorAudioEncoder* Module() { return m_pModule; }

private:
    static const CJokPropertyMap<CAudioEncoderCom>& PropertyMap();

    CZorAudioEncoder* m_pModule = nullptr;
};
