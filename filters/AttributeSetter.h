// The attribute setter: stamps a fixed set of integer attributes (number, value) onto every packet
// that passes. The component keeps one ordered list that all of its modules, one per data path,
// apply; the script keeps the list up to date, and the packets are otherwise untouched.
//
//   local attr = zor.CreateAttributeSetter{ paths = { "video" } }
//   attr.AlterAttribute{ type = 1, value = 40 } -- motion level 40 on every video packet
//
// Invariants: each attribute number occurs at most once in the list; the list keeps insertion
// order and is applied in it; a module only borrows its owner, which outlives it (the owner's bus
// owns the modules).
#pragma once

#include "entry/ZorExport.h"
#include "framework/kor/MultiPath.h"
#include "framework/kor/UnbufferedModule.h"

#include <cstdint>
#include <vector>

class CAttrCom;
class CJokCommandContext;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorAttrModule : public CKorUnbufferedModule {
public:
    // Borrows owner.
    explicit CZorAttrModule(CAttrCom* owner);

protected:
    void ProcessPacket() override;

private:
    CAttrCom* m_pOwner;
    bool m_ReportedFull = false;
};

class CAttrCom final : public CKor2PinMultiPath<CZorAttrModule> {
public:
    struct SAttribute {
        std::int32_t m_Type;
        std::int32_t m_Value;
    };

    // Makes one module per path and joins each path. Borrows paths (may be nullptr).
    explicit CAttrCom(CJokGdVector* paths);

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    const std::vector<SAttribute>& Attributes() const { return m_Attributes; }

    int AlterAttribute(CJokCommandContext* context);
    int ReleaseAttribute(CJokCommandContext* context);
    int ReleaseAll(CJokCommandContext* context);

protected:
    // Every module reads this component's one attribute list.
    CZorAttrModule* MakeModule(const char* path) override;

private:
    static const CJokPropertyMap<CAttrCom>& PropertyMap();

    std::vector<SAttribute> m_Attributes;
};

// "CreateAttributeSetter" { paths = { "..." } }.
int CreateAttributeSetter(CJokCommandContext* context);
