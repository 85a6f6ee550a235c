#include "filters/PacketVocabulary.h"

#include "expr/ExpressionEvalOp.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Metadata.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "tests/support/Harness.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using namespace zortest;

namespace {

// Records what the vocabulary asks of its module.
class CFakeHost : public IZorPacketFilterHost {
public:
    double GetTimeScale() override { return m_Scale; }
    void SetTimeScale(double scale) override { m_Scale = scale; }
    long GetModuleTime() override { return m_Time; }
    void SetModuleTime(long milliseconds) override { m_Time = milliseconds; }
    bool IsFilterLocked() override { return m_Locked; }
    void LockFilter() override { m_Locked = true; }
    void UnlockFilter() override { m_Locked = false; }
    void ArmDelayAlarm(long milliseconds) override { m_Alarms.push_back(milliseconds); }
    void CancelDelayAlarm() override { ++m_Cancels; }
    bool HasFilterCallback() override { return true; }
    void FilterCallback() override { ++m_Callbacks; }
    void SendToOutput(CKorPacket* packet) override { m_Sent.push_back(packet); }
    ~CFakeHost() {
        for (CKorPacket* p : m_Sent)
            p->Release();
    }

    double m_Scale = 1.0;
    long m_Time = 0;
    bool m_Locked = false;
    std::vector<long> m_Alarms;
    int m_Cancels = 0;
    int m_Callbacks = 0;
    std::vector<CKorPacket*> m_Sent;
};

// One vocabulary over one current-packet slot, as the filter module holds them.
struct CFixture {
    CFakeHost m_Host;
    CKorPacket* m_pCurrent = nullptr;
    CZorPacketVocabulary m_Vocabulary{m_Host, m_pCurrent};
    std::unique_ptr<ExpressionEvalOp> m_Tree;

