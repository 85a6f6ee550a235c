#include "entry/Registry.h"
#include "entry/ZorEntry.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/JokDLL.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

// The registrations, in construction order.
std::vector<std::string> CreationNames() {
    std::istringstream text(
        "CreateAdvancedPacketFilter CreateAttributeSetter CreateAudioAnalyzer2 "
        "CreateAudioAnalyzer CreateAudioCodec CreateAudioConverter CreateAudioDecoder "
        "CreateAudioEncoder CreateAudioFmtChoose CreateAudioPlayer CreateAudioSampleMixer "
        "CreateAudioSrc IsAudioFullDuplex CreateDataBuffer CreateDebugPath CreateDelayedFeed "
        "CreateFrameDataFilter CreateGapDetector CreateGapDetector2 CreateGPSFilter "
        "CreateGVMDFilter CreateArchiveGVMDFilter CreateImageDecoder CreateImageFilter "
        "CreateJoiner CreateLODFilter CreateBuffer CreateLossyBuffer CreateMetaDataWriter "
        "CreateMetaDataReader CreateMultiplexer CreatePeopleCountFilter CreateExitBlockingFilter "
        "CreateObjectTrackingModule CreatePacketChainer CreatePacketDataReader "
        "CreatePacketDataWriter CreatePacketExpander CreatePacketFilter CreatePacketHolder "
        "CreatePacketObserver CreatePCAFilter CreateRate CreateRealTimeAdjuster CreateResynch "
        "CreateSortAndSend CreateSplitter CreateStatsComponent CreateStreamFilter CreateSynch "
        "CreateTextFilter CreateTimestampMixer CreateUpdateTimeFilter CreateVideoCompressor "
        "CreateVideoDecompressor CreateVideoFilter CreateGenericVideoProcessingModule "
        "CreateVideoTranscoder CreateVideoTranscoderWMV CreateVMDFilter CreateArchiveVMDFilter "
        "CreateVideoDisplay CreateVideoDisplayDX CreatePacketSource ");
    return {std::istream_iterator<std::string>(text), std::istream_iterator<std::string>()};
}
const std::vector<std::string> kCreationNames = CreationNames();

IJokModule* LoadModule() {
    IUnknown* unknown = nullptr;
    EXPECT_EQ(zor_GetInterface(reinterpret_cast<void**>(&unknown)), 0u);
    IJokModule* module = nullptr;
    unknown->QueryInterface(IID_IJokModule, reinterpret_cast<void**>(&module));
    unknown->Release();
    return module;
}

CBelString Description(IJokCommand* function) {
    return static_cast<CJokFunctionObj*>(function)->GetDescription();
}

TEST(Entry, AllRegistrationsReachTheModuleInReverseConstructionOrder) {
    IJokModule* module = LoadModule();
    ASSERT_EQ(module->GetFunctionCount(), 64);
    for (int i = 0; i < 64; ++i) {
        auto* function = static_cast<CJokFunctionObj*>(module->GetFunction(i));
        EXPECT_EQ(function->GetName().str(), kCreationNames[static_cast<size_t>(63 - i)]);
        EXPECT_EQ(module->FindFunction(kCreationNames[static_cast<size_t>(i)].c_str()) != nullptr,
                  true);
    }
    module->Release();
}

TEST(Entry, SecondCallAnswersTheSameObjectAndAppendsNothing) {
    IUnknown* first = nullptr;
    IUnknown* second = nullptr;
    zor_GetInterface(reinterpret_cast<void**>(&first));
    zor_GetInterface(reinterpret_cast<void**>(&second));
    EXPECT_EQ(first, second);
    EXPECT_EQ(ZorModuleObject().GetFunctionCount(), 64);
    first->Release();
    second->Release();
}

TEST(Entry, DescriptionsNameTheFactory) {
    IJokModule* module = LoadModule();
    EXPECT_STREQ(Description(module->FindFunction("CreateSplitter")), "&CreateSplitter");
    EXPECT_STREQ(Description(module->FindFunction("CreateSortAndSend")), "&CSortCom");
    EXPECT_STREQ(Description(module->FindFunction("IsAudioFullDuplex")),
                 "&IsAudioFullDuplexHandler");
    EXPECT_STREQ(Description(module->FindFunction("CreateVideoDisplay")), "&CreateVideoDisplay");
    EXPECT_STREQ(Description(module->FindFunction("CreateVideoDisplayDX")), "&CreateVideoDisplay");
    EXPECT_NE(module->FindFunction("CreateVideoDisplay"),
              module->FindFunction("CreateVideoDisplayDX"));
    module->Release();
}

