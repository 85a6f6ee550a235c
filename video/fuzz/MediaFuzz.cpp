// libFuzzer harness over the media source's input path (docs/fuzzing.md): arbitrary bytes as a
// media file read to its end by the demuxer, every payload written out, and the same bytes
// through the H.264/HEVC bitstream helpers directly.
#include "video/AnnexB.h"
#include "video/MediaDemuxer.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

void Bitstream(const std::uint8_t* data, std::size_t size) {
    if (size < 1) {
        return;
    }
    // The first byte picks the codec and the length prefixes; the rest is the unit.
    const ENalCodec codec = (data[0] & 1) ? ENalCodec::Hevc : ENalCodec::H264;
    const int lengthSizes[4] = {0, 1, 2, 4};
    const int lengthSize = lengthSizes[data[0] >> 1 & 3];
    ++data;
    --size;
    CNalScanner scanner(codec, lengthSize);
    scanner.Learn(data, size);
    scanner.Scan(data, size);
    std::vector<std::uint8_t> sets;
    scanner.ParameterSets(data, size, &sets);
    std::vector<std::uint8_t> out(NalMaxAnnexBSize(size, lengthSize));
    NalWriteAnnexB(data, size, lengthSize, out.data());
    int configLength = 0;
    ParseNalConfig(codec, data, size, &sets, &configLength);
}

void Demux(const std::uint8_t* data, std::size_t size) {
    static const std::string file = "/dev/shm/zor-media-fuzz-" + std::to_string(getpid());
    FILE* out = std::fopen(file.c_str(), "wb");
    if (!out) {
        return;
    }
    std::fwrite(data, 1, size, out);
    std::fclose(out);
    CMediaDemuxer demuxer;
    if (!demuxer.Open(file, {})) {
        return;
    }
    SMediaPacket packet;
    std::vector<std::uint8_t> payload;
    for (int i = 0; i < 2000 && demuxer.Read(&packet) == CMediaDemuxer::EResult::Packet; ++i) {
        payload.resize(packet.PayloadSize());
        packet.WritePayload(payload.data());
    }
    demuxer.TakeNotes();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bitstream(data, size);
    Demux(data, size);
    return 0;
}