    ~CFixture() {
        if (m_pCurrent)
            m_pCurrent->Release();
    }
    void SetPacket(CKorPacket* packet) {
        if (m_pCurrent)
            m_pCurrent->Release();
        m_pCurrent = packet;
    }
    bool Compile(const char* script) {
        CZorPacketVocabulary::SCompiled compiled;
        std::string messages;
        if (!m_Vocabulary.CompileScript(script, &compiled, &messages))
            return false;
        m_Tree = std::move(compiled.m_Tree);
        m_Vocabulary.InstallBinding(std::move(compiled.m_Bound));
        return true;
    }
    // Runs the script over the current packet and answers the variable's number.
    double Run(const char* script, const char* result = "r") {
        EXPECT_TRUE(Compile(script)) << script;
        m_Vocabulary.BeginPacket();
        if (m_Tree)
            m_Tree->Evaluate(m_Vocabulary);
        return m_Vocabulary.ReadValue(m_Vocabulary.Lookup(result, true));
    }
    std::string RunString(const char* script, const char* result) {
        Run(script);
        std::string out;
        m_Vocabulary.ReadText(m_Vocabulary.Lookup(result, true), out);
        return out;
    }
};

CKorVideoPacket* MakeFormattedVideo() {
    CKorVideoPacket* video = MakeVideoPacket(1000, CKorVideoPacket::P_FRAME, 3);
    BITMAPINFOHEADER header{};
    header.biWidth = 704;
    header.biHeight = 576;
    header.biCompression = 0x34363248; // "H264"
    video->SetBitmapFormat(&header, 77, 0);
    video->SetLayer(2);
    video->SetAttribute(1, 40);
    auto* aspect = new CKorAspectRatioMD;
    aspect->SetAspectRatio(16, 9);
    video->SetMetadataHandler(aspect, true);
    return video;
}

TEST(PacketVocabulary, ReadsFieldsOfEachPacketKind) {
    struct Case {
        const char* m_Script;
        double m_Video, m_Audio, m_Text, m_None;
    };
    const Case cases[] = {
        {"r = TYPE", 9, 1, 2, -1},
        {"r = TS", 1000, 20, 0, -1},
        {"r = STREAM", 3, 0, 0, -1},
        {"r = FRAMETYPE", 1, -1, -1, -1},
        {"r = FRAMETYPE == PFRAME", 1, 0, 0, 0},
        {"r = VIDEOWIDTH + VIDEOHEIGHT", 1280, -2, -2, -2},
        {"r = ASPECTRATIOX * 100 + ASPECTRATIOY", 1609, -101, -101, -101},
        {"r = CODEC", 0x34363248, 1, -1, -1},
        {"r = LAYER", 2, -1, -1, -1},
        {"r = VMDLEVEL", 40, -1, -1, -1},
        {"r = AUDIOSAMPLERATE", -1, 8000, -1, -1},
        {"r = AUDIOCHANNELS + AUDIOBITS + AUDIOBYTERATE", -3, 16017, -3, -3},
        {"r = SIZE", 64, 4, 5, -1},
        {"r = SCHEMA", 0, 0, 12, -1},
        {"r = TIMESTAMPVALID", 1, 1, 0, -1},
    };
    CFixture f;
    auto* text = new CKorTextPacket("hello", 12);
    auto* audio = MakePcmPacket(20, {1, 2});
    CKorPacket* packets[] = {MakeFormattedVideo(), audio, text, nullptr};
    for (const Case& c : cases) {
        const double expected[] = {c.m_Video, c.m_Audio, c.m_Text, c.m_None};
        for (int i = 0; i < 4; ++i) {
            CKorPacket* p = packets[i];
            if (p)
                p->AddRef();
            f.SetPacket(p);
            EXPECT_EQ(f.Run(c.m_Script), expected[i]) << c.m_Script << " packet " << i;
        }
    }
    for (CKorPacket* p : packets)
        if (p)
            p->Release();
}

TEST(PacketVocabulary, OtherKindsAndConstants) {
    CFixture f;
    auto* timeBase = new CKorTimeBasePacket(5000, 2.0);
    timeBase->SetFlags(3);
    f.SetPacket(timeBase);
    EXPECT_EQ(f.Run("r = TIMEBASEFLAGS == TBFCONTINUOUS + TBFENDOFSEQ && TYPE == TIMEBASE"), 1);
    f.SetPacket(g_DataPacketSource.NewTrellumPacket("ab", 2, CKorTrellumPacket::TL3_K_PCK));
    EXPECT_EQ(f.Run("r = TRELLUMPACKETTYPE == 1 && TYPE == TRELLUM"), 1);
    EXPECT_EQ(f.Run("r = TIMEBASEFLAGS"), 0);
    EXPECT_EQ(f.Run("r = VIDEO + AUDIO + TEXT + GPS + GDLIST + EPFRAME"), 40);
    // "_" is no identifier character, so the TL3 names are for hosts, not for script text.
    CZorPacketVocabulary& v = f.m_Vocabulary;
    EXPECT_EQ(v.ReadValue(v.Lookup("TL3_K_PCK", false)), CKorTrellumPacket::TL3_K_PCK);
    EXPECT_EQ(v.ReadValue(v.Lookup("TL3_V_PCK", false)), CKorTrellumPacket::TL3_V_PCK);
}

TEST(PacketVocabulary, AssignmentsReachThePacketOrAreIgnored) {
    CFixture f;
    f.SetPacket(MakeFormattedVideo());
    f.Run("TS = 77; RTS = 1.5; STREAM = 9.7; TIMESTAMPVALID = 0; VMDLEVEL = 12.9;"
          "TYPE = 1; FRAMETYPE = 0; VIDEO = 3; r = TYPE == VIDEO");
    CKorPacket* p = f.m_pCurrent;
    EXPECT_EQ(p->GetTimeStamp(), 77);
    EXPECT_EQ(p->GetRealTimeStamp(), 1.5);
    EXPECT_EQ(p->GetStreamNo(), 9);
    EXPECT_FALSE(p->IsTimeStampValid());
    int level = 0;
    EXPECT_TRUE(p->GetAttribute(1, &level));
    EXPECT_EQ(level, 12);
    EXPECT_EQ(f.Run("r = TYPE == VIDEO && FRAMETYPE == PFRAME"), 1);
    EXPECT_EQ(f.Run("r = FORMATID"), p->GetFormatSeqNumber());
}

TEST(PacketVocabulary, TimeStampAssignmentFoldsTheUnsignedHalf) {
    struct Case {
        double m_Assigned;
        std::uint32_t m_Stored;
    };
    const Case cases[] = {
        {4294967295.0, 0xFFFFFFFFu},
        {2147483648.0, 0x80000000u},
        {-2147483649.0, 0x7FFFFFFFu},
        {-1.0, 0xFFFFFFFFu},
        {5.9, 5u},
        {-5.9, 0xFFFFFFFBu},
    };
    CFixture f;
    f.SetPacket(MakeDataPacket(0));
    for (const Case& c : cases) {
        f.m_Vocabulary.WriteValue(CZorPacketVocabulary::TS, c.m_Assigned);
        EXPECT_EQ(static_cast<std::uint32_t>(f.m_pCurrent->GetTimeStamp()), c.m_Stored)
            << c.m_Assigned;
    }
    // What a script reads back is signed, so adding 2^32 to a negative reading round-trips.
    f.m_Vocabulary.WriteValue(CZorPacketVocabulary::TS, 3000000000.0);
    EXPECT_EQ(f.Run("r = TS; TS = TS + 4294967296; r2 = TS", "r2"), 3000000000.0 - 4294967296.0);
}

TEST(PacketVocabulary, SaveAndRestoreActionsMoveReferences) {
    CFixture f;
    CKorPacket* a = MakeDataPacket(1);
    CKorPacket* b = MakeDataPacket(2);
    f.SetPacket(a);
    EXPECT_EQ(f.Run("PUSH; r = TS"), -1); // bound fields follow the current packet
    EXPECT_EQ(f.m_Vocabulary.SavedPacket(), a);
    EXPECT_EQ(f.m_pCurrent, nullptr);
    f.SetPacket(b);
    EXPECT_EQ(f.Run("SWAP; r = TS"), 1);
    EXPECT_EQ(f.m_Vocabulary.SavedPacket(), b);
    EXPECT_EQ(f.Run("POP; r = TS"), 2); // a released, b current again
    EXPECT_EQ(f.m_Vocabulary.SavedPacket(), nullptr);
    EXPECT_EQ(f.Run("PUSH; POP; r = TS"), 2);
    EXPECT_EQ(f.m_Vocabulary.SavedPacket(), nullptr);
    b->AddRef();
    EXPECT_EQ(f.Run("PUSH; DISCARDSAVED; r = TS"), -1);
    EXPECT_EQ(b->RefCount(), 1u);
    f.m_pCurrent = b;
    EXPECT_EQ(f.Run("DISCARD; r = TS + POP"), -1); // POP with nothing saved leaves nothing
}

TEST(PacketVocabulary, CopyReplacesThePacketByAClone) {
    CFixture f;
    CKorPacket* original = MakeDataPacket(4);
    original->AddRef();
    f.SetPacket(original);
    EXPECT_EQ(f.Run("r = COPY; STREAM = 6"), 1);
    EXPECT_NE(f.m_pCurrent, original);
    EXPECT_EQ(original->RefCount(), 1u);
    EXPECT_EQ(original->GetStreamNo(), 0);
    EXPECT_EQ(f.m_pCurrent->GetStreamNo(), 6);
    original->Release();
    f.SetPacket(nullptr);
    EXPECT_EQ(f.Run("r = COPY"), 0);
}

TEST(PacketVocabulary, ExpandRefsSendsReferencedPacketsDepthFirst) {
    CFixture f;
    CKorPacket* root = MakeDataPacket(0);
    CKorPacket* child = MakeDataPacket(1);
    CKorPacket* grandChild = MakeDataPacket(2);
    CKorPacket* sibling = MakeDataPacket(3);
    child->AddReference(grandChild);
    root->AddReference(child);
    root->AddReference(sibling);
    for (CKorPacket* p : {child, grandChild, sibling})
        p->Release(); // the references hold them now
    f.SetPacket(root);
    f.Run("EXPANDREFS");
    ASSERT_EQ(f.m_Host.m_Sent.size(), 3u);
    EXPECT_EQ(f.m_Host.m_Sent[0]->GetTimeStamp(), 1);
    EXPECT_EQ(f.m_Host.m_Sent[1]->GetTimeStamp(), 2);
    EXPECT_EQ(f.m_Host.m_Sent[2]->GetTimeStamp(), 3);
    EXPECT_EQ(f.m_pCurrent, root);
    EXPECT_EQ(sibling->RefCount(), 2u);
}

TEST(PacketVocabulary, DelayLocksOnceAndZeroReleases) {
    CFixture f;
    f.SetPacket(MakeDataPacket(0));
    EXPECT_EQ(f.Run("DELAY = 0.25; r = LOCKED + DELAY"), 1.25);
    EXPECT_EQ(f.m_Host.m_Alarms, std::vector<long>{250});
    f.Run("DELAY = 2");
    EXPECT_EQ(f.m_Host.m_Alarms.size(), 1u) << "a held filter is not re-armed";
    f.Run("DELAY = 0");
    EXPECT_FALSE(f.m_Host.m_Locked);
    EXPECT_EQ(f.m_Host.m_Cancels, 1);
    f.Run("LOCKED = 1");
    EXPECT_TRUE(f.m_Host.m_Locked);
    EXPECT_EQ(f.m_Host.m_Cancels, 2) << "LOCKED cancels a pending delay";
    f.Run("LOCKED = 0");
    EXPECT_FALSE(f.m_Host.m_Locked);
}

TEST(PacketVocabulary, ModuleTimeAndScaleGoThroughTheHost) {
    CFixture f;
    f.m_Host.m_Time = 1234;
    EXPECT_EQ(f.Run("TIMESCALE = 2; TIMEBASETS = TIMEBASETS + 6.7; r = TIMESCALE"), 2);
    EXPECT_EQ(f.m_Host.m_Scale, 2);
    EXPECT_EQ(f.m_Host.m_Time, 1240);
    f.Run("CALLBACK; CALLBACK");
    EXPECT_EQ(f.m_Host.m_Callbacks, 2);
}

TEST(PacketVocabulary, SchemaTextRoundTripsThroughFields) {
    CFixture f;
    CZorPacketVocabulary& v = f.m_Vocabulary;
    v.CreateSchema(7);
    EXPECT_EQ(v.AddSchemaField(7, "count"), "");
    EXPECT_EQ(v.AddSchemaField(7, "$label"), "");
    EXPECT_EQ(v.AddSchemaField(8, "x"), "no text schema 8");
    EXPECT_EQ(v.AddSchemaField(7, "TS"), "'TS' is a predefined name");
    EXPECT_EQ(v.AddSchemaField(7, "count"), "'count' is already a field of schema 7");
    EXPECT_EQ(v.AddSchemaField(7, "2x"), "'2x' is not a variable name");
    f.Run("count = 2.5; $label = 'a\\\\b\nc'");
    std::string text;
    ASSERT_TRUE(v.BuildSchemaText(7, &text));
    EXPECT_EQ(text, "count=2.5\nlabel=a\\\\b\\nc\n");
    // A packet of the schema sets the fields; a field it does not mention reads 0.
    f.SetPacket(new CKorTextPacket(text.c_str(), 7));
    f.Run("count = 0; $label = ''");
    f.m_Vocabulary.BeginPacket();
    EXPECT_EQ(v.GetNumber(v.Lookup("count", false)), 2.5);
    EXPECT_EQ(v.GetString(v.Lookup("label", false)), "a\\b\nc");
    f.SetPacket(new CKorTextPacket("label=x\nother=1\n", 7));
    f.m_Vocabulary.BeginPacket();
    EXPECT_EQ(v.GetNumber(v.Lookup("count", false)), 0);
    EXPECT_EQ(v.GetString(v.Lookup("label", false)), "x");
}

TEST(PacketVocabulary, TextOfASchemaPacketCannotBeSetDirectly) {
    CFixture f;
    f.m_Vocabulary.CreateSchema(3);
    f.SetPacket(new CKorTextPacket("plain", 0));
    EXPECT_EQ(f.RunString("$r = $TEXTSTR + '!'; $TEXTSTR = $r", "r"), "plain!");
    EXPECT_EQ(static_cast<CKorTextPacket*>(f.m_pCurrent)->Text(), "plain!");
    f.SetPacket(new CKorTextPacket("fields", 3));
    CBelDiagnosticCapture capture;
    f.Run("$TEXTSTR = 'other'");
    EXPECT_EQ(static_cast<CKorTextPacket*>(f.m_pCurrent)->Text(), "fields");
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::Dump),
              "APF: Packet defined by schema, cannot set text directly.\n");
}