// A component that records the paths it was made with.
class CPathsCom : public CJokComponent {
public:
    explicit CPathsCom(CJokGdVector* paths) : CJokComponent("Paths") {
        m_Count = paths ? paths->GetSize() : -1;
        ++s_Made;
    }
    int m_Count;
    static int s_Made;
};
int CPathsCom::s_Made = 0;

// A vector value of strings; a nullptr name leaves that element empty.
CJokGdVector* MakePaths(std::initializer_list<const char*> names) {
    CJokGdVector* paths = CJokGdVector::Allocate(static_cast<int>(names.size()));
    int index = 0;
    for (const char* name : names) {
        if (name) {
            CJokGdString* value = CJokGdString::Allocate(name);
            paths->SetElement(index, value);
            value->Release();
        }
        ++index;
    }
    return paths;
}

struct PathsCase {
    const char* m_Label;
    CJokGenericData* (*m_Make)();
    bool m_Created;
    int m_Count;
};

void PrintTo(const PathsCase& c, std::ostream* out) {
    *out << c.m_Label;
}

class EntryPaths : public ::testing::TestWithParam<PathsCase> {};

TEST_P(EntryPaths, PathsParameterDecidesWhetherTheComponentIsMade) {
    const PathsCase& c = GetParam();
    CBelDiagnosticCapture capture;
    CJokCommandContext context;
    if (c.m_Make) {
        context.AddParamNoRef("paths", c.m_Make());
    }
    const int before = CPathsCom::s_Made;
    EXPECT_EQ(ZorCreateWithPaths<CPathsCom>(&context, "CreateSynch"), 1);
    EXPECT_EQ(CPathsCom::s_Made - before, c.m_Created ? 1 : 0);
    if (c.m_Created) {
        auto* value = static_cast<CJokGdObject*>(context.GetReturnValue());
        ASSERT_NE(value, nullptr);
        auto* component = static_cast<CPathsCom*>(value->GetCOMObject());
        EXPECT_EQ(component->m_Count, c.m_Count);
        EXPECT_EQ(component->GetRefCount(), 1) << "the value holds the only reference";
        EXPECT_STREQ(capture.Text(EBelDiagnosticKind::ScriptError), "");
    } else {
        EXPECT_EQ(context.GetReturnValue(), nullptr);
        EXPECT_STREQ(capture.Text(EBelDiagnosticKind::ScriptError),
                     "CreateSynch: paths must be a vector of strings (or null)");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Entry, EntryPaths,
    ::testing::Values(
        PathsCase{"absent", nullptr, true, -1},
        PathsCase{"null", []() -> CJokGenericData* { return CJokGdNull::Allocate(); }, true, -1},
        PathsCase{"vector",
                  []() -> CJokGenericData* {
                      return MakePaths({"a", "b"});
                  },
                  true, 2},
        PathsCase{"vector with a number",
                  []() -> CJokGenericData* {
                      CJokGdVector* paths = MakePaths({"a", nullptr});
                      CJokGdDouble* number = CJokGdDouble::Allocate(1);
                      paths->SetElement(1, number);
                      number->Release();
                      return paths;
                  },
                  false, 0},
        PathsCase{"number", []() -> CJokGenericData* { return CJokGdDouble::Allocate(3); }, false,
                  0},
        PathsCase{"string", []() -> CJokGenericData* { return CJokGdString::Allocate("a"); }, false,
                  0}),
    [](const auto& info) {
        std::string name = info.param.m_Label;
        std::replace(name.begin(), name.end(), ' ', '_');
        return name;
    });

TEST(Entry, ComponentNotBuiltReportsItAndReturnsNothing) {
    IJokModule* module = LoadModule();
    CBelDiagnosticCapture capture;
    CJokCommandContext context;
    EXPECT_EQ(module->FindFunction("CreateVideoDisplayDX")->CallMethod(&context), 1);
    EXPECT_EQ(context.GetReturnValue(), nullptr);
    EXPECT_STREQ(capture.Text(EBelDiagnosticKind::ScriptError),
                 "CreateVideoDisplayDX: not available in this build");
    module->Release();
}

} // namespace
