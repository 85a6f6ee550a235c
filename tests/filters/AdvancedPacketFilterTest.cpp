#include "filters/AdvancedPacketFilter.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/Command.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/Property.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"
#include "tests/support/RecordingCallback.h"

#include <gtest/gtest.h>

#include <string>

using namespace zortest;

namespace {

// source -> filter -> sink, with the component made as a script makes it.
class AdvancedPacketFilter : public ::testing::Test {
protected:
    void SetUp() override {
        m_pCom = new CAdvancedPacketFilterCom("");
        m_Source | m_pCom->Module() | m_Sink;
    }
    void TearDown() override { m_pCom->Release(); }

    bool SetFilter(const char* script) { return SetString("filter", script); }
    bool SetString(const char* property, const char* text) {
        CJokGdString* value = CJokGdString::Allocate(text);
        const int result = m_pCom->SetProperty(property, value);
        value->Release();
        return result == 1;
    }
    std::string GetString(const char* property) {
        CJokGenericData* value = m_pCom->GetProperty(property, 0);
        std::string text = value->GetType() == JOKGD_STRING
                               ? static_cast<CJokGdString*>(value)->GetString().str()
                               : std::string("<none>");
        value->Release();
        return text;
    }
    // Calls a method; answers the return value as a number (booleans as 0 / 1, -1 for none).
    template <class F>
    double Call(int (CAdvancedPacketFilterCom::*method)(CJokCommandContext*), F addParams) {
        CJokCommandContext context;
        addParams(context);
        (m_pCom->*method)(&context);
        CJokGenericData* result = context.GetReturnValue();
        if (!result)
            return -1;
        if (result->GetType() == JOKGD_BOOLEAN)
            return static_cast<CJokGdBoolean*>(result)->GetValue();
        if (result->GetType() == JOKGD_DOUBLE)
            return static_cast<CJokGdDouble*>(result)->GetValue();
        return -1;
    }
    double Variable(const char* name) {
        return Call(&CAdvancedPacketFilterCom::GetVariable,
                    [&](CJokCommandContext& c) { c.AddParam("variable", name); });
    }

    CTestSource m_Source;
    CTestSink m_Sink;
    CAdvancedPacketFilterCom* m_pCom = nullptr;
};

TEST_F(AdvancedPacketFilter, KeepsOnlyKeyFramesOfVideo) {
    ASSERT_TRUE(SetFilter("if (TYPE == VIDEO && FRAMETYPE != IFRAME) { DISCARD; }"));
    const int frames[] = {0, 1, 3, 1, 0, 2, 4};
    for (int type : frames)
        m_Source.Push(MakeVideoPacket(0, type));
    m_Source.Push(MakePcmPacket(1, {0}));
    ASSERT_EQ(m_Sink.Count(), 3);
    EXPECT_EQ(static_cast<CKorVideoPacket*>(m_Sink.Packets()[1])->GetFrameType(), 0);
    EXPECT_EQ(m_Sink.Packets()[2]->GetKind(), CKorPacket::KIND_AUDIO);
}

TEST_F(AdvancedPacketFilter, ScriptThatFailsLeavesNoFilter) {
    ASSERT_TRUE(SetFilter("n = n + 1;"));
    CBelDiagnosticCapture capture;
    EXPECT_FALSE(SetFilter("if (TS > ) { DISCARD; }"));
    EXPECT_EQ(GetString("filter"), "");
    EXPECT_EQ(JokTakePropertyRefusal(), "Syntax error at line 1 (position 10)")
        << "the refusal says why";
    EXPECT_FALSE(SetFilter("x = 'a' + 1;\n$b = 2;"));
    EXPECT_EQ(JokTakePropertyRefusal(), "ExpressionEval: type mismatch at line 1 (position 12); "
                                        "ExpressionEval: type mismatch at line 2 (position 7)")
        << "every message, on one line";
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::Dump), "") << "told once, not twice";
    m_Source.Push(MakeDataPacket(1));
    EXPECT_EQ(m_Sink.Count(), 1);
    EXPECT_EQ(Variable("n"), 0) << "the old script no longer runs";
}