TEST(PacketVocabulary, DataAndMetadataAsStrings) {
    CFixture f;
    f.SetPacket(MakeFormattedVideo());
    EXPECT_EQ(f.RunString("$r = $METADATA", "r"), "ASP1");
    EXPECT_EQ(f.Run("$DATA = 'abc'; r = SIZE"), 3);
    EXPECT_EQ(f.RunString("$r = $DATA", "r"), "abc");
    f.Run("$METADATA = ''");
    EXPECT_EQ(f.m_pCurrent->GetMetadataHandler(), nullptr);
    CBelDiagnosticCapture capture;
    f.Run("$METADATA = 'BBX1'; $DATA = $DATA + $DATA + $DATA + $DATA + $DATA + $DATA + $DATA +"
          "$DATA + $DATA + $DATA + $DATA + $DATA + $DATA + $DATA + $DATA + $DATA + $DATA + $DATA"
          " + $DATA + $DATA + $DATA + $DATA");
    EXPECT_EQ(f.m_pCurrent->GetDataSize(), 3u);
    EXPECT_NE(capture.Text(EBelDiagnosticKind::Dump).str().find("does not fit"), std::string::npos);
    // The string form of a numeric name holds nothing and keeps nothing.
    EXPECT_EQ(f.RunString("$TS = 'x'; $r = $TS + $VIDEO", "r"), "");
    EXPECT_EQ(f.Run("r = VIDEO"), 9);
}

TEST(PacketVocabulary, DumpAppendsDataInBinary) {
    const std::string path = ::testing::TempDir() + "apf-dump.bin";
    std::remove(path.c_str());
    for (int round = 0; round < 2; ++round) {
        CFixture f;
        f.m_Vocabulary.SetDumpFile(path);
        CKorPacket* p = g_DataPacketSource.NewPacket("\0\1\n\xff", 4, 0);
        f.SetPacket(p);
        f.Run("DUMP; DUMP");
    }
    std::ifstream in(path, std::ios::binary);
    std::stringstream contents;
    contents << in.rdbuf();
    EXPECT_EQ(contents.str(), std::string("\0\1\n\xff", 4) + std::string("\0\1\n\xff", 4) +
                                  std::string("\0\1\n\xff", 4) + std::string("\0\1\n\xff", 4));
    CFixture silent;
    silent.m_Vocabulary.SetDumpFile("/nonexistent-dir/dump.bin");
    silent.SetPacket(MakeDataPacket(1));
    EXPECT_EQ(silent.Run("DUMP; r = 1"), 1);
    std::remove(path.c_str());
}

} // namespace
