// The sound devices of the tests, which run on machines without a sound card: an ALSA
// configuration written into a fresh directory for this process, with alsa-lib pointed at it
// (ALSA_CONFIG_PATH). Its PCMs:
//   zor_speech      capture of the bundled speech at the card's real pace (the test plugin,
//                   tests/support/AlsaTestPlugin.cpp); playback discarded at that pace
//   zor_unpaced     the same without waiting: everything at once
//   zor_vanishing   a paced card that disappears after 0.25 s of streaming
//   zor_file_in     alsa-lib's own file plugin over its null one: capture of RawInput()
//   zor_file_out    the same for playback: what is played lands in RawOutputPath()
//   default         capture zor_unpaced, playback zor_file_out
#pragma once

#include <string>
#include <vector>

namespace zortest {

class CAlsaTestConfig {
public:
    // Writes the configuration once per process and answers it.
    static const CAlsaTestConfig& Install();

    const std::string& Dir() const { return m_Dir; }
    // The speech's sample data (8 kHz, 16-bit, mono), as zor_file_in and zor_speech capture it.
    const std::vector<unsigned char>& SpeechData() const { return m_Speech; }
    std::string SpeechWav() const;
    std::string RawOutputPath() const { return m_Dir + "/played.raw"; }
    // What zor_file_out has written so far.
    std::vector<unsigned char> RawOutput() const;

private:
    CAlsaTestConfig();
    std::string m_Dir;
    std::vector<unsigned char> m_Speech;
};

} // namespace zortest
