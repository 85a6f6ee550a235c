// Test support: reads the video stream of a clip file into compressed video packets, the way
// the media source delivers them (timestamp in ms from the presentation time, a shared format
// record with the compression FOURCC, key pictures as I-frames). Tests and benchmarks feed the
// decoder from it; it is no media source (no pacing, no audio, no network).
#pragma once

#include <string>
#include <vector>

class CKorVideoPacket;

namespace zortest {

// The build tree's clip folder (tests/video/make_clips.sh writes it).
std::string ClipPath(const std::string& name);

class CClipPackets {
public:
    // Reads every video packet of the file; Ok() is false (Error() says why) when it cannot.
    explicit CClipPackets(const std::string& file);
    ~CClipPackets();
    CClipPackets(const CClipPackets&) = delete;
    CClipPackets& operator=(const CClipPackets&) = delete;

    bool Ok() const { return m_Error.empty(); }
    const std::string& Error() const { return m_Error; }
    int Count() const { return static_cast<int>(m_Packets.size()); }
    int Width() const { return m_Width; }
    int Height() const { return m_Height; }
    // The index-th packet (borrowed; the reader keeps its reference).
    CKorVideoPacket* At(int index) const { return m_Packets[static_cast<size_t>(index)]; }
    // A new reference to the index-th packet.
    CKorVideoPacket* Take(int index) const;
    // A new packet (one reference) with a copy of the index-th one's fields and data.
    CKorVideoPacket* Copy(int index) const;

private:
    std::vector<CKorVideoPacket*> m_Packets; // one reference each
    std::string m_Error;
    int m_Width = 0;
    int m_Height = 0;
};

} // namespace zortest
