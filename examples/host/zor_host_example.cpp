// A host program of its own, built against an installed Zor the usual way (CMake's
// find_package(Zor), or pkg-config zor): it loads the module as a plugin, makes a packet filter
// by its creation name, joins it between a source and a sink of its own on a data path, and
// sends a group of pictures through it.
//
//     zor_host_example [MODULE]        (default: the installed module, ZOR_MODULE_PATH)
//
// It prints what reached the sink and answers 0 when the filter kept exactly the key frames.
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/JokDLL.h"
#include "framework/kor/Module.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "framework/kor/PinComponent.h"

#include <cstdio>
#include <vector>

#ifndef ZOR_MODULE_PATH
#define ZOR_MODULE_PATH "libzor.so"
#endif

namespace {

// The host's source: one module per path that hands on what the host gives it.
class CHostSource : public CKorOutputPinComponent {
public:
    CHostSource() : CKorOutputPinComponent("HostSource") {}
    CKorModule* CreateContext(const char* path) override {
        if (CKorModule* existing = _GetContext(path))
            return existing;
        m_pModule = new CKorModule("HostSource");
        return RememberContext(path, m_pModule);
    }
    // Takes packet's reference; answers whether downstream took it.
    bool Send(CKorPacket* packet) {
        if (m_pModule && m_pModule->DownStreamModule()->Receive(packet))
            return true;
        packet->Release();
        return false;
    }

private:
    CKorModule* m_pModule = nullptr;
};

// The host's sink: keeps the frame types of what arrives.
class CHostSink : public CKorInputPinComponent {
public:
    CHostSink() : CKorInputPinComponent("HostSink") {}
    CKorModule* CreateContext(const char* path) override {
        if (CKorModule* existing = _GetContext(path))
            return existing;
        return RememberContext(path, new CCollector(m_FrameTypes));
    }
    std::vector<int> m_FrameTypes;

private:
    class CCollector : public CKorModule {
    public:
        explicit CCollector(std::vector<int>& types) : CKorModule("HostSink"), m_Types(types) {}
        int Receive(CKorPacket* packet) override {
            m_Types.push_back(static_cast<CKorVideoPacket*>(packet)->GetFrameType());
            packet->Release();
            return 1;
        }

    private:
        std::vector<int>& m_Types;
    };
};

// Loads the module and answers its function list (one reference), or nullptr.
IJokModule* LoadModule(const char* path) {
    void* library = JokLoadLibrary(path);
    if (!library)
        return nullptr;
    using GetInterface = unsigned long (*)(void**);
    auto getInterface =
        reinterpret_cast<GetInterface>(JokGetLibrarySymbol(library, "zor_GetInterface"));
    if (!getInterface)
        return nullptr;
    BelRunInitialisers();
    void* unknown = nullptr;
    if (getInterface(&unknown) != 0 || !unknown)
        return nullptr;
    void* module = nullptr;
    static_cast<IUnknown*>(unknown)->QueryInterface(IID_IJokModule, &module);
    static_cast<IUnknown*>(unknown)->Release();
    return static_cast<IJokModule*>(module);
}

} // namespace

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : ZOR_MODULE_PATH;
    IJokModule* module = LoadModule(path);
    if (!module) {
        std::fprintf(stderr, "cannot load the Zor module %s\n", path);
        return 2;
    }
    std::printf("module %s: %d creation functions\n", path, module->GetFunctionCount());

    // Source first, then the filter made by name, then the sink: the chain of path "video".
    auto* source = new CHostSource;
    source->ConnectPath("video");
    CJokCommandContext create;
    create.SetCallName("CreateAdvancedPacketFilter");
    create.AddParam("dataPath", "video");
    module->FindFunction("CreateAdvancedPacketFilter")->CallMethod(&create);
    CJokGenericData* filter = create.DetachReturnValue(); // holds the filter
    auto* sink = new CHostSink;
    sink->ConnectPath("video");

    IJokCommand* filterCommand = nullptr;
    static_cast<CJokGdObject*>(filter)->GetInterface(
        IID_IJokCommand, reinterpret_cast<void**>(&filterCommand), "IJokCommand");
    CJokGdString* script =
        CJokGdString::Allocate("if (TYPE == VIDEO && FRAMETYPE != IFRAME) { DISCARD; }");
    const int set = filterCommand->SetProperty("filter", script);
    script->Release();

    const int gop[] = {0, 1, 3, 1, 3, 0, 1, 3, 1, 3}; // I P B P B, twice
    for (int i = 0; i < 10; ++i) {
        CKorVideoPacket* frame = g_VideoPacketSource.NewPacket(nullptr, 0, 0);
        frame->SetFrameType(gop[i]);
        frame->SetTimeStamp(static_cast<std::uint32_t>(40 * i));
        frame->SetTimeStampValid(true);
        source->Send(frame);
    }
    std::printf("sent 10 frames through the filter, %zu reached the sink:",
                sink->m_FrameTypes.size());
    for (int type : sink->m_FrameTypes)
        std::printf(" %s", type == 0 ? "I" : "other");
    std::printf("\n");
    const bool ok = set == 1 && sink->m_FrameTypes == std::vector<int>{0, 0};

    filterCommand->Release();
    filter->Release();
    sink->Release();
    source->Release();
    module->Release();
    return ok ? 0 : 1;
}
