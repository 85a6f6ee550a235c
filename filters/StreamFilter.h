// The stream filter: passes or drops packets by stream number against a list of stream
// identifiers, and after any drop resumes only at a key frame, so that a decoder downstream never
// starts on a dependent frame. One CZorStreamFilterModule per data path; the modules start with
// processing disabled (they pass everything untouched) until the script enables them.
//
//   local sf = zor.CreateStreamFilter{ paths = { "video" } }
//   sf.SetStreamFilter{ filterIDs = { 2 }, mask = 0xFFFF }
//   sf.EnableStreamFilter{}
//
// Invariants: a module waits for a key frame from construction and after every packet it drops;
// SetStreamFilter changes the list, include flag and mask only (never the waiting state or the
// enabled state); the component's modules are kept in creation order with their path names.
#pragma once

#include "entry/ZorExport.h"
#include "framework/kor/MultiPath.h"
#include "framework/kor/UnbufferedModule.h"

#include <cstdint>
#include <vector>

class CJokCommandContext;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorStreamFilterModule : public CKorUnbufferedModule {
public:
    // An empty name gives "StreamFilter". Starts with processing disabled.
    explicit CZorStreamFilterModule(const char* name = "");

    // A packet a decoder can start on: video I- and EI-frames, the key packets of TRELLUM
    // streams, and every packet of the kinds that have no dependent frames (audio, text, data).
    static bool IsKeyFrame(const CKorPacket& packet);

    void SetStreamFilter(std::vector<std::int32_t> ids, std::int32_t include, std::uint32_t mask);
    const std::vector<std::int32_t>& GetIds() const { return m_Ids; }
    std::int32_t GetInclude() const { return m_Include; }
    std::uint32_t GetMask() const { return m_Mask; }
    bool IsResynchronising() const { return m_Resynchronising != 0; }

protected:
    void ProcessPacket() override;

private:
    std::vector<std::int32_t> m_Ids;
    std::int32_t m_Include = 1;
    std::uint32_t m_Mask = 0xFFFFFFFFu;
    std::int32_t m_Resynchronising = 1;
};

class CStreamFilterCom final : public CKor2PinMultiPath<CZorStreamFilterModule> {
public:
    // Makes one module per path, in order, and joins each path. Borrows paths (may be nullptr).
    explicit CStreamFilterCom(CJokGdVector* paths);

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    int SetStreamFilter(CJokCommandContext* context);
    int EnableStreamFilter(CJokCommandContext* context);

protected:
    CZorStreamFilterModule* MakeModule(const char* path) override;

private:
    static const CJokPropertyMap<CStreamFilterCom>& PropertyMap();
};

// "CreateStreamFilter" { paths = { "..." } }.
int CreateStreamFilter(CJokCommandContext* context);
