#include "framework/kor/PinComponent.h"

#include "framework/kor/Module.h"
#include "tests/support/Harness.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace zortest;
using dataPathRegister::CDataPathRegistry;

namespace {

// Makes one module of type TModule per data path, as every component does.
template <class TBase, class TModule> class CTestCom : public TBase {
public:
    explicit CTestCom(const char* path = "") : TBase("Test") { this->ConnectPath(path); }
    CKorModule* CreateContext(const char* path) override {
        if (CKorModule* existing = this->_GetContext(path)) {
            return existing;
        }
        return this->RememberContext(path, new TModule);
    }
    TModule* Module(const char* path) { return static_cast<TModule*>(this->_GetContext(path)); }
    void DataPathCreated(const char* path) override { m_Created.emplace_back(path); }
    std::vector<std::string> m_Created;
};

class CPassModule : public CKorModule {
public:
    CPassModule() : CKorModule("Pass") {}
};

using CSourceCom = CTestCom<CKorOutputPinComponent, CTestSource>;
using CFilterCom = CTestCom<CKor2PinComponent, CPassModule>;
using CSinkCom = CTestCom<CKorInputPinComponent, CTestSink>;

template <class T> T* Make(const char* path = "") {
    return new T(path);
}

// Components are reference-counted; tests drop them with Release.
template <class... T> void ReleaseAll(T*... components) {
    (components->Release(), ...);
}

TEST(DataPath, JoiningByNameBuildsTheChainInJoiningOrder) {
    auto* source = Make<CSourceCom>("dp.order");
    auto* filter = Make<CFilterCom>("dp.order");
    auto* sink = Make<CSinkCom>("dp.order");
    EXPECT_EQ(source->Module("dp.order")->DownStreamModule(), filter->Module("dp.order"));
    EXPECT_EQ(filter->Module("dp.order")->DownStreamModule(), sink->Module("dp.order"));
    EXPECT_TRUE(source->Module("dp.order")->Push(MakeDataPacket(1)));
    EXPECT_EQ(sink->Module("dp.order")->Count(), 1);
    ReleaseAll(source, filter, sink);
}

TEST(DataPath, InputOnlyComponentEndsTheChain) {
    auto* source = Make<CSourceCom>("dp.end");
    auto* sink = Make<CSinkCom>("dp.end");
    auto* late = Make<CFilterCom>("dp.end");
    EXPECT_TRUE(late->Module("dp.end")->UpStreamModule()->IsNull());
    EXPECT_EQ(source->Module("dp.end")->DownStreamModule(), sink->Module("dp.end"));
    ReleaseAll(source, sink, late);
}

TEST(DataPath, ExplicitConnectLinksContextsOnThePath) {
    auto* source = Make<CSourceCom>();
    auto* filter = Make<CFilterCom>();
    auto* sink = Make<CSinkCom>();
    EXPECT_EQ(CDataPathRegistry::Connect("dp.explicit", source, filter), 1);
    EXPECT_EQ(CDataPathRegistry::Connect("dp.explicit", filter, sink), 1);
    source->Module("dp.explicit")->Push(MakeDataPacket(1));
    EXPECT_EQ(sink->Module("dp.explicit")->Count(), 1);
    EXPECT_EQ(filter->MakeConnections(0, sink->GetIUnknown(), "dp.other"), 1);
    EXPECT_EQ(filter->Module("dp.other")->DownStreamModule(), sink->Module("dp.other"));
    ReleaseAll(source, filter, sink);
}

TEST(DataPath, NewPathIsAnnouncedToEveryLiveBus) {
    auto* watcher = Make<CSinkCom>();
    const int before = CDataPathRegistry::s_numPaths;
    auto* source = Make<CSourceCom>("dp.announced");
    EXPECT_EQ(CDataPathRegistry::s_numPaths, before + 1);
    EXPECT_EQ(watcher->m_Created.back(), "dp.announced");
    EXPECT_TRUE(CDataPathRegistry::IsKnown("dp.announced"));
    ReleaseAll(watcher, source);
}

TEST(DataPath, DestroyedTailIsForgottenByThePath) {
    auto* source = Make<CSourceCom>("dp.forget");
    source->Release();
    auto* sink = Make<CSinkCom>("dp.forget");
    EXPECT_TRUE(sink->Module("dp.forget")->UpStreamModule()->IsNull());
    sink->Release();
}

TEST(DataPath, DisconnectUnlinksTheContextFromBothSides) {
    auto* source = Make<CSourceCom>("dp.cut");
    auto* filter = Make<CFilterCom>("dp.cut");
    auto* sink = Make<CSinkCom>("dp.cut");
    EXPECT_EQ(filter->Disconnect(0, "dp.cut"), 1);
    EXPECT_TRUE(source->Module("dp.cut")->DownStreamModule()->IsNull());
    EXPECT_TRUE(sink->Module("dp.cut")->UpStreamModule()->IsNull());
    ReleaseAll(source, filter, sink);
}

TEST(DataPath, ConnectorBindsPinToTheContext) {
    auto* filter = Make<CFilterCom>();
    CKorConnector* connector = filter->GetConnector(1, "dp.connector");
    ASSERT_NE(connector, nullptr);
    EXPECT_EQ(connector->GetModule(), filter->Module("dp.connector"));
    EXPECT_EQ(connector->GetPinIndex(), 1);
    filter->ReleaseConnector(connector, nullptr, "dp.connector");
    KorBusPin* in = nullptr;
    KorBusPin* out = nullptr;
    filter->GetPins(&in, &out);
    EXPECT_TRUE(in->m_IsInput);
    EXPECT_FALSE(out->m_IsInput);
    filter->Release();
}

} // namespace
