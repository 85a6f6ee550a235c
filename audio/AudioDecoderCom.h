// The audio decoder component: decodes G.711 mu-law and A-law, G.726 at 16 to 40 kbit/s and IMA
// ADPCM packets on the "audio" path into 16-bit PCM, cut into packets of at most 700 samples.
// Audio it cannot decode, and every other packet, goes on unchanged.
//
//   local dec = zor.CreateAudioDecoder{}
//   zor.connect("audio", src, dec, sink)
//   zor.run_until_idle()
//   print(dec.format)                                         -- "24 kbps", say
//
// Invariants:
//  - The decoder is chosen again only when an audio packet's format sequence number changes; a
//    new decoder starts from fresh codec state, and nothing else resets it.
//  - Output packets carry the component's own format sequence number, taken once when it is
//    made: every stream decodes to "16-bit PCM from this decoder".
//  - Decoded packets wait in the pending list, oldest first, until downstream takes them; while
//    any waits, new packets are refused untouched. Poll drains the list before asking upstream.
//  - Every sample of an output packet is written: samples the codec does not produce (the last
//    8 of an IMA block, a partial G.726 group at the end of the input) are silence, never stale
//    pool memory.
#pragma once

#include "audio/codecs/AudioDecoderImpl.h"
#include "entry/ZorExport.h"
#include "framework/kor/Module.h"
#include "framework/kor/PacketChainer.h"
#include "framework/kor/PinComponent.h"

#include <memory>

class CKorAudioPacket;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorAudioDecoder : public CKorModule {
public:
    // The PCM samples one output packet holds at most.
    static constexpr int kChunkSamples = 700;

    CZorAudioDecoder();
    ~CZorAudioDecoder() override;

    // Takes one reference on success (non-zero); see the file comment for the refusal rule.
    int Receive(CKorPacket* packet) override;
    void Poll() override;
    // Releases the pending list, then flushes downstream.
    void Flush() override;

    // Keeps or replaces the decoder for the packet's format (borrows packet).
    void ChooseDecoder(const CKorAudioPacket* packet);
    // Decodes the packet into PCM packets appended to the pending list; takes the packet's
    // reference. Needs a decoder (ChooseDecoder found one).
    void DecodePacket(CKorAudioPacket* packet);

    // The current format name ("64 kbps" ...); empty until the first decodable packet.
    const CBelString& GetFormat() const { return m_sFormat; }
    // The current decoder (borrowed), or nullptr.
    CAudioDecoderImpl* GetDecoder() const { return m_pDecoder.get(); }
    long GetOutputFormatSeqNumber() const { return m_OutputFormatSeq; }
    int PendingCount() const { return m_Pending.Count(); }

private:
    std::unique_ptr<CAudioDecoderImpl> m_pDecoder;
    int m_DecoderBits = 0;        // bits per code of the current decoder's format
    long m_LastFormatSeq = -1;    // the input's format sequence number last seen
    const long m_OutputFormatSeq; // this component's PCM format
    CBelString m_sFormat;
    CKorPacketChainer m_Pending; // decoded (or undecodable) packets not yet taken downstream
};

class CAudioDecoderCom final : public CKor2PinComponent {
public:
    CAudioDecoderCom();

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    // The decoder module for "audio" (made on first request); nullptr for any other path.
    CKorModule* CreateContext(const char* path) override;

    // Read-only: the decoder module's current format name.
    int FormatHandler(CBelString* value, int set);

    // The decoder module (borrowed; the component's bus owns it).
    CZorAudioDecoder* Module() { return m_pModule; }

private:
    static const CJokPropertyMap<CAudioDecoderCom>& PropertyMap();

    CZorAudioDecoder* m_pModule = nullptr;
};
