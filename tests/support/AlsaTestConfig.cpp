#include "tests/support/AlsaTestConfig.h"

#include "framework/wave/WavFile.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace zortest {

const CAlsaTestConfig& CAlsaTestConfig::Install() {
    static const CAlsaTestConfig config;
    return config;
}

std::string CAlsaTestConfig::SpeechWav() const {
    return std::string(ZOR_SOURCE_DIR) + "/examples/data/speech.wav";
}

CAlsaTestConfig::CAlsaTestConfig() {
    char pattern[] = "/tmp/zor-alsa-XXXXXX";
    m_Dir = mkdtemp(pattern) ? pattern : "/tmp";
    CWavReader reader;
    if (reader.Open(SpeechWav())) {
        m_Speech.resize(reader.DataSize());
        m_Speech.resize(reader.Read(m_Speech.data(), reader.DataSize()));
    }
    std::ofstream(m_Dir + "/speech.raw", std::ios::binary)
        .write(reinterpret_cast<const char*>(m_Speech.data()),
               static_cast<std::streamsize>(m_Speech.size()));
    const std::string speech = "\"" + SpeechWav() + "\"";
    std::ofstream conf(m_Dir + "/asound.conf");
    conf << "pcm_type.zortest { lib \"" << ZOR_ALSA_TEST_PLUGIN << "\" }\n"
         << "pcm.zor_speech { type zortest infile " << speech << " }\n"
         << "pcm.zor_unpaced { type zortest paced false infile " << speech << " }\n"
         << "pcm.zor_vanishing { type zortest fail_after 0.25 }\n"
         << "pcm.zor_file_in { type file slave.pcm { type null } file \"/dev/null\" infile \""
         << m_Dir << "/speech.raw\" format \"raw\" }\n"
         << "pcm.zor_file_out { type file slave.pcm { type null } file \"" << RawOutputPath()
         << "\" format \"raw\" }\n"
         << "pcm.!default { type asym capture.pcm \"zor_unpaced\" playback.pcm \"zor_file_out\" "
            "}\n";
    conf.close();
    setenv("ALSA_CONFIG_PATH", (m_Dir + "/asound.conf").c_str(), 1);
}

std::vector<unsigned char> CAlsaTestConfig::RawOutput() const {
    std::ifstream in(RawOutputPath(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

} // namespace zortest
