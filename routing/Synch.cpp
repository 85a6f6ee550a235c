#include "routing/Synch.h"

#include "entry/Registry.h"
#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/Property.h"
#include "framework/kor/Packet.h"

#include <climits>
#include <cmath>

namespace {

// The wait of a packet without a valid timestamp: far enough in the past to go at once.
constexpr int kReleaseNow = -1000000;

// Walk limit for ring repairs: a ring longer than this is taken as broken.
constexpr int kMaxRingWalk = 1 << 20;

int TruncateToInt(double value) {
    if (std::isnan(value)) {
        return 0; // converting NaN would be undefined
    }
    if (value >= static_cast<double>(INT_MAX)) {
        return INT_MAX;
    }
    if (value <= static_cast<double>(INT_MIN)) {
        return INT_MIN;
    }
    return static_cast<int>(value); // toward zero
}

} // namespace

// ---------------------------------------------------------------------------------------------
// CZorSynchModule

CZorSynchModule::CZorSynchModule(const CBelString& name)
    : CKorModule(name.IsEmpty() ? "Synch" : name.c_str()), m_NextCZorSynchModule(this) {}

CZorSynchModule::~CZorSynchModule() {
    UnChain();
    KillAlarm();
    if (m_pPacket) {
        m_pPacket->Release();
        m_pPacket = nullptr;
    }
}

bool CZorSynchModule::IsLater(std::uint32_t a, std::uint32_t b) {
    return static_cast<std::int32_t>(a - b) >= 0 && a != b;
}

bool CZorSynchModule::IsEarlier(std::uint32_t a, std::uint32_t b) {
    return static_cast<std::int32_t>(a - b) < 0;
}

double CZorSynchModule::GetScaleFactor() const {
    if (GetTimeBase()) {
        return GetTimeScaleFactor();
    }
    // "Not set" keeps the pace the clock runs at (1.0 unless a factor was set and then unset).
    return m_ScaleFactor == -1.0 ? GetTimeScaleFactor() : m_ScaleFactor;
}

void CZorSynchModule::KillAlarmIfSet() {
    if (IsAlarmSet()) {
        KillAlarm();
    }
}

bool CZorSynchModule::Deliver() {
    if (m_pPacket && DownStreamModule()->Receive(m_pPacket)) {
        m_pPacket = nullptr;
    }
    return m_pPacket == nullptr;
}

void CZorSynchModule::Schedule() {
    if (!m_pPacket) {
        return;
    }
    if (m_Mode == MODE_DISABLE) {
        KillAlarmIfSet();
        Deliver();
        return;
    }
    int wait = kReleaseNow;
    double preciseWait = 0.0; // ms until the module clock reads the timestamp
    if (m_pPacket->IsTimeStampValid()) {
        const double moduleTime = GetPreciseTime();
        const auto now = static_cast<long>(moduleTime); // GetTime() of the same instant
        const auto lead =
            static_cast<std::int32_t>(static_cast<std::uint32_t>(m_pPacket->GetTimeStamp()) -
                                      static_cast<std::uint32_t>(now));
        const double scale = GetScaleFactor();
        wait = TruncateToInt(static_cast<double>(lead) / scale);
        preciseWait = (static_cast<double>(lead) - (moduleTime - static_cast<double>(now))) / scale;
    }
    if (m_Mode == MODE_HIGHSPEED && wait > 0) {
        KillAlarmIfSet(); // in high speed the ring decides when the packet goes
        return;
    }
    if (wait <= 0) {
        SetAlarm(wait);
        return;
    }
    // The whole-millisecond wait would fire up to a millisecond early or late (the module clock
    // runs between whole milliseconds), and at 25 packets per second that error would build up
    // over every frame: aim at the instant the module clock reads the timestamp instead.
    SetAlarmAt(BelDoubleTime() + preciseWait / 1000.0);
}

void CZorSynchModule::SynchroniseRing() {
    // Without a "found" flag a ring holding only timestamps at or beyond 2000000000 (which never
    // count as earlier than that starting value) would never be released.
    std::uint32_t earliest = 2000000000u;
    bool found = false;
    CZorSynchModule* member = this;
    do {
        if (member->m_Mode == MODE_HIGHSPEED && member->m_pPacket &&
            member->m_pPacket->IsTimeStampValid()) {
            const auto stamp = static_cast<std::uint32_t>(member->m_pPacket->GetTimeStamp());
            if (!found || IsEarlier(stamp, earliest)) {
                earliest = stamp;
                found = true;
            }
        }
        member = member->m_NextCZorSynchModule;
    } while (member != this);
    do {
        if (member->m_Mode == MODE_HIGHSPEED && member->m_pPacket && !member->m_Paused) {
            if (found) {
                member->SetTime(static_cast<std::int32_t>(earliest));
            }
            member->Schedule();
        }
        member = member->m_NextCZorSynchModule;
    } while (member != this);
}

