#include "framework/kor/Packet.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Metadata.h"
#include "framework/kor/PacketSource.h"

#include <gtest/gtest.h>

namespace {

TEST(Packet, ReleaseAtZeroReturnsPacketToItsPool) {
    CKorPacketPool& pool = g_AudioPacketSource.Pool();
    CKorAudioPacket* first = g_AudioPacketSource.NewPacket(1440);
    first->Release();
    const long before = pool.Allocations();
    for (int i = 0; i < 100; ++i) {
        CKorAudioPacket* packet = g_AudioPacketSource.NewPacket(1440);
        EXPECT_EQ(packet->RefCount(), 1u);
        EXPECT_EQ(packet->GetDataSize(), 0u);
        EXPECT_EQ(packet->GetCapacity(), 1440u);
        packet->SetDataSize(1440);
        packet->SetAttribute(1, i);
        packet->Release();
    }
    EXPECT_EQ(pool.Allocations(), before) << "steady state must reuse pooled packets";
}

TEST(Packet, RecycledPacketComesBackInNewState) {
    CKorVideoPacket* packet = g_VideoPacketSource.NewPacket(100);
    packet->SetTimeStamp(0xFFFFFFF0u);
    packet->SetTimeStampValid(true);
    packet->SetFrameType(CKorVideoPacket::P_FRAME);
    packet->SetAttribute(1, 42);
    packet->SetMetadataHandler(new CKorBoundingBoxesMD, true);
    packet->Release();
    CKorVideoPacket* again = g_VideoPacketSource.NewPacket(100);
    EXPECT_FALSE(again->IsTimeStampValid());
    EXPECT_EQ(again->GetFrameType(), CKorVideoPacket::I_FRAME);
    EXPECT_EQ(again->GetAttributeCount(), 0);
    EXPECT_EQ(again->GetMetadataHandler(), nullptr);
    again->Release();
}

TEST(Packet, AttributesReplaceByNumberAndRefuseWhenFull) {
    CKorPacket* packet = g_DataPacketSource.NewPacket(8);
    int value = 0;
    EXPECT_FALSE(packet->GetAttribute(1, &value));
    packet->SetAttribute(1, 5);
    packet->SetAttribute(1, 7);
    ASSERT_TRUE(packet->GetAttribute(1, &value));
    EXPECT_EQ(value, 7);
    for (int n = 2; n <= CKorPacket::kMaxAttributes; ++n) {
        EXPECT_TRUE(packet->SetAttribute(n, n));
    }
    EXPECT_FALSE(packet->SetAttribute(1000, 1));
    packet->Release();
}

TEST(Packet, CloneCopiesFieldsPayloadAndMetadata) {
    CKorAudioPacket* packet = g_AudioPacketSource.NewPacket("abcd", 4, 0);
    WAVEFORMATEX format{7, 1, 8000, 8000, 1, 8, 0};
    packet->SetAudioFormat(&format, 99);
    packet->SetStreamNo(3);
    auto* boxes = new CKorBoundingBoxesMD;
    boxes->AddBox({1, 2, 3, 4, 5});
    packet->SetMetadataHandler(boxes, true);
    auto* copy = static_cast<CKorAudioPacket*>(packet->Clone());
    EXPECT_NE(copy, packet);
    EXPECT_EQ(copy->GetKind(), CKorPacket::KIND_AUDIO);
    EXPECT_EQ(copy->GetStreamNo(), 3);
    EXPECT_EQ(copy->GetFormatSeqNumber(), 99);
    EXPECT_EQ(copy->GetAudioFormat()->wFormatTag, 7);
    ASSERT_EQ(copy->GetDataSize(), 4u);
    EXPECT_EQ(0, std::memcmp(copy->GetData(), "abcd", 4));
    auto* copiedBoxes =
        static_cast<CKorBoundingBoxesMD*>(copy->FindMetadata(kMetadataBoundingBoxes));
    ASSERT_NE(copiedBoxes, nullptr);
    EXPECT_NE(copiedBoxes, boxes);
    EXPECT_EQ(copiedBoxes->GetBoxCount(), 1);
    copy->Release();
    packet->Release();
}

TEST(Packet, ReferencedPacketsLiveAsLongAsTheReferrer) {
    CKorPacket* part = g_DataPacketSource.NewPacket(8);
    CKorPacket* whole = g_DataPacketSource.NewPacket(8);
    ASSERT_TRUE(whole->AddReference(part));
    EXPECT_EQ(part->RefCount(), 2u);
    part->Release();
    EXPECT_EQ(whole->GetReference(0), part);
    EXPECT_EQ(part->RefCount(), 1u);
    whole->Release(); // releases the part too (LeakSanitizer checks)
}

// A header followed in memory by codec set-up data, as a demuxer hands it over.
struct SHeaderWithExtra {
    BITMAPINFOHEADER m_Header;
    BYTE m_Extra[6];
};

TEST(Packet, VideoFormatKeepsSetUpDataAfterHeader) {
    SHeaderWithExtra record{{46, 352, 288, 1, 12, MakeFourCC('H', '2', '6', '4'), 0, 0, 0, 0, 0},
                            {0, 0, 0, 1, 0x67, 0x42}};
    CKorVideoFormat* format = CKorVideoPacket::GetVideoFormat(&record.m_Header, 9, 0);
    record.m_Extra[5] = 0; // the format keeps its own copy
    ASSERT_EQ(format->ExtraSize(), 6);
    EXPECT_EQ(format->ExtraData(), reinterpret_cast<const BYTE*>(&format->Header()) + 40);
    EXPECT_EQ(format->ExtraData()[4], 0x67);
    EXPECT_EQ(format->ExtraData()[5], 0x42);
    EXPECT_EQ(format->Header().biSize, 46u);

    // The same header with other set-up data is another format; with none, a third.
    CKorVideoFormat* other = CKorVideoPacket::GetVideoFormat(&record.m_Header, 9, 0);
    BITMAPINFOHEADER bare = record.m_Header;
    bare.biSize = 0; // writers that leave biSize unset mean "no set-up data"
    CKorVideoFormat* none = CKorVideoPacket::GetVideoFormat(&bare, 9, 0);
    EXPECT_NE(other, format);
    EXPECT_NE(none, format);
    EXPECT_EQ(none->ExtraSize(), 0);
    EXPECT_EQ(none->ExtraData(), nullptr);

    // Packets share the record; it lives while one of them holds it.
    CKorVideoPacket* packet = g_VideoPacketSource.NewPacket(16);
    packet->SetBitmapFormat(&record.m_Header, 9, 0);
    EXPECT_EQ(packet->GetBitmapFormat(), other);
    for (CKorVideoFormat* f : {format, other, none}) {
        CKorVideoPacket::ReleaseVideoFormat(f);
    }
    EXPECT_EQ(packet->GetBitmapFormat()->ExtraData()[5], 0);
    packet->Release();
}

TEST(Packet, VideoFormatRefusesAbsurdSetUpSize) {
    BITMAPINFOHEADER header{};
    header.biSize = static_cast<DWORD>(40 + CKorVideoFormat::kMaxExtraSize + 1);
    const long asserts = BelAssertCount();
    EXPECT_EQ(CKorVideoPacket::GetVideoFormat(&header, 1, 0), nullptr);
    EXPECT_EQ(BelAssertCount(), asserts + 1);
}

TEST(Packet, PlaneLayoutTravelsWithCopiesAndIsClearedOnReuse) {
    CKorVideoPacket* frame = g_VideoPacketSource.NewPacket(4096);
    ASSERT_TRUE(frame->SetPlane(0, 64, 128));
    ASSERT_TRUE(frame->SetPlane(1, 2112, 128));
    EXPECT_FALSE(frame->SetPlane(CKorVideoPacket::kMaxPlanes, 0, 1));
    frame->SetDataSize(4096);

    auto* clone = static_cast<CKorVideoPacket*>(frame->Clone());
    CKorVideoPacket* copy = g_VideoPacketSource.NewPacket(4096);
    ASSERT_EQ(CKorVideoPacket::FrameCopy(copy, frame), 1);
    for (CKorVideoPacket* other : {clone, copy}) {
        EXPECT_EQ(other->GetPlaneOffset(1), 2112u);
        EXPECT_EQ(other->GetPlaneStride(0), 128);
    }
    clone->Release();
    copy->Release();
    frame->Release();

    CKorVideoPacket* again = g_VideoPacketSource.NewPacket(4096);
    EXPECT_EQ(again->GetPlaneStride(0), 0);
    EXPECT_EQ(again->GetPlaneOffset(1), 0u);
    again->Release();
}

TEST(Packet, DataSizeBeyondCapacityIsRefused) {
    CKorPacket* packet = g_DataPacketSource.NewPacket(10);
    EXPECT_TRUE(packet->SetDataSize(10));
    EXPECT_FALSE(packet->SetDataSize(11));
    packet->SetHeaderBufferLength(4);
    EXPECT_EQ(packet->GetDataCapacity(), 6u);
    EXPECT_EQ(packet->GetDataSize(), 6u);
    EXPECT_EQ(packet->GetAddress(CKorPacket::SEGMENT_DATA),
              packet->GetAddress(CKorPacket::SEGMENT_HEADER) + 4);
    packet->Release();
}

} // namespace