// A string variable that doubles on every packet once grew until the allocation failed and the
// process ended; it now levels off with one line on the diagnostic output.
TEST_F(AdvancedPacketFilter, StringDoubledOnEveryPacketLevelsOff) {
    ASSERT_TRUE(SetFilter("$s = $s + $s + 'x';"));
    CBelDiagnosticCapture capture;
    for (int i = 0; i < 40; ++i)
        m_Source.Push(MakeDataPacket(i));
    EXPECT_EQ(m_Sink.Count(), 40);
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::Dump),
              "CZorAdvancedPacketFilter::ProcessPacket -> string overflow (a string holds at "
              "most 4194304 characters; the rest was cut)\n");
}

TEST_F(AdvancedPacketFilter, DelayHoldsInputUntilTheAlarm) {
    CVirtualClockScope clock;
    ASSERT_TRUE(SetFilter("if (TS == 1) { DELAY = 0.2; DELAY = 5; }"));
    EXPECT_TRUE(m_Source.Push(MakeDataPacket(1)));
    EXPECT_FALSE(m_Source.Push(MakeDataPacket(2))) << "a locked filter refuses input";
    EXPECT_EQ(m_Sink.Count(), 0);
    clock.Advance(199);
    EXPECT_EQ(m_Sink.Count(), 0);
    clock.Advance(1);
    ASSERT_EQ(m_Sink.Count(), 2) << "the held packet, then the one upstream kept";
    EXPECT_EQ(m_Sink.Packets()[1]->GetTimeStamp(), 2);
    EXPECT_EQ(Variable("DELAY"), 5);
}

TEST_F(AdvancedPacketFilter, LockedHoldsUntilTheScriptReleasesIt) {
    CVirtualClockScope clock;
    ASSERT_TRUE(SetFilter("if (TS == 1) { LOCKED = 1; }"));
    m_Source.Push(MakeDataPacket(1));
    clock.Advance(10000);
    EXPECT_EQ(m_Sink.Count(), 0);
    EXPECT_EQ(Variable("LOCKED"), 1);
    Call(&CAdvancedPacketFilterCom::SetVariable, [](CJokCommandContext& c) {
        c.AddParam("variable", "LOCKED");
        c.AddParam("value", 0.0);
    });
    EXPECT_EQ(m_Sink.Count(), 1);
}

TEST_F(AdvancedPacketFilter, CallbackGetsTheComponentAndStandsInForAMissingScript) {
    auto* callback = new CRecordingCallback;
    CJokGdObject* value = CJokGdObject::Allocate(callback, 0);
    ASSERT_EQ(m_pCom->SetProperty("callback", value), 1);
    value->Release();
    callback->m_Action = [&] { EXPECT_EQ(GetString("packetType"), "VIDEO"); };
    m_Source.Push(MakeVideoPacket(1, 0));
    ASSERT_EQ(callback->m_Calls.size(), 1u);
    EXPECT_EQ(callback->m_Calls[0], std::vector<double>{-1}) << "the component alone";
    EXPECT_EQ(callback->m_Calls[0].m_pObject, m_pCom);
    ASSERT_TRUE(SetFilter("if (TS == 2) { CALLBACK; }"));
    m_Source.Push(MakeVideoPacket(1, 0));
    m_Source.Push(MakeVideoPacket(2, 0));
    EXPECT_EQ(callback->m_Calls.size(), 2u);
    EXPECT_EQ(m_Sink.Count(), 3);
}

TEST_F(AdvancedPacketFilter, ScriptSetFromItsCallbackRunsFromTheNextPacket) {
    auto* callback = new CRecordingCallback;
    CJokGdObject* value = CJokGdObject::Allocate(callback, 0);
    m_pCom->SetProperty("callback", value);
    value->Release();
    callback->m_Action = [&] {
        EXPECT_TRUE(SetFilter("DISCARD"));
        EXPECT_FALSE(SetString("text", "ignored")) << "not a text packet";
    };
    ASSERT_TRUE(SetFilter("CALLBACK; STREAM = 5"));
    m_Source.Push(MakeDataPacket(1));
    m_Source.Push(MakeDataPacket(2));
    ASSERT_EQ(m_Sink.Count(), 1);
    EXPECT_EQ(m_Sink.Packets()[0]->GetStreamNo(), 5);
}