int CZorSynchModule::Receive(CKorPacket* packet) {
    if (m_InRecv) {
        BelDisplayAssert("!m_InRecv", "Synch", 135);
    }
    m_InRecv = 1;
    if (m_pPacket || m_Paused) {
        m_InRecv = 0;
        return 0;
    }
    if (IsAlarmSet()) {
        BelDisplayAssert("m_lAlarmTime == 0", "Synch", 141);
    }
    m_pPacket = packet;
    if (packet->GetKind() == CKorPacket::KIND_TIMEBASE) {
        auto* timeBase = static_cast<CKorTimeBasePacket*>(packet);
        if (m_ScaleFactor != -1.0) {
            timeBase->SetScaleFactor(m_ScaleFactor);
        }
        SetTimeBase(timeBase);
        m_Resynch = false;
    } else if (m_Resynch && packet->IsTimeStampValid()) {
        // A packet without a valid timestamp cannot anchor the clock; the next one that has one
        // does.
        SetTime(packet->GetTimeStamp());
        m_Resynch = false;
    }
    if (m_Mode == MODE_HIGHSPEED) {
        SynchroniseRing();
    } else {
        Schedule();
    }
    m_InRecv = 0;
    return 1;
}

void CZorSynchModule::Poll() {
    if (m_Paused) {
        return;
    }
    if (m_pPacket) {
        const bool dueLater = m_pPacket->IsTimeStampValid() && m_Mode != MODE_DISABLE &&
                              IsLater(static_cast<std::uint32_t>(m_pPacket->GetTimeStamp()),
                                      static_cast<std::uint32_t>(GetTime()));
        if (!dueLater) {
            KillAlarmIfSet();
            Deliver();
        }
    }
    if (!m_pPacket) {
        UpStreamModule()->Poll();
        if (!m_pPacket && m_Mode == MODE_HIGHSPEED) {
            SynchroniseRing();
        }
    }
}

void CZorSynchModule::TimeOut(long) {
    if (m_pPacket) {
        Deliver();
    }
    if (!m_pPacket) {
        UpStreamModule()->Poll();
        if (!m_pPacket && m_Mode == MODE_HIGHSPEED) {
            SynchroniseRing();
        }
    }
}

void CZorSynchModule::SetScaleFactor(double scaleFactor) {
    if (scaleFactor == m_ScaleFactor) {
        return;
    }
    if (scaleFactor != -1.0 && !(scaleFactor > 0.0 && std::isfinite(scaleFactor))) {
        BelDump("CZorSynchModule::SetScaleFactor -> scale factor must be positive.\n");
        return;
    }
    m_ScaleFactor = scaleFactor;
    if (scaleFactor == -1.0) {
        return;
    }
    SetTimeScaleFactor(scaleFactor);
    if (m_Paused) {
        return;
    }
    KillAlarmIfSet();
    if (m_pPacket) {
        Schedule();
        if (m_pPacket) {
            return;
        }
    }
    UpStreamModule()->Poll();
}

void CZorSynchModule::SetPaused(bool paused) {
    if (paused == m_Paused) {
        return;
    }
    m_Paused = paused;
    if (paused) {
        KillAlarmIfSet(); // the held packet stays
        return;
    }
    if (m_pPacket) {
        // Play resumes from the held packet's time: the clock did not run on through the pause.
        if (m_pPacket->IsTimeStampValid()) {
            SetTime(m_pPacket->GetTimeStamp());
        }
        m_Resynch = false;
        Schedule();
    } else {
        m_Resynch = true;
    }
    if (!m_pPacket) {
        UpStreamModule()->Poll();
    }
}

void CZorSynchModule::Notify(int mode, long) {
    if (mode == MODE_DISABLE || mode == MODE_NORMAL) {
        m_Mode = mode;
        if (m_Paused) {
            return;
        }
        if (m_pPacket) {
            Schedule();
            if (m_pPacket) {
                return;
            }
        }
        UpStreamModule()->Poll();
    } else if (mode == MODE_HIGHSPEED) {
        m_Mode = mode;
        SynchroniseRing();
    }
}

void CZorSynchModule::Flush() {
    if (m_pPacket) {
        m_pPacket->Release();
        m_pPacket = nullptr;
        KillAlarmIfSet();
    }
    m_Paused = false;
    m_Resynch = false;
    CKorModule::Flush();
}

void CZorSynchModule::Chain(CZorSynchModule* poCZorSynchModule) {
    // `this` is checked through a copy: the language lets a compiler assume it is never null.
    const CZorSynchModule* volatile self = this;
    if (self == nullptr) {
        BelDisplayAssert("this != 0", "Synch", 289);
        return;
    }
    if (poCZorSynchModule == nullptr) {
        BelDisplayAssert("poCZorSynchModule != 0", "Synch", 290);
        return;
    }
    // Already one ring: relinking would split it in two.
    const CZorSynchModule* member = this;
    do {
        if (member == poCZorSynchModule) {
            return;
        }
        member = member->m_NextCZorSynchModule;
    } while (member != this);
    CZorSynchModule* before = poCZorSynchModule;
    while (before->m_NextCZorSynchModule != poCZorSynchModule) {
        before = before->m_NextCZorSynchModule;
    }
    before->m_NextCZorSynchModule = m_NextCZorSynchModule;
    m_NextCZorSynchModule = poCZorSynchModule;
}

