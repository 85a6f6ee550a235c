// The audio sample mixer: mixes stored clips (prompts, tones) into the 16-bit PCM passing on its
// path, and can generate a steady carrier of constant samples, paced to the wall clock, so that a
// clip plays when no live audio flows.
//
//   local mixer = zor.CreateAudioSampleMixer{}          -- serves "audio"; dataPath = joins one
//   mixer.AddSound{ identifier = "chime", audioData = samples }  -- 16-bit little-endian bytes
//   mixer.mixingDoneCallback = function(identifier, self) print(identifier .. " done") end
//   mixer.Mix{ identifier = "chime", mixFactor = 0.5 }    -- into the live stream, at half gain
//   mixer.Mix{ identifier = "chime", frequency = 8000, samples = 160 }  -- on a carrier
//
// Invariants:
//  - Only 16-bit mono PCM (format tag 1) is mixed, and only while a clip plays: each sample
//    becomes the integer part of sample x mix factor + clip sample, held to the 16-bit range,
//    in place; samples past the clip's end are left as they were. Other audio passes untouched
//    (one diagnostic line per format while a clip plays); other kinds pass silently.
//  - The clip ends when its last sample has been mixed, on "Stop", and when "Mix" starts another;
//    every end calls "mixingDoneCallback" once with the clip's identifier, after the mixer's new
//    state is in place, so the callback may start the next clip.
//  - The generator stops with the clip. Its packets are 8 kHz mono PCM of 1 to 720 samples (a
//    1440-byte packet), stamped with the clock, handed to the mixer's own input (so they are
//    mixed like live packets) and spaced samples / frequency seconds apart on average; a
//    refused packet is released and retried a millisecond later.
//  - A clip is shared, not copied: replacing a sound with "AddSound" while it plays lets the
//    playing clip finish with its old samples.
#pragma once

#include "entry/ZorExport.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/UnbufferedModule.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

class CJokCommandContext;
class CJokPropertyEnum;
struct IJokCommand;
struct SZorSampleKernels;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorAudioSampleMixer : public CKorUnbufferedModule {
public:
    // What a 1440-byte packet of 16-bit samples holds.
    static constexpr int kMaxGeneratorSamples = 720;

    // Called at every end of a clip with its identifier.
    using DoneCallback = std::function<void(const CBelString& identifier)>;

    struct SGenerator {
        int m_Samples;     // per packet, 1..kMaxGeneratorSamples
        short m_Value;     // every generated sample
        double m_Interval; // seconds between packets, > 0
    };

    CZorAudioSampleMixer();
    ~CZorAudioSampleMixer() override;

    // Makes the clip current (from its start, with the mix factor, which must be finite) and
    // starts or stops the generator; then ends the clip that was current, if any. clip may be
    // empty (nullptr) for the carrier alone.
    void Play(const CBelString& identifier, std::shared_ptr<const std::string> clip, double factor,
              const SGenerator* generator);
    // Ends the current clip (if any) and the generator.
    void Stop();
    void SetDoneCallback(DoneCallback callback) { m_Done = std::move(callback); }

    bool IsPlaying() const { return m_pClip != nullptr; }
    bool IsGenerating() const { return m_Generating; }
    const CBelString& CurrentIdentifier() const { return m_Identifier; }
    // Bytes of the current clip mixed so far.
    std::size_t Position() const { return m_Position; }

protected:
    void ProcessPacket() override;
    // A generator tick.
    void TimeOut(long now) override;

private:
    void StopGenerator();
    // Clears the current clip and the generator; answers the identifier when a clip was current.
    bool TakeClip(CBelString* identifier);
    void EndClip();

    const SZorSampleKernels& m_Kernels;
    DoneCallback m_Done;
    CBelString m_Identifier;
    std::shared_ptr<const std::string> m_pClip;
    std::size_t m_Position = 0;
    double m_Factor = 1.0;
    long m_ReportedFormat = -1; // format sequence number last reported as not mixable

    bool m_Generating = false;
    unsigned m_GeneratorRun = 0; // changes at every start and stop, so a tick knows its run
    SGenerator m_Generator{};
    double m_Next = 0.0; // clock time of the next packet, seconds
};

class CAudioSampleMixerCom final : public CKor2PinComponent {
public:
    // The mixer serves dataPath, or "audio" when it is empty; a path given is joined by name.
    explicit CAudioSampleMixerCom(const char* dataPath);
    ~CAudioSampleMixerCom() override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    // The mixer module of its path (made on first request); nullptr for any other path.
    CKorModule* CreateContext(const char* path) override;

    int AddSound(CJokCommandContext* context);
    int Mix(CJokCommandContext* context);
    int Stop(CJokCommandContext* context);

    // The mixer module (borrowed; the component's bus owns it).
    CZorAudioSampleMixer* Module() { return m_pModule; }

private:
    static const CJokPropertyMap<CAudioSampleMixerCom>& PropertyMap();
    // Calls mixingDoneCallback(identifier, mixer). May release the mixer's last reference.
    void CallMixingDone(const CBelString& identifier);

    CBelString m_Path;
    CZorAudioSampleMixer* m_pModule = nullptr;
    std::map<std::string, std::shared_ptr<const std::string>> m_Sounds;
    IJokCommand* m_pMixingDoneCallback = nullptr; // one reference, or nullptr
};

// "CreateAudioSampleMixer": the mixer, with an optional "dataPath" (a string).
int CreateAudioSampleMixer(CJokCommandContext* context);