TEST_F(AdvancedPacketFilter, TextPacketsFromSchemaFields) {
    auto call = [&](auto method, auto params) { return Call(method, params); };
    call(&CAdvancedPacketFilterCom::CreateTextSchema,
         [](CJokCommandContext& c) { c.AddParam("schemaCode", 4.0); });
    for (const char* field : {"count", "$camera"})
        call(&CAdvancedPacketFilterCom::AddTextSchemaField, [&](CJokCommandContext& c) {
            c.AddParam("schemaCode", 4.0);
            c.AddParam("variable", field);
        });
    ASSERT_TRUE(SetFilter("if (SCHEMA == 4) { seen = count; $where = $camera; } "
                          "count = count + 1; $camera = 'gate'"));
    m_Source.Push(MakeDataPacket(1)); // count 1
    EXPECT_EQ(call(&CAdvancedPacketFilterCom::CreateTextPacket,
                   [](CJokCommandContext& c) {
                       c.AddParam("schemaCode", 4.0);
                       c.AddParam("timestamp", 4294967295.0);
                       c.AddParam("realTimeStamp", 2.5);
                   }),
              1);
    ASSERT_EQ(m_Sink.Count(), 2);
    auto* text = static_cast<CKorTextPacket*>(m_Sink.Packets()[1]);
    EXPECT_EQ(text->Text(), "count=1\ncamera=gate\n");
    EXPECT_EQ(text->GetSchema(), 4);
    EXPECT_EQ(text->GetTimeStamp(), -1);
    EXPECT_TRUE(text->IsTimeStampValid());
    EXPECT_EQ(text->GetRealTimeStamp(), 2.5);
    EXPECT_EQ(Variable("seen"), 1) << "the packet's own fields were exposed to the script";
    CBelDiagnosticCapture capture;
    EXPECT_EQ(call(&CAdvancedPacketFilterCom::CreateTextPacket,
                   [](CJokCommandContext& c) { c.AddParam("schemaCode", 9.0); }),
              0);
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::ScriptError), "CreateTextPacket: no text schema 9");
}

TEST_F(AdvancedPacketFilter, AudioPacketsTakeTheirFormatFromTheSubMediaId) {
    ASSERT_TRUE(SetFilter("rate = AUDIOSAMPLERATE; codec = CODEC; size = SIZE"));
    EXPECT_EQ(Call(&CAdvancedPacketFilterCom::CreateAudioPacket,
                   [](CJokCommandContext& c) {
                       c.AddParam("audioData", "\x7f\x7f\xff");
                       c.AddParam("submid", 7.0);
                       c.AddParam("timestamp", 40.0);
                   }),
              1);
    ASSERT_EQ(m_Sink.Count(), 1);
    EXPECT_EQ(Variable("rate"), 8000);
    EXPECT_EQ(Variable("codec"), 7); // mu-law
    EXPECT_EQ(Variable("size"), 3);
    EXPECT_EQ(m_Sink.Packets()[0]->GetTimeStamp(), 40);
    CBelDiagnosticCapture capture;
    for (double id : {0.0, 5.0, -1.0, 4294967297.0})
        EXPECT_EQ(Call(&CAdvancedPacketFilterCom::CreateAudioPacket,
                       [&](CJokCommandContext& c) {
                           c.AddParam("audioData", "x");
                           c.AddParam("submid", id);
                       }),
                  0);
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::ScriptError),
              "submid is out of bounds\nsubmid is out of bounds\nsubmid is out of bounds\n"
              "submid is out of bounds\n");
    EXPECT_EQ(m_Sink.Count(), 1);
}

TEST_F(AdvancedPacketFilter, AcceptedTimeBaseBecomesTheModulesTimeBase) {
    CVirtualClockScope clock;
    ASSERT_TRUE(SetFilter("flags = TIMEBASEFLAGS; if (TS == 7) { DISCARD; }"));
    EXPECT_EQ(Call(&CAdvancedPacketFilterCom::CreateTimebasePacket,
                   [](CJokCommandContext& c) {
                       c.AddParam("timestamp", 90000.0);
                       c.AddParam("flags", 2.9);
                       c.AddParam("scale", 2.0);
                   }),
              1);
    EXPECT_EQ(Variable("flags"), 2);
    ASSERT_NE(m_pCom->Module().GetTimeBase(), nullptr);
    clock.Advance(100);
    EXPECT_EQ(Variable("TIMEBASETS"), 90200);
    m_Sink.m_Refuse = true;
    m_Source.Push(MakeDataPacket(7)); // discarded, so nothing is pending
    EXPECT_EQ(Call(&CAdvancedPacketFilterCom::CreateTimebasePacket,
                   [](CJokCommandContext& c) { c.AddParam("timestamp", 1.0); }),
              1)
        << "taken, though downstream keeps it pending";
    EXPECT_EQ(Call(&CAdvancedPacketFilterCom::CreateTimebasePacket,
                   [](CJokCommandContext& c) { c.AddParam("timestamp", 2.0); }),
              0);
    EXPECT_EQ(m_pCom->Module().GetTimeBase()->Time(), 1);
}