void CZorSynchModule::UnChain() {
    if (m_NextCZorSynchModule == this) {
        return;
    }
    CZorSynchModule* Module = m_NextCZorSynchModule;
    for (int steps = 0; Module->m_NextCZorSynchModule != this && steps < kMaxRingWalk; ++steps) {
        Module = Module->m_NextCZorSynchModule;
        if (Module == m_NextCZorSynchModule) {
            break; // came round without meeting this module
        }
    }
    if (Module->m_NextCZorSynchModule != this) {
        BelDisplayAssert("Module->m_NextCZorSynchModule == this", "Synch", 311);
        m_NextCZorSynchModule = this;
        return;
    }
    Module->m_NextCZorSynchModule = m_NextCZorSynchModule;
    m_NextCZorSynchModule = this;
}

// ---------------------------------------------------------------------------------------------
// CSynchCom

CSynchCom::CSynchCom(CJokGdVector* paths, const char* moduleName)
    : CKor2PinMultiPath<CZorSynchModule>("Synch", paths, moduleName) {
    JoinPaths();
}

CZorSynchModule* CSynchCom::MakeModule(const char*) {
    auto* module = new CZorSynchModule(GetModuleName());
    module->Notify(CZorSynchModule::MODE_NORMAL, 0);
    if (!GetModules().empty()) {
        module->Chain(GetModules().front().second);
    }
    if (m_ScaleFactor != -1.0) {
        module->SetScaleFactor(m_ScaleFactor);
    }
    module->SetPaused(m_Paused);
    return module;
}

const CJokPropertyMap<CSynchCom>& CSynchCom::PropertyMap() {
    static const CJokPropertyMap<CSynchCom> map = [] {
        CJokPropertyMap<CSynchCom> m;
        m.AddNotifiedBoolean("paused", &CSynchCom::PausedHandler, "&CSynchCom::PausedHandler")
            .AddNotifiedDouble("scaleFactor", &CSynchCom::ScaleFactorHandler,
                               "&CSynchCom::ScaleFactorHandler")
            .AddFunction("SetMode", &CSynchCom::SetMode, "&CSynchCom::SetMode");
        return m;
    }();
    return map;
}

CJokGenericData* CSynchCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CSynchCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CSynchCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CSynchCom::PausedHandler(int* value, int set) {
    if (set) {
        m_Paused = *value != 0;
        for (const auto& [path, module] : GetModules()) {
            module->SetPaused(m_Paused);
        }
        return 1;
    }
    if (GetModules().empty()) {
        *value = m_Paused ? 1 : 0;
        return 1;
    }
    *value = GetModules().front().second->IsPaused() ? 1 : 0;
    return 1;
}

int CSynchCom::ScaleFactorHandler(double* value, int set) {
    if (set) {
        if (*value != -1.0 && !(*value > 0.0 && std::isfinite(*value))) {
            // A clock cannot stand still or run backwards.
            return JokRefuseProperty("the scale factor must be a positive finite number (or -1.0 "
                                     "for not set)");
        }
        m_ScaleFactor = *value;
        for (const auto& [path, module] : GetModules()) {
            module->SetScaleFactor(*value);
        }
        return 1;
    }
    if (GetModules().empty()) {
        *value = m_ScaleFactor == -1.0 ? 1.0 : m_ScaleFactor;
        return 1;
    }
    *value = GetModules().front().second->GetScaleFactor();
    return 1;
}

int CSynchCom::SetMode(CJokCommandContext* context) {
    CBelString modeName;
    CBelString path;
    context->GetParam("mode", &modeName, 0);
    context->GetParam("path", &path, 1);
    if (!context->CanProceed(0)) {
        return 1;
    }
    int mode = -1;
    if (modeName.CompareNoCase("disable") == 0) {
        mode = CZorSynchModule::MODE_DISABLE;
    } else if (modeName.CompareNoCase("normal") == 0) {
        mode = CZorSynchModule::MODE_NORMAL;
    } else if (modeName.CompareNoCase("highspeed") == 0) {
        mode = CZorSynchModule::MODE_HIGHSPEED;
    } else {
        context->OutputErrorString(
            "SynchSetMode: mode must be one of [disable, normal or highspeed]\n");
        context->SetReturnValueNoRef(CJokGdBoolean::Allocate(0));
        return 1;
    }
    if (path.IsEmpty()) {
        for (const auto& [name, module] : GetModules()) {
            module->Notify(mode, 0);
        }
        context->SetReturnValueNoRef(CJokGdBoolean::Allocate(1));
        return 1;
    }
    for (const auto& [name, module] : GetModules()) {
        if (name.CompareNoCase(path) == 0) {
            module->Notify(mode, 0);
            context->SetReturnValueNoRef(CJokGdBoolean::Allocate(1));
            return 1;
        }
    }
    context->OutputErrorString("SynchSetMode: the requested path does not exist\n");
    context->SetReturnValueNoRef(CJokGdBoolean::Allocate(0));
    return 1;
}

int CreateSynch(CJokCommandContext* context) {
    return ZorCreateWithPaths<CSynchCom>(context, "CreateSynch");
}