TEST_F(AdvancedPacketFilter, VariablesByNameFromScripts) {
    ASSERT_TRUE(SetFilter("n = n + step; $last = $tag + '!'"));
    Call(&CAdvancedPacketFilterCom::SetVariable, [](CJokCommandContext& c) {
        c.AddParam("variable", "step");
        c.AddParam("value", 2.5);
    });
    Call(&CAdvancedPacketFilterCom::SetStringVar, [](CJokCommandContext& c) {
        c.AddParam("variable", "tag");
        c.AddParam("value", "cam");
    });
    m_Source.Push(MakeDataPacket(1));
    m_Source.Push(MakeDataPacket(2));
    EXPECT_EQ(Variable("n"), 5);
    CJokCommandContext context;
    context.AddParam("variable", "last");
    m_pCom->GetStringVar(&context);
    EXPECT_EQ(static_cast<CJokGdString*>(context.GetReturnValue())->GetString(), "cam!");
    EXPECT_EQ(Variable("DISCARD"), 0) << "reading an action by name performs nothing";
    EXPECT_EQ(m_Sink.Count(), 2);
    // An unknown name answers nothing (nil in Lua), not 0, and is reported the first time.
    CBelDiagnosticCapture capture;
    EXPECT_EQ(Variable("nosuch"), -1);
    EXPECT_EQ(Variable("nosuch"), -1);
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::ScriptError),
              "GetVariable: no variable 'nosuch' (the answer is nil)");
}

TEST_F(AdvancedPacketFilter, FlushDropsHeldAndSavedPackets) {
    ASSERT_TRUE(SetFilter("if (TS == 1) { PUSH; } if (TS == 2) { LOCKED = 1; }"));
    CKorPacket* saved = MakeDataPacket(1);
    saved->AddRef();
    m_Source.Push(saved);
    m_Source.Push(MakeDataPacket(2));
    EXPECT_EQ(m_pCom->Module().CurrentPacket()->GetTimeStamp(), 2);
    Call(&CAdvancedPacketFilterCom::Flush, [](CJokCommandContext&) {});
    EXPECT_EQ(m_pCom->Module().CurrentPacket(), nullptr);
    EXPECT_EQ(m_pCom->Module().Vocabulary().SavedPacket(), nullptr);
    EXPECT_EQ(saved->RefCount(), 1u);
    EXPECT_EQ(m_Sink.m_FlushCount, 1);
    saved->Release();
}

TEST_F(AdvancedPacketFilter, BadArgumentsFromScripts) {
    CBelDiagnosticCapture capture;
    Call(&CAdvancedPacketFilterCom::AddTextSchemaField, [](CJokCommandContext& c) {
        c.AddParam("schemaCode", 1.0);
        c.AddParam("variable", "x");
    });
    Call(&CAdvancedPacketFilterCom::CreateTimebasePacket,
         [](CJokCommandContext& c) { c.AddParam("timestamp", "soon"); });
    Call(&CAdvancedPacketFilterCom::CreateAudioPacket,
         [](CJokCommandContext& c) { c.AddParam("audioData", "x"); });
    const std::string errors = capture.Text(EBelDiagnosticKind::ScriptError).str();
    EXPECT_NE(errors.find("AddTextSchemaField: no text schema 1"), std::string::npos);
    EXPECT_NE(errors.find("timestamp"), std::string::npos);
    EXPECT_NE(errors.find("submid"), std::string::npos);
    EXPECT_FALSE(SetString("packetType", "VIDEO"));
    EXPECT_EQ(m_Sink.Count(), 0);
}

} // namespace
